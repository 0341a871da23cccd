// Common base of the consoles that accept clients.
#pragma once

#include <string>

#include "processor/processor.h"

namespace kelp {

// Subclasses open the listening socket.
class ListenProcessor : public Processor {
  public:
    using Processor::DisConnect;
    void DisConnect(int& fd) override;

  protected:
    // `name` is the name of the console's record.
    ListenProcessor(ConfigManager* configManager, MessagerManager* messagerManager,
                    const std::string& name);
};

}  // namespace kelp
