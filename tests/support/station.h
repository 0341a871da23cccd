// A test station: the far end of one console connection.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>

#include "platform/uniquefd.h"
#include "support/sockets.h"

namespace kelp::test {

// Whether a connection to the port is refused.
bool Refused(int port);

// Every read ends when nothing arrives for kPatienceMs, and returns the bytes received until then.
class Station {
  public:
    // Both retry the connection until the console listens.
    static Station Tcp(int port);
    static Station Local();
    // Uses a duplicate of the master of a Pty.
    static Station Line(int master);

    int Fd() const { return mFd.Get(); }
    bool Send(std::string_view bytes);
    std::string Receive(size_t count);
    std::string ReceiveToEnd() { return Receive(std::string::npos); }
    void HalfClose();
    // Drops the connection with a TCP reset.
    void Reset();

    // Sends `request` and expects exactly the bytes of `answer`.
    testing::AssertionResult Answers(std::string_view request, std::string_view answer);

  private:
    explicit Station(UniqueFd fd) : mFd(std::move(fd)) {}

    UniqueFd mFd;
};

}  // namespace kelp::test
