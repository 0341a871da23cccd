// A bench: the daemon with all four consoles, and room for two peers.
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

// What the daemon answers to a request that no module takes.
std::string Unsupported(const std::string& request);
// What it answers when it serves a command itself and has nothing to tell.
std::string Ok(const std::string& request);

// Module "wcn" takes requests that begin with AT+W, and the test command WT; its peer is a
// filesystem socket. Module "bench" has no code of its own in the daemon, takes AT+B and BT, and
// its peer is an abstract socket. Modules "pcba", "fm" and "modem" take AT+P, AT+F and AT+M; their
// peers are filesystem sockets of these names in mDir. Module "kelp" takes ZAT+.
//
// At the end of every test the daemon has to be as it was at its start: alive, no descriptor and no
// thread left over, every line of its log well-formed (a sanitizer's report is not).
class Bench : public testing::Test {
  protected:
    static constexpr char kTail[] = R"({"mode": "tail", "tail": "0D0A"})";

    // Starts the daemon, in place of one that runs, and waits until its consoles serve.
    void Start(bool keepAlive = false, const std::string& receiveMode = kTail,
               const std::vector<std::string>& environment = {});
    // The same configuration file once more, as it is by now.
    void Restart();
    // Start, and then once more with `text` in the place of every `old` of the file.
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
    // Has a control command answered.
    static void Command(Station& local, const std::string& command) {
        ASSERT_TRUE(local.Answers(command + "\r\n", Ok(command)));
    }
    // Has a console switched, "ZAT+CONSOLE=0" or "=1", and waits until it is.
    void Switch(Station& local, const std::string& command);
    Station Tcp() const { return Station::Tcp(mPort); }
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
