// The ways to a relay: local socket, TCP on the loopback address, and a pseudo-terminal.
#pragma once

#include <string>

namespace kelp::bench {

enum class Transport { kLocal, kTcp, kPty };

// "local", "tcp" or "pty".
const char* Name(Transport transport);

// A name that begins with '@' is in the abstract namespace. -1 on failure.
int ListenLocal(const std::string& name);
int ConnectLocal(const std::string& name);
int ListenTcp(int port);
int ConnectTcp(int port);
// A port that nobody listens on at the moment.
int FreePort();
// The device in raw mode.
int OpenRaw(const std::string& path);
// A raw pseudo-terminal: the master, and the slave, which stays open so that the master does not
// see a hang-up between two users of the slave's path.
bool OpenPty(int& master, int& slave, std::string& path);

bool WriteAll(int fd, const char* data, size_t length);

}  // namespace kelp::bench
