#include "messager/pcbamessager.h"

#include <utility>

#include "main/errorcode.h"
#include "messager/formatter.h"
#include "messager/messagertoken.h"
#include "messager/pcbarecord.h"
#include "platform/clock.h"
#include "platform/log.h"

namespace kelp {

namespace {

constexpr int kMaxUnderWay = 256;

}  // namespace

// Shared by the requests that were written on it.
struct PCBAConnection {
    explicit PCBAConnection(std::shared_ptr<LocalSocketClient> socket)
        : client(std::move(socket)) {}

    // No answer can come any more.
    void Break() {
        takesRequests = false;
        client->sclose();
    }

    const std::shared_ptr<LocalSocketClient> client;
    std::vector<char> bytes;                // received, not yet cut; the module's thread's alone
    std::atomic<bool> takesRequests{true};  // once false, only answers that are due are awaited
};

Messager* PCBAMessager::Create(MessagerManager* manager, std::string name) {
    return new PCBAMessager(manager, name);
}

PCBAMessager::PCBAMessager(MessagerManager* manager, const std::string& name)
    : Messager(manager, name, LocalSocketClient::Reopen::kNever),
      mKept(mFd != -1 ? std::make_shared<PCBAConnection>(mClient) : nullptr),
      mRunnable(new PCBAMsgRunnable(this)),
      mThread(new Thread(mRunnable.get(), name)) {
    mThread->Start();
}

PCBAMessager::~PCBAMessager() {
    mRunning = false;
    mThread->Stop();
}

std::shared_ptr<PCBAConnection> PCBAMessager::OpenConnection() {
    auto client =
        std::make_shared<LocalSocketClient>(mSocketPath, LocalSocketClient::Reopen::kNever);
    if (client->sopen() == -1) {
        return nullptr;
    }
    return std::make_shared<PCBAConnection>(std::move(client));
}

std::shared_ptr<PCBAConnection> PCBAMessager::ConnectionForRequest() {
    if (mFd == -1) {
        KLOG_AS("Send", kLogDebug) << mModuleName << " socket pause. connect now";
        return OpenConnection();
    }
    if (mKept == nullptr || !mKept->takesRequests) {
        mKept = OpenConnection();
    }
    return mKept;
}

// Ends early when the console is being stopped; its request is then one too many, but no more.
void PCBAMessager::EnterRoom() {
    MutexLock lock(mRoomMutex);
    while (mUnderWay >= kMaxUnderWay && Thread::Wait(mRoom, mRoomMutex)) {
    }
    ++mUnderWay;
}

void PCBAMessager::LeaveRoom() {
    {
        MutexLock lock(mRoomMutex);
        --mUnderWay;
    }
    mRoom.Signal();
}

unsigned PCBAMessager::HandleMessager(Command* command, void* processor) {
    auto token = std::make_unique<MessagerToken>();
    token->command.reset(command);
    token->processor = processor;
    TurnHolder turn(mWriting);
    EnterRoom();
    // Not held: the console is being stopped; the request is answered as one that never left.
    // A kept peer that went away shows when it is written to: one more try on a new connection.
    for (int tries = 0; turn.Held() && tries < 2; ++tries) {
        token->connection = ConnectionForRequest();
        if (token->connection == nullptr) {
            break;
        }
        LocalSocketClient& client = *token->connection->client;
        if (client.ssend(*command->GetRequest()) == kSuccess) {
            token->result = client.Descriptor();
            break;
        }
        token->connection->takesRequests = false;
        token->connection.reset();
    }
    mTokenQueue.enqueue(token.release());
    return kSuccess;
}

void PCBAMessager::Run() {
    while (mRunning) {
        std::unique_ptr<MessagerToken> token(mTokenQueue.dequeue());
        if (!mRunning) {
            break;
        }
        if (token == nullptr) {
            continue;
        }
        Formatter formatter;
        std::vector<char> record;
        const int result = token->connection != nullptr ? ReceiveRecord(*token->connection, record)
                                                        : static_cast<int>(kErrorInvalidDescriptor);
        if (result != 0) {
            formatter.SetResult(result);
        } else {
            DUMPLOG(kLogTag, "Run", record.data(), record.size());
            Decode(record, &formatter);
        }
        formatter.GetResponse(token->command.get());
        if (SendMessager(token->command.get(), token->processor) == kSuccess) {
            static_cast<void>(token->command.release());  // the console's now
        }
        token.reset();
        LeaveRoom();
    }
}

// Takes the next record from the connection, put together from as many pieces as it takes within
// the module's time-out. A result other than 0 ends the connection.
int PCBAMessager::ReceiveRecord(PCBAConnection& connection, std::vector<char>& record) {
    const int64_t deadlineMs = MonotonicMs() + int64_t{mTimeout} * 1000;
    int result = 0;
    while (result == 0) {
        size_t length = 0;
        const std::string_view bytes(connection.bytes.data(), connection.bytes.size());
        const PCBARecordState state = FindPcbaRecord(bytes, length);
        if (state == PCBARecordState::kComplete) {
            const auto end = connection.bytes.begin() + static_cast<ptrdiff_t>(length);
            record.assign(connection.bytes.begin(), end);
            connection.bytes.erase(connection.bytes.begin(), end);
            return 0;
        }
        if (state == PCBARecordState::kDamaged) {
            KLOG(kLogError) << mModuleName << "-->damaged record";
            result = kErrorMismatch;
            break;
        }
        struct timeval timeout = {};
        if (mTimeout > 0) {
            const int64_t leftMs = deadlineMs - MonotonicMs();
            if (leftMs <= 0) {
                result = kErrorTimeOut;
                break;
            }
            timeout.tv_sec = static_cast<time_t>(leftMs / 1000);
            timeout.tv_usec = static_cast<suseconds_t>(leftMs % 1000) * 1000;
        }
        result = ReceiveInto(*connection.client, connection.bytes, timeout);
    }
    connection.Break();
    return result;
}

void PCBAMessager::Decode(std::vector<char>& record, Formatter* formatter) {
    if (record.empty()) {
        KLOG_AS("Run", kLogDebug) << "Response data is null!";
        return;
    }
    const std::string_view bytes(record.data(), record.size());
    int64_t position = ReadResult(record.data(), formatter);
    // A negative length moves the position backwards, perhaps out of the record.
    if (!PcbaTextFits(bytes, position)) {
        return;
    }
    position += ReadReqCommand(record.data() + position, formatter);
    if (PcbaTextFits(bytes, position)) {
        ReadResCommand(record.data() + position, formatter);
    }
}

int32_t PCBAMessager::ReadResult(char* p, Formatter* formatter) {
    const int32_t result = ReadPcbaInt(p);
    KLOG(kLogDebug) << "result =" << result;
    formatter->SetResult(result);
    return 4;
}

int32_t PCBAMessager::ReadReqCommand(char* p, Formatter* formatter) {
    const int32_t length = ReadPcbaInt(p);
    KLOG(kLogDebug) << ">> request len ->" << length;
    if (length >= 1) {
        DUMPLOG(kLogTag, "ReadReqCommand", p + 4, static_cast<size_t>(length));
        formatter->SetRequest(p + 4, length);
    }
    return static_cast<int32_t>(int64_t{length} + 4);
}

int32_t PCBAMessager::ReadResCommand(char* p, Formatter* formatter) {
    const int32_t length = ReadPcbaInt(p);
    KLOG(kLogDebug) << ">> response len -> " << length;
    if (length >= 1) {
        formatter->SetResponse(p + 4, length);
    }
    return static_cast<int32_t>(int64_t{length} + 4);
}

}  // namespace kelp
