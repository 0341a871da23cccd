// What is measured: a relay, the road that commands take through it, and a client at its front.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "endpoint.h"
#include "support/process.h"
#include "support/pty.h"
#include "support/tempdir.h"

namespace kelp::bench {

struct Subject {
    std::string who;  // as in docs/performance.md
    Transport transport = Transport::kLocal;
    bool kept = true;  // the connection to the peer; otherwise one for each command
};

// What all subjects share: a directory, the echo peer, and kelp's UART, which nobody talks to.
struct Environment {
    const test::TempDir directory;
    const std::string peer = directory.Path("peer");
    const int port = test::FreePort();
    test::Pty line, uart;
    const test::Process echo{{BARE_RELAY, "echo", peer, std::to_string(port), line.Device()},
                             "/dev/null"};
};

// A client of a subject: one connection, the same code whatever the subject is.
class Client {
  public:
    Client(UniqueFd fd, bool isTty) : mFd(std::move(fd)), mIsTty(isTty) {}
    // False when less than `answerBytes` have come after five seconds.
    bool Exchange(std::string_view data, size_t answerBytes) {
        return Send(data) && Receive(answerBytes);
    }
    bool Send(std::string_view data);
    bool Receive(size_t bytes);

  private:
    UniqueFd mFd;
    bool mIsTty;
};

// A subject that runs, at an address of its own; of kelp there can be only one at a time.
class Running {
  public:
    // `number` tells apart those that run at the same time.
    Running(const Subject& subject, Environment& environment, size_t number);

    // Waits until the subject listens.
    std::unique_ptr<Client> Connect();
    // The relay and what it has forked; none of the direct exchange.
    std::vector<pid_t> Pids() const;
    // What one command, as sent, brings back.
    size_t AnswerBytes() const;

    static constexpr std::string_view kCommand = "AT+WIFI=0123456\r\n";

  private:
    // The program and its arguments.
    std::vector<std::string> Words() const;

    const Subject mSubject;
    Environment& mEnvironment;
    const std::string mPath;
    const int mPort = test::FreePort();
    test::Pty mLine;
    std::unique_ptr<test::Process> mRelay;
};

}  // namespace kelp::bench
