// Creates and runs the consoles of the configuration.
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
    // Creates the consoles and registers itself with `manager`.
    explicit ProcessorManager(MessagerManager* manager);
    // Stops and deletes every console.
    ~ProcessorManager();
    ProcessorManager(const ProcessorManager&) = delete;
    ProcessorManager& operator=(const ProcessorManager&) = delete;

    void CreateProcessorObjects(MessagerManager* manager);

    // Starts every console; a failure does not stop the others from starting.
    void Start();

    // The first console with exactly this name, or null. Owned by the manager.
    Processor* GetProcessorByName(const std::string& name);

  private:
    std::vector<std::unique_ptr<Processor>> mProcessors;  // the local console first
};

}  // namespace kelp
