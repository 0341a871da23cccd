// The command path: from a station through a console and a module to a peer, and back.

#include <array>

#include "support/bench.h"

namespace kelp::test {
namespace {

using Relay = Bench;
using std::literals::operator""sv;

TEST_F(Relay, EveryConsoleReachesEveryModule) {
    for (const bool keepAlive : {false, true}) {
        const auto wcn = Wcn(), bench = Default();
        Start(keepAlive);
        for (const size_t console : {0, 1, 2, 3}) {
            Station station = Connect(console);
            EXPECT_TRUE(station.Answers("AT+WIFI=1\r\n", "<wcn:AT+WIFI=1>"));
            EXPECT_TRUE(station.Answers("at+w\r\n", "<wcn:at+w>"));
            EXPECT_TRUE(station.Answers("wt\r\n", "<wcn:wt>"));
            EXPECT_TRUE(station.Answers("AT+B\r\n", "<bench:AT+B>"));
            // Test commands match whole requests, up to a zero byte; a prefix of a white-list entry
            // does not match.
            EXPECT_TRUE(station.Answers("BT\0x\r\n"sv, "<bench:BT\0x>"sv));
            EXPECT_TRUE(station.Answers("BT2\r\n", Unsupported("BT2")));
            EXPECT_TRUE(station.Answers("AT+\r\n", Unsupported("AT+")));
        }
        EXPECT_EQ(wcn->Connections(), keepAlive ? 1 : 12);
        EXPECT_EQ(bench->Connections(), keepAlive ? 1 : 8);
        EXPECT_EQ(mKelp->Logged(" D KELP    : isSupportCmd: wcn: support white command (AT+W)\n"),
                  8);
        EXPECT_EQ(mKelp->Logged(" D KELP    : isSupportCmd: wcn: support test command (WT)\n"), 4);
    }
}

TEST_F(Relay, ClientsThatLeaveDoNotAffectOthers) {
    const auto wcn = Wcn(Silent());
    Start();
    Station usb = Station::Line(mUsb.Master());
    const std::pair<const char*, void (*)(Station&)> rows[] = {
        {"half-closes", [](Station& s) { s.HalfClose(); }},
        {"resets", [](Station& s) { s.Reset(); }},
        {"closes", [](Station& s) { const Station gone = std::move(s); }},
    };
    for (const auto& [name, leave] : rows) {
        for (const size_t console : {0, 1}) {
            const std::string request = std::string("AT+W ") + name + std::to_string(console);
            SCOPED_TRACE(request);
            Station leaver = Connect(console);
            ASSERT_TRUE(leaver.Send(request + "\r\n"));
            ASSERT_TRUE(wcn->WaitForRequest(request));
            leave(leaver);
            EXPECT_TRUE(usb.Answers("X\r\n", Unsupported("X")));
            Station next = Connect(console);
            ASSERT_TRUE(wcn->Push("late"));
            // Not the answer for the client that left.
            EXPECT_TRUE(next.Answers("Y\r\n", Unsupported("Y")));
            EXPECT_EQ(leaver.ReceiveToEnd(), leaver.Fd() == -1 ? "" : "late");
        }
    }
}

TEST_F(Relay, PeersThatRestart) {
    for (const bool keepAlive : {false, true}) {
        Start(keepAlive);
        Station station = Tcp();
        EXPECT_TRUE(station.Answers("AT+W\r\n", "Invalid descriptor"));
        auto wcn = Wcn();
        EXPECT_TRUE(station.Answers("AT+W\r\n", "<wcn:AT+W>"));
        ASSERT_TRUE(!keepAlive || wcn->Push("late"));
        EXPECT_TRUE(station.Answers("AT+W\r\n", "<wcn:AT+W>"));
        EXPECT_EQ(mKelp->Logged(" E KELP    : DropStaleBytes: wcn-->dropped 4 bytes"), keepAlive);
        wcn.reset();
        wcn = Wcn([](const std::string& request) {
            return Peer::Answer{request == "AT+W2" ? "ha" : "", true};
        });
        EXPECT_TRUE(station.Answers("AT+W1\r\nAT+W2\r\n", "Normal errorha"));
        wcn.reset();
        EXPECT_TRUE(station.Answers("AT+W\r\n", "Invalid descriptor"));
    }
}

TEST_F(Relay, ASlowReaderGetsALongAnswer) {
    std::string answer;
    for (int i = 0; answer.size() < 5 << 20; ++i) {
        answer += std::to_string(i);
    }
    // The close ends the answer; without a quiet time, so would a peer that is held up for 20 ms.
    const auto wcn = Wcn([&](const std::string&) { return Peer::Answer{answer, true}; });
    const std::string path = R"("path": ")" + mDir.Path("wcn");
    StartWith(path, R"("quiet": 20000, )" + path, false);
    for (Station& station : std::array{Tcp(), Station::Local()}) {
        ASSERT_TRUE(station.Send("AT+W\r\n"));
        ASSERT_TRUE(wcn->WaitForRequest("AT+W"));
        EXPECT_TRUE(Station::Line(mUart.Master()).Answers("X\r\n", Unsupported("X")));
        EXPECT_TRUE(station.Receive(answer.size()) == answer);
        EXPECT_TRUE(station.Answers("X\r\n", Unsupported("X")));
    }
}

TEST_F(Relay, SixThousandPipelinedCommandsAreAnsweredInOrder) {
    const auto wcn = Wcn();
    Start(true, kTail, {"ANDROID_LOG_TAGS=*:S"});
    for (Station& station : std::array{Tcp(), Station::Local()}) {
        std::string request, requests, answers;
        for (int i = 1; i <= 6000; ++i) {
            const bool refused = i % 4 != 0;
            request = (refused ? "AT+X=" : "AT+W=") + std::to_string(i);
            request.resize(43, '.');
            requests += request + "\r\n";
            answers += refused ? Unsupported(request) : "<wcn:" + request + ">";
        }
        ASSERT_TRUE(station.Send(requests));
        ASSERT_TRUE(wcn->WaitForRequest(request));
        EXPECT_TRUE(station.Answers("", answers));
    }
}

}  // namespace
}  // namespace kelp::test
