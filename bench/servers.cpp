#include "servers.h"

#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace kelp::bench {

namespace {

// More than the relays of one group keep open together, of which some connect once for each client.
constexpr int kPoolThreads = 16;
constexpr size_t kReadBytes = 65535;

void Echo(int fd) {
    std::vector<char> buffer(kReadBytes);
    for (;;) {
        const ssize_t n = read(fd, buffer.data(), buffer.size());
        if (n <= 0 || !WriteAll(fd, buffer.data(), static_cast<size_t>(n))) {
            return;
        }
    }
}

void AcceptAndEcho(int listener) {
    for (;;) {
        const int fd = accept(listener, nullptr, nullptr);
        if (fd >= 0) {
            Echo(fd);
            close(fd);
        }
    }
}

class Client {
  public:
    explicit Client(int fd) : mFd(fd) {}
    ~Client() { close(mFd); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    const int mFd;
    std::string mPending;  // read, and not yet a whole line
};

struct Answer {
    std::shared_ptr<Client> client;
    std::string bytes;
};

class Relay {
  public:
    explicit Relay(const RelayOptions& options) : mOptions(options) {}

    int Run() {
        if (mOptions.transport == Transport::kPty) {
            mClients.push_back(std::make_shared<Client>(OpenRaw(mOptions.where)));
        } else {
            mListener = mOptions.transport == Transport::kTcp
                            ? ListenTcp(atoi(mOptions.where.c_str()))
                            : ListenLocal(mOptions.where);
            if (mListener < 0) {
                return 1;
            }
        }
        if (mOptions.kept) {
            mPeer = ConnectLocal(mOptions.peer);
        }
        if (mOptions.twoThreads) {
            std::thread(&Relay::WriteAnswers, this).detach();
        }
        for (;;) {
            Turn();
        }
    }

  private:
    void Turn() {
        std::vector<struct pollfd> fds{{mListener, POLLIN, 0}};
        for (const auto& client : mClients) {
            fds.push_back({client->mFd, POLLIN, 0});
        }
        if (mOptions.contract) {
            Select(fds);
        } else {
            poll(fds.data(), fds.size(), -1);
        }
        // Backwards, so that a client that leaves does not move those still to be looked at.
        for (size_t i = mClients.size(); i > 0; --i) {
            if (fds[i].revents != 0 && !Read(mClients[i - 1])) {
                mClients.erase(mClients.begin() + static_cast<ptrdiff_t>(i - 1));
            }
        }
        if (fds[0].revents != 0) {
            mClients.push_back(std::make_shared<Client>(accept(mListener, nullptr, nullptr)));
        }
    }

    static void Select(std::vector<struct pollfd>& fds) {
        fd_set ready;
        FD_ZERO(&ready);
        int highest = -1;
        for (const struct pollfd& entry : fds) {
            if (entry.fd >= 0) {
                FD_SET(entry.fd, &ready);
                highest = std::max(highest, entry.fd);
            }
        }
        select(highest + 1, &ready, nullptr, nullptr, nullptr);
        for (struct pollfd& entry : fds) {
            entry.revents = entry.fd >= 0 && FD_ISSET(entry.fd, &ready) ? POLLIN : 0;
        }
    }

    // About as long as most of kelp's.
    void Record() const {
        static const std::string kRecord(100, 'r');
        if (mOptions.records && write(STDERR_FILENO, kRecord.data(), kRecord.size()) < 0) {
            return;
        }
    }

    bool Read(const std::shared_ptr<Client>& client) {
        if (mOptions.contract) {
            int pending = 0;
            ioctl(client->mFd, FIONREAD, &pending);
            Record();  // how many bytes came
        }
        const ssize_t n = read(client->mFd, mBuffer.data(), mBuffer.size());
        if (n <= 0) {
            return false;
        }
        client->mPending.append(mBuffer.data(), static_cast<size_t>(n));
        size_t begin = 0;
        for (;;) {
            const size_t end = client->mPending.find("\r\n", begin);
            if (end == std::string::npos) {
                break;
            }
            Serve(client, client->mPending.data() + begin, end - begin);
            begin = end + 2;
        }
        client->mPending.erase(0, begin);
        return true;
    }

    void Serve(const std::shared_ptr<Client>& client, const char* command, size_t length) {
        Record();  // the command
        Record();  // the rest of the buffer
        Record();  // the entry of the white list
        if (!mOptions.kept) {
            Record();  // that it connects
        } else if (mOptions.contract) {
            recv(mPeer, mAnswer.data(), mAnswer.size(), MSG_DONTWAIT);
        }
        const int peer = mOptions.kept ? mPeer : ConnectLocal(mOptions.peer);
        send(peer, command, length, MSG_NOSIGNAL);
        const ssize_t n = recv(peer, mAnswer.data(), mAnswer.size(), 0);
        if (!mOptions.kept) {
            close(peer);
        }
        if (n <= 0) {
            return;
        }
        if (!mOptions.twoThreads) {
            WriteAll(client->mFd, mAnswer.data(), static_cast<size_t>(n));
            return;
        }
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mAnswers.push_back({client, std::string(mAnswer.data(), static_cast<size_t>(n))});
        }
        mFilled.notify_one();
    }

    void WriteAnswers() {
        for (;;) {
            Answer answer;
            {
                std::unique_lock<std::mutex> lock(mMutex);
                mFilled.wait(lock, [this] { return !mAnswers.empty(); });
                answer = std::move(mAnswers.front());
                mAnswers.pop_front();
            }
            WriteAll(answer.client->mFd, answer.bytes.data(), answer.bytes.size());
            Record();  // the answer
        }
    }

    const RelayOptions mOptions;
    int mListener = -1;
    int mPeer = -1;
    std::vector<std::shared_ptr<Client>> mClients;
    std::vector<char> mBuffer = std::vector<char>(kReadBytes);
    std::vector<char> mAnswer = std::vector<char>(kReadBytes);

    std::mutex mMutex;
    std::condition_variable mFilled;
    std::deque<Answer> mAnswers;  // guarded by mMutex
};

}  // namespace

int ServeEcho(const std::string& name, int port, const std::string& device) {
    const int local = ListenLocal(name);
    const int tcp = ListenTcp(port);
    if (local < 0 || tcp < 0) {
        return 1;
    }
    for (int i = 0; i < kPoolThreads; ++i) {
        std::thread(AcceptAndEcho, local).detach();
        std::thread(AcceptAndEcho, tcp).detach();
    }
    Echo(OpenRaw(device));
    return 1;
}

int ServeRelay(const RelayOptions& options) {
    return Relay(options).Run();
}

}  // namespace kelp::bench
