// The ways in which a station reaches the daemon.
#pragma once

#include <string>

#include "platform/uniquefd.h"

namespace kelp::tools {

struct Target {
    enum class Kind {
        kTcp,
        kAbstract,
        kPath,  // a local socket or a tty, as the file turns out to be
    };
    Kind kind = Kind::kPath;
    std::string name;  // host, abstract name or path
    std::string port;  // of kTcp
};

// Reads "HOST:PORT", "[IPV6]:PORT", an IPv4 address alone (the daemon's default port), "@NAME", or
// a path, which has a '/' in it. False for anything else.
bool ParseTarget(const std::string& text, Target& target);

// Connects or opens: non-blocking, close-on-exec, a tty raw at 115200 baud and without what it had
// received by then. Blocks for at most `timeoutMs` milliseconds, but for the look-up of a host that
// is a name. The result is not Ok(), with a message, on failure.
UniqueFd OpenTarget(const Target& target, int timeoutMs, std::string& error);

// A connection that ends without a byte within so many milliseconds may have found the console
// full.
constexpr int kAtOnceMs = 1000;
constexpr char kMayBeFull[] = "; all four places of the console may be taken";

}  // namespace kelp::tools
