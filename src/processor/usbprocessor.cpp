#include "processor/usbprocessor.h"

namespace kelp {

USBProcessor::USBProcessor(ConfigManager* configManager, MessagerManager* messagerManager)
    : SerialProcessor(configManager, messagerManager, "usb") {}

}  // namespace kelp
