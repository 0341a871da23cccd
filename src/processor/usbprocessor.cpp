#include "processor/usbprocessor.h"

#include "processor/sfiochannel.h"

namespace kelp {

USBProcessor::USBProcessor(ConfigManager* configManager, MessagerManager* messagerManager)
    : SerialProcessor(configManager, messagerManager, "usb") {}

void USBProcessor::DisConnect(int& fd) {
    if (fd == -1) {
        return;
    }
    // The channel owns the descriptor; closing the number once more could hit a stranger's.
    mChannel->Close();
    fd = -1;
}

}  // namespace kelp
