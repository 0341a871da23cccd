// The USB gadget serial console.
#pragma once

#include "processor/serialprocessor.h"

namespace kelp {

// Its record is "usb".
class USBProcessor : public SerialProcessor {
  public:
    USBProcessor(ConfigManager* configManager, MessagerManager* messagerManager);

    using Processor::DisConnect;
    void DisConnect(int& fd) override;
};

}  // namespace kelp
