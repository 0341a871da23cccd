// Serves the roles of a script.
#pragma once

#include <poll.h>
#include <signal.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "peer/peerconnection.h"
#include "peer/peerlog.h"
#include "peer/peerscript.h"
#include "peer/peersocket.h"

namespace kelp::tools {

// Single-threaded; waits only in ppoll. `script` and `log` must outlive it.
class PeerServer {
  public:
    PeerServer(const Script& script, const PeerLog& log) : mScript(script), mLog(log) {}

    // Opens every socket. False with a message when one fails; sockets opened before are removed.
    bool Open(std::string& error);

    // Serves until `stop` is set. A signal handler may set it; to miss none, block the signal
    // outside this call and let `duringWait` unblock it.
    void Run(const volatile sig_atomic_t& stop, const sigset_t& duringWait);

  private:
    bool Wait(const sigset_t& duringWait);
    int64_t NextDueMs() const;
    void Accept(size_t index);
    void ServeConnections();

    const Script& mScript;
    const PeerLog& mLog;
    std::vector<PeerSocket> mSockets;  // one per role
    std::vector<std::unique_ptr<PeerConnection>> mConnections;
    std::vector<struct pollfd> mPolled;  // the sockets, then the connections
    int64_t mNowMs = 0;
    int64_t mAcceptFromMs = 0;  // no accept before this time
    unsigned mAccepted = 0;
};

}  // namespace kelp::tools
