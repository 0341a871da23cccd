// What is measured: a relay, its transport and its peer connections.
#pragma once

#include <string>

namespace kelp::bench {

enum class Transport { kLocal, kTcp, kPty };

struct Subject {
    std::string who;  // as in docs/performance.md
    Transport transport = Transport::kLocal;
    bool kept = true;  // one peer connection for all commands; else one for each
};

}  // namespace kelp::bench
