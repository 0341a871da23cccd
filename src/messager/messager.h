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

// Decides which requests the module supports, holds its connection to the peer daemon, and provides
// the exchange with it: Send, Receive, SendMessager. Created and owned by its manager.
class Messager {
  public:
    // The configuration record `name` must exist. With keep-alive the peer is connected at once; if
    // that fails, the module connects for each request.
    Messager(MessagerManager* manager, const std::string& name);
    virtual ~Messager() = default;
    Messager(const Messager&) = delete;
    Messager& operator=(const Messager&) = delete;

    // Serves one command and takes ownership of it. Called on the receive thread of the console
    // that received it; several consoles may call at once. `processor` is that console. Returns 0
    // or an error code.
    virtual unsigned HandleMessager(Command* command, void* processor) = 0;
    // Called on a send thread once an answer with this module in mMessager has been written, or
    // dropped because its console stopped or its client is gone.
    virtual unsigned HandleComplete() { return 0; }

    // True when the whole request, in upper case, is one of the test commands, or begins with one
    // of the white-list entries. Any thread; makes no copy.
    bool isSupportCmd(const char* data, int length) const;

    std::string GetModuleName() const { return mModuleName; }
    ConfigManager* GetConfigManager() const;

  protected:
    // Exclusive use of the peer. Held() is false on a thread that was asked to stop: it must not
    // start an exchange.
    class PeerTurn : public TurnHolder {
      public:
        explicit PeerTurn(Messager* messager);
    };

    // Blocking request and answer on mClient: one thread at a time.

    // sopen on the client: the descriptor, or -1. The caller stores it in mFd.
    int Connect() { return mClient->sopen(); }
    // sclose on the client.
    void Disconnect(int&) { mClient->sclose(); }

    // Writes the request unchanged, on a new connection when mFd is -1. A lost connection is
    // reopened once. Returns the descriptor, or -1 when the request was not sent completely:
    // Receive then reports the error.
    int32_t Send(Command* command);
    // Appends the peer's answer, or the error text, to the response. Closes a per-request
    // connection, and one whose late bytes would be taken for the next answer. `seconds` 0 waits
    // without limit. Returns 0, 1, 6002 or 6005.
    int Receive(Command* command, int descriptor, int seconds);
    // Passes the answered command to the console. Returns 0, or 6008, and then the caller keeps
    // ownership.
    unsigned SendMessager(Command* command, void* processor);

    // One complete exchange, one console at a time, then passes the result back. `reopen`: when the
    // kept connection is not open, try to open it first. Does no exchange on a console that was
    // told to stop.
    unsigned Exchange(Command* command, void* processor, bool reopen);

    // Drops stale bytes of a kept connection before a request is written, and logs their number,
    // including `dropped` bytes that the caller has dropped already. Returns what Discard returns.
    LocalResult DropStaleBytes(LocalSocketClient& client, size_t dropped = 0);

    // Logs why an exchange failed, and appends the error text to `answer` unless it is null.
    void ReportReceiveError(int result, std::vector<char>* answer = nullptr) const;

    std::atomic<int> mFd{-1};  // the kept connection; -1: connect for each request
    const int mTimeout;        // seconds, as configured; for subclasses
    MessagerManager* const mManager;
    const std::string mModuleName;
    const std::string mSocketPath;
    const ModuleInfo* const mModuleInfo;  // in the configuration
    // Null in modules that write and read on two threads: they take over the first connection, and
    // create an object for each later one.
    std::shared_ptr<LocalSocketClient> mClient;

  private:
    Turn mPeer;  // outermost lock
};

}  // namespace kelp
