#include "processor/processormanager.h"

#include "config/configmanager.h"
#include "messager/messagermanager.h"
#include "platform/log.h"
#include "processor/localprocessor.h"
#include "processor/tcpprocessor.h"
#include "processor/uartprocessor.h"
#include "processor/usbprocessor.h"

namespace kelp {

namespace {

template <typename T>
std::unique_ptr<Processor> Make(ConfigManager* configManager, MessagerManager* manager) {
    return std::make_unique<T>(configManager, manager);
}

// Consoles by record name. "local" is created before the list is walked, and "udp" is a name
// without a console.
struct Transport {
    const char* name;
    const char* record;
    std::unique_ptr<Processor> (*make)(ConfigManager*, MessagerManager*);
};

constexpr Transport kTransports[] = {
    {"tcp", "TCP SOCKET Server", Make<TCPProcessor>},
    {"uart", "UART SERIAL Server", Make<UARTProcessor>},
    {"usb", "USB Server", Make<USBProcessor>},
};

}  // namespace

ProcessorManager::ProcessorManager(MessagerManager* manager) {
    CreateProcessorObjects(manager);
    manager->SetProcessorManager(this);
}

ProcessorManager::~ProcessorManager() {
    for (const auto& processor : mProcessors) {
        processor->Stop();
    }
}

void ProcessorManager::CreateProcessorObjects(MessagerManager* manager) {
    ConfigManager* const configManager = manager->GetConfigManager();
    const ConsoleConfig* const config =
        configManager != nullptr ? configManager->GetConsoleConfig() : nullptr;
    if (config == nullptr) {
        KLOG(kLogError) << "consoleCofigs is nullptr!!!";
        return;
    }
    mProcessors.push_back(Make<LocalProcessor>(configManager, manager));
    KLOG(kLogDebug) << "LOCAL SOCKET Server";
    for (const CommonConfig& console : config->consoles) {
        if (!configManager->SupportConsoleMode(console.name)) {
            continue;
        }
        for (const Transport& transport : kTransports) {
            if (console.name == transport.name) {
                mProcessors.push_back(transport.make(configManager, manager));
                KLOG(kLogDebug) << transport.record;
            }
        }
    }
}

void ProcessorManager::Start() {
    for (const auto& processor : mProcessors) {
        processor->Start();
    }
}

Processor* ProcessorManager::GetProcessorByName(const std::string& name) {
    for (const auto& processor : mProcessors) {
        if (processor->GetName() == name) {
            return processor.get();
        }
    }
    return nullptr;
}

}  // namespace kelp
