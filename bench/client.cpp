#include "client.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "process.h"

namespace kelp::bench {

namespace {

constexpr int kPatienceMs = 5000;

}  // namespace

bool Client::Open() {
    switch (mRoad.transport) {
        case Transport::kLocal:
            mFd = ConnectLocal(mRoad.name);
            break;
        case Transport::kTcp:
            mFd = ConnectTcp(mRoad.port);
            break;
        case Transport::kPty:
            mFd = mRoad.master;
            return true;
    }
    const struct timeval patience = {kPatienceMs / 1000, 0};
    return mFd >= 0 && setsockopt(mFd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)) == 0;
}

void Client::Close() {
    if (mFd >= 0 && mRoad.transport != Transport::kPty) {
        close(mFd);
    }
    mFd = -1;
}

bool Client::ReadAnswer(size_t bytes) {
    char buffer[65536];
    while (bytes > 0) {
        // A terminal has no receive time-out; everybody on one pays for this call alike.
        struct pollfd ready = {mFd, POLLIN, 0};
        if (mRoad.transport == Transport::kPty && poll(&ready, 1, kPatienceMs) <= 0) {
            return false;
        }
        const ssize_t n = read(mFd, buffer, std::min(bytes, sizeof(buffer)));
        if (n <= 0) {
            return false;
        }
        bytes -= static_cast<size_t>(n);
    }
    return true;
}

bool Client::Exchange(const std::string& data, size_t answerBytes) {
    if (mRoad.clientReopens) {
        Close();
        if (!Open()) {
            return false;
        }
    }
    return WriteAll(mFd, data.data(), data.size()) && ReadAnswer(answerBytes);
}

bool Client::OneAtATime(int count, std::vector<double>& roundTrips) {
    for (int i = 0; i < count; ++i) {
        const int64_t begin = NowNs();
        if (!Exchange(mRoad.command, mRoad.answerBytes)) {
            return false;
        }
        roundTrips.push_back(static_cast<double>(NowNs() - begin));
    }
    return true;
}

bool Client::Burst(const std::string& data, size_t answerBytes) {
    std::thread writer([&] { WriteAll(mFd, data.data(), data.size()); });
    const bool complete = ReadAnswer(answerBytes);
    if (!complete && mRoad.transport != Transport::kPty) {
        shutdown(mFd, SHUT_RDWR);  // frees the writer
    }
    writer.join();
    return complete;
}

}  // namespace kelp::bench
