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
    Messager(MessagerManager* manager, const std::string& name,
             LocalSocketClient::Reopen reopen = LocalSocketClient::Reopen::kOnSend);
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
    // sopen on the client: the descriptor or -1. The caller stores it in mFd.
    int Connect() { return mClient->sopen(); }
    void Disconnect(int& fd);

    // Writes the request as it is, on a connection of its own when mFd is -1. Returns -1 when there
    // is none; any other value only says that the request was sent or that Receive will tell why
    // not.
    int32_t Send(Command* command);
    // Appends the peer's answer to the response, or the text of the error that came instead, and
    // closes a connection of its own. `seconds` 0 waits without limit. Returns the client's result.
    int Receive(Command* command, int descriptor, int seconds);
    // The part of the two above that does not depend on who owns the connection: appends what
    // `client` receives to `bytes`, or the text of the error, which is logged.
    int ReceiveInto(LocalSocketClient& client, std::vector<char>& bytes, struct timeval timeout);
    // Hands the answered command to the console. 0, or 6008, and then the command is still the
    // caller's.
    unsigned SendMessager(Command* command, void* processor);

    // One whole exchange, while no other console of this module is in one, and the hand-back of
    // what came of it. `reopen` says whether a kept connection that failed to open is tried again
    // first.
    unsigned Exchange(Command* command, void* processor, bool reopen);

    std::atomic<int> mFd{-1};  // the kept connection; -1: connect for each request
    const int mTimeout;        // seconds, as configured; for subclasses
    MessagerManager* const mManager;
    const std::string mModuleName;
    const std::string mSocketPath;
    const ModuleInfo* const mModuleInfo;  // in the configuration
    const std::shared_ptr<LocalSocketClient> mClient;

  private:
    void DropStaleBytes();

    Turn mExchange;  // held over one exchange; nothing else is taken before it
};

}  // namespace kelp
