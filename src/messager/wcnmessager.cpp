#include "messager/wcnmessager.h"

#include "config/configmanager.h"
#include "messager/messagermanager.h"

namespace kelp {

Messager* WCNMessager::Create(MessagerManager* manager, std::string name) {
    return new WCNMessager(manager, name);
}

unsigned WCNMessager::HandleMessager(Command* command, void* processor) {
    // Always the record of this name, whatever the module's name; looked up for every request.
    const ModuleInfo* const record = mManager->GetConfigManager()->GetModuleByName("wcn");
    return Exchange(command, processor, record != nullptr && record->keepAlive);
}

}  // namespace kelp
