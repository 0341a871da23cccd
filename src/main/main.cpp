// Start-up: the configuration, the modules, the consoles. Then the main thread sleeps, and all work
// happens on the threads that they started. There is no orderly shutdown: the process runs until it
// is killed.

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

// Consoles wait in select, which takes only descriptors below FD_SETSIZE: with this limit there are
// no others, and opening one too many fails with EMFILE.
void LimitDescriptors() {
    struct rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, FD_SETSIZE);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

// A supervisor may start the daemon without them. The first files opened would then get their
// numbers, and a console or a peer would get the log.
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
    // A client or a peer that closes during a write must not kill the daemon.
    signal(SIGPIPE, SIG_IGN);
    // Files are private by default.
    umask(077);
    FillStandardDescriptors();
    LimitDescriptors();
    kelp::SetLogFilter(getenv("ANDROID_LOG_TAGS"));
    kelp::OpenLog(getenv("JOURNAL_STREAM"));
    kelp::SystemProperty::SetFile(getenv("KELP_PROPERTIES"));

    kelp::ArgParser(argc, argv);
    std::string path;
    if (!kelp::GetJsonPath(path)) {
        return -1;
    }
    const auto configManager = std::make_shared<kelp::ConfigManager>();
    // On failure the built-in configuration stays in force.
    configManager->ParseJSONDoc(path);
    const auto messagerManager = std::make_shared<kelp::MessagerManager>(configManager.get());
    const auto processorManager = std::make_shared<kelp::ProcessorManager>(messagerManager.get());
    processorManager->Start();
    for (;;) {
        sleep(UINT_MAX);
    }
}
