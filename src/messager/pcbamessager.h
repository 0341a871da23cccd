// Relays board-test commands to the PCBA test daemon and formats its binary answers.
#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "messager/messager.h"
#include "platform/sync.h"
#include "platform/thread.h"
#include "processor/messagequeue.h"

namespace kelp {

class Command;
class Formatter;
struct MessagerToken;
struct PCBAConnection;

// Requests are written on the console's receive thread; a thread of the module's own waits for the
// answers, in the order in which the requests were written, each on the connection that its request
// was written on. With keep-alive that is one connection for all; it takes no more requests once it
// is lost, timed out, brought a damaged record or one that echoes another request, or got half a
// request, and is closed when those on it are answered. Without keep-alive each has its own.
//
// Requests under way are bounded in number and bytes; what is beyond that, and what the daemon does
// not take within a second, is answered with the mismatch answer at once. So a console waits for
// the daemon to read, a second at most, and never for an answer.
class PCBAMessager : public Messager {
  public:
    // The new module belongs to the caller; its thread is running.
    static Messager* Create(MessagerManager* manager, std::string name);

    PCBAMessager(MessagerManager* manager, const std::string& name);
    ~PCBAMessager() override;

    // Always 0; the answer comes later.
    unsigned HandleMessager(Command* command, void* processor) override;

    // Body of the module's thread; returns when the module is destroyed.
    virtual void Run();

    // Each reads one field of a record at `p`, sets it in the formatter, and returns the number of
    // bytes it consumed: 4 for the result; length + 4 for the texts, for a negative length, too.
    // The caller has checked that the field lies inside the record.
    virtual int32_t ReadResult(char* p, Formatter* formatter);
    virtual int32_t ReadReqCommand(char* p, Formatter* formatter);
    virtual int32_t ReadResCommand(char* p, Formatter* formatter);

    // Sets what a complete record holds, field by field as above.
    void Decode(std::vector<char>& record, Formatter* formatter);

  private:
    using PCBAMsgRunnable = MemberRunnable<PCBAMessager, &PCBAMessager::Run>;

    // A command and the console that gets it back.
    struct Owed {
        std::unique_ptr<Command> command;
        void* processor;
    };

    // On the consoles' threads.
    bool TakePlace(size_t bytes);
    bool HasPlace(size_t bytes) const KELP_REQUIRES(mMutex);
    std::vector<Owed> TakeAbandoned() KELP_REQUIRES(mMutex);
    void EndAbandonedWait() KELP_REQUIRES(mMutex);
    void GivePlaceBack(size_t bytes) KELP_REQUIRES(mMutex);
    LocalResult Write(MessagerToken& token, int64_t deadlineMs);
    std::shared_ptr<PCBAConnection> ConnectionForRequest(int64_t deadlineMs);
    LocalResult DropStale(PCBAConnection& connection);
    void Enqueue(std::unique_ptr<MessagerToken> token);
    void Refuse(Owed owed, const char* why);

    // On the module's thread.
    void Answer(MessagerToken& token);
    int ReceiveRecord(PCBAConnection& connection, std::vector<char>& record);

    void Retire(const std::shared_ptr<PCBAConnection>& connection);
    void HandBack(Owed owed);

    std::atomic<bool> mRunning{true};
    Mutex mMutex;  // a leaf
    // Takes requests; null without keep-alive, and when there is none that does.
    std::shared_ptr<PCBAConnection> mKept KELP_GUARDED_BY(mMutex);
    // What mTokenQueue holds or held and is not answered yet, in its order. Not owned.
    std::deque<MessagerToken*> mUnderWay KELP_GUARDED_BY(mMutex);
    // Of the requests under way that are still owed to somebody, and of those being written.
    size_t mPlaces KELP_GUARDED_BY(mMutex) = 0;
    size_t mPlaceBytes KELP_GUARDED_BY(mMutex) = 0;
    int64_t mRefused KELP_GUARDED_BY(mMutex) = 0;          // since the last record of it
    int64_t mRefusedLoggedMs KELP_GUARDED_BY(mMutex) = 0;  // 0: never
    MessageQueue<MessagerToken> mTokenQueue;
    const std::unique_ptr<PCBAMsgRunnable> mRunnable;
    const std::unique_ptr<Thread> mThread;  // last: it uses all of the above
};

}  // namespace kelp
