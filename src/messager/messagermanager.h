// Owns the modules and routes commands to them and answers back.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "platform/sync.h"

namespace kelp {

class Command;
class ConfigManager;
class Messager;
class Processor;
class ProcessorManager;
struct ModuleInfo;

enum class PeerE {
    kNone,     // serves its commands by itself, and needs no path
    kRelayed,  // one answer to each request, handed on as it comes
    kOther,    // a protocol of its own
};

// Created once at start-up, after the configuration and before the consoles; outlives both its
// modules' threads and every console. The list of modules never changes after construction.
class MessagerManager {
  public:
    // Creates one module per configured record, in the order of the configuration, which is also
    // the order in which they are asked. `configManager` is not owned.
    explicit MessagerManager(ConfigManager* configManager);
    ~MessagerManager();
    MessagerManager(const MessagerManager&) = delete;
    MessagerManager& operator=(const MessagerManager&) = delete;

    // What a module of this name has to do with a peer.
    static PeerE PeerOf(const std::string& module);

    // Gives the command to the first module that supports it and returns that module's result. The
    // command is then the module's, unless the result is 6003 (no module) or 6007 (no command or
    // no request): then it is still the caller's. Runs on the console's receive thread and blocks
    // as long as the module does.
    unsigned HandleRequest(Command* command, Processor* processor);

    // Hands an answered command to the console `processor`, which owns it from here on. 0, or 6008
    // when one of the two is null. Any thread.
    unsigned HandleResponse(Command* command, void* processor);

    // Tells the command's module, if it named one, that its answer is out. On a console's send
    // thread.
    unsigned HandleComplete(Command* command);

    ModuleInfo* GetModuleByName(const std::string& name);
    // Null as long as there are no consoles.
    Processor* GetProcessorByName(const std::string& name);
    void SetProcessorManager(ProcessorManager* processorManager);
    ConfigManager* GetConfigManager() const { return mConfigManager; }

  private:
    ConfigManager* const mConfigManager;
    std::atomic<ProcessorManager*> mProcessorManager{nullptr};  // set once, before any request
    Mutex mMutex;  // one hand-back at a time; taken before the console's queue
    std::vector<std::unique_ptr<Messager>> mMessagers;  // last: their threads use all of the above
};

}  // namespace kelp
