// Relays board-test commands to the PCBA test daemon and formats its binary answers.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "messager/messager.h"
#include "platform/thread.h"
#include "platform/turn.h"
#include "processor/messagequeue.h"

namespace kelp {

class Formatter;
struct MessagerToken;
struct PCBAConnection;

// Requests are written on the console's receive thread; a thread of the module's own waits for the
// answers, in the order in which the requests were written, each on the connection that its request
// was written on. With keep-alive that is one connection for all, replaced as soon as it is lost,
// times out or brings a damaged record, so that a late answer never answers a later request;
// without, one for each request. A console that asks faster than the daemon answers is held up, so
// that neither memory nor descriptors run out.
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

    std::shared_ptr<PCBAConnection> ConnectionForRequest();
    std::shared_ptr<PCBAConnection> OpenConnection();
    void EnterRoom();
    void LeaveRoom();
    int ReceiveRecord(PCBAConnection& connection, std::vector<char>& record);

    std::atomic<bool> mRunning{true};
    Turn mWriting;                          // held over writing a request and queuing its token
    std::shared_ptr<PCBAConnection> mKept;  // under mWriting; null without keep-alive
    Mutex mRoomMutex;                       // a leaf
    CondVar mRoom;                          // signalled when a request has been answered
    int mUnderWay KELP_GUARDED_BY(mRoomMutex) = 0;  // requests whose tokens are not done yet
    MessageQueue<MessagerToken> mTokenQueue;
    const std::unique_ptr<PCBAMsgRunnable> mRunnable;
    const std::unique_ptr<Thread> mThread;  // last: it uses all of the above
};

}  // namespace kelp
