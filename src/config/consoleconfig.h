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
// Largest file that is read or written; a configuration is a few KiB.
inline constexpr size_t kMaxConfigBytes = 1u << 20;

// Do not resize the vectors once the MessagerManager exists: the modules and consoles keep pointers
// to the elements.
struct ConsoleConfig {
    std::string path = kDefaultConfigPath;
    ReceiveConfig receive;
    std::vector<CommonConfig> consoles;
    std::vector<ModuleInfo> modules;
};

}  // namespace kelp
