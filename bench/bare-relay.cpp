// The echo peer of all measurements, and the bare relays that kelp is compared with: read, cut at
// CR LF, send, receive, write; no routing, no log, no time-outs.
//
// Usage: bare-relay echo PATH PORT DEVICE
//        bare-relay one-thread|contract local|tcp|pty WHERE kept|per-request PEER
//
// "one-thread" is the minimum for a relay. "contract" also makes the system calls that kelp's
// contract needs: FIONREAD before a read, a check for stale bytes before an exchange on a kept
// connection, and a second thread that writes the answers.

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/sockets.h"

namespace kelp::bench {
namespace {

// More than all connections of one run; some relays open one for each client.
constexpr int kPoolThreads = 24;
constexpr size_t kReadBytes = 65535;

int PortOf(const std::string& text) {
    return static_cast<int>(strtol(text.c_str(), nullptr, 10));
}

UniqueFd OpenLine(const char* device) {
    return UniqueFd(open(device, O_RDWR | O_NOCTTY | O_CLOEXEC));
}

// Two system calls per exchange.
void Echo(int fd) {
    std::vector<char> buffer(kReadBytes);
    ssize_t n;
    do {
        n = read(fd, buffer.data(), buffer.size());
    } while (n > 0 && write(fd, buffer.data(), static_cast<size_t>(n)) == n);
}

int ServeEcho(const std::string& path, int port, const char* device) {
    const UniqueFd listeners[] = {test::ListenLocal(test::AddressOf(path)), test::ListenTcp(port)};
    for (const UniqueFd& listener : listeners) {
        for (int i = 0; i < kPoolThreads; ++i) {
            std::thread([fd = listener.Get()] {
                for (;;) {
                    Echo(UniqueFd(accept(fd, nullptr, nullptr)).Get());
                }
            }).detach();
        }
    }
    Echo(OpenLine(device).Get());
    return 1;
}

struct Client {
    UniqueFd fd;
    std::string pending;  // an incomplete line
};

class Relay {
  public:
    Relay(bool contract, bool kept, const std::string& peer)
        : mContract(contract), mPeer(test::AddressOf(peer)) {
        if (kept) {
            mKept = test::ConnectLocalBlocking(mPeer);
        }
        if (contract) {
            std::thread(&Relay::WriteAnswers, this).detach();
        }
    }

    // A listener that is not Ok() is not watched. Does not return.
    void Serve(const UniqueFd& listener, UniqueFd line) {
        if (line.Ok()) {
            mClients.push_back(std::make_shared<Client>(Client{std::move(line), ""}));
        }
        for (;;) {
            fd_set ready;
            FD_ZERO(&ready);
            int highest = listener.Get();
            if (listener.Ok()) {
                FD_SET(listener.Get(), &ready);
            }
            for (const auto& client : mClients) {
                FD_SET(client->fd.Get(), &ready);
                highest = std::max(highest, client->fd.Get());
            }
            select(highest + 1, &ready, nullptr, nullptr, nullptr);
            const auto gone = [&](const auto& client) {
                return FD_ISSET(client->fd.Get(), &ready) && !Read(client);
            };
            mClients.erase(std::remove_if(mClients.begin(), mClients.end(), gone), mClients.end());
            if (listener.Ok() && FD_ISSET(listener.Get(), &ready)) {
                mClients.push_back(std::make_shared<Client>(
                    Client{UniqueFd(accept(listener.Get(), nullptr, nullptr)), ""}));
            }
        }
    }

  private:
    struct Answer {
        std::shared_ptr<Client> client;
        std::string bytes;
    };

    bool Read(const std::shared_ptr<Client>& client) {
        if (mContract) {
            int pending = 0;
            ioctl(client->fd.Get(), FIONREAD, &pending);
        }
        const ssize_t n = read(client->fd.Get(), mBuffer.data(), mBuffer.size());
        if (n <= 0) {
            return false;
        }
        client->pending.append(mBuffer.data(), static_cast<size_t>(n));
        size_t begin = 0, end;
        for (; (end = client->pending.find("\r\n", begin)) != std::string::npos; begin = end + 2) {
            Exchange(client, client->pending.data() + begin, end - begin);
        }
        client->pending.erase(0, begin);
        return true;
    }

    void Exchange(const std::shared_ptr<Client>& client, const char* command, size_t length) {
        if (mContract && mKept.Ok()) {
            recv(mKept.Get(), mBuffer.data(), mBuffer.size(), MSG_DONTWAIT);
        }
        UniqueFd own = mKept.Ok() ? UniqueFd() : test::ConnectLocalBlocking(mPeer);
        const int peer = mKept.Ok() ? mKept.Get() : own.Get();
        send(peer, command, length, MSG_NOSIGNAL);
        const auto n = static_cast<size_t>(
            std::max<ssize_t>(recv(peer, mBuffer.data(), mBuffer.size(), 0), 0));
        own.Reset();
        if (!mContract) {
            Write(*client, {mBuffer.data(), n});
            return;
        }
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mAnswers.push_back({client, std::string(mBuffer.data(), n)});
        }
        mFilled.notify_one();
    }

    static void Write(const Client& client, std::string_view bytes) {
        // The next read reports a client that is gone.
        [[maybe_unused]] const ssize_t n = write(client.fd.Get(), bytes.data(), bytes.size());
    }

    void WriteAnswers() {
        for (;;) {
            std::unique_lock<std::mutex> lock(mMutex);
            mFilled.wait(lock, [this] { return !mAnswers.empty(); });
            const Answer answer = std::move(mAnswers.front());
            mAnswers.pop_front();
            lock.unlock();
            Write(*answer.client, answer.bytes);
        }
    }

    const bool mContract;
    const LocalAddress mPeer;
    UniqueFd mKept;
    std::vector<std::shared_ptr<Client>> mClients;
    std::vector<char> mBuffer = std::vector<char>(kReadBytes);

    std::mutex mMutex;
    std::condition_variable mFilled;
    std::deque<Answer> mAnswers;  // guarded by mMutex
};

int Main(const std::vector<std::string>& words) {
    signal(SIGPIPE, SIG_IGN);
    if (words.size() == 5 && words[1] == "echo") {
        return ServeEcho(words[2], PortOf(words[3]), words[4].c_str());
    }
    if (words.size() != 6 || (words[1] != "one-thread" && words[1] != "contract")) {
        return 2;
    }
    const std::string& transport = words[2];
    const std::string& where = words[3];
    Relay relay(words[1] == "contract", words[4] == "kept", words[5]);
    relay.Serve(transport == "tcp"     ? test::ListenTcp(PortOf(where))
                : transport == "local" ? test::ListenLocal(test::AddressOf(where))
                                       : UniqueFd(),
                transport == "pty" ? OpenLine(where.c_str()) : UniqueFd());
    return 1;
}

}  // namespace
}  // namespace kelp::bench

int main(int argc, char** argv) {
    return kelp::bench::Main({argv, argv + argc});
}
