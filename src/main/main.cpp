// Start-up: the configuration, the modules, the consoles, and then nothing: all further work
// happens on the threads that they started. There is no orderly end; the process runs until it is
// killed.

#include <signal.h>
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

}  // namespace

int main(int argc, char** argv) {
    // A client or a peer that goes away in the middle of a write must never end the daemon.
    signal(SIGPIPE, SIG_IGN);
    // What the daemon creates is its own alone, unless it says otherwise.
    umask(077);
    LimitDescriptors();

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
