#include "support/peer.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

#include "support/sockets.h"
#include "support/wait.h"

namespace kelp::test {

namespace {

bool SendAll(int fd, const std::string& bytes) {
    return send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

}  // namespace

Peer::Script Peer::Echo(const std::string& name) {
    return [name](const std::string& request) { return Answer{"<" + name + ":" + request + ">"}; };
}

Peer::Peer(const std::string& name, LocalNamespace space, Script script)
    : mAddress(AddressOf(name, space)),
      mScript(std::move(script)),
      mListener(ListenLocal(mAddress)) {
    if (!mListener.Ok() || !mThread.Start()) {
        ADD_FAILURE() << "no peer at " << name << ", errno " << errno;
    }
}

Peer::~Peer() {
    {
        // Ends a send to a client that does not read.
        MutexLock lock(mMutex);
        for (const UniqueFd& client : mClients) {
            shutdown(client.Get(), SHUT_RDWR);
        }
    }
    mThread.Stop();
    unlink(mAddress.address.sun_path);  // an abstract name's path is empty
}

void Peer::Run() {
    std::vector<struct pollfd> fds = {{Thread::WakeFd(), POLLIN, 0}, {mListener.Get(), POLLIN, 0}};
    {
        MutexLock lock(mMutex);
        for (const UniqueFd& client : mClients) {
            fds.push_back({client.Get(), POLLIN, 0});
        }
    }
    if (poll(fds.data(), fds.size(), -1) < 0 || fds[0].revents != 0) {
        return;
    }
    for (size_t i = fds.size() - 1; i > 1; --i) {
        if (fds[i].revents != 0 && !Serve(fds[i].fd)) {
            MutexLock lock(mMutex);
            mClients.erase(mClients.begin() + static_cast<std::ptrdiff_t>(i) - 2);
        }
    }
    if (fds[1].revents != 0) {
        const int fd = accept4(mListener.Get(), nullptr, nullptr, SOCK_CLOEXEC);
        MutexLock lock(mMutex);
        mClients.emplace_back(fd);
        ++mAccepted;
    }
}

bool Peer::Serve(int fd) {
    char chunk[65536];
    const ssize_t n = read(fd, chunk, sizeof(chunk));
    if (n <= 0) {
        return false;
    }
    const std::string request(chunk, static_cast<size_t>(n));
    {
        MutexLock lock(mMutex);
        mLastRequest = request;
    }
    mTaken += request.size();
    const Answer answer = mScript(request);
    return SendAll(fd, answer.bytes) && !answer.close;
}

bool Peer::WaitForRequest(const std::string& request) {
    return WaitUntil([&] {
        MutexLock lock(mMutex);
        // Requests that arrive together are read as one.
        const size_t at = mLastRequest.size() - request.size();
        return at <= mLastRequest.size() &&
               mLastRequest.compare(at, std::string::npos, request) == 0;
    });
}

bool Peer::Push(const std::string& bytes) {
    // connect() returns before the peer has accepted.
    WaitUntil([&] { return Connections() > 0; });
    MutexLock lock(mMutex);
    return !mClients.empty() && SendAll(mClients.back().Get(), bytes);
}

}  // namespace kelp::test
