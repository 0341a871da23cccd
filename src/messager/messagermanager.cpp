#include "messager/messagermanager.h"

#include "config/configmanager.h"
#include "main/errorcode.h"
#include "messager/defaultmessager.h"
#include "messager/kelpmessager.h"
#include "messager/modemmessager.h"
#include "messager/pcbamessager.h"
#include "messager/wcnmessager.h"
#include "platform/log.h"
#include "processor/command.h"
#include "processor/processor.h"
#include "processor/processormanager.h"

namespace kelp {

namespace {

// A module class and the record name that selects it.
struct Factory {
    const char* name;
    Messager* (*create)(MessagerManager* manager, std::string name);
    PeerE peer;
};

constexpr Factory kFactories[] = {
    {"wcn", WCNMessager::Create, PeerE::kRelayed},
    {"modem", ModemMessager::Create, PeerE::kStream},
    {"pcba", PCBAMessager::Create, PeerE::kRecords},
    {"kelp", KELPMessager::Create, PeerE::kNone},
    // The FM test daemon uses the PCBA protocol.
    {"fm", PCBAMessager::Create, PeerE::kRecords},
};
constexpr Factory kDefault = {"", DefaultMessager::Create, PeerE::kRelayed};

const Factory& FactoryOf(const std::string& name) {
    for (const Factory& factory : kFactories) {
        if (name == factory.name) {
            return factory;
        }
    }
    return kDefault;
}

}  // namespace

PeerE MessagerManager::PeerOf(const std::string& module) {
    return FactoryOf(module).peer;
}

MessagerManager::MessagerManager(ConfigManager* configManager) : mConfigManager(configManager) {
    for (const ModuleInfo& module : *mConfigManager->GetModuleConfigs()) {
        mMessagers.emplace_back(FactoryOf(module.name).create(this, module.name));
    }
}

MessagerManager::~MessagerManager() = default;

unsigned MessagerManager::HandleRequest(Command* command, Processor* processor) {
    if (command == nullptr) {
        KLOG(kLogError) << "get null COMMAND";
        return kErrorRequestNull;
    }
    const std::vector<char>* const request = command->GetRequest();
    if (request == nullptr) {
        KLOG(kLogError) << "get null request data.";
        return kErrorRequestNull;
    }
    for (const auto& messager : mMessagers) {
        if (messager->isSupportCmd(request->data(), static_cast<int>(request->size()))) {
            return messager->HandleMessager(command, processor);
        }
    }
    KLOG(kLogError) << "all modules: unsupport command.";
    DUMPLOG(kLogTag, "HandleRequest", request->data(), request->size());
    return kErrorUnsupportCommand;
}

unsigned MessagerManager::HandleResponse(Command* command, void* processor) {
    if (command == nullptr || processor == nullptr) {
        KLOG(kLogError) << "input error";
        return kErrorInvalidParameter;
    }
    MutexLock lock(mMutex);
    static_cast<Processor*>(processor)->SendDataDone(command);
    return kSuccess;
}

unsigned MessagerManager::HandleComplete(Command* command) {
    Messager* const messager = command->mMessager;
    return messager != nullptr ? messager->HandleComplete() : 0;
}

ModuleInfo* MessagerManager::GetModuleByName(const std::string& name) {
    return mConfigManager->GetModuleByName(name);
}

Processor* MessagerManager::GetProcessorByName(const std::string& name) {
    ProcessorManager* const processorManager = mProcessorManager;
    return processorManager != nullptr ? processorManager->GetProcessorByName(name) : nullptr;
}

void MessagerManager::SetProcessorManager(ProcessorManager* processorManager) {
    mProcessorManager = processorManager;
}

}  // namespace kelp
