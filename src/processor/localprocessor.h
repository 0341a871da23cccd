// The local-socket console.
#pragma once

#include "processor/processor.h"

namespace kelp {

// Listens on the abstract local stream socket that the record "local" names as its route; no file
// is made.
class LocalProcessor : public Processor {
  public:
    LocalProcessor(ConfigManager* configManager, MessagerManager* messagerManager);

    using Processor::DisConnect;
    int Connect() override;
    void DisConnect(int& fd) override;
};

}  // namespace kelp
