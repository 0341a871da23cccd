// A bench: the daemon with all four consoles, and peers for its modules.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/kelpprocess.h"
#include "support/peer.h"
#include "support/pty.h"
#include "support/station.h"
#include "support/tempdir.h"

namespace kelp::test {

// The daemon's answer to a request that no module accepts.
std::string Unsupported(const std::string& request);
// The daemon's answer to a command that it serves itself, without a text.
std::string Ok(const std::string& request);

// Module "wcn" takes requests that begin with AT+W, and the test command WT; its peer is a
// filesystem socket. Module "bench" has no code of its own in the daemon, takes AT+B and BT, and
// its peer is an abstract socket. Modules "pcba", "fm" and "modem" take AT+P, AT+F and AT+M; their
// peers are filesystem sockets of these names in mDir. Module "kelp" takes ZAT+.
//
// At the end of every test the daemon must still run, and every line of its log must be well-formed
// (a sanitizer's report is not). Unless Restart was called, the daemon must also have no more
// descriptors and threads than at its start.
class Bench : public testing::Test {
  protected:
    static constexpr char kTail[] = R"({"mode": "tail", "tail": "0D0A"})";

    // Starts the daemon (stopping a running one) and waits until its consoles serve.
    void Start(bool keepAlive = false, const std::string& receiveMode = kTail,
               const std::vector<std::string>& environment = {});
    // Starts the daemon again with the current configuration file.
    void Restart();
    // Start, then Restart with every `old` in the file replaced by `text`.
    void StartWith(const std::string& old, const std::string& text, bool keepAlive = true);
    // The peer of module `name` on its filesystem socket.
    std::unique_ptr<Peer> Daemon(const std::string& name, Peer::Script script) const;
    std::unique_ptr<Peer> Wcn(Peer::Script script = Peer::Echo("wcn")) const {
        return Daemon("wcn", std::move(script));
    }
    std::unique_ptr<Peer> Default(Peer::Script script = Peer::Echo("bench")) const;
    static Peer::Script Silent() {
        return [](const std::string&) { return Peer::Answer{}; };
    }
    // Sends a control command and expects its OK.
    static void Command(Station& local, const std::string& command) {
        ASSERT_TRUE(local.Answers(command + "\r\n", Ok(command)));
    }
    // Switches a console ("ZAT+CONSOLE=0" or "=1") and waits until this is done.
    void Switch(Station& local, const std::string& command);
    Station Tcp() const { return Station::Tcp(mPort); }
    // A station at one of the four consoles: TCP, local, USB, UART.
    Station Connect(size_t console) const {
        return console == 0   ? Tcp()
               : console == 1 ? Station::Local()
                              : Station::Line((console == 2 ? mUsb : mUart).Master());
    }
    void TearDown() override { CheckUnchanged(); }

    const TempDir mDir;
    const int mPort = FreePort();
    Pty mUsb, mUart;
    std::unique_ptr<KelpProcess> mKelp;

  private:
    void CheckUnchanged();

    const std::string mDefaultPath = "kelp-test-bench-" + std::to_string(getpid());
    size_t mDescriptors = 0;
    size_t mThreads = 0;
};

}  // namespace kelp::test
