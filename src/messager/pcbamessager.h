// Relays board-test commands to the PCBA test daemon and formats its binary answers.
#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <string>
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

// Requests are written on the console's receive thread. The module's own thread waits for the
// answers in the order of the requests, each on the connection that its request was written on.
// With keep-alive all share one connection. That connection takes no more requests once it is lost,
// a request on it has timed out or was written only in part, or a record on it is damaged or echoes
// another request; it is closed when its pending requests are answered. Without keep-alive each
// request has its own connection.
//
// Pending requests are bounded in number, bytes and descriptors: what is kept open for them must
// not stop the consoles. A request beyond that gets the mismatch answer at once, and so does one
// that the daemon does not read within a second. So a console waits at most a second, its turn
// included, for the daemon to read, and never for an answer.
class PCBAMessager : public Messager {
  public:
    // The caller owns the new module; its thread is running.
    static Messager* Create(MessagerManager* manager, std::string name);

    PCBAMessager(MessagerManager* manager, const std::string& name);
    ~PCBAMessager() override;

    // Always 0; the answer comes later.
    unsigned HandleMessager(Command* command, void* processor) override;

    // Body of the module's thread; returns when the module is destroyed.
    virtual void Run();

    // Each reads one field of a record at `p`, sets it in the formatter, and returns the number of
    // bytes consumed: 4 for the result; length + 4 for the texts, also for a negative length. The
    // caller has checked that the field lies inside the record.
    virtual int32_t ReadResult(char* p, Formatter* formatter);
    virtual int32_t ReadReqCommand(char* p, Formatter* formatter);
    virtual int32_t ReadResCommand(char* p, Formatter* formatter);

    // Decodes a complete record, field by field as above.
    void Decode(std::vector<char>& record, Formatter* formatter);

  private:
    using PCBAMsgRunnable = MemberRunnable<PCBAMessager, &PCBAMessager::Run>;

    // On the consoles' threads, under the PeerTurn.
    bool HasRoom(size_t bytes, bool ask);
    const char* Write(MessagerToken& token, int64_t deadlineMs);
    std::shared_ptr<PCBAConnection> ConnectionForRequest(int64_t deadlineMs);
    LocalResult DropStale(PCBAConnection& connection);
    void Enqueue(std::unique_ptr<MessagerToken> token);
    void Refuse(MessagerToken& token, const char* why);

    // On the module's thread.
    void Answer(MessagerToken& token);
    int ReceiveRecord(PCBAConnection& connection, std::vector<char>& record);

    void Retire(const std::shared_ptr<PCBAConnection>& connection) KELP_REQUIRES(mMutex);
    void HandBack(MessagerToken& token, Formatter formatter);

    std::atomic<bool> mRunning{true};
    const int mMaxNumber;  // connections opened for a request have descriptors below this
    Mutex mMutex;          // a leaf
    // The connection for new requests; null without keep-alive, and when there is none.
    std::shared_ptr<PCBAConnection> mKept KELP_GUARDED_BY(mMutex);
    // Requests whose records are awaited, in the order of mTokenQueue. Not owned.
    std::deque<MessagerToken*> mInFlight KELP_GUARDED_BY(mMutex);
    // Both belong to the holder of the PeerTurn.
    int64_t mRefused = 0;          // since the last log record
    int64_t mRefusedLoggedMs = 0;  // 0: never
    MessageQueue<MessagerToken> mTokenQueue;
    const std::unique_ptr<PCBAMsgRunnable> mRunnable;
    const std::unique_ptr<Thread> mThread;  // last: it uses all of the above
};

}  // namespace kelp
