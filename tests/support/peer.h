// A peer daemon on a local socket, simulated by a thread of the test.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "platform/localaddress.h"
#include "platform/sync.h"
#include "platform/thread.h"
#include "platform/uniquefd.h"

namespace kelp::test {

class Peer : private Runnable {
  public:
    struct Answer {
        std::string bytes;   // empty: no answer
        bool close = false;  // after the answer, without waiting until it is read
    };
    // Called on the peer's thread for each request, that is, for each read that brings bytes.
    using Script = std::function<Answer(const std::string& request)>;

    // Answers "<name:REQUEST>".
    static Script Echo(const std::string& name);

    Peer(const std::string& name, LocalNamespace space, Script script);
    // Ends every connection; a filesystem socket is removed.
    ~Peer() override;

    // Waits until the bytes of the last read end with `request`.
    bool WaitForRequest(const std::string& request);
    // Sends on the newest connection, also unsolicited; waits for the first connection.
    bool Push(const std::string& bytes);
    int Connections() const { return mAccepted; }  // accepted so far
    size_t Taken() const { return mTaken; }        // bytes read so far

  private:
    void Run() override;
    bool Serve(int fd);

    const LocalAddress mAddress;
    const Script mScript;
    UniqueFd mListener;

    std::atomic<int> mAccepted{0};
    std::atomic<size_t> mTaken{0};
    Mutex mMutex;
    std::string mLastRequest KELP_GUARDED_BY(mMutex);
    std::vector<UniqueFd> mClients KELP_GUARDED_BY(mMutex);

    Thread mThread{this, "peer"};
};

}  // namespace kelp::test
