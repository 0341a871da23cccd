// The base of every console: connection, receive loop, framing and answer delivery.
#pragma once

#include <sys/select.h>

#include <atomic>
#include <memory>
#include <string>

#include "platform/sync.h"
#include "platform/thread.h"
#include "platform/turn.h"
#include "processor/clientslots.h"
#include "processor/framebuffer.h"
#include "processor/messagequeue.h"
#include "processor/sendqueue.h"

namespace kelp {

class ClientHandle;
class Command;
class ConfigManager;
class MessagerManager;
struct CommonConfig;
struct ReceiveConfig;

enum ProcessorModeE {
    SERVER_MODE = 0,  // mServerFd listens, clients are accepted into slots
    DEVICE_MODE = 1,  // mServerFd is a device, itself read and written
};

// A running console has two threads. The receive thread selects, accepts, reads, cuts the bytes
// into commands and routes them; the modules' synchronous work runs on it. The send thread writes
// answers and notifies the modules of them. Created stopped by the ProcessorManager, which owns it;
// must be stopped before it is destroyed.
//
// Start and Stop may be called from any thread that is not a console's, and from the consoles' send
// threads (including the console's own) as long as only one of those at a time starts or stops
// consoles; the control module ensures that. Calls are serialised. SendDataDone and IsConnect: any
// thread. Everything else belongs to the console's own threads.
//
// Descriptors that select watches are closed by the receive thread only, or by Stop after that
// thread has ended. The send thread only hangs up a client (HangUp); the receive thread then sees
// end of file and frees the slot.
class Processor {
  public:
    static constexpr int READ_BUF_SIZE = 65535;  // maximum bytes of one read
    static constexpr int MAX_CLIENT_NUM = ClientSlots::kSlots;

    // Neither manager is owned; both outlive the console.
    Processor(ConfigManager* configManager, MessagerManager* messagerManager, ProcessorModeE mode);
    virtual ~Processor() = default;
    Processor(const Processor&) = delete;
    Processor& operator=(const Processor&) = delete;

    // Opens the main descriptor and returns it, or -1. Returns an open one unchanged.
    virtual int Connect() = 0;
    // Closes `fd` if it is not -1 and sets it to -1.
    virtual void DisConnect(int& fd) = 0;

    // Closes every client and the main descriptor. Does not change mReadFds.
    virtual void DisConnect();
    // After a device error, on the receive thread: closes, and tries once to reopen. If that fails
    // the process ends, because a closed descriptor cannot be watched. Pending answers and later
    // messages go to the reopened device.
    virtual void ReConnect();
    virtual bool IsConnect();
    // Reads the pending bytes of `fd`. Returns 0, or a code for ThrowException: an errno value or
    // an error code of the daemon. End of file gives 5 (EIO).
    virtual int ReceiveCmdData(int fd);
    // Takes ownership of `fd` if it returns true; false when all slots are used.
    virtual bool AddClient(int fd);
    // Frees the slot. The descriptor is closed after the last answer to the client.
    virtual void RemoveClient(int fd);
    virtual int GetMaxFd();
    // 0: accepted; 1: nothing to accept, or accept failed; 2: rejected, all slots are used.
    virtual int AcceptClient(fd_set& ready);
    // Open and close the descriptors of a stopped console, without the threads. The daemon itself
    // does not call them.
    virtual int ConnectByApp();
    virtual void DisConnectByApp();
    // Opens the console and starts its threads. 0, also when they run already; or -1 when it is not
    // active, does not open, or gets no threads, or when the console's own send thread is told
    // to stop meanwhile.
    virtual int Start();
    // Ends both threads, also blocked ones, and closes every descriptor of the console. On return
    // all framed commands have been routed, without an exchange with a peer. On the console's own
    // send thread, that thread ends after its current command; if another Stop is already under
    // way, this call returns and leaves all work to it.
    virtual void Stop();
    // Takes ownership of an answered command; the send thread writes it.
    virtual void SendDataDone(Command* command);
    // Routes one command; answers it at once when no module takes it.
    virtual void ProcessCmdData(Command* command);
    // Frames and routes all buffered bytes.
    virtual void ProcessCmdData();
    virtual void ReceiveCmd();
    virtual void SendCmd();

    const std::string& GetName() const;

  protected:
    int FlushBuffer();
    int ReadBuffer(int fd, int count);
    int WriteBuffer(int fd, const char* data, int length);
    bool ThrowException(int code, int& fd);

    // Written by the receive thread while it runs, else by the holder of mLife.
    std::atomic<int> mServerFd{-1};
    ConfigManager* const mConfigManager;
    MessagerManager* const mMessagerManager;
    const ReceiveConfig* mReceiveConfig = nullptr;  // used by the receive thread while it runs
    CommonConfig* mConsoleConfig = nullptr;         // set once by the subclass's constructor
    // Time-out in milliseconds for a client that takes no byte of an answer; set before Start.
    int mWriteStallMs = 30000;
    std::atomic<bool> mWriteFailed{false};  // the last write; set by the send thread

  private:
    using ReceiveRunnable = MemberRunnable<Processor, &Processor::ReceiveCmd>;
    using SendRunnable = MemberRunnable<Processor, &Processor::SendCmd>;

    // Connection.
    int Open(const std::shared_ptr<ClientHandle>& device = nullptr);
    bool ServeDevice(int& fd, const std::shared_ptr<ClientHandle>& device);
    std::shared_ptr<ClientHandle> TakeDevice();
    void CloseServer();
    void EndThreads();
    void OnAcceptFailure(int error);

    // Receive thread.
    void WatchServer();
    void ReceiveOnce();
    void OnSelectFailure(int error);
    void OnReadable(fd_set& ready);
    void ReadOutLeavers();
    void ReceiveFrom(int fd);
    void ApplyFraming();
    void CutLines();
    void EnqueueCommand(std::string_view request);

    // Send thread.
    void Answer(const Command& command);
    void Complete(Command& command);
    int WaitWritable(int fd, int64_t& deadlineMs);
    void DropAnswers();

    const ProcessorModeE mMode;
    // Set before the threads start, cleared after they have ended or, on the console's own send
    // thread, were told to.
    std::atomic<bool> mRecvRunning{false};
    std::atomic<bool> mSendRunning{false};

    Turn mLife;          // one Start, Stop or ByApp call at a time
    ClientSlots mSlots;  // of a device console: the device

    // Used by the receive thread only.
    fd_set mReadFds = {};
    std::shared_ptr<ClientHandle> mCurrentClient;  // last client read; null after a failed read
    // MonotonicMs at which the buffer becomes a command; -1: no deadline.
    int64_t mQuietDeadlineMs = -1;
    FrameBuffer mRecvBuffer;
    const std::unique_ptr<char[]> mReadBuf;
    int64_t mAcceptFailureLoggedMs = 0;

    // Part of the interface: held while the buffer is cut. Only the receive thread does that, so it
    // is never contended.
    Mutex mBufferMutex;
    SendQueue mSendCmdQueue;
    MessageQueue<Command> mRecvCmdQueue;

    // Declared last: the threads are destroyed before everything that they use.
    const std::unique_ptr<SendRunnable> mSendRunnable;
    const std::unique_ptr<ReceiveRunnable> mRecvRunnable;
    const std::unique_ptr<Thread> mSendThread;
    const std::unique_ptr<Thread> mRecvThread;
};

}  // namespace kelp
