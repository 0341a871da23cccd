// The local-socket console.
#pragma once

#include "processor/listenprocessor.h"

namespace kelp {

// Listens on the abstract local stream socket that the record "local" names as its route; no file
// is made.
class LocalProcessor : public ListenProcessor {
  public:
    LocalProcessor(ConfigManager* configManager, MessagerManager* messagerManager);

    int Connect() override;
};

}  // namespace kelp
