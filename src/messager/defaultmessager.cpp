#include "messager/defaultmessager.h"

namespace kelp {

Messager* DefaultMessager::Create(MessagerManager* manager, std::string name) {
    return new DefaultMessager(manager, name);
}

unsigned DefaultMessager::HandleMessager(Command* command, void* processor) {
    return Exchange(command, processor, false);
}

}  // namespace kelp
