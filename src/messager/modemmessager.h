// Relays commands to the modem-control daemon, and its messages back.
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

// Requests are written on the console's receive thread and not tracked. The module's own thread
// reads what the daemon sends, answer or unsolicited report, and passes each message to the console
// and client that last sent a request. A lost connection is reopened by whichever thread detects it
// first: a request tries once, the thread about once a second until it succeeds.
class ModemMessager : public Messager {
  public:
    // The caller owns the new module; its thread is running.
    static Messager* Create(MessagerManager* manager, std::string name);

    ModemMessager(MessagerManager* manager, const std::string& name);
    ~ModemMessager() override;

    // Deletes the command after writing it. 0, or 6008 for null.
    unsigned HandleMessager(Command* command, void* processor) override;

    // Body of the module's thread; returns when the module gives up or is destroyed.
    virtual void Run();

    // True when the module has a connection. Without one it makes up to 21 attempts; a pause of one
    // second follows every attempt.
    bool TryConnect();

  private:
    using ModemMsgRunnable = MemberRunnable<ModemMessager, &ModemMessager::Run>;
    // Shared by the reading and the writing threads; replaced, never reopened.
    using Connection = std::shared_ptr<LocalSocketClient>;

    // Where the daemon's messages go. One value, so that a message never goes to one console with
    // the client of another.
    struct Last {
        void* processor = nullptr;
        std::shared_ptr<ClientHandle> client;  // null: nothing is written
    };

    Connection Current();
    bool Open();
    void Drop(const Connection& lost);
    Connection NextToRead();
    Connection AwaitConnection();
    void Relay(std::unique_ptr<Command> command);
    void Remember(void* processor, const Command& command);
    void Write(Command& command);

    std::atomic<bool> mRunning{true};
    Mutex mMutex;                                    // a leaf
    Connection mConnection KELP_GUARDED_BY(mMutex);  // never null, but may be closed
    // Opened and not yet read, oldest first: a daemon may answer and close before the thread reads.
    std::deque<Connection> mToRead KELP_GUARDED_BY(mMutex);
    Last mLast KELP_GUARDED_BY(mMutex);
    const UniqueFd mOpened;  // eventfd, readable when mToRead has grown
    int64_t mNextTryMs = 0;  // of MonotonicMs; used by the module's thread only
    const std::unique_ptr<ModemMsgRunnable> mRunnable;
    const std::unique_ptr<Thread> mThread;  // last: it uses all of the above
};

}  // namespace kelp
