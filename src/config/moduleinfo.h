// The configuration of one module.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kelp {

// Written before any other thread starts, only read afterwards.
struct ModuleInfo {
    int32_t timeout = 0;                 // for an answer of pcba and fm, in seconds; 0: no limit
    int32_t quietMs = 0;                 // silence that ends an answer; 0: off
    bool keepAlive = false;              // keep the connection to the peer between requests
    std::string name;                    // key of the module factory
    std::string path;                    // the peer's local socket; empty without a peer
    std::vector<std::string> whiteList;  // accepted prefixes, ascending byte order
    std::vector<std::string> testCmds;   // accepted whole commands, the longest first
};

}  // namespace kelp
