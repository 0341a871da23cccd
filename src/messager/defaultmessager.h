// Serves every configured module that has no class of its own: forwards to the socket at its path,
// one request, one answer, on the receive thread of the console that asked.
#pragma once

#include "messager/messager.h"

namespace kelp {

class DefaultMessager : public Messager {
  public:
    // The new module belongs to the caller.
    static Messager* Create(MessagerManager* manager, std::string name);

    using Messager::Messager;

    unsigned HandleMessager(Command* command, void* processor) override;
};

}  // namespace kelp
