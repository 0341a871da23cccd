// What the consoles on a tty have in common.
#pragma once

#include <memory>
#include <string>

#include "processor/processor.h"

namespace kelp {

class ConsoleAttribute;
class SFIOChannel;

// A device console on the node that its record names as the route.
class SerialProcessor : public Processor {
  public:
    ~SerialProcessor() override;

    using Processor::DisConnect;
    int Connect() override;
    void DisConnect(int& fd) override;

  protected:
    // `name` is that of the console's record.
    SerialProcessor(ConfigManager* configManager, MessagerManager* messagerManager,
                    const std::string& name);

  private:
    const std::unique_ptr<SFIOChannel> mChannel;
    const std::unique_ptr<ConsoleAttribute> mAttribute;
};

}  // namespace kelp
