#include "peer/peerserver.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "platform/clock.h"

namespace kelp::tools {

namespace {

constexpr int kMaxAccepts = 64;      // per turn and socket
constexpr int kAcceptPauseMs = 100;  // after descriptors or memory ran out
constexpr int kFailedWaitMs = 10;

}  // namespace

bool PeerServer::Open(std::string& error) {
    for (const Role& role : mScript) {
        PeerSocket socket;
        if (!socket.Open(role.socket, error)) {
            mSockets.clear();
            return false;
        }
        mSockets.push_back(std::move(socket));
    }
    return true;
}

void PeerServer::Run(const volatile sig_atomic_t& stop, const sigset_t& duringWait) {
    mNowMs = MonotonicMs();
    while (!stop) {
        if (!Wait(duringWait)) {
            continue;
        }
        ServeConnections();
        for (size_t i = 0; i < mSockets.size(); ++i) {
            if (mPolled[i].revents != 0) {
                Accept(i);
            }
        }
    }
    mConnections.clear();
    mSockets.clear();
}

int64_t PeerServer::NextDueMs() const {
    int64_t next = mNowMs < mAcceptFromMs ? mAcceptFromMs : -1;
    for (const auto& connection : mConnections) {
        const int64_t due = connection->NextDueMs();
        next = due >= 0 && (next < 0 || due < next) ? due : next;
    }
    return next;
}

// False when a signal or an error ended the wait.
bool PeerServer::Wait(const sigset_t& duringWait) {
    const short acceptEvents = mNowMs < mAcceptFromMs ? 0 : POLLIN;
    mPolled.clear();
    for (const PeerSocket& socket : mSockets) {
        mPolled.push_back({socket.Fd(), acceptEvents, 0});
    }
    for (const auto& connection : mConnections) {
        mPolled.push_back({connection->Fd(), connection->Events(), 0});
    }
    const int64_t next = NextDueMs();
    const int64_t wait = std::max<int64_t>(next - mNowMs, 0);
    struct timespec timeout = {static_cast<time_t>(wait / 1000), (wait % 1000) * 1000000};
    const bool ok =
        ppoll(mPolled.data(), mPolled.size(), next < 0 ? nullptr : &timeout, &duringWait) >= 0;
    if (!ok && errno != EINTR) {
        // Out of memory, for example: pause, so that the loop does not spin.
        timeout = {0, kFailedWaitMs * 1000000};
        ppoll(nullptr, 0, &timeout, &duringWait);
    }
    mNowMs = MonotonicMs();
    return ok;
}

void PeerServer::Accept(size_t index) {
    for (int i = 0; i < kMaxAccepts; ++i) {
        UniqueFd fd(accept4(mSockets[index].Fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (fd.Ok()) {
            const Role& role = mScript[index];
            const std::string name = role.name + "#" + std::to_string(++mAccepted);
            mConnections.push_back(
                std::make_unique<PeerConnection>(std::move(fd), role, name, mLog, mNowMs));
        } else if (errno == EAGAIN) {
            return;
        } else if (errno != EINTR && errno != ECONNABORTED) {
            mLog.Line(mScript[index].name, std::string("cannot accept: ") + strerror(errno));
            mAcceptFromMs = mNowMs + kAcceptPauseMs;
            return;
        }
    }
}

void PeerServer::ServeConnections() {
    const struct pollfd* polled = mPolled.data() + mSockets.size();
    size_t kept = 0;
    for (size_t i = 0; i < mConnections.size(); ++i) {
        const int64_t due = mConnections[i]->NextDueMs();
        const bool wanted = polled[i].revents != 0 || (due >= 0 && due <= mNowMs);
        if (wanted && !mConnections[i]->Serve(polled[i].revents, mNowMs)) {
            continue;
        }
        if (kept != i) {
            mConnections[kept] = std::move(mConnections[i]);
        }
        ++kept;
    }
    mConnections.erase(mConnections.begin() + static_cast<ptrdiff_t>(kept), mConnections.end());
}

}  // namespace kelp::tools
