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
    kNone,     // serves its commands itself; needs no path
    kRelayed,  // one answer to each request, relayed unchanged
    kStream,   // messages at any time
    kRecords,  // a record answers each request, within the module's time-out
};

// Created once at start-up, after the configuration and before the consoles; outlives the modules'
// threads and every console. The list of modules never changes after construction.
class MessagerManager {
  public:
    // Creates one module per configured record. Modules are asked in the order of the
    // configuration. `configManager` is not owned.
    explicit MessagerManager(ConfigManager* configManager);
    ~MessagerManager();
    MessagerManager(const MessagerManager&) = delete;
    MessagerManager& operator=(const MessagerManager&) = delete;

    // How a module of this name uses a peer.
    static PeerE PeerOf(const std::string& module);

    // Passes the command to the first module that supports it and returns that module's result. The
    // module then owns the command, unless the result is 6003 (no module) or 6007 (no command or no
    // request): then the caller keeps it. Runs on the console's receive thread and blocks as long
    // as the module does.
    unsigned HandleRequest(Command* command, Processor* processor);

    // Passes an answered command to the console `processor`, which takes ownership. Returns 0, or
    // 6008 when either is null (the caller keeps the command). Any thread.
    unsigned HandleResponse(Command* command, void* processor);

    // Tells the command's module, if it set one, that the answer has been written or dropped.
    // Called on the console's send thread, or on the thread that stops the console.
    unsigned HandleComplete(Command* command);

    ModuleInfo* GetModuleByName(const std::string& name);
    // Null until the consoles exist.
    Processor* GetProcessorByName(const std::string& name);
    void SetProcessorManager(ProcessorManager* processorManager);
    ConfigManager* GetConfigManager() const { return mConfigManager; }

  private:
    ConfigManager* const mConfigManager;
    std::atomic<ProcessorManager*> mProcessorManager{nullptr};  // set once, before any request
    Mutex mMutex;  // one hand-back at a time; taken before the console's queue lock
    std::vector<std::unique_ptr<Messager>> mMessagers;  // last: their threads use all of the above
};

}  // namespace kelp
