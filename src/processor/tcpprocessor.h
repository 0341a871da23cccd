// The TCP console.
#pragma once

#include "processor/listenprocessor.h"

namespace kelp {

// Listens on the IPv4 address and port of the record "tcp"; an empty address means any address.
class TCPProcessor : public ListenProcessor {
  public:
    TCPProcessor(ConfigManager* configManager, MessagerManager* messagerManager);

    int Connect() override;
};

}  // namespace kelp
