// Common base of the consoles on a tty.
#pragma once

#include <memory>
#include <string>

#include "processor/processor.h"

namespace kelp {

class ConsoleAttribute;
class SFIOChannel;

// A device console on the node given by its record's route.
class SerialProcessor : public Processor {
  public:
    ~SerialProcessor() override;

    using Processor::DisConnect;
    int Connect() override;
    void DisConnect(int& fd) override;

  protected:
    // `name` is the name of the console's record.
    SerialProcessor(ConfigManager* configManager, MessagerManager* messagerManager,
                    const std::string& name);

  private:
    const std::unique_ptr<SFIOChannel> mChannel;
    const std::unique_ptr<ConsoleAttribute> mAttribute;
};

}  // namespace kelp
