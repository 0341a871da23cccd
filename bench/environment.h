// What all subjects share.
#pragma once

#include <string>

#include "support/process.h"
#include "support/pty.h"
#include "support/sockets.h"
#include "support/tempdir.h"

namespace kelp::bench {

// A directory; the echo peer, which also serves a port and a line (for "direct"); and kelp's UART,
// which stays unused.
struct Environment {
    const test::TempDir directory;
    const std::string peer = directory.Path("peer");
    const int port = test::FreePort();
    test::Pty line, uart;
    const test::Process echo{{BARE_RELAY, "echo", peer, std::to_string(port), line.Device()},
                             "/dev/null"};
};

}  // namespace kelp::bench
