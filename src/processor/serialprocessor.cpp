#include "processor/serialprocessor.h"

#include <termios.h>

#include "config/configmanager.h"
#include "processor/consoleattribute.h"
#include "processor/sfiochannel.h"

namespace kelp {

SerialProcessor::SerialProcessor(ConfigManager* configManager, MessagerManager* messagerManager,
                                 const std::string& name)
    : Processor(configManager, messagerManager, DEVICE_MODE),
      mChannel(new SFIOChannel),
      mAttribute(new ConsoleAttribute(mChannel.get(), kReceiveNone, 0)) {
    mConsoleConfig = configManager->GetConfigByName(name);
}

SerialProcessor::~SerialProcessor() = default;

int SerialProcessor::Connect() {
    if (mServerFd != -1) {
        return mServerFd;
    }
    const int result = mChannel->Open(mConsoleConfig->route.Get().c_str(), false);
    mAttribute->OnConfig();
    return result;
}

void SerialProcessor::DisConnect(int& fd) {
    if (mWriteFailed) {
        // The host does not read: the close would wait for it.
        tcflush(fd, TCOFLUSH);
    }
    // The channel owns the descriptor; a second close could hit another file.
    mChannel->Close();
    fd = -1;
}

}  // namespace kelp
