// Start-up: the configuration, the modules, the consoles, and then nothing: all further work
// happens on the threads that they started. There is no orderly end; the process runs until it is
// killed.

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <string>

#include "config/configmanager.h"
#include "main/argparser.h"
#include "messager/messagermanager.h"
#include "platform/log.h"
#include "platform/systemproperty.h"
#include "processor/processormanager.h"

namespace {

// Consoles wait in select, which cannot hold a descriptor that is not below FD_SETSIZE: with this
// limit there is none, and a socket too many fails to open like any other.
void LimitDescriptors() {
    struct rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, FD_SETSIZE);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

// A supervisor may start the daemon without them; what is opened first would take their numbers,
// and a console or a peer would get the log.
void FillStandardDescriptors() {
    int fd;
    do {
        fd = open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0) {
        close(fd);
    }
}

}  // namespace

int main(int argc, char** argv) {
    // A client or a peer that goes away in the middle of a write must never end the daemon.
    signal(SIGPIPE, SIG_IGN);
    // What the daemon creates is its own alone, unless it says otherwise.
    umask(077);
    FillStandardDescriptors();
    LimitDescriptors();
    kelp::SetLogFilter(getenv("ANDROID_LOG_TAGS"));
    kelp::OpenLog();
    kelp::SystemProperty::SetFile(getenv("KELP_PROPERTIES"));

    kelp::ArgParser(argc, argv);
    std::string path;
    if (!kelp::GetJsonPath(path)) {
        return -1;
    }
    const auto configManager = std::make_shared<kelp::ConfigManager>();
    // A file that cannot be read leaves the built-in configuration in force.
    configManager->ParseJSONDoc(path);
    const auto messagerManager = std::make_shared<kelp::MessagerManager>(configManager.get());
    const auto processorManager = std::make_shared<kelp::ProcessorManager>(messagerManager.get());
    processorManager->Start();
    for (;;) {
        sleep(UINT_MAX);
    }
}
