#include "processor/localprocessor.h"

#include "config/configmanager.h"
#include "platform/localserver.h"

namespace kelp {

LocalProcessor::LocalProcessor(ConfigManager* configManager, MessagerManager* messagerManager)
    : ListenProcessor(configManager, messagerManager, "local") {}

int LocalProcessor::Connect() {
    if (mServerFd != -1) {
        return mServerFd;
    }
    return ListenLocalAbstract(mConsoleConfig->route);
}

}  // namespace kelp
