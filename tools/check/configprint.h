#pragma once

#include <string>

namespace kelp {
class ConfigManager;
struct ReceiveConfig;
}  // namespace kelp

namespace kelp::tools {

// The configuration as a file that gives this configuration again, with every key written out and
// "active" as it was found. "mode" is left out when none is set.
std::string PrintConfig(ConfigManager& config);

// The terminator as "tail" spells it.
std::string TailDigits(const ReceiveConfig& receive);

}  // namespace kelp::tools
