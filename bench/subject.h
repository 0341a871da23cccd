// What is measured: who relays, over which transport, in which mode.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "client.h"
#include "process.h"

namespace kelp::bench {

enum class Relaying { kDirect, kOneThread, kTwoThreads, kContract, kSocat, kSer2net, kKelp };

struct Subject {
    Relaying relaying = Relaying::kDirect;
    Transport transport = Transport::kLocal;
    bool kept = true;  // the connection to the peer, of those who serve single commands
    // Of kelp and the contract's relay: "null" or "filtered", of kelp also "file"; "again".
    std::string log = "";

    std::string Who() const;  // as the tables show it: "kelp, log to a file"
    std::string Key() const;  // "kelp-file/tcp/kept"
};

// What all measurements of a run share.
struct Environment {
    std::string self;  // this program
    std::string kelp;  // the daemon
    std::string directory;
    std::string peerName;  // of the echo peer's local socket
    int peerPort = 0;
    int peerMaster = -1;     // terminal whose other end is the peer
    std::string uartDevice;  // of kelp, which nobody talks to
    Process peer;
};

// Where clients find one relay: every relay has its own, so that several can run side by side.
class Front {
  public:
    // `number` tells those that exist at the same time apart.
    Front(const Environment& environment, size_t number);
    ~Front();
    Front(const Front&) = delete;
    Front& operator=(const Front&) = delete;

    const std::string mLocal;
    const int mPort;
    int mMaster = -1;  // terminal whose other end is the relay
    std::string mDevice;

  private:
    int mKeptOpen = -1;
};

// All that this machine can measure, in a fixed order; what it lacks is told on standard output.
std::vector<Subject> AllSubjects();

// The road through the subject, once it runs.
Road RoadOf(const Subject& subject, const Environment& environment, const Front& front);

// Starts the subject's relay (nothing for the direct exchange). It need not be ready yet. Only one
// kelp can run at a time.
bool StartRelay(const Subject& subject, const Environment& environment, const Front& front,
                Process& relay);

bool Installed(const std::string& program);

}  // namespace kelp::bench
