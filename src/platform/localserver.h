// The listening end of an abstract local socket.
#pragma once

#include <string>

namespace kelp {

// Creates, binds and listens (backlog 4) on a stream socket with `name` in the abstract namespace.
// Returns the descriptor (non-blocking, close-on-exec), which the caller owns, or -1 with errno.
int ListenLocalAbstract(const std::string& name);

}  // namespace kelp
