#include "support/kelpprocess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/wait.h"

namespace kelp::test {

KelpProcess::KelpProcess(const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment) {
    std::vector<std::string> words = {"env"};
    words.insert(words.end(), environment.begin(), environment.end());
    words.emplace_back(KELP_DAEMON);
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    const int log = open(mLogPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    mPid = fork();
    if (mPid == 0) {
        const struct rlimit none = {0, 0};
        setrlimit(RLIMIT_CORE, &none);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(log, STDERR_FILENO);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    close(log);
}

KelpProcess::~KelpProcess() {
    if (mPid > 0) {
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
    }
}

const std::string& KelpProcess::Log() {
    std::ifstream file(mLogPath, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(mLog.size()));
    const std::string more(std::istreambuf_iterator<char>(file), {});
    // A record that is just being written can be seen up to the end of a page of the file.
    mLog.append(more, 0, more.rfind('\n') + 1);
    return mLog;
}

int KelpProcess::Logged(const std::string& text) {
    Log();
    int count = 0;
    for (size_t at = mLog.find(text); at != std::string::npos; at = mLog.find(text, at + 1)) {
        ++count;
    }
    return count;
}

bool KelpProcess::WaitForLog(const std::string& text, int count) {
    return WaitUntil([&] { return Logged(text) >= count; });
}

bool KelpProcess::Running() const {
    siginfo_t ended = {};
    return waitid(P_PID, static_cast<id_t>(mPid), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           ended.si_pid == 0;
}

int KelpProcess::WaitForExit() {
    int status = -1;
    if (WaitUntil([&] { return waitpid(mPid, &status, WNOHANG) == mPid; })) {
        mPid = -1;
    }
    return status;
}

int64_t KelpProcess::CpuMs() const {
    clockid_t clock;
    struct timespec used = {};
    clock_getcpuclockid(mPid, &clock);
    clock_gettime(clock, &used);
    return static_cast<int64_t>(used.tv_sec) * 1000 + used.tv_nsec / 1000000;
}

size_t KelpProcess::CountEntries(const char* directory) const {
    std::error_code gone;
    const std::filesystem::directory_iterator entries(
        "/proc/" + std::to_string(mPid) + "/" + directory, gone);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

}  // namespace kelp::test
