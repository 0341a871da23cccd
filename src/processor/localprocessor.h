// The local-socket console.
#pragma once

#include "processor/listenprocessor.h"

namespace kelp {

// Listens on the abstract local stream socket named by the route of the record "local"; creates no
// file.
class LocalProcessor : public ListenProcessor {
  public:
    LocalProcessor(ConfigManager* configManager, MessagerManager* messagerManager);

    int Connect() override;
};

}  // namespace kelp
