// The connection of a station to the daemon.
#pragma once

#include <string>

#include "platform/uniquefd.h"

namespace kelp::tools {

struct Target {
    enum class Kind {
        kTcp,
        kAbstract,
        kPath,  // a local socket or a tty, by the file's type
    };
    Kind kind = Kind::kPath;
    std::string name;  // host, abstract name or path
    std::string port;  // of kTcp
};

// Parses "HOST:PORT", an IPv4 address alone (the daemon's default port), "@NAME", or a path, which
// contains a '/'. False for anything else.
bool ParseTarget(const std::string& text, Target& target);

// Connects or opens: non-blocking, close-on-exec; a tty is locked by flock(2), set raw at 115200
// baud, and its received bytes are dropped. Blocks for at most `timeoutMs` milliseconds, plus the
// look-up of a host name. On failure the result is not Ok(), with a message.
UniqueFd OpenTarget(const Target& target, int timeoutMs, std::string& error);

// A connection that ends within this many milliseconds without a byte may mean that all client
// slots of the console are used.
constexpr int kAtOnceMs = 1000;
constexpr char kMayBeFull[] = "; the console may already serve four clients";

}  // namespace kelp::tools
