#include "process.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

namespace kelp::bench {

namespace {

cpu_set_t InitialCores() {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    sched_getaffinity(0, sizeof(cores), &cores);
    return cores;
}

// Taken while the program loads, before anything is pinned.
const cpu_set_t sInitialCores = InitialCores();

cpu_set_t CoreSet(int core) {
    if (core < 0) {
        return sInitialCores;
    }
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(core, &cores);
    return cores;
}

std::vector<pid_t> Threads(pid_t pid) {
    std::vector<pid_t> tids;
    DIR* const directory = opendir(("/proc/" + std::to_string(pid) + "/task").c_str());
    if (directory == nullptr) {
        return tids;
    }
    while (const dirent* entry = readdir(directory)) {
        const int tid = atoi(entry->d_name);
        if (tid > 0) {
            tids.push_back(tid);
        }
    }
    closedir(directory);
    return tids;
}

// Voluntary and not: the names of both end alike.
int64_t SwitchesOf(const std::string& status) {
    constexpr char kKey[] = "voluntary_ctxt_switches:";
    int64_t switches = 0;
    std::ifstream file(status);
    for (std::string line; std::getline(file, line);) {
        const size_t key = line.find(kKey);
        if (key != std::string::npos) {
            switches += atol(line.c_str() + key + strlen(kKey));
        }
    }
    return switches;
}

// The number behind `key` in a file of "key: number" lines; 0 when it is not there.
long Field(const std::string& path, const std::string& key) {
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        if (line.compare(0, key.size(), key) == 0 && line[key.size()] == ':') {
            return atol(line.c_str() + key.size() + 1);
        }
    }
    return 0;
}

}  // namespace

bool Process::Start(const std::vector<std::string>& argv, const std::string& output,
                    const std::vector<std::string>& environment) {
    std::vector<char*> arguments;
    for (const std::string& argument : argv) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    mStartedNs = NowNs();
    mPid = fork();
    if (mPid != 0) {
        return mPid > 0;
    }
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // an interrupted run leaves nothing behind
    const int fd = open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    dup2(fd, 1);
    dup2(fd, 2);
    for (const std::string& variable : environment) {
        putenv(const_cast<char*>(variable.c_str()));
    }
    execvp(arguments[0], arguments.data());
    _exit(127);
}

void Process::Stop(int signal) {
    if (mPid <= 0) {
        return;
    }
    kill(-mPid, signal);
    const int64_t deadline = NowNs() + 1000000000;
    while (Running()) {
        if (NowNs() > deadline) {
            kill(-mPid, SIGKILL);
        }
        usleep(500);
    }
}

bool Process::Running() {
    if (mPid > 0 && waitpid(mPid, nullptr, WNOHANG) != 0) {
        kill(-mPid, SIGKILL);  // what it forked and left behind
        mPid = -1;
    }
    return mPid > 0;
}

std::vector<pid_t> Process::Tree() const {
    std::vector<pid_t> pids;
    if (mPid <= 0) {
        return pids;
    }
    pids.push_back(mPid);
    const std::string pid = std::to_string(mPid);
    std::ifstream children("/proc/" + pid + "/task/" + pid + "/children");
    pid_t child;
    while (children >> child) {
        pids.push_back(child);
    }
    return pids;
}

int64_t CpuNs(const std::vector<pid_t>& pids) {
    int64_t ns = 0;
    for (const pid_t pid : pids) {
        clockid_t clock;
        struct timespec used;
        if (clock_getcpuclockid(pid, &clock) == 0 && clock_gettime(clock, &used) == 0) {
            ns += used.tv_sec * 1000000000 + used.tv_nsec;
        }
    }
    return ns;
}

int64_t Switches(const std::vector<pid_t>& pids) {
    int64_t switches = 0;
    for (const pid_t pid : pids) {
        for (const pid_t tid : Threads(pid)) {
            switches += SwitchesOf("/proc/" + std::to_string(pid) + "/task/" + std::to_string(tid) +
                                   "/status");
        }
    }
    return switches;
}

Footprint ReadFootprint(const std::vector<pid_t>& pids) {
    Footprint footprint;
    for (const pid_t pid : pids) {
        const std::string directory = "/proc/" + std::to_string(pid);
        footprint.rssKib += Field(directory + "/status", "VmRSS");
        footprint.pssKib += Field(directory + "/smaps_rollup", "Pss");
        footprint.threads += static_cast<int>(Field(directory + "/status", "Threads"));
    }
    return footprint;
}

void Pin(int core) {
    const cpu_set_t cores = CoreSet(core);
    sched_setaffinity(0, sizeof(cores), &cores);
}

void PinProcess(pid_t pid, int core) {
    const cpu_set_t cores = CoreSet(core);
    for (const pid_t tid : Threads(pid)) {
        sched_setaffinity(tid, sizeof(cores), &cores);
    }
}

int LastCore() {
    int last = 0;
    for (int core = 0; core < CPU_SETSIZE; ++core) {
        if (CPU_ISSET(core, &sInitialCores)) {
            last = core;
        }
    }
    return last;
}

int64_t NowNs() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000 + now.tv_nsec;
}

}  // namespace kelp::bench
