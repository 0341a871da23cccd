#include "processor/uartprocessor.h"

namespace kelp {

UARTProcessor::UARTProcessor(ConfigManager* configManager, MessagerManager* messagerManager)
    : SerialProcessor(configManager, messagerManager, "uart") {}

}  // namespace kelp
