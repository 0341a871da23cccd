// The whole configuration.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "config/commonconfig.h"
#include "config/moduleinfo.h"
#include "config/receiveconfig.h"

namespace kelp {

inline constexpr char kDefaultConfigPath[] = "/vendor/etc/kelp.json";
// What is read and written at most; a configuration is a few KiB.
inline constexpr size_t kMaxConfigBytes = 1u << 20;

// Neither vector changes its length once the first manager beside the configuration's own exists:
// everybody keeps plain pointers to the records.
struct ConsoleConfig {
    std::string path = kDefaultConfigPath;
    ReceiveConfig receive;
    std::vector<CommonConfig> consoles;
    std::vector<ModuleInfo> modules;
};

}  // namespace kelp
