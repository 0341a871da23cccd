// An idle daemon, and faults of stations, peers and the system: no avoidable loss, no growth of
// memory, and full service afterwards.

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

using Faults = Bench;
using Idle = Bench;

TEST_F(Idle, NoThreadWakesUpWithOrWithoutPeers) {
    if (KELP_SANITIZED) {
        GTEST_SKIP() << "a sanitizer may run a thread of its own";
    }
    const auto modem = Daemon("modem", Peer::Echo("modem"));
    auto wcn = Wcn(), bench = Default();
    Start(true);
    // One client has sent half a line.
    Station stations[] = {Station::Line(mUsb.Master()), Tcp(), Station::Local()};
    for (Station& station : stations) {
        ASSERT_TRUE(station.Answers("AT+W\r\nAT+B\r\n", "<wcn:AT+W><bench:AT+B>"));
    }
    ASSERT_TRUE(stations[1].Answers("AT+M\r\n", "<modem:AT+M\r\n>"));
    ASSERT_TRUE(stations[1].Send("AT+HALF"));
    EXPECT_TRUE(StaysIdle(mKelp->Pid()));
    wcn.reset();
    bench.reset();
    EXPECT_TRUE(StaysIdle(mKelp->Pid()));
    EXPECT_TRUE(stations[2].Answers("AT+W\r\n", "Invalid descriptor"));
    EXPECT_TRUE(StaysIdle(mKelp->Pid()));
    EXPECT_TRUE(stations[0].Answers("X\r\n", Unsupported("X")));
}

TEST_F(Faults, AStationThatDoesNotReadLosesNothing) {
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
        const int64_t before = ResidentKb(mKelp->Pid());
        std::atomic<size_t> sent{0};
        std::thread sender([&] {
            while (sent < requests.size() && row.station.Send(requests.substr(sent, 4096))) {
                sent += 4096;
            }
        });
        // Until sending makes no progress.
        EXPECT_TRUE(WaitUntil([&] {
            const size_t now = sent;
            Thread::SleepMs(300);
            return sent == now;
        }));
        EXPECT_LT(sent, requests.size());
        EXPECT_LT(ResidentKb(mKelp->Pid()), before + kRoomKb);
        EXPECT_TRUE(Station::Line(mUart.Master()).Answers("X\r\n", Unsupported("X")));
        EXPECT_TRUE(row.station.Receive(answers.size()) == answers);
        sender.join();
        EXPECT_LT(ResidentKb(mKelp->Pid()), before + kRoomKb);
    }
}

TEST_F(Faults, AModemFloodToADeafStationStaysBounded) {
    const auto modem = Daemon("modem", Peer::Echo("modem"));
    Start(true, kTail, {"ANDROID_LOG_TAGS=*:E"});
    Station deaf = Tcp();
    ASSERT_TRUE(deaf.Answers("AT+M\r\n", "<modem:AT+M\r\n>"));
    const int64_t before = ResidentKb(mKelp->Pid());
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(modem->Push(std::string(100000, 'r')));
    }
    EXPECT_LT(ResidentKb(mKelp->Pid()), before + kRoomKb);
    EXPECT_EQ(mKelp->Logged(" E KELP    : SendDataDone: tcp-->client does not read, "), 1);
    EXPECT_TRUE(Station::Local().Answers("X\r\n", Unsupported("X")));
    // The kept messages arrive, and then the next answer.
    ASSERT_TRUE(deaf.Send("AT+MEND\r\n"));
    std::string got, end = "<modem:AT+MEND\r\n>";
    char chunk[65536];
    for (ssize_t n = 1; n > 0 && got.find(end) == std::string::npos;) {
        n = read(deaf.Fd(), chunk, sizeof(chunk));
        got.append(chunk, static_cast<size_t>(std::max<ssize_t>(n, 0)));
    }
    EXPECT_EQ(got.find_first_not_of('r'), got.size() - end.size());
}

TEST_F(Faults, SlotsOfDeadStationsAreFreed) {
    Start();
    for (int round = 1; round <= 20; ++round) {
        std::vector<Station> stations;
        const auto fillSlots = [&] {
            while (stations.size() < 8) {
                stations.push_back(Connect(stations.size() % 2));
            }
            EXPECT_EQ(Tcp().ReceiveToEnd(), "");
            EXPECT_EQ(Station::Local().ReceiveToEnd(), "");
            for (Station& station : stations) {
                ASSERT_TRUE(station.Answers("X\r\n", Unsupported("X")));
            }
        };
        fillSlots();
        const int freed = mKelp->Logged("ioctl read error.errno->5\n");
        for (const size_t dead : {2, 3, 4, 5}) {
            ASSERT_TRUE(stations[dead].Send("AT+HALF A LI"));
            stations[dead].Reset();
        }
        ASSERT_TRUE(mKelp->WaitForLog("ioctl read error.errno->5\n", freed + 4));
        stations.erase(stations.begin() + 2, stations.begin() + 6);
        fillSlots();
        EXPECT_EQ(mKelp->Logged(" E KELP    : AcceptClient: tcp-->Receive the max client "
                                "number[4]. reject now\n"),
                  2 * round);
        for (Station& station : stations) {
            station.HalfClose();
            EXPECT_EQ(station.ReceiveToEnd(), "");
        }
    }
}

TEST_F(Faults, ExhaustedDescriptorsCauseNoSpinAndNoFlood) {
    for (const size_t served : {1, 4}) {
        Start();
        const struct rlimit none = {3, 1024}, normal = {1024, 1024};
        std::vector<Station> stations;
        while (stations.size() < 5) {
            if (stations.size() == served) {
                ASSERT_EQ(prlimit(mKelp->Pid(), RLIMIT_NOFILE, &none, nullptr), 0);
            }
            stations.push_back(Tcp());
            EXPECT_TRUE(stations[0].Answers("X\r\n", Unsupported("X")));
        }
        ASSERT_TRUE(mKelp->WaitForLog("tcp-->accept error: 24\n"));
        const int64_t cpuNs = CpuNs(mKelp->Pid());
        for (int i = 0; i < 10; ++i) {
            EXPECT_TRUE(stations[0].Answers("X\r\n", Unsupported("X")));
            Thread::SleepMs(50);
        }
        EXPECT_LT(CpuNs(mKelp->Pid()) - cpuNs, KELP_SANITIZED ? 300000000 : 50000000);
        EXPECT_EQ(mKelp->Logged("accept error"), 1);
        ASSERT_EQ(prlimit(mKelp->Pid(), RLIMIT_NOFILE, &normal, nullptr), 0);
        for (size_t i = 0; i < 4; ++i) {
            EXPECT_TRUE(stations[i].Answers("X\r\n", Unsupported("X")));
        }
        EXPECT_EQ(stations[4].ReceiveToEnd(), "");
    }
}

// A supervisor may allow, and leave open, descriptors that are too large for select.
TEST_F(Faults, DescriptorsTooLargeForSelectAreNotServed) {
    Start();
    mKelp.reset();  // only its configuration file is needed
    const std::string open = R"(for i in {3..1100}; do eval "exec $i</dev/null"; done; exec "$@")";
    KelpProcess kelp({"--file=" + mDir.Path("kelp.json")},
                     {"prlimit", "--nofile=4096:", "bash", "-c", open, "bash"});
    EXPECT_TRUE(kelp.WaitForLog("Start: usb-->start fail\n"));
    EXPECT_TRUE(kelp.WaitForLog("Start: local-->start fail\n"));
    EXPECT_EQ(kelp.Logged(" I KELP    : Connect: local-->/dev/socket/kelp: errno = 24 (Too many"),
              1);
    struct rlimit limit = {};
    EXPECT_EQ(prlimit(kelp.Pid(), RLIMIT_NOFILE, nullptr, &limit), 0);
    EXPECT_EQ(limit.rlim_cur, rlim_t{FD_SETSIZE});
    EXPECT_TRUE(kelp.Running());
}

TEST_F(Faults, AfterAHangUpARestartServesAtOnce) {
    for (int round = 0; round < 5; ++round) {
        Start();
        mUsb.HangUp();
        const int status = mKelp->WaitForExit();
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
        EXPECT_EQ(mKelp->Logged(": ReConnect: usb << reconnect << fd:-1\n"), 1);
        EXPECT_EQ(mKelp->Logged("descriptor -1 "), 1);
        mKelp.reset();
        mUsb = Pty();  // plugged in again
        const int64_t begin = MonotonicMs();
        Start();
        EXPECT_TRUE(Station::Line(mUsb.Master()).Answers("X\r\n", Unsupported("X")));
        EXPECT_LT(MonotonicMs() - begin, 10000);
    }
}

}  // namespace
}  // namespace kelp::test
