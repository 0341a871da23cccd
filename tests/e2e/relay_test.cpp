// The way of a command: from a station over a console and a module to a peer, and back.

#include "support/bench.h"

namespace kelp::test {
namespace {

using Relay = Bench;

TEST_F(Relay, EveryConsoleReachesEveryModule) {
    for (const bool keepAlive : {false, true}) {
        const auto wcn = Wcn();
        const auto bench = Default();
        Start(keepAlive);
        Station consoles[] = {Station::Line(mUsb.Master()), Station::Line(mUart.Master()), Tcp(),
                              Station::Local()};
        for (Station& station : consoles) {
            EXPECT_TRUE(station.Answers("AT+WIFI=1\r\n", "<wcn:AT+WIFI=1>"));
            EXPECT_TRUE(station.Answers("at+w\r\n", "<wcn:at+w>"));
            EXPECT_TRUE(station.Answers("wt\r\n", "<wcn:wt>"));
            EXPECT_TRUE(station.Answers("AT+B\r\n", "<bench:AT+B>"));
            // A test command is a whole request, a prefix of a white-list entry is none.
            EXPECT_TRUE(station.Answers("BT2\r\n", Unsupported("BT2")));
            EXPECT_TRUE(station.Answers("AT+\r\n", Unsupported("AT+")));
        }
        EXPECT_EQ(wcn->Connections(), keepAlive ? 1 : 12);
        EXPECT_EQ(bench->Connections(), keepAlive ? 1 : 4);
    }
}

TEST_F(Relay, Framing) {
    const auto wcn = Wcn();
    Start();
    Station station = Tcp();
    const struct {
        const char* name;
        std::vector<std::string> pieces;
        std::string answer;
    } rows[] = {
        {"two lines in one read", {"AT+W1\r\nAT+W2\r\n"}, "<wcn:AT+W1><wcn:AT+W2>"},
        {"a line in many reads", {"A", "T+", "W", "3\r", "\n"}, "<wcn:AT+W3>"},
        {"a line and a half", {"AT+W4\r\nAT+", "W5\r\n"}, "<wcn:AT+W4><wcn:AT+W5>"},
        {"empty lines", {"\r\n\r\n", "\r\nAT+W6\r\n\r\n"}, "<wcn:AT+W6>"},
        {"half terminators", {"AT+W\r7\n\r\r\n"}, "<wcn:AT+W\r7\n\r>"},
        {"noise",
         {std::string("\0\xff\x80\n\x1b~", 6), "\r\n"},
         Unsupported(std::string("\0\xff\x80\n\x1b~", 6))},
        {"a long line", {std::string(200000, 'x') + "\r\n"}, Unsupported(std::string(200000, 'x'))},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        for (size_t i = 0; i + 1 < row.pieces.size(); ++i) {
            const int reads = mKelp->Logged("charactor(s) received");
            ASSERT_TRUE(station.Send(row.pieces[i]));
            ASSERT_TRUE(mKelp->WaitForLog("charactor(s) received", reads + 1));
        }
        EXPECT_TRUE(station.Answers(row.pieces.back(), row.answer));
    }
}

TEST_F(Relay, TimetickEndsACommandByAPauseAndKeepsItsBytes) {
    const auto wcn = Wcn();
    Start(false, R"({"mode": "timetick", "millisecond": 50})");
    Station station = Station::Local();
    EXPECT_TRUE(station.Answers("AT+W1", "<wcn:AT+W1>"));
    EXPECT_TRUE(station.Answers("\r\n2", "<wcn:AT+W1\r\n2>"));
}

TEST_F(Relay, FifthClientIsRejectedAndAFreedSlotUsedAgain) {
    Start();
    std::vector<Station> stations;
    const auto allAnswer = [&] {
        for (Station& station : stations) {
            EXPECT_TRUE(station.Answers("X\r\n", Unsupported("X")));
        }
    };
    for (int i = 0; i < 4; ++i) {
        stations.push_back(Tcp());
    }
    allAnswer();
    EXPECT_EQ(Tcp().ReceiveToEnd(), "");
    EXPECT_TRUE(mKelp->WaitForLog(
        " E KELP    : AcceptClient: tcp-->Receive the max client number[4]. reject now\n"));
    allAnswer();
    stations.erase(stations.begin() + 1);
    // The first such record is for the connection that Start() made.
    EXPECT_TRUE(mKelp->WaitForLog(": ThrowException: tcp-->ioctl read error.errno->5\n", 2));
    stations.push_back(Tcp());
    allAnswer();
}

TEST_F(Relay, ClientsThatLeaveGetWhatTheyCanAndLoseNothingOfOthers) {
    const auto wcn = Wcn([](const std::string&) { return Peer::Answer{}; });
    Start();
    Station usb = Station::Line(mUsb.Master());
    const struct {
        const char* name;
        void (*leave)(Station&);
        std::string got;
    } rows[] = {
        {"half-closes", [](Station& s) { s.HalfClose(); }, "late"},
        {"resets", [](Station& s) { s.Reset(); }, ""},
        {"closes", [](Station& s) { const Station gone = std::move(s); }, ""},
    };
    for (const auto& row : rows) {
        for (const bool tcp : {true, false}) {
            SCOPED_TRACE(std::string(row.name) + (tcp ? ", TCP" : ", local"));
            Station leaver = tcp ? Tcp() : Station::Local();
            const std::string request = std::string("AT+W ") + row.name + (tcp ? "1" : "2");
            ASSERT_TRUE(leaver.Send(request + "\r\n"));
            ASSERT_TRUE(wcn->WaitForRequest(request));
            row.leave(leaver);
            EXPECT_TRUE(usb.Answers("X\r\n", Unsupported("X")));
            Station next = tcp ? Tcp() : Station::Local();
            ASSERT_TRUE(wcn->Push("late"));
            // Never the answer of the one who left.
            EXPECT_TRUE(next.Answers("Y\r\n", Unsupported("Y")));
            EXPECT_EQ(leaver.ReceiveToEnd(), row.got);
        }
    }
    for (int i = 0; i < 100; ++i) {
        Station oneShot = Tcp();
        ASSERT_TRUE(oneShot.Send("X\r\n"));
        oneShot.HalfClose();
        ASSERT_EQ(oneShot.ReceiveToEnd(), Unsupported("X"));
    }
}

TEST_F(Relay, PeersThatComeAndGo) {
    for (const bool keepAlive : {false, true}) {
        Start(keepAlive);
        Station station = Tcp();
        EXPECT_TRUE(station.Answers("AT+W\r\n", "Invalid descriptor"));
        auto wcn = Wcn();
        EXPECT_TRUE(station.Answers("AT+W\r\n", "<wcn:AT+W>"));
        wcn.reset();
        EXPECT_TRUE(station.Answers("AT+W\r\n", "Invalid descriptor"));
        wcn = Wcn([](const std::string& request) {
            return Peer::Answer{request == "AT+W2" ? "ha" : "", true};
        });
        EXPECT_TRUE(station.Answers("AT+W1\r\n", "Normal error"));
        EXPECT_TRUE(station.Answers("AT+W2\r\n", "ha"));
        wcn.reset();
        wcn = Wcn();
        EXPECT_TRUE(station.Answers("AT+W\r\n", "<wcn:AT+W>"));
        wcn.reset();
        EXPECT_TRUE(station.Answers("AT+W\r\n", "Invalid descriptor"));
    }
}

TEST_F(Relay, SilentPeerHoldsUpItsOwnConsoleOnly) {
    const auto wcn = Wcn([](const std::string&) { return Peer::Answer{}; });
    const auto bench = Default();
    Start();
    Station held = Tcp();
    ASSERT_TRUE(held.Send("X\r\nAT+W\r\nAT+B1\r\n"));
    ASSERT_TRUE(wcn->WaitForRequest("AT+W"));
    EXPECT_TRUE(held.Answers("", Unsupported("X")));
    EXPECT_TRUE(Station::Local().Answers("AT+B2\r\n", "<bench:AT+B2>"));
    ASSERT_TRUE(wcn->Push("at last"));
    EXPECT_TRUE(held.Answers("", "at last<bench:AT+B1>"));
}

TEST_F(Relay, LateBytesOfAKeptConnectionAreNobodysAnswer) {
    const auto wcn = Wcn();
    Start(true);
    Station station = Tcp();
    EXPECT_TRUE(station.Answers("AT+W1\r\n", "<wcn:AT+W1>"));
    ASSERT_TRUE(wcn->Push("late"));
    EXPECT_TRUE(station.Answers("AT+W2\r\n", "<wcn:AT+W2>"));
    EXPECT_EQ(mKelp->Logged(" E KELP    : DropStaleBytes: wcn-->dropped 4 bytes"), 1);
}

}  // namespace
}  // namespace kelp::test
