// The UART console.
#pragma once

#include "processor/serialprocessor.h"

namespace kelp {

// Its record is "uart".
class UARTProcessor : public SerialProcessor {
  public:
    UARTProcessor(ConfigManager* configManager, MessagerManager* messagerManager);
};

}  // namespace kelp
