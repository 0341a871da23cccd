// Start-up: the configuration, the modules, the consoles, and then nothing: all further work
// happens on the threads that they started. There is no orderly end; the process runs until it is
// killed.

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <memory>
#include <string>

#include "config/configmanager.h"
#include "main/argparser.h"
#include "messager/messagermanager.h"
#include "processor/processormanager.h"

int main(int argc, char** argv) {
    // A client or a peer that goes away in the middle of a write must never end the daemon.
    signal(SIGPIPE, SIG_IGN);
    // What the daemon creates is its own alone, unless it says otherwise.
    umask(077);

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
