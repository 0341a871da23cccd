#include "support/process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <system_error>

#include "platform/uniquefd.h"
#include "support/wait.h"

namespace kelp::test {

Process::Process(const std::vector<std::string>& words, const std::string& output) {
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (const std::string& word : words) {
        argv.push_back(const_cast<char*>(word.c_str()));
    }
    argv.push_back(nullptr);
    const UniqueFd file(open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    mPid = fork();
    if (mPid == 0) {
        const struct rlimit none = {0, 0};
        setrlimit(RLIMIT_CORE, &none);
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(file.Get(), STDOUT_FILENO);
        dup2(file.Get(), STDERR_FILENO);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    setpgid(mPid, mPid);  // also in the child: either may run first
}

Process::~Process() {
    if (mPid > 0) {
        kill(-mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
    }
}

bool Process::Running() const {
    siginfo_t ended = {};
    return waitid(P_PID, static_cast<id_t>(mPid), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           ended.si_pid == 0;
}

int Process::WaitForExit() {
    int status = -1;
    if (WaitUntil([&] { return waitpid(mPid, &status, WNOHANG) == mPid; })) {
        mPid = -1;
    }
    return status;
}

size_t Process::CountEntries(const char* directory) const {
    std::error_code gone;
    const std::filesystem::directory_iterator entries(
        "/proc/" + std::to_string(mPid) + "/" + directory, gone);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

}  // namespace kelp::test
