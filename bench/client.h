// The client of every measurement: the same code whatever stands between it and the peer.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "endpoint.h"

namespace kelp::bench {

// Where to send, what, and how many bytes come back for each command.
struct Road {
    Transport transport = Transport::kLocal;
    std::string name;            // kLocal
    int port = 0;                // kTcp
    int master = -1;             // kPty: not owned
    std::string command;         // with its terminator
    size_t answerBytes = 0;      // of one command
    bool clientReopens = false;  // a new connection for each exchange, in the time that counts
};

// One connection; on a pseudo-terminal it stands for the master, which stays open.
class Client {
  public:
    explicit Client(const Road& road) : mRoad(road) {}
    ~Client() { Close(); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    bool Open();
    void Close();
    // Sends `data` and reads `answerBytes`; false when that takes more than five seconds or the
    // connection breaks.
    bool Exchange(const std::string& data, size_t answerBytes);
    // `count` commands one at a time; their round trips in nanoseconds are appended.
    bool OneAtATime(int count, std::vector<double>& roundTrips);
    // Writes all of `data` in a thread of its own while it reads `answerBytes`.
    bool Burst(const std::string& data, size_t answerBytes);
    bool ReadAnswer(size_t bytes);

  private:
    const Road& mRoad;
    int mFd = -1;
};

}  // namespace kelp::bench
