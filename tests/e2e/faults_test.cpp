// Stations, peers and the system at their worst: nothing is lost that could be kept, memory stays
// where it was, and there is full service afterwards.

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "support/bench.h"
#include "support/procstat.h"
#include "support/wait.h"

namespace kelp::test {
namespace {

class Faults : public Bench {
  protected:
    const std::vector<std::string> kQuiet = {"ANDROID_LOG_TAGS=*:E"};

    std::unique_ptr<Peer> Modem(Peer::Script script = Peer::Echo("modem")) const {
        return std::make_unique<Peer>(mDir.Path("modem"), LocalNamespace::kFilesystem,
                                      std::move(script));
    }
    int64_t ResidentKb() const { return test::ResidentKb(mKelp->Pid()); }
    void ExpectGrownLittle(int64_t beforeKb) {
        const int64_t grownKb = ResidentKb() - beforeKb;
        EXPECT_LT(grownKb, kRoomKb);
        mMostGrownKb = std::max(mMostGrownKb, grownKb);
        RecordProperty("grown_kb", std::to_string(mMostGrownKb));
    }

    int64_t mMostGrownKb = 0;
    static testing::AssertionResult Served(Station station) {
        return station.Answers("X\r\n", Unsupported("X"));
    }
    void Command(const std::string& command) {
        EXPECT_TRUE(Station::Local().Answers(command + "\r\n", Ok(command)));
    }
};

TEST_F(Faults, AStationThatSendsWithoutReadingIsHeldAndLosesNothing) {
    Start(false, kTail, {"ANDROID_LOG_TAGS=*:S"});
    struct {
        Station station;
        size_t requests;
    } rows[] = {{Tcp(), 30000}, {Station::Local(), 20000}, {Station::Line(mUsb.Master()), 8000}};
    for (auto& row : rows) {
        std::string requests, answers;
        for (size_t i = 0; i < row.requests; ++i) {
            const std::string request = std::to_string(i) + std::string(1000, 'x');
            requests += request + "\r\n";
            answers += Unsupported(request);
        }
        const int64_t before = ResidentKb();
        std::atomic<size_t> sent{0};
        std::thread sender([&] {
            while (sent < requests.size() && row.station.Send(requests.substr(sent, 4096))) {
                sent += 4096;
            }
        });
        // Until the line takes no more.
        EXPECT_TRUE(WaitUntil([&] {
            const size_t now = sent;
            Thread::SleepMs(300);
            return sent == now;
        }));
        EXPECT_LT(sent, requests.size());
        ExpectGrownLittle(before);
        EXPECT_TRUE(Served(Station::Line(mUart.Master())));
        EXPECT_TRUE(row.station.Receive(answers.size()) == answers);
        sender.join();
        ExpectGrownLittle(before);
    }
}

TEST_F(Faults, AModemDaemonThatFloodsADeafStationFillsNothing) {
    const auto modem = Modem();
    Start(true, kTail, kQuiet);
    Station deaf = Tcp();
    ASSERT_TRUE(deaf.Answers("AT+M\r\n", "<modem:AT+M\r\n>"));
    const int64_t before = ResidentKb();
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(modem->Push(std::string(100000, 'r')));
    }
    ExpectGrownLittle(before);
    EXPECT_EQ(mKelp->Logged(" E KELP    : OnFlood: tcp-->client does not read, "), 1);
    EXPECT_TRUE(Served(Station::Local()));
    // What was kept arrives, and then whatever comes next.
    ASSERT_TRUE(deaf.Send("AT+MEND\r\n"));
    std::string got, end = "<modem:AT+MEND\r\n>";
    char chunk[65536];
    for (ssize_t n = 1; n > 0 && got.find(end) == std::string::npos;) {
        n = read(deaf.Fd(), chunk, sizeof(chunk));
        got.append(chunk, static_cast<size_t>(std::max<ssize_t>(n, 0)));
    }
    EXPECT_EQ(got.find_first_not_of('r'), got.size() - end.size());
    for (const char piece : std::string("pieces")) {
        ASSERT_TRUE(modem->Push(std::string(1, piece)));
    }
    EXPECT_TRUE(deaf.Answers("", "pieces"));
}

TEST_F(Faults, SlotsOfDeadStationsComeBack) {
    Start();
    for (int round = 0; round < 20; ++round) {
        std::vector<Station> dead;
        for (int i = 0; i < 8; ++i) {
            dead.push_back(i % 2 == 0 ? Tcp() : Station::Local());
            ASSERT_TRUE(dead.back().Send("AT+HALF A LI"));
        }
        EXPECT_EQ(Tcp().ReceiveToEnd(), "");  // rejected
        EXPECT_EQ(Station::Local().ReceiveToEnd(), "");
        EXPECT_TRUE(Served(Station::Line(mUsb.Master())));
        const int freed = mKelp->Logged("ioctl read error.errno->5\n");
        for (Station& station : dead) {
            station.Reset();
        }
        ASSERT_TRUE(mKelp->WaitForLog("ioctl read error.errno->5\n", freed + 8));
        std::vector<Station> alive;
        for (int i = 0; i < 8; ++i) {
            alive.push_back(i % 2 == 0 ? Tcp() : Station::Local());
            ASSERT_TRUE(alive.back().Answers("X\r\n", Unsupported("X")));
        }
        for (Station& station : alive) {
            station.HalfClose();
            EXPECT_EQ(station.ReceiveToEnd(), "");
        }
    }
}

TEST_F(Faults, SignalsInterruptNothing) {
    const auto wcn = Wcn();
    Start();
    std::atomic<bool> done{false};
    std::thread signals([&] {
        while (!done) {
            for (const int number : {SIGSTOP, SIGCONT, SIGWINCH, SIGURG, SIGCHLD, SIGPIPE}) {
                kill(mKelp->Pid(), number);
                Thread::SleepMs(1);
            }
        }
    });
    Station station = Tcp(), usb = Station::Line(mUsb.Master());
    for (int i = 0; i < 500; ++i) {
        EXPECT_TRUE(station.Answers("AT+W\r\nX\r\n", "<wcn:AT+W>" + Unsupported("X")));
        EXPECT_TRUE(usb.Answers("X\r\n", Unsupported("X")));
    }
    done = true;
    signals.join();
}

TEST_F(Faults, ExhaustedDescriptorsNeitherSpinNorFlood) {
    Start();
    const size_t own = mKelp->Descriptors();
    Start(false, kTail, {"prlimit", "--nofile=" + std::to_string(own + 1) + ":1024"});
    Station stations[] = {Tcp(), Tcp(), Tcp(), Tcp()};
    EXPECT_TRUE(stations[0].Answers("X\r\n", Unsupported("X")));
    ASSERT_TRUE(mKelp->WaitForLog("tcp-->accept error: 24\n"));
    const int64_t cpuMs = mKelp->CpuMs();
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(stations[0].Answers("X\r\n", Unsupported("X")));
        Thread::SleepMs(50);
    }
    RecordProperty("cpu_ms", std::to_string(mKelp->CpuMs() - cpuMs));
    EXPECT_LT(mKelp->CpuMs() - cpuMs, KELP_SANITIZED ? 300 : 50);
    EXPECT_EQ(mKelp->Logged("accept error"), 1);
    const struct rlimit normal = {1024, 1024};
    ASSERT_EQ(prlimit(mKelp->Pid(), RLIMIT_NOFILE, &normal, nullptr), 0);
    for (Station& station : stations) {
        EXPECT_TRUE(station.Answers("X\r\n", Unsupported("X")));
    }
}

// A supervisor may allow and leave open more descriptors than select can hold.
TEST_F(Faults, InheritedDescriptorsAndALargeLimit) {
    const auto inheriting = [](size_t below) {
        return std::vector<std::string>{
            "prlimit",
            "--nofile=4096:",
            "bash",
            "-c",
            "for ((i = 3; i < " + std::to_string(below) +
                "; ++i)); do eval \"exec $i</dev/null\"; done; exec \"$@\"",
            "bash"};
    };
    constexpr size_t kSome = 64;  // covers whatever this process inherited itself
    Start(false, kTail, inheriting(kSome));
    const size_t left = FD_SETSIZE - mKelp->Descriptors();
    // One or two fit beyond what the daemon needs. What the listening socket gives back goes to
    // the next client, and none below 1024 is left to listen on again.
    Start(false, kTail, inheriting(kSome + left - 1));
    std::vector<Station> stations;
    stations.push_back(Station::Local());
    ASSERT_TRUE(stations[0].Answers("ZAT+TCP=0\r\n", Ok("ZAT+TCP=0")));
    ASSERT_TRUE(mKelp->WaitForLog("tcp deactive communication\n"));
    const auto full = [&] { return mKelp->Logged("local-->accept error: 24\n") == 1; };
    while (stations.size() < 4 && !full()) {
        stations.push_back(Station::Local());
        const int count = static_cast<int>(stations.size());
        EXPECT_TRUE(WaitUntil(
            [&] { return full() || mKelp->Logged("local-->connect to new client") == count; }));
    }
    EXPECT_TRUE(full());
    EXPECT_TRUE(stations[0].Answers("ZAT+TCP=1\r\n", Ok("ZAT+TCP=1")));
    EXPECT_TRUE(mKelp->WaitForLog("Start: tcp-->start fail\n"));
    EXPECT_TRUE(stations[0].Answers("X\r\n", Unsupported("X")));

    // None fits at all: nothing serves, not even the configuration is read.
    mKelp.reset();
    mKelp = std::make_unique<KelpProcess>(
        std::vector<std::string>{"--file=" + mDir.Path("kelp.json")}, inheriting(FD_SETSIZE + 100));
    EXPECT_TRUE(mKelp->WaitForLog("Start: usb-->start fail\n"));
    EXPECT_EQ(mKelp->Logged("Start: local-->start fail\n"), 1);
    EXPECT_TRUE(mKelp->Running());
    mKelp.reset();
}

TEST_F(Faults, AfterAHangUpARestartServesAtOnce) {
    for (int round = 0; round < 5; ++round) {
        Start();
        Station held = Tcp();
        ASSERT_TRUE(held.Answers("X\r\n", Unsupported("X")));
        mUsb.HangUp();
        const int status = mKelp->WaitForExit();
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
        EXPECT_EQ(mKelp->Logged(": ReConnect: usb << reconnect << fd:-1\n"), 1);
        EXPECT_EQ(mKelp->Logged("descriptor -1 "), 1);
        mKelp.reset();
        EXPECT_EQ(held.ReceiveToEnd(), "");
        mUsb = Pty();  // the cable is plugged in again
        const int64_t begin = MonotonicMs();
        Start();
        EXPECT_TRUE(Served(Station::Line(mUsb.Master())));
        EXPECT_LT(MonotonicMs() - begin, KELP_SANITIZED ? 10000 : 1000);
        RecordProperty("restart_ms", std::to_string(MonotonicMs() - begin));
    }
}

}  // namespace
}  // namespace kelp::test
