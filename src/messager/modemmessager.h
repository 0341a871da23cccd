// Relays commands to the modem-control daemon, and everything that it says back.
#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <string>

#include "messager/messager.h"
#include "platform/sync.h"
#include "platform/thread.h"
#include "platform/uniquefd.h"

namespace kelp {

class ClientHandle;

// Requests are written on the console's receive thread and forgotten. A thread of the module's own
// reads what the daemon sends, answer or unsolicited report, and hands each message to the console
// and client that spoke to the module last. A lost connection is opened again by whoever notices
// first: a request tries once, the thread about once a second until there is one.
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
    // Shared by the thread that reads it and the one that writes; replaced, never opened again.
    using Connection = std::shared_ptr<LocalSocketClient>;

    // Whom the daemon's messages are for. One value, so that a message never goes to one console
    // with the client of another.
    struct Last {
        void* processor = nullptr;
        std::shared_ptr<ClientHandle> client;  // null: nobody, and nothing is written
    };

    Connection Current();
    bool Open();
    void Drop(const Connection& lost);
    int ReceiveMessage(LocalSocketClient& connection, Command& command);
    Connection NextToRead();
    Connection AwaitConnection();
    void Relay(std::unique_ptr<Command> command);
    void Remember(void* processor, const Command& command);
    void Write(Command& command);

    std::atomic<bool> mRunning{true};
    Mutex mMutex;                                    // a leaf
    Connection mConnection KELP_GUARDED_BY(mMutex);  // never null; not open when there is none
    // Opened and not yet read, in their order: a daemon may answer and close before the thread
    // looks.
    std::deque<Connection> mToRead KELP_GUARDED_BY(mMutex);
    Last mLast KELP_GUARDED_BY(mMutex);
    const UniqueFd mOpened;  // eventfd, readable when mToRead has grown
    int64_t mNextTryMs = 0;  // of MonotonicMs; the module's thread's own
    const std::unique_ptr<ModemMsgRunnable> mRunnable;
    const std::unique_ptr<Thread> mThread;  // last: it uses all of the above
};

}  // namespace kelp
