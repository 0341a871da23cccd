#include "processor/listenprocessor.h"

#include <unistd.h>

#include "config/configmanager.h"

namespace kelp {

ListenProcessor::ListenProcessor(ConfigManager* configManager, MessagerManager* messagerManager,
                                 const std::string& name)
    : Processor(configManager, messagerManager, SERVER_MODE) {
    mConsoleConfig = configManager->GetConfigByName(name);
}

void ListenProcessor::DisConnect(int& fd) {
    if (fd == -1) {
        return;
    }
    close(fd);
    fd = -1;
}

}  // namespace kelp
