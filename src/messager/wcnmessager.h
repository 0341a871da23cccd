// Relays to the wireless-connectivity daemon: one request, one answer, on the receive thread of the
// asking console.
#pragma once

#include "messager/messager.h"

namespace kelp {

class WCNMessager : public Messager {
  public:
    // The caller owns the new module.
    static Messager* Create(MessagerManager* manager, std::string name);

    using Messager::Messager;

    unsigned HandleMessager(Command* command, void* processor) override;
};

}  // namespace kelp
