// What is measured: a relay, its transport and its client.
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
    bool kept = true;  // one peer connection for all commands; else one for each
};

// What all subjects share: a directory, the echo peer, and kelp's UART, which stays unused.
struct Environment {
    const test::TempDir directory;
    const std::string peer = directory.Path("peer");
    const int port = test::FreePort();
    test::Pty line, uart;
    const test::Process echo{{BARE_RELAY, "echo", peer, std::to_string(port), line.Device()},
                             "/dev/null"};
};

// A client of a subject: one connection, the same code for all subjects.
class Client {
  public:
    Client(UniqueFd fd, bool isTty) : mFd(std::move(fd)), mIsTty(isTty) {}
    // False when fewer than `answerBytes` arrive: five seconds without data, or the end of the
    // stream.
    bool Exchange(std::string_view data, size_t answerBytes) {
        return Send(data) && Receive(answerBytes);
    }
    bool Send(std::string_view data);
    bool Receive(size_t bytes);

  private:
    UniqueFd mFd;
    bool mIsTty;
};

// A running subject at its own address; only one kelp can run at a time.
class Running {
  public:
    // `number` is unique among the running subjects.
    Running(const Subject& subject, Environment& environment, size_t number);

    // Waits until the subject listens.
    std::unique_ptr<Client> Connect();
    // The relay and its child processes; none for "direct".
    std::vector<pid_t> Pids() const;
    // Length of the answer to kCommand.
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
