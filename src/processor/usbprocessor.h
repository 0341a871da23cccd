// The USB gadget serial console.
#pragma once

#include "processor/serialprocessor.h"

namespace kelp {

// Its record is "usb".
class USBProcessor : public SerialProcessor {
  public:
    USBProcessor(ConfigManager* configManager, MessagerManager* messagerManager);
};

}  // namespace kelp
