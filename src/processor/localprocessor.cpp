#include "processor/localprocessor.h"

#include <unistd.h>

#include "config/configmanager.h"
#include "platform/localserver.h"

namespace kelp {

LocalProcessor::LocalProcessor(ConfigManager* configManager, MessagerManager* messagerManager)
    : Processor(configManager, messagerManager, SERVER_MODE) {
    mConsoleConfig = configManager->GetConfigByName("local");
}

int LocalProcessor::Connect() {
    if (mServerFd != -1) {
        return mServerFd;
    }
    return ListenLocalAbstract(mConsoleConfig->route);
}

void LocalProcessor::DisConnect(int& fd) {
    if (fd == -1) {
        return;
    }
    close(fd);
    fd = -1;
}

}  // namespace kelp
