#include "messager/pcbamessager.h"

#include <sys/resource.h>
#include <sys/select.h>

#include <algorithm>
#include <utility>

#include "main/errorcode.h"
#include "messager/formatter.h"
#include "messager/messagertoken.h"
#include "messager/pcbaconnection.h"
#include "messager/pcbarecord.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "processor/clienthandle.h"

namespace kelp {

namespace {

constexpr size_t kMaxPendingBytes = 4u << 20;
// Includes abandoned requests whose records are still awaited.
constexpr size_t kMaxInFlight = 4096;
constexpr int kWriteMs = 1000;
constexpr int kRefusedLogPauseMs = 10000;
constexpr char kTooMany[] = "too many pending";
constexpr char kDoesNotRead[] = "the daemon does not read";

// Half of all descriptors: the consoles need the others to accept and answer.
int MaxNumber() {
    struct rlimit limit = {FD_SETSIZE, FD_SETSIZE};
    getrlimit(RLIMIT_NOFILE, &limit);
    return static_cast<int>(std::min<rlim_t>(limit.rlim_cur, FD_SETSIZE) / 2);
}

// True when nobody can get the answer: the client is gone, its console was switched off or, when it
// is to be asked, its socket has ended.
bool IsAbandoned(const Command& command, bool ask) {
    const ClientHandle* const client = command.mClient.get();
    return client != nullptr && (client->Gone() || (ask && client->HasEnded()));
}

}  // namespace

Messager* PCBAMessager::Create(MessagerManager* manager, std::string name) {
    return new PCBAMessager(manager, name);
}

PCBAMessager::PCBAMessager(MessagerManager* manager, const std::string& name)
    : Messager(manager, name),
      mMaxNumber(MaxNumber()),
      mKept(mFd != -1 ? std::make_shared<PCBAConnection>(std::move(mClient)) : nullptr),
      mRunnable(new PCBAMsgRunnable(this)),
      mThread(new Thread(mRunnable.get(), name)) {
    mClient.reset();
    mThread->Start();
}

PCBAMessager::~PCBAMessager() {
    mRunning = false;
    mThread->Stop();
}

unsigned PCBAMessager::HandleMessager(Command* command, void* processor) {
    auto token = std::make_unique<MessagerToken>();
    token->command.reset(command);
    token->processor = processor;
    const int64_t deadlineMs = MonotonicMs() + kWriteMs;
    const PeerTurn turn(this);
    if (!turn.Held()) {
        return kSuccess;  // the console stops: nobody can get the answer
    }
    const size_t bytes = command->GetRequest()->size();
    const bool room = HasRoom(bytes, false) || HasRoom(bytes, true);
    const char* const refused = room ? Write(*token, deadlineMs) : kTooMany;
    if (refused == nullptr) {
        Enqueue(std::move(token));
    } else if (!Thread::StopRequested()) {
        Refuse(*token, refused);
    }
    return kSuccess;
}

// Requests that nobody waits for no longer count; their commands are deleted. Their tokens stay: on
// a kept connection their records are still to come; a connection of their own ends. `ask`: also
// looks for clients that have left without notice.
bool PCBAMessager::HasRoom(size_t bytes, bool ask) {
    std::vector<std::unique_ptr<Command>> abandoned;  // deleted without the lock
    size_t pending = 0;
    MutexLock lock(mMutex);
    for (MessagerToken* token : mInFlight) {
        if (token->command == nullptr) {
            continue;
        }
        if (!IsAbandoned(*token->command, ask)) {
            ++pending;
            bytes += token->command->GetRequest()->size();
            continue;
        }
        abandoned.push_back(std::move(token->command));
        if (mFd == -1 && token->connection != nullptr) {
            // The module's thread may be waiting on it.
            token->connection->client->Shutdown();
            token->connection.reset();
        }
    }
    // pcba and fm together: no more clients than half the descriptors.
    const size_t maxPending = static_cast<size_t>(mMaxNumber) / 2;
    return mInFlight.size() < kMaxInFlight &&
           (pending == 0 || (pending < maxPending && bytes <= kMaxPendingBytes));
}

// Null: written on the token's connection, or there is no daemon and the token has none. Otherwise
// why the request is refused: it is not to wait behind those of a silent daemon.
const char* PCBAMessager::Write(MessagerToken& token, int64_t deadlineMs) {
    bool scarce = false;
    // A closed peer is detected by the write: one retry on a new connection. Another descriptor may
    // be free once the requests of clients that have left are gone.
    for (int tries = 0; tries < 2; ++tries) {
        const std::shared_ptr<PCBAConnection> connection = ConnectionForRequest(deadlineMs);
        if (connection == nullptr) {
            return MonotonicMs() < deadlineMs ? nullptr : kDoesNotRead;
        }
        LocalSocketClient& client = *connection->client;
        scarce = client.Descriptor() >= mMaxNumber;
        LocalResult result = scarce ? LocalResult::kLost : DropStale(*connection);
        if (result == LocalResult::kDone) {
            result = client.ssend(*token.command->GetRequest(), deadlineMs);
        }
        if (result == LocalResult::kDone) {
            token.connection = connection;
            token.result = client.Descriptor();
            return nullptr;
        }
        if (result == LocalResult::kLost || result == LocalResult::kCut) {
            MutexLock lock(mMutex);
            Retire(connection);
        }
        if (result != LocalResult::kLost) {
            ReportReceiveError(ToErrorCode(result));
            return kDoesNotRead;
        }
        if (scarce) {
            HasRoom(0, true);
        }
    }
    return scarce ? kTooMany : nullptr;
}

std::shared_ptr<PCBAConnection> PCBAMessager::ConnectionForRequest(int64_t deadlineMs) {
    if (mFd == -1) {
        KLOG_AS("Send", kLogDebug) << mModuleName << " socket pause. connect now";
    } else {
        MutexLock lock(mMutex);
        if (mKept != nullptr) {
            return mKept;
        }
    }
    auto client = std::make_shared<LocalSocketClient>(mSocketPath);
    const int64_t leftMs = std::max<int64_t>(deadlineMs - MonotonicMs(), 0);
    if (client->sopen(static_cast<int>(leftMs)) == -1) {
        return nullptr;
    }
    auto connection = std::make_shared<PCBAConnection>(std::move(client));
    if (mFd != -1) {
        MutexLock lock(mMutex);
        mKept = connection;
    }
    return connection;
}

// Bytes that arrived while no request was pending are not part of an answer.
LocalResult PCBAMessager::DropStale(PCBAConnection& connection) {
    {
        MutexLock lock(mMutex);
        if (connection.waiting > 0) {
            return LocalResult::kDone;
        }
    }
    const size_t dropped = connection.bytes.size();
    connection.bytes.clear();
    return DropStaleBytes(*connection.client, dropped);
}

void PCBAMessager::Enqueue(std::unique_ptr<MessagerToken> token) {
    {
        MutexLock lock(mMutex);
        mInFlight.push_back(token.get());
        if (token->connection != nullptr) {
            ++token->connection->waiting;
        }
    }
    mTokenQueue.enqueue(token.release());
}

// Answers a request that was not queued, ahead of the pending ones.
void PCBAMessager::Refuse(MessagerToken& token, const char* why) {
    HandBack(token, Formatter());
    ++mRefused;
    const int64_t nowMs = MonotonicMs();
    if (mRefusedLoggedMs == 0 || nowMs - mRefusedLoggedMs >= kRefusedLogPauseMs) {
        mRefusedLoggedMs = nowMs;
        KLOG(kLogError) << mModuleName << "-->" << std::exchange(mRefused, 0)
                        << " requests refused: " << why;
    }
}

// The connection takes no more requests; it is closed with its last token.
void PCBAMessager::Retire(const std::shared_ptr<PCBAConnection>& connection) {
    if (mKept == connection) {
        mKept.reset();
    }
}

void PCBAMessager::HandBack(MessagerToken& token, Formatter formatter) {
    formatter.GetResponse(token.command.get());
    if (SendMessager(token.command.get(), token.processor) == kSuccess) {
        static_cast<void>(token.command.release());  // the console owns it
    }
}

void PCBAMessager::Run() {
    while (mRunning) {
        const std::unique_ptr<MessagerToken> token(mTokenQueue.dequeue());
        if (mRunning && token != nullptr) {
            Answer(*token);
        }
    }
}

void PCBAMessager::Answer(MessagerToken& token) {
    std::shared_ptr<PCBAConnection> connection;
    {
        MutexLock lock(mMutex);
        if (mFd != -1 || (token.command != nullptr && !IsAbandoned(*token.command, false))) {
            connection = token.connection;
        }
    }
    std::vector<char> record;
    int result = kErrorInvalidDescriptor;
    if (connection != nullptr) {
        result = ReceiveRecord(*connection, record);
        if (result != kSuccess) {
            connection->GiveUp();
        }
    }
    if (!mRunning) {
        return;
    }
    Formatter formatter;
    if (result != kSuccess) {
        ReportReceiveError(result);
        formatter.SetResult(result);
    } else {
        DUMPLOG_AS("Run", kLogTag, "Run", record.data(), record.size());
        Decode(record, &formatter);
    }
    {
        MutexLock lock(mMutex);
        mInFlight.pop_front();  // from now on only this thread uses the token
        if (connection != nullptr) {
            --connection->waiting;
        }
        // One record too many shifts all later answers: keep later requests off this connection.
        // The echo in the record of an abandoned request cannot be checked any more.
        if (token.command == nullptr || !formatter.Matches(*token.command)) {
            Retire(connection);
        }
    }
    if (token.command != nullptr) {
        HandBack(token, std::move(formatter));
    }
}

// Takes the next record from the connection, in any number of pieces, within the module's time-out.
// Returns 0 or an error code.
int PCBAMessager::ReceiveRecord(PCBAConnection& connection, std::vector<char>& record) {
    const int64_t deadlineMs = MonotonicMs() + int64_t{mTimeout} * 1000;
    while (!connection.givenUp) {
        size_t length = 0;
        const std::string_view bytes(connection.bytes.data(), connection.bytes.size());
        const PCBARecordState state = FindPcbaRecord(bytes, length);
        if (state == PCBARecordState::kComplete) {
            const auto end = connection.bytes.begin() + static_cast<ptrdiff_t>(length);
            record.assign(connection.bytes.begin(), end);
            connection.bytes.erase(connection.bytes.begin(), end);
            return kSuccess;
        }
        if (state == PCBARecordState::kDamaged) {
            KLOG(kLogError) << mModuleName << "-->damaged record";
            return kErrorMismatch;
        }
        const int64_t leftMs = mTimeout > 0 ? deadlineMs - MonotonicMs() : 0;
        if (mTimeout > 0 && leftMs <= 0) {
            return kErrorTimeOut;
        }
        const LocalResult result =
            connection.client->sreceive(connection.bytes, {leftMs / 1000, leftMs % 1000 * 1000});
        if (result != LocalResult::kDone) {
            return ToErrorCode(result);
        }
    }
    return kErrorInvalidDescriptor;
}

void PCBAMessager::Decode(std::vector<char>& record, Formatter* formatter) {
    if (record.empty()) {
        KLOG_AS("Run", kLogDebug) << "Response data is null!";
        return;
    }
    const std::string_view bytes(record.data(), record.size());
    int64_t position = ReadResult(record.data(), formatter);
    // A negative length moves the position backwards, possibly out of the record.
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
