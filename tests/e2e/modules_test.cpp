// The modem and PCBA modules, with daemons that are absent, silent, late or wrong.

#include <poll.h>

#include <atomic>

#include "support/bench.h"
#include "support/procstat.h"
#include "support/wait.h"

namespace kelp::test {
namespace {

using Modem = Bench;
using Modules = Bench;

// Pushes `first`, then a few bytes every 5 ms until the station gets something. Returns the time
// that this took, in milliseconds.
int64_t PushesUntilAnswered(Peer& peer, const std::string& first, const Station& station) {
    const int64_t begin = MonotonicMs();
    struct pollfd answered = {station.Fd(), POLLIN, 0};
    for (peer.Push(first); poll(&answered, 1, 5) == 0 && MonotonicMs() - begin < kPatienceMs;) {
        peer.Push("0123456789");
    }
    return MonotonicMs() - begin;
}

TEST_F(Modem, MessagesGoToTheLastSender) {
    const auto modem = Daemon("modem", Peer::Echo("modem"));
    Start(true);
    Station tcp = Tcp(), other = Tcp(), usb = Station::Line(mUsb.Master());
    EXPECT_TRUE(modem->Push("nobody has spoken yet"));
    ASSERT_TRUE(mKelp->WaitForLog(" E KELP    : HandleResponse: input error\n"));
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(tcp.Answers("AT+M1\r\n", "<modem:AT+M1\r\n>"));
        ASSERT_TRUE(usb.Answers("at+m2\r\n", "<modem:at+m2\r\n>"));
        ASSERT_TRUE(other.Answers("AT+M3\r\n", "<modem:AT+M3\r\n>"));
    }
    for (const std::string& report : {std::string(300000, 'r'), std::string("\r\nRING\r\n")}) {
        ASSERT_TRUE(modem->Push(report));
        EXPECT_TRUE(other.Answers("", report));
        other.HalfClose();  // what follows still arrives
        ASSERT_TRUE(mKelp->WaitForLog("tcp-->ioctl read error.errno->5\n", 2));
    }
    // For a console that is off, nothing is written.
    ASSERT_TRUE(tcp.Answers("AT+M4\r\n", "<modem:AT+M4\r\n>"));
    ASSERT_TRUE(usb.Answers("ZAT+TCP=0\r\n", Ok("ZAT+TCP=0")));
    EXPECT_EQ(tcp.ReceiveToEnd(), "");
    ASSERT_TRUE(usb.Answers("ZAT+TCP=1\r\n", Ok("ZAT+TCP=1")));
    Station fresh = Tcp();
    ASSERT_TRUE(modem->Push("stale"));
    EXPECT_TRUE(fresh.Answers("X\r\n", Unsupported("X")));
    EXPECT_EQ(mKelp->Logged("Write Error"), 0);
}

TEST_F(Modem, ReconnectsToARestartedDaemon) {
    const Peer::Script script = [](const std::string& request) {
        return request == "AT+M3\r\n" ? Peer::Answer{"bye", true}
                                      : Peer::Answer{"<modem:" + request + ">"};
    };
    auto modem = Daemon("modem", script);
    Start(true);
    Station station = Tcp();
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(station.Answers("AT+M1\r\n", "<modem:AT+M1\r\n>"));
        ASSERT_TRUE(modem->Push("half a li"));
        EXPECT_TRUE(station.Answers("", "half a li"));
        const int lost = mKelp->Logged("disconnect ,retry:");
        modem.reset();
        ASSERT_TRUE(mKelp->WaitForLog(" E KELP    : Run: disconnect ,retry:", lost + 1));
        EXPECT_TRUE(station.Answers("AT+Mlost\r\nAT+Mlost\r\nX\r\n", Unsupported("X")));
        // A connection is tried once a second.
        const int64_t switches = Switches(mKelp->Pid());
        Thread::SleepMs(2000);
        EXPECT_TRUE(KELP_SANITIZED || Switches(mKelp->Pid()) - switches <= 12);
        modem = Daemon("modem", script);
        EXPECT_TRUE(WaitUntil([&] { return modem->Connections() == 1; }));
        EXPECT_TRUE(station.Answers("AT+M2\r\n", "<modem:AT+M2\r\n>"));
    }
    // The ending daemon may still have accepted a connection: up to two records per round.
    EXPECT_LE(mKelp->Logged("disconnect ,retry:"), 6);
    // A request opens the next connection at once, whenever the module's thread last tried.
    const int64_t begin = MonotonicMs();
    for (int i = 0; i < 20; ++i) {
        const int lost = mKelp->Logged("disconnect ,retry:");
        EXPECT_TRUE(station.Answers("AT+M3\r\n", "bye"));
        ASSERT_TRUE(mKelp->WaitForLog("disconnect ,retry:", lost + 1));
    }
    EXPECT_LT(MonotonicMs() - begin, 8000);
}

TEST_F(Modem, AnAbsentDaemonIsTriedOnceASecond21Times) {
    const int64_t begin = MonotonicMs();
    Start(true);
    ASSERT_TRUE(mKelp->WaitForLog(" E KELP    : Run: Connect Fail. Exit!!!\n"));
    EXPECT_GE(MonotonicMs() - begin, 21000);
    EXPECT_LT(MonotonicMs() - begin, KELP_SANITIZED ? 30000 : 25000);
    EXPECT_EQ(mKelp->Logged(" E KELP    : TryConnect: reach max count(20). Connect fail.\n"), 1);
    EXPECT_TRUE(KELP_SANITIZED || StaysIdle(mKelp->Pid()));
    Station station = Tcp();
    EXPECT_TRUE(station.Answers("AT+M\r\nX\r\n", Unsupported("X")));
    // A daemon that appears later gets every request, although its messages are dropped.
    std::unique_ptr<Peer> modem;
    for (int i = 0; i < 400; ++i) {
        if (i % 100 == 0) {
            modem.reset();
            modem = Daemon("modem",
                           [](const std::string&) { return Peer::Answer{std::string(4000, 'm')}; });
        }
        const std::string request = "AT+M" + std::to_string(i) + "\r\n";
        ASSERT_TRUE(station.Answers(request + "X\r\n", Unsupported("X")));
        ASSERT_TRUE(modem->WaitForRequest(request));
    }
    modem.reset();  // one more request closes the daemon's end
    EXPECT_TRUE(station.Answers("AT+M\r\nX\r\n", Unsupported("X")));
}

std::string Int(int32_t value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof(value));
}

std::string Text(const std::string& text) {
    return Int(static_cast<int32_t>(text.size())) + text;
}

std::string Record(const std::string& request, const std::string& text, int32_t result = 0) {
    return Int(result) + Text(request) + Text(text);
}

std::string Value(const std::string& request, const std::string& line) {
    return request + "\r\n\r\n" + line + "\r\n\r\nOK\r\n";
}

std::string Mismatch(const std::string& request) {
    return request + "\r\n\r\n6012\r\n\r\nERROR\r\n";
}

class Pcba : public Bench {
  protected:
    // Sends a request and waits until mDaemon has read it.
    bool Ask(Station& station, const std::string& request, int times = 1) const {
        const size_t taken = mDaemon->Taken() + request.size() * static_cast<size_t>(times);
        for (int i = 0; i < times; ++i) {
            EXPECT_TRUE(station.Send(request + "\r\n"));
        }
        return WaitUntil([&] { return mDaemon->Taken() == taken; });
    }

    std::unique_ptr<Peer> mDaemon;
};

TEST_F(Pcba, FormatsRecords) {
    const std::string req = "AT+P?", error = "\r\n\r\nERROR\r\n";
    const struct {
        std::string request, bytes, answer;
        bool close = false;  // if false, an incomplete record ends with the module's time-out
    } rows[] = {
        {req, Record(req, "hello"), Value(req, "+P:hello")},
        {"AT+F?", Record("AT+F?", "hello"), Value("AT+F?", "+F:hello")},  // module fm
        {"AT+A=1", Record("AT+A=1", ""), Ok("AT+A=1")},
        {"AT+X=1,2", Record("AT+X=1,2", "7"), Value("AT+X=1,2", "+X:7")},
        {"ATI", Record("ATI", "a\r\nb"), Value("ATI", "a\r\nb")},
        {"A=1+B", Record("A=1+B", "7"), Value("A=1+B", "+B:7")},
        {"A?+B=2", Record("A?+B=2", "7"), Value("A?+B=2", "+B:7")},
        // A text that contains the echo is the whole answer.
        {"AT+X", Record("AT+X", "AT+X\r\n+X: 5"), "AT+X\r\n+X: 5"},
        {"AT+X", Record("AT+X", "see AT+X"), "see AT+X"},
        {"AT+X", Record("AT+XYZ", "7"), Value("AT+X", "+X:7")},
        {"AT+X", Record("AT+X", "7", 6009), "AT+X\r\n\r\nOut of range" + error},
        {"AT+X", Record("AT+X", "", 2), "AT+X\r\n\r\nTime out" + error},
        {"AT+X", Record("AT+X", "", 77), "AT+X\r\n\r\nUnknow error" + error},
        {"AT+X", Record("AT+X", "7", 6006), "AT+X\r\n\r\nResponse is null" + error},
        {"AT+X", Record("AT+Y", "7"), Mismatch("AT+X")},
        {"AT+X", Record("AT+", "7"), Mismatch("AT+X")},
        {"AT+X", Record("", "7", 6002), Mismatch("AT+X")},
        // The most negative length; too large; the largest; incomplete.
        {req, Int(0) + Int(INT32_MIN) + Int(0), Mismatch(req)},
        {req, Int(0) + Text(req) + Int((1 << 20) + 1), Mismatch(req)},
        {req, Record(req, std::string(1 << 20, 'x')),
         Value(req, "+P:" + std::string(1 << 20, 'x'))},
        {req, Record(req, "hello").substr(0, 16), Mismatch(req), true},
        {req, Record(req, "hello").substr(0, 3), Mismatch(req)},
    };
    std::string bytes;
    bool close = false;
    const auto script = [&](const std::string&) { return Peer::Answer{bytes, close}; };
    auto daemon = Daemon("pcba", script), fm = Daemon("fm", script);
    StartWith("\"AT+P\"", "\"A\"");
    Station station = Tcp();
    for (const auto& row : rows) {
        bytes = row.bytes;
        close = row.close;
        EXPECT_TRUE(station.Answers(row.request + "\r\n", row.answer));
    }
    daemon.reset();
    EXPECT_TRUE(station.Answers(req + "\r\n", Mismatch(req)));
    for (const std::string reason : {"Normal error", "Time out", "Invalid descriptor"}) {
        EXPECT_TRUE(mKelp->WaitForLog(": Receive: pcba-->Receive error (" + reason + ")\n"))
            << reason;
    }
}

TEST_F(Pcba, AnswersEachConsoleInRequestOrder) {
    for (const bool keepAlive : {true, false}) {
        // Requests of eight bytes arrive back to back, and so do the records.
        const auto daemon = Daemon("pcba", [](const std::string& requests) {
            std::string records;
            for (size_t i = 0; i + 8 <= requests.size(); i += 8) {
                records += Record(requests.substr(i, 8), requests.substr(i + 5, 3));
            }
            return Peer::Answer{records};
        });
        Start(keepAlive);
        Station stations[] = {Tcp(), Station::Local()};
        std::string answers[2];
        for (int i = 100; i < 300; ++i) {
            const std::string request = "AT+P=" + std::to_string(i);
            ASSERT_TRUE(stations[i % 2].Send(request + "\r\n"));
            answers[i % 2] += Value(request, "+P:" + std::to_string(i));
        }
        EXPECT_TRUE(stations[0].Answers("", answers[0]));
        EXPECT_TRUE(stations[1].Answers("", answers[1]));
        EXPECT_EQ(daemon->Connections(), keepAlive ? 1 : 200);
    }
}

TEST_F(Pcba, SurplusRecordsReachNoClient) {
    const std::string req = "AT+P=1";
    const struct {
        int requests;
        std::string records, answers;
        int connections;
    } rows[] = {
        // Damaged: the connection is given up.
        {2, Int(0) + Text(req) + Int(10) + "ab", Mismatch(req) + Mismatch(req), 1},
        {1, Record(req, "1") + Record(req, "1"), Value(req, "+P:1"), 2},  // one too many
        {1, Record(req, "2"), Value(req, "+P:2"), 2},
        // A surplus record among pending requests: the others get their answers, then the
        // connection ends.
        {3, Record("AT+P=0", "0") + Record(req, "3") + Record(req, "4") + Record(req, "5"),
         Mismatch(req) + Value(req, "+P:3") + Value(req, "+P:4"), 2},
        {1, Record(req, "6"), Value(req, "+P:6"), 3},
    };
    mDaemon = Daemon("pcba", Silent());
    Start(true);
    Station station = Tcp();
    for (const auto& row : rows) {
        ASSERT_TRUE(Ask(station, req, row.requests));
        EXPECT_EQ(mDaemon->Connections(), row.connections);
        ASSERT_TRUE(mDaemon->Push(row.records));
        EXPECT_TRUE(station.Answers("", row.answers));
    }
    EXPECT_EQ(mKelp->Logged(" E KELP    : DropStaleBytes: pcba-->dropped "), 1);
}

TEST_F(Pcba, TheTimeOutCoversTheWholeRecord) {
    mDaemon = Daemon("pcba", Silent());
    Start(true);
    Station station = Tcp();
    ASSERT_TRUE(Ask(station, "AT+P1"));
    const std::string part = Int(0) + Text("AT+P1") + Int(1 << 20) + std::string(5000, 'x');
    EXPECT_LT(PushesUntilAnswered(*mDaemon, part, station), 5000);
    EXPECT_TRUE(station.Answers("", Mismatch("AT+P1")));
    // Without keep-alive nobody waits for the answers to a console that is off.
    Start(false);
    Station left = Tcp(), local = Station::Local();
    ASSERT_TRUE(Ask(left, "AT+P", 10));
    ASSERT_TRUE(local.Send("AT+P2\r\nZAT+TCP=0\r\n"));
    const int64_t begin = MonotonicMs();
    EXPECT_TRUE(local.Answers("", Ok("ZAT+TCP=0") + Mismatch("AT+P2")));
    EXPECT_LT(MonotonicMs() - begin, 8000);
}

TEST_F(Pcba, PendingRequestsAreBoundedAndBlockNoConsole) {
    std::atomic<bool> deaf{false};
    mDaemon = Daemon("pcba", [&](const std::string&) {
        WaitUntil([&] { return !deaf; });
        return Peer::Answer{};
    });
    StartWith(R"("timeout": 1)", R"("timeout": 60)");
    Station usb = Station::Line(mUsb.Master()), local = Station::Local(), tcp = Tcp();
    ASSERT_TRUE(Ask(usb, "AT+P=1", 256));
    EXPECT_TRUE(tcp.Answers("AT+P2\r\nAT+P2\r\n", Mismatch("AT+P2") + Mismatch("AT+P2")));
    EXPECT_EQ(mKelp->Logged(" E KELP    : Refuse: pcba-->1 requests refused: too many pending"), 1);
    // Requests of a console that is off no longer count, but their records are still consumed.
    ASSERT_TRUE(local.Answers("ZAT+USB=0\r\n", Ok("ZAT+USB=0")));
    ASSERT_TRUE(mKelp->WaitForLog("usb deactive communication\n"));
    ASSERT_TRUE(Ask(tcp, "AT+P=3"));
    for (int i = 0; i < 256; ++i) {
        ASSERT_TRUE(mDaemon->Push(Record("AT+P=1", "1")));
    }
    ASSERT_TRUE(mDaemon->Push(Record("AT+P=3", "3")));
    EXPECT_TRUE(tcp.Answers("", Value("AT+P=3", "+P:3")));
    EXPECT_EQ(mDaemon->Connections(), 2);  // one from the first start
    // Bytes are limited too; a single request may exceed the limit.
    const std::string large = "AT+P" + std::string(5 << 20, 'x');
    ASSERT_TRUE(Ask(local, large));
    EXPECT_TRUE(tcp.Answers("AT+P=4\r\n", Mismatch("AT+P=4")));
    ASSERT_TRUE(mDaemon->Push(Record(large, "").substr(0, 8)));  // damaged
    EXPECT_TRUE(local.Answers("", Mismatch(large)));
    // A request that the daemon does not read within a second is refused, on both consoles.
    deaf = true;
    const int64_t begin = MonotonicMs();
    const std::string unread = large.substr(0, 1 << 20);
    ASSERT_TRUE(local.Send(unread + "\r\n") && tcp.Send(unread + "\r\n"));
    EXPECT_TRUE(local.Answers("", Mismatch(unread)));
    EXPECT_TRUE(tcp.Answers("", Mismatch(unread)));
    EXPECT_LT(MonotonicMs() - begin, KELP_SANITIZED ? 5000 : 1900);
    deaf = false;
    ASSERT_TRUE(tcp.Send("AT+P=5\r\n") && mDaemon->WaitForRequest("AT+P=5"));
    ASSERT_TRUE(mDaemon->Push(Record("AT+P=5", "5")));
    EXPECT_TRUE(tcp.Answers("", Value("AT+P=5", "+P:5")));
    // Neither count those of clients that reset after a half-close, which only their sockets tell;
    // but no more than 4,096 records are awaited.
    for (int round = 1; round <= 16; ++round) {
        Station left = Tcp();
        ASSERT_TRUE(Ask(left, "AT+P=1", 256));
        left.HalfClose();
        ASSERT_TRUE(mKelp->WaitForLog("tcp-->ioctl read error.errno->5\n", round));
        left.Reset();
    }
    EXPECT_TRUE(tcp.Answers("AT+P=2\r\n", Mismatch("AT+P=2")));
}

TEST_F(Pcba, RequestsLeftBehindLeaveDescriptorsToTheConsoles) {
    mDaemon = Daemon("pcba", Silent());
    const auto fm = Daemon("fm", Silent());
    StartWith(R"("timeout": 1)", R"("timeout": 60)", false);
    std::vector<Station> left;
    for (int i = 0; i < 520; ++i) {
        left.push_back(Tcp());
        // The answer to X shows that the request has been written or refused.
        ASSERT_TRUE(left.back().Send(i % 2 == 0 ? "AT+P\r\nX\r\n" : "AT+F\r\nX\r\n"));
        ASSERT_EQ(left.back().Receive(Unsupported("X").size()).size(), Unsupported("X").size());
        left.back().HalfClose();
    }
    EXPECT_LT(mKelp->Descriptors(), 530u);
    Station local = Station::Local();
    EXPECT_TRUE(local.Answers("AT+P1\r\nAT+F1\r\n", Mismatch("AT+P1") + Mismatch("AT+F1")));
    for (Station& station : left) {
        station.Reset();
    }
    ASSERT_TRUE(local.Send("AT+P2\r\n") && mDaemon->WaitForRequest("AT+P2"));
    ASSERT_TRUE(mDaemon->Push(Record("AT+P2", "2")));
    EXPECT_TRUE(local.Answers("", Value("AT+P2", "+P2:2")));
    // Kept connections add up when the daemon reads no more from them.
    mDaemon.reset();
    const UniqueFd listener = ListenLocal(AddressOf(mDir.Path("pcba")));
    StartWith(R"("timeout": 1)", R"("timeout": 60)");
    std::vector<UniqueFd> kept;
    for (int i = 0; i < 510; ++i) {
        if (i % 170 == 0) {
            left.back().Reset();
            left.push_back(Tcp());
        }
        char byte;
        ASSERT_TRUE(left.back().Send("AT+P\r\n"));
        kept.emplace_back(accept(listener.Get(), nullptr, nullptr));
        EXPECT_GE(recv(kept.back().Get(), &byte, 1, 0), 0);
        shutdown(kept.back().Get(), SHUT_RD);
    }
    EXPECT_LT(mKelp->Descriptors(), 520u);
}

TEST_F(Modules, AnswersInSeveralPieces) {
    const auto wcn = Wcn(Silent()), bench = Default(Silent());
    const std::string path = R"("path": ")" + mDir.Path("wcn");
    StartWith(path, R"("quiet": 1000, )" + path);
    Station station = Tcp();
    for (const std::string request : {"AT+W1", "AT+W2"}) {
        ASSERT_TRUE(station.Send(request + "\r\n"));
        ASSERT_TRUE(wcn->WaitForRequest(request) && wcn->Push("one") && wcn->Push("two"));
        Thread::SleepMs(100);
        ASSERT_TRUE(wcn->Push("three"));
        EXPECT_TRUE(station.Answers("", "onetwothree"));
    }
    // A long answer that arrives slowly is relayed, and its connection closed. If the pushing
    // thread is held up for 20 ms, the answer is complete, and the connection is kept: try again.
    EXPECT_TRUE(WaitUntil([&] {
        Station asking = Tcp();
        bool good = asking.Send("AT+B\r\n") && bench->WaitForRequest("AT+B");
        const int before = bench->Connections();
        EXPECT_LT(PushesUntilAnswered(*bench, std::string(4096, 'x'), asking), 5000);
        good = good && asking.Send("AT+B2\r\n") && bench->WaitForRequest("AT+B2");
        return bench->Push("!") && good && bench->Connections() == before + 1;
    }));
}

}  // namespace
}  // namespace kelp::test
