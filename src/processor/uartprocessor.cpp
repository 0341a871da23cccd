#include "processor/uartprocessor.h"

#include "processor/sfiochannel.h"

namespace kelp {

UARTProcessor::UARTProcessor(ConfigManager* configManager, MessagerManager* messagerManager)
    : SerialProcessor(configManager, messagerManager, "uart") {}

void UARTProcessor::DisConnect(int& fd) {
    mChannel->Close();
    fd = -1;
}

}  // namespace kelp
