// The configuration of one console.
#pragma once

#include <cstdint>
#include <string>

#include "platform/sync.h"

namespace kelp {

// The control module changes the Shared fields while other threads read them; the others are
// written before the first console starts, and only read afterwards.
struct CommonConfig {
    std::string name;              // "uart", "usb", "local" or "tcp"
    Shared<bool> active = false;   // opened and served
    Shared<bool> ordered = false;  // what `active` will be once all accepted switches are done
    bool support = false;          // exists; if not, no command can switch the console on
    Shared<std::string> route;     // device node, local socket name, or IPv4 address to bind
    Shared<int32_t> port = 0;      // of "tcp" only
    int32_t timeout = 0;           // stored and written back, otherwise unused
};

}  // namespace kelp
