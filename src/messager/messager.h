// The base of every module.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/localsocketclient.h"
#include "platform/turn.h"

namespace kelp {

class Command;
class ConfigManager;
class MessagerManager;
struct ModuleInfo;

// Decides which requests are the module's, holds its connection to the peer daemon, and offers the
// one exchange with it: Send, Receive, SendMessager. Created by its manager, which owns it.
class Messager {
  public:
    // The configuration record `name` must exist. With keep-alive the peer is connected at once;
    // when that fails the module connects for each request.
    Messager(MessagerManager* manager, const std::string& name);
    virtual ~Messager() = default;
    Messager(const Messager&) = delete;
    Messager& operator=(const Messager&) = delete;

    // Serves one command, which is the module's from here on. Called on the receive thread of the
    // console that received it; several consoles may call at once. `processor` is that console.
    // Returns 0 or an error code.
    virtual unsigned HandleMessager(Command* command, void* processor) = 0;
    // Called on a console's send thread when an answer that named this module in mMessager is out.
    virtual unsigned HandleComplete() { return 0; }

    // Whether the module serves the request: the whole request, in upper case, is one of the test
    // commands, or begins with one of the white-list entries. Any thread; costs no copy.
    bool isSupportCmd(const char* data, int length) const;

    std::string GetModuleName() const { return mModuleName; }
    ConfigManager* GetConfigManager() const;

  protected:
    // The turn to speak to the peer, one thread at a time. Not held on a console that is ordered to
    // stop: nothing is begun there.
    class PeerTurn : public TurnHolder {
      public:
        explicit PeerTurn(Messager* messager);
    };

    // The exchange of those who ask and wait for the answer, on mClient: one thread at a time.

    // sopen on the client: the descriptor or -1. The caller stores it in mFd.
    int Connect() { return mClient->sopen(); }
    // sclose on the client.
    void Disconnect(int&) { mClient->sclose(); }

    // Writes the request as it is, on a connection of its own when mFd is -1. A connection that
    // turns out to be lost is opened once more. Returns -1 when there is none; any other value only
    // says that the request was sent or that Receive will tell why not.
    int32_t Send(Command* command);
    // Appends the peer's answer to the response, or the text of the error that came instead, and
    // closes a connection of its own, and one whose late bytes would be taken for the next answer.
    // `seconds` 0 waits without limit. Returns 0, 1, 6002 or 6005.
    int Receive(Command* command, int descriptor, int seconds);
    // Hands the answered command to the console. 0, or 6008, and then the command is still the
    // caller's.
    unsigned SendMessager(Command* command, void* processor);

    // One whole exchange, while no other console of this module is in one, and the hand-back of
    // what came of it. `reopen` says whether a kept connection that failed to open is tried again
    // first. On a console that is ordered to stop nothing is exchanged.
    unsigned Exchange(Command* command, void* processor, bool reopen);

    // Drops what a kept connection holds before a request is written to it, and logs how much it
    // was, `dropped` bytes that the caller has dropped included. Returns what Discard does.
    LocalResult DropStaleBytes(LocalSocketClient& client, size_t dropped = 0);

    // Logs why an exchange has failed, and appends the text of it to `answer` if there is one.
    void ReportReceiveError(int result, std::vector<char>* answer = nullptr) const;

    std::atomic<int> mFd{-1};  // the kept connection; -1: connect for each request
    const int mTimeout;        // seconds, as configured; for subclasses
    MessagerManager* const mManager;
    const std::string mModuleName;
    const std::string mSocketPath;
    const ModuleInfo* const mModuleInfo;  // in the configuration
    // Null in modules whose requests and answers are on two threads: they take the first connection
    // over, and every later one is an object of its own.
    std::shared_ptr<LocalSocketClient> mClient;

  private:
    Turn mPeer;  // no lock is taken before it
};

}  // namespace kelp
