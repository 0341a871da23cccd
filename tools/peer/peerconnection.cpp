#include "peer/peerconnection.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "peer/answerbytes.h"

namespace kelp::tools {

namespace {

constexpr size_t kReadBytes = 65536;
// Without an end, reads that fill the buffer are joined into one request up to this size.
constexpr size_t kMaxTogetherBytes = 1024 * 1024;
constexpr size_t kMaxRequestBytes = 64 * 1024 * 1024;
constexpr uint64_t kMaxWaitingBytes = 1024 * 1024;
constexpr size_t kMaxWaitingOutputs = 4096;
// For one turn, so that a flood does not delay the other connections.
constexpr int kMaxWrites = 64;

}  // namespace

PeerConnection::PeerConnection(UniqueFd fd, const Role& role, std::string name, const PeerLog& log,
                               int64_t nowMs)
    : mFd(std::move(fd)),
      mRole(role),
      mName(std::move(name)),
      mLog(log),
      mCutter(role.requestEnd, role.requestStart) {
    for (const Answer& answer : role.unsolicited) {
        const int first = answer.afterMs >= 0 ? answer.afterMs : answer.everyMs;
        mTimers.push_back({&answer, nowMs + first});
    }
    mLog.Line(mName, "connected");
}

bool PeerConnection::HasRoom() const {
    return mQueue.WaitingBytes() <= kMaxWaitingBytes &&
           mQueue.WaitingOutputs() <= kMaxWaitingOutputs;
}

bool PeerConnection::MayRead() const {
    return !mInputEnded && !mIsHeld && HasRoom();
}

short PeerConnection::Events() const {
    return static_cast<short>((MayRead() ? POLLIN : 0) | (mBlocked ? POLLOUT : 0));
}

int64_t PeerConnection::NextDueMs() const {
    if (mIsHeld && HasRoom()) {
        return 0;
    }
    int64_t next = mBlocked ? -1 : mQueue.NextDueMs();
    for (const Timer& timer : mTimers) {
        if (timer.dueMs >= 0 && (next < 0 || timer.dueMs < next)) {
            next = timer.dueMs;
        }
    }
    return next;
}

bool PeerConnection::Serve(short revents, int64_t nowMs) {
    const bool gone = (revents & (POLLHUP | POLLERR)) != 0;
    if ((revents & POLLIN) != 0 && MayRead()) {
        if (!Read()) {
            mLog.Line(mName, "lost");
            return false;
        }
    } else if (gone) {
        mLog.Line(mName, "hung up");
        return false;
    }
    AnswerRequests(nowMs);
    SendUnsolicited(nowMs);
    if ((!mBlocked || (revents & POLLOUT) != 0) && !Write(nowMs)) {
        mLog.Line(mName, "lost");
        return false;
    }
    if (mQueue.Ended() || (mInputEnded && (gone || (mQueue.Empty() && !mIsHeld)))) {
        mLog.Line(mName, "closed");
        return false;
    }
    return true;
}

bool PeerConnection::Read() {
    static char sBuffer[kReadBytes];
    size_t together = 0;
    for (;;) {
        const ssize_t n = recv(mFd.Get(), sBuffer, sizeof(sBuffer), MSG_DONTWAIT);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            if (errno != EAGAIN) {
                return false;
            }
            break;
        }
        mInputEnded = n == 0;
        mCutter.Append({sBuffer, static_cast<size_t>(n)});
        together += static_cast<size_t>(n);
        if (static_cast<size_t>(n) < sizeof(sBuffer) || together >= kMaxTogetherBytes) {
            break;
        }
    }
    return mCutter.Waiting() <= kMaxRequestBytes;
}

void PeerConnection::AnswerRequests(int64_t nowMs) {
    std::string_view request;
    while (HasRoom() && mCutter.Next(request)) {
        mLog.Request(mName, request);
        const Answer* answer = FindAnswer(mRole, request);
        const Answer unknown = answer == nullptr ? AnswerToUnknown(mRole.kind) : Answer();
        if (answer == nullptr) {
            mLog.Line(mName, "no answer matches");
            answer = &unknown;
        }
        if (answer->silent && !answer->close) {
            continue;
        }
        Output output = Compose(mRole, *answer, request, nowMs);
        mLog.Answer(mName, output.pattern, output.total);
        mQueue.AddAnswer(std::move(output));
    }
    mIsHeld = !HasRoom();
}

void PeerConnection::SendUnsolicited(int64_t nowMs) {
    for (Timer& timer : mTimers) {
        if (timer.dueMs < 0 || timer.dueMs > nowMs) {
            continue;
        }
        // A message is not sent later to a client that does not read now.
        if (mQueue.WaitingBytes() <= kMaxWaitingBytes) {
            Output output = ComposeUnsolicited(*timer.answer, nowMs);
            mLog.Answer(mName, output.pattern, output.total);
            mQueue.AddUnsolicited(std::move(output));
        }
        // Missed repetitions are not sent later.
        const int everyMs = timer.answer->everyMs;
        timer.dueMs = everyMs == 0 ? -1 : std::max(timer.dueMs + everyMs, nowMs + 1);
    }
}

bool PeerConnection::Write(int64_t nowMs) {
    mBlocked = false;
    for (int i = 0; i < kMaxWrites; ++i) {
        const std::string_view bytes = mQueue.Due(nowMs);
        if (bytes.empty()) {
            return true;
        }
        const ssize_t n = send(mFd.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (n >= 0) {
            mQueue.Sent(static_cast<size_t>(n), nowMs);
        } else if (errno == EAGAIN) {
            mBlocked = true;
            return true;
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace kelp::tools
