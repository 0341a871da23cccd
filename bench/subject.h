// What is measured: who relays, over which transport, in which mode.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "client.h"
#include "process.h"

namespace kelp::bench {

enum class Relaying { kDirect, kOneThread, kTwoThreads, kSocat, kSer2net, kKelp };

struct Subject {
    Relaying relaying = Relaying::kDirect;
    Transport transport = Transport::kLocal;
    bool kept = true;      // the connection to the peer, of those who serve single commands
    std::string log = "";  // of kelp: "file", "null" or "filtered"; "again"

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
    int relayPort = 0;
    int peerMaster = -1;  // terminal whose other end is the peer
    int relayMaster = -1;
    std::string relayDevice;
    std::string uartDevice;
    Process peer;
};

// All that this machine can measure, in a fixed order; what it lacks is told on standard output.
std::vector<Subject> AllSubjects();

// The road through the subject, once it runs.
Road RoadOf(const Subject& subject, const Environment& environment);

// Starts the subject's relay (nothing for the direct exchange). It need not be ready yet.
bool StartRelay(const Subject& subject, const Environment& environment, Process& relay);

bool Installed(const std::string& program);

}  // namespace kelp::bench
