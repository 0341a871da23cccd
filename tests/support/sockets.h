// Sockets for stations, peers and relays, and free TCP ports.
#pragma once

#include <string>

#include "platform/localaddress.h"
#include "platform/uniquefd.h"

namespace kelp::test {

// All zero when the name does not fit.
LocalAddress AddressOf(const std::string& name, LocalNamespace space = LocalNamespace::kFilesystem);

// Blocking stream sockets, without Nagle's delay on TCP; not Ok(), with errno, when that fails.
// TCP is on the loopback interface; port 0 takes any.
UniqueFd ListenLocal(const LocalAddress& address);
UniqueFd ConnectLocalBlocking(const LocalAddress& address);
UniqueFd ListenTcp(int port);
UniqueFd ConnectTcp(int port);

// A free TCP port of the loopback interface.
int FreePort();

}  // namespace kelp::test
