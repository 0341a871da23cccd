// The other ends of a measurement that this program plays itself, each in a process of its own: the
// echo peer, and the minimal relays that kelp is held against.
#pragma once

#include <string>

#include "endpoint.h"

namespace kelp::bench {

// Sends back what it reads, with two system calls per exchange: one blocking thread per connection,
// from a fixed pool, on the local socket `name`, TCP `port` and the terminal `device`. Does not
// return.
int ServeEcho(const std::string& name, int port, const std::string& device);

struct RelayOptions {
    // Two threads with a queue between them: one receives, cuts lines and asks the peer, the other
    // writes the answers. Otherwise one thread does it all.
    bool twoThreads = false;
    // The system calls that kelp's contract asks for beyond that, and nothing else of kelp: select
    // where poll would do, the count of pending bytes before a read, a look for stale bytes before
    // an exchange on a kept connection. What kelp can come down to at best.
    bool contract = false;
    bool records = false;  // and a write(2) to standard error for each log record
    bool kept = true;      // the connection to the peer; otherwise one for each command
    Transport transport = Transport::kLocal;
    std::string where;  // name, port or device
    std::string peer;   // the echo peer's local socket
};

// What a relay of commands costs at the least: poll, read, cut at CR LF, send, a blocking receive,
// write. No routing, no log, no time limits, no care for large answers. Does not return.
int ServeRelay(const RelayOptions& options);

}  // namespace kelp::bench
