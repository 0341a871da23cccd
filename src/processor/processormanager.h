// Turns the console list of the configuration into running consoles.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace kelp {

class ConfigManager;
class MessagerManager;
class Processor;

// Created once, after the MessagerManager, which must outlive it. The list of consoles never
// changes after construction, so looking one up needs no lock.
class ProcessorManager {
  public:
    // Creates the consoles and makes itself known to `manager`.
    explicit ProcessorManager(MessagerManager* manager);
    // Stops and deletes every console.
    ~ProcessorManager();
    ProcessorManager(const ProcessorManager&) = delete;
    ProcessorManager& operator=(const ProcessorManager&) = delete;

    void CreateProcessorObjects(MessagerManager* manager);

    // Starts every console; one that does not start keeps no other from starting.
    void Start();

    // The first console of that name (exact), or null. It stays the manager's.
    Processor* GetProcessorByName(const std::string& name);

  private:
    std::vector<std::unique_ptr<Processor>> mProcessors;  // the local console first
};

}  // namespace kelp
