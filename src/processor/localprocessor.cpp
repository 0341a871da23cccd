#include "processor/localprocessor.h"

#include <errno.h>
#include <string.h>

#include "config/configmanager.h"
#include "platform/localserver.h"
#include "platform/log.h"

namespace kelp {

LocalProcessor::LocalProcessor(ConfigManager* configManager, MessagerManager* messagerManager)
    : ListenProcessor(configManager, messagerManager, "local") {}

int LocalProcessor::Connect() {
    if (mServerFd != -1) {
        return mServerFd;
    }
    const std::string name = mConsoleConfig->route;
    const int fd = ListenLocalAbstract(name);
    if (fd < 0) {
        KLOG(kLogInfo) << GetName() << "-->" << name << ": errno = " << errno << " ("
                       << strerror(errno) << ")";
    }
    return fd;
}

}  // namespace kelp
