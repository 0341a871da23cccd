// The base of every console: connection, receive loop, framing, and the way of the answers.
#pragma once

#include <sys/select.h>
#include <sys/time.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "platform/sync.h"
#include "platform/thread.h"
#include "processor/command.h"
#include "processor/framebuffer.h"
#include "processor/messagequeue.h"

namespace kelp {

class ConfigManager;
class MessagerManager;
struct CommonConfig;
struct ReceiveConfig;

enum ProcessorModeE {
    SERVER_MODE = 0,  // mServerFd listens, clients are accepted into slots
    DEVICE_MODE = 1,  // mServerFd is a device that is itself read and written
};

// A console has two threads while it runs. The receive thread selects, accepts, reads, cuts the
// bytes into commands and routes them; whatever a module does at once for a command happens on it.
// The send thread writes answers and tells modules when theirs is out. Created stopped by the
// ProcessorManager, which owns it; must be stopped before it is destroyed.
//
// Who may call what: Start, Stop, IsConnect, ConnectByApp and DisConnectByApp from any thread,
// the console's own included; SendDataDone from any thread; everything else belongs to the
// console's own threads.
//
// Locks, in their order: mLifeMutex, mFdMutex; the queues' own locks are leaves. mLifeMutex is
// held while Stop waits for the two threads, which therefore never take it, except for the send
// thread inside a Start or Stop of its own.
class Processor {
  public:
    static constexpr int READ_BUF_SIZE = 65535;  // bytes of one read at most
    static constexpr int MAX_CLIENT_NUM = 4;

    // Neither manager is owned; both outlive the console.
    Processor(ConfigManager* configManager, MessagerManager* messagerManager, ProcessorModeE mode);
    virtual ~Processor();
    Processor(const Processor&) = delete;
    Processor& operator=(const Processor&) = delete;

    // Opens the main descriptor and returns it, or -1. One that is open is returned as it is.
    virtual int Connect() = 0;
    // Closes `fd` if it is not -1 and sets it to -1.
    virtual void DisConnect(int& fd) = 0;

    // Hangs up every client and closes the main descriptor. mReadFds keeps what it holds.
    virtual void DisConnect();
    // After a device error, on the receive thread: closes and tries once to open again. When that
    // fails the process ends, because a closed descriptor cannot be watched.
    virtual void ReConnect();
    virtual bool IsConnect();
    // Reads what is pending on `fd`. 0, or a code for ThrowException: an errno value, or an error
    // code of the daemon. A descriptor at its end gives 5 (EIO).
    virtual int ReceiveCmdData(int fd);
    // Takes ownership of `fd` when it returns true; false when all slots are taken.
    virtual bool AddClient(int fd);
    // Frees the slot. The descriptor is closed when the last Command that names it is gone.
    virtual void RemoveClient(int fd);
    virtual int GetMaxFd();
    // 0: accepted; 1: nothing to accept, or accepting failed; 2: rejected, all slots are taken.
    virtual int AcceptClient(fd_set& ready);
    virtual int ConnectByApp();
    virtual void DisConnectByApp();
    // Opens the console and starts its threads. 0, or -1 when it is not active or does not open.
    virtual int Start();
    // Ends both threads, whatever they wait in, and closes everything. Returns when they have
    // ended; on the console's own send thread when the receive thread has, the send thread ending
    // after the command it is at.
    virtual void Stop();
    // Takes over an answered command, to be written by the send thread.
    virtual void SendDataDone(Command* command);
    // Sees to it that the answers which the console gave itself are being written; before the
    // receive thread does something that may take long. They are held for a moment otherwise.
    void ReleaseAnswers();
    // Routes one command; answers it at once when no module takes it.
    virtual void ProcessCmdData(Command* command);
    // Frames and routes everything buffered.
    virtual void ProcessCmdData();
    virtual void ReceiveCmd();
    virtual void SendCmd();

    const std::string& GetName() const;

  protected:
    int FlushBuffer();
    int ReadBuffer(int fd, int count);
    int WriteBuffer(int fd, const char* data, int length);
    bool ThrowException(int code, int& fd);

    std::atomic<int> mServerFd{-1};  // written under mFdMutex
    ConfigManager* const mConfigManager;
    MessagerManager* const mMessagerManager;
    const ReceiveConfig* mReceiveConfig = nullptr;  // the receive thread's while it runs
    CommonConfig* mConsoleConfig = nullptr;         // set once by the subclass's constructor
    // How long a client may take no byte of an answer, in milliseconds; set before Start.
    int mWriteStallMs = 30000;

  private:
    using ReceiveRunnable = MemberRunnable<Processor, &Processor::ReceiveCmd>;
    using SendRunnable = MemberRunnable<Processor, &Processor::SendCmd>;

    // Receive loop.
    void ReceiveOnce();
    void CollectDescriptors(fd_set& set);
    void OnSelectFailure(int error);
    void OnReadable(fd_set& ready);
    void ReceiveFrom(int fd);
    void ApplyFraming();

    // Connection.
    int Open();
    void EndThreads() KELP_REQUIRES(mLifeMutex);
    int AcceptOne(fd_set& ready, int& fd);
    void OnAcceptFailure(int error);
    std::shared_ptr<ClientDescriptor> FindClient(int fd) KELP_REQUIRES(mFdMutex);

    // Framing and answers.
    void CutLines();
    void EnqueueCommand(size_t length);
    void CountAnswer(const Command& command);
    bool Congested() const;
    void WaitForRoom();
    void ReleaseRoom(const Command& command);
    void OnFlood();
    int WaitWritable(int fd, int64_t& stalledSinceMs, bool wasReady);
    void Answer(std::unique_ptr<Command> command);
    void GatherAnswers();
    void DropAnswers();

    const ProcessorModeE mMode;
    std::atomic<bool> mRecvRunning{false};
    std::atomic<bool> mSendRunning{false};

    Mutex mLifeMutex;  // Start, Stop and the ByApp pair, one at a time
    Mutex mFdMutex;    // descriptors come, go and are read under it; never held while routing
    std::vector<int> mClientFds KELP_GUARDED_BY(mFdMutex);
    // The owners of the descriptors in mClientFds, slot by slot.
    std::vector<std::shared_ptr<ClientDescriptor>> mClients KELP_GUARDED_BY(mFdMutex);
    // DEVICE_MODE: a duplicate of mServerFd for the send thread, so that a reconnection cannot
    // close the descriptor in the middle of a write.
    std::shared_ptr<ClientDescriptor> mDevice KELP_GUARDED_BY(mFdMutex);

    // The receive thread's own while it runs, else the starting thread's; Thread::Start and
    // Thread::Stop order the two.
    fd_set mReadFds;
    int mCurrentFd = -1;
    std::shared_ptr<ClientDescriptor> mCurrentClient;  // whom mCurrentFd belongs to
    struct timeval mTimeTick = {};
    bool mTimed = false;  // select waits for mTimeTick at most
    // Odd while the receive loop collects descriptors and waits on them; any thread reads it.
    std::atomic<uint64_t> mSelectRound{0};
    FrameBuffer mRecvBuffer;
    const std::unique_ptr<char[]> mReadBuf;
    int64_t mAcceptFailureLoggedMs = 0;

    Mutex mBufferMutex;  // held while the buffer is cut into commands
    // What is in mSendCmdQueue or being written.
    std::atomic<int64_t> mWaitingAnswers{0};
    std::atomic<int64_t> mWaitingBytes{0};
    Mutex mRoomMutex;  // a leaf
    CondVar mRoom;     // signalled when the two above have fallen below their limits
    int64_t mFloodDropped KELP_GUARDED_BY(mRoomMutex) = 0;
    int64_t mFloodLoggedMs KELP_GUARDED_BY(mRoomMutex) = 0;

    MessageQueue<Command> mSendCmdQueue;
    MessageQueue<Command> mRecvCmdQueue;
    int mHeldAnswers = 0;  // in mSendCmdQueue without a wake-up; the receive thread's own
    // What is written next, in one write, and its bytes when it is more than one answer; the send
    // thread's own.
    std::vector<std::unique_ptr<Command>> mBatch;
    std::vector<char> mBatchBytes;

    // The threads last, so that they are gone before anything that they use.
    const std::unique_ptr<SendRunnable> mSendRunnable;
    const std::unique_ptr<ReceiveRunnable> mRecvRunnable;
    const std::unique_ptr<Thread> mSendThread;
    const std::unique_ptr<Thread> mRecvThread;
};

}  // namespace kelp
