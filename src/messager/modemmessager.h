// Relays commands to the modem-control daemon, and everything that it says back.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "messager/messager.h"
#include "platform/sync.h"
#include "platform/thread.h"
#include "platform/turn.h"

namespace kelp {

class ClientHandle;

// Requests are written on the console's receive thread and forgotten. A thread of the module's own
// reads what the daemon sends, answer or unsolicited report, and hands each message to the console
// and client that spoke to the module last.
class ModemMessager : public Messager {
  public:
    // The new module belongs to the caller; its thread is running.
    static Messager* Create(MessagerManager* manager, std::string name);

    ModemMessager(MessagerManager* manager, const std::string& name);
    ~ModemMessager() override;

    // Deletes the command once it is written. 0, or 6008 for null.
    unsigned HandleMessager(Command* command, void* processor) override;

    // Body of the module's thread; returns when the module gives up or is destroyed.
    virtual void Run();

    // True when the module holds a connection. Without one up to 21 attempts are made, a second
    // apart; every attempt is followed by its second.
    bool TryConnect();

  private:
    using ModemMsgRunnable = MemberRunnable<ModemMessager, &ModemMessager::Run>;

    // Whom the daemon's messages are for. One value, so that a message never goes to one console
    // with the client of another.
    struct Last {
        void* processor = nullptr;
        int clientFd = -1;
        // Keeps the last client's descriptor open until the next request, also when it has left.
        std::shared_ptr<ClientHandle> client;
    };

    void ConnectOnce();
    void Relay(std::unique_ptr<Command> command);

    std::atomic<bool> mRunning{true};
    Turn mConnecting;  // held over one attempt to connect
    Mutex mLastMutex;  // a leaf
    Last mLast KELP_GUARDED_BY(mLastMutex);
    const std::unique_ptr<ModemMsgRunnable> mRunnable;
    const std::unique_ptr<Thread> mThread;  // last: it uses all of the above
};

}  // namespace kelp
