#pragma once

#include <string>

namespace kelp {
class ConfigManager;
struct ReceiveConfig;
}  // namespace kelp

namespace kelp::tools {

// The configuration as a file that yields the same configuration, with every key written out and
// "active" as read. "mode" is left out when none is set.
std::string PrintConfig(ConfigManager& config);

// The terminator in the notation of "tail".
std::string TailDigits(const ReceiveConfig& receive);

}  // namespace kelp::tools
