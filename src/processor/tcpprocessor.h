// The TCP console.
#pragma once

#include "processor/processor.h"

namespace kelp {

// Listens on the IPv4 address and port of the record "tcp"; an empty address is any address.
class TCPProcessor : public Processor {
  public:
    TCPProcessor(ConfigManager* configManager, MessagerManager* messagerManager);

    using Processor::DisConnect;
    int Connect() override;
    void DisConnect(int& fd) override;
};

}  // namespace kelp
