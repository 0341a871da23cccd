// Consoles that are switched off, reopened, overloaded or misconfigured while a module or a client
// still uses them.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <thread>
#include <tuple>

#include "support/bench.h"
#include "support/wait.h"

namespace kelp::test {
namespace {

class Consoles : public Bench {
  protected:
    // The daemon's descriptors that refer to `file`.
    std::vector<int> Held(const std::string& file) const {
        std::vector<int> held;
        std::error_code gone;
        for (const auto& fd : std::filesystem::directory_iterator(
                 "/proc/" + std::to_string(mKelp->Pid()) + "/fd", gone)) {
            if (std::filesystem::read_symlink(fd, gone) == file) {
                held.push_back(std::stoi(fd.path().filename()));
            }
        }
        return held;
    }
    void LimitDescriptors(rlim_t count) const {
        const struct rlimit limit = {count, 1024};
        ASSERT_EQ(prlimit(mKelp->Pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
    }
    static bool Polls(int fd, short event) {
        struct pollfd polled = {fd, event, 0};
        return poll(&polled, 1, 0) == 1 && (polled.revents & event) != 0;
    }
};

TEST_F(Consoles, SwitchingOffClosesClientsWithPendingCommands) {
    const auto wcn = Wcn(Silent()), pcba = Daemon("pcba", Silent()),
               modem = Daemon("modem", Silent());
    // As many bytes as may wait for a client before reading stops.
    const std::string large((4 << 20) - 1, 'x');
    const auto bench = Default([&](const std::string&) { return Peer::Answer{large}; });
    Start(true);
    Station local = Station::Local();
    const std::tuple<const char*, std::string, Peer*> rows[] = {
        {"last command read", "X", nullptr},
        {"exchange", "AT+W", wcn.get()},
        {"kept modem client", "AT+M", modem.get()},
        {"silent board test", "AT+P", pcba.get()},
        {"answer that nobody reads", "AT+B", bench.get()},
    };
    int asked = 0;
    for (int round = 0; round < 3; ++round) {
        for (const auto& [name, command, peer] : rows) {
            SCOPED_TRACE(name);
            Station stays = Tcp(), left = Tcp();
            Station lines[] = {Station::Line(mUsb.Master()), Station::Line(mUart.Master())};
            mUsb.DropSlave();
            mUart.DropSlave();
            for (Station* station : {&left, &stays, &lines[0], &lines[1]}) {
                const std::string request = command + std::to_string(++asked);
                ASSERT_TRUE(station->Send(request + "\r\n"));
                // An exchange blocks the following requests.
                ASSERT_TRUE(peer == nullptr || station != &left ||
                            peer->WaitForRequest(peer == modem.get() ? request + "\r\n" : request));
            }
            left.HalfClose();
            const int64_t begin = MonotonicMs();
            for (const char* off : {"ZAT+TCP=0", "ZAT+USB=0", "ZAT+UART=0"}) {
                Switch(local, off);
            }
            // Both would take kPatienceMs if the daemon did not close the connections.
            stays.ReceiveToEnd();
            left.ReceiveToEnd();
            EXPECT_LT(MonotonicMs() - begin, 6000);
            for (const Pty* pty : {&mUsb, &mUart}) {
                EXPECT_EQ(Held(pty->Device()).size(), 0u);
                EXPECT_TRUE(Polls(pty->Master(), POLLHUP));
            }
            for (const char* on : {"ZAT+TCP=1", "ZAT+USB=1", "ZAT+UART=1"}) {
                Switch(local, on);
            }
            mUsb.Flush();
            mUart.Flush();
        }
    }
}

TEST_F(Consoles, NoNewcomerWhileTheClientsAreReadOut) {
    const auto wcn = Wcn(Silent());
    Start();
    Station local = Station::Local(), busy = Tcp();
    ASSERT_TRUE(busy.Send("AT+W\r\n" + std::string(100000, 'x')));
    ASSERT_TRUE(wcn->WaitForRequest("AT+W"));
    // A client that keeps sending is read for half a second.
    std::thread sender([&] {
        while (busy.Send("x")) {
        }
    });
    Command(local, "ZAT+TCP=0");
    EXPECT_TRUE(WaitUntil([&] { return Refused(mPort); }));
    EXPECT_EQ(mKelp->Logged("tcp >> disconnect."), 0);
    sender.join();
}

TEST_F(Consoles, ALineSwitchedOffWhileItIsReopenedStaysOff) {
    Start();
    Station local = Station::Local();
    pid_t reader = 0;
    for (const auto& task :
         std::filesystem::directory_iterator("/proc/" + std::to_string(mKelp->Pid()) + "/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        reader = name == "usb-recv" ? std::stoi(task.path().filename()) : reader;
    }
    if (ptrace(PTRACE_SEIZE, reader, nullptr, PTRACE_O_TRACESYSGOOD) != 0) {
        GTEST_SKIP() << "ptrace, errno " << errno;
    }
    ptrace(PTRACE_INTERRUPT, reader, nullptr, nullptr);
    // An end of file (Ctrl-D), which the daemon takes for a device error.
    const UniqueFd line(open(mUsb.Device().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    struct termios cooked = {};
    tcgetattr(line.Get(), &cooked);
    cooked.c_lflag |= ICANON;
    tcsetattr(line.Get(), TCSANOW, &cooked);
    ASSERT_EQ(write(mUsb.Master(), "\4", 1), 1);
    struct __ptrace_syscall_info call = {};
    while (waitpid(reader, nullptr, __WALL) == reader &&
           ptrace(PTRACE_GET_SYSCALL_INFO, reader, sizeof(call), &call) > 0 &&
           (call.op != PTRACE_SYSCALL_INFO_ENTRY || call.entry.nr != SYS_openat)) {
        ptrace(PTRACE_SYSCALL, reader, nullptr, nullptr);
    }
    Command(local, "ZAT+USB=0");
    EXPECT_TRUE(mKelp->WaitForLog("process kelp command->ZAT+USB=0"));
    ptrace(PTRACE_DETACH, reader, nullptr, nullptr);
    EXPECT_TRUE(mKelp->WaitForLog(" deactive communication\n"));
    EXPECT_TRUE(mKelp->WaitForLog("usb << reconnect << fd:"));
    EXPECT_TRUE(WaitUntil([&] { return Held(mUsb.Device()).size() == 0; }));
}

TEST_F(Consoles, AClientThatLeftForGoodIsClosedAtOnce) {
    const auto modem = Daemon("modem", Silent());
    Start(true);
    for (const bool tcp : {true, false}) {
        Station leaver = tcp ? Tcp() : Station::Local();
        const std::string request = "AT+M" + std::to_string(tcp) + "\r\n";
        ASSERT_TRUE(leaver.Send(request));
        ASSERT_TRUE(modem->WaitForRequest(request));
        // The module keeps the handle of the client that asked last.
        const size_t descriptors = mKelp->Descriptors();
        leaver.Reset();
        EXPECT_TRUE(WaitUntil([&] { return mKelp->Descriptors() < descriptors; }));
    }
}

TEST_F(Consoles, NoExchangeStartsAfterAStopRequest) {
    const auto wcn = Wcn(Silent());
    Start();
    Station local = Station::Local(), station = Tcp();
    std::string burst;
    for (int i = 0; i < 20000; ++i) {
        burst += "WT\r\n";
    }
    std::thread sender([&] { station.Send(burst); });
    ASSERT_TRUE(wcn->WaitForRequest("WT"));
    const int64_t begin = MonotonicMs();
    Command(local, "ZAT+TCP=0");
    EXPECT_TRUE(local.Answers("X\r\n", Unsupported("X")));
    EXPECT_LT(MonotonicMs() - begin, 10000);
    sender.join();
    EXPECT_EQ(wcn->Connections(), 1);
}

TEST_F(Consoles, UnreadInputDoesNotResetUnreadAnswers) {
    const auto wcn = Wcn(Silent());
    Start();
    Station local = Station::Local();
    std::string requests, answers;
    for (int i = 0; i < 200; ++i) {
        const std::string request = std::to_string(i) + std::string(1900, 'x');
        requests += request + "\r\n";
        answers += Unsupported(request);
    }
    for (int i = 0; i < 5; ++i) {
        const std::string held = "AT+W" + std::to_string(i);
        Station station = Tcp();
        ASSERT_TRUE(station.Send(requests + held + "\r\n" + std::string(400000, 'y')));
        ASSERT_TRUE(wcn->WaitForRequest(held));
        ASSERT_TRUE(mKelp->WaitForLog(": SendCmd: Response <<<<<<< (19", 200 * (i + 1)));
        Switch(local, "ZAT+TCP=0");
        EXPECT_TRUE(station.Receive(answers.size()) == answers);
        Switch(local, "ZAT+TCP=1");
    }
}

TEST_F(Consoles, ASerialLineOpensWithAllItsDescriptorsOrNone) {
    Start();
    Station local = Station::Local(), line = Station::Line(mUsb.Master());
    Switch(local, "ZAT+USB=0");
    const std::string failure = " E KELP    : Start: usb-->start fail\n";
    bool open = false;
    for (rlim_t limit = 3; !open; ++limit) {
        const int failures = mKelp->Logged(failure), opens = mKelp->Logged("usb active c");
        LimitDescriptors(limit);
        Command(local, "ZAT+USB=1");
        ASSERT_TRUE(mKelp->WaitForLog("usb active c", opens + 1));
        open = mKelp->Logged(failure) == failures;
        EXPECT_EQ(Held(mUsb.Device()).size(), open ? 2u : 0u) << limit;
        EXPECT_TRUE(!open || line.Answers("X\r\n", Unsupported("X")));
        Command(local, "ZAT+USB=0");
    }
    EXPECT_GE(mKelp->Logged("usb-->no second descriptor, errno = 24\n"), 1);
    const std::string reason = mUsb.Device() + ": errno = 24 (Too many open files)\n";
    EXPECT_EQ(mKelp->Logged(" I KELP    : Open: " + reason), mKelp->Logged("Open: open fail\n"));
    Switch(local, "ZAT+USB=1");
}

TEST_F(Consoles, ARouteThatIsNotATtyCausesNoSpin) {
    const std::string content = "AT+X\r\nAT+Y\r\n";
    const struct {
        std::string route, record;
        int atLeast, atMost;  // records until the end of the observed second
    } rows[] = {
        {"/dev/null", "usb-->ioctl read error.errno->25\n", 5, 50},
        {mDir.Write("file", content),
         " E KELP    : Connect: usb-->route is not a character device\n", 1, 1},
    };
    for (const auto& row : rows) {
        StartWith(mUsb.Device(), row.route);
        mKelp->WaitForLog("tcp server side");
        EXPECT_TRUE(mKelp->WaitForLog(row.record));
        const size_t before = mKelp->Log().size();
        Thread::SleepMs(1000);
        EXPECT_GE(mKelp->Logged(row.record), row.atLeast) << row.route;
        EXPECT_LE(mKelp->Logged(row.record), row.atMost) << row.route;
        EXPECT_LT(mKelp->Log().size() - before, 4000u);
        const size_t held = Held(row.route).size();
        EXPECT_TRUE(Station::Local().Answers("ZAT+USB=0\r\n", Ok("ZAT+USB=0")));
        EXPECT_TRUE(WaitUntil([&] { return Held(row.route).size() < held; }));
    }
    EXPECT_EQ(mDir.Read("file"), content);
}

TEST_F(Consoles, AReopenedLineGetsEarlierAnswers) {
    const auto modem = Daemon("modem", Silent());
    const auto pcba = Daemon("pcba", Silent());
    const std::string link = mDir.Path("line");
    std::filesystem::create_symlink(mUsb.Device(), link);
    StartWith(mUsb.Device(), link);
    mKelp->WaitForLog("tcp server side");
    Station first = Station::Line(mUsb.Master());
    ASSERT_TRUE(first.Send("AT+M1\r\nAT+P1\r\n"));
    ASSERT_TRUE(modem->WaitForRequest("AT+M1\r\n"));
    ASSERT_TRUE(pcba->WaitForRequest("AT+P1"));
    Pty again;
    std::filesystem::remove(link);
    std::filesystem::create_symlink(again.Device(), link);
    // No descriptors are available but the two that the hang-up frees.
    const std::vector<int> held = Held(mUsb.Device());
    LimitDescriptors(static_cast<rlim_t>(*std::max_element(held.begin(), held.end())) + 1);
    { const Station unplugged = std::move(first); }
    mUsb.HangUp();
    ASSERT_TRUE(mKelp->WaitForLog(": ReConnect: usb << reconnect << fd:"));
    ASSERT_TRUE(modem->Push("RING"));
    Station line = Station::Line(again.Master());
    // The module's time-out of one second may end before the message arrives.
    const std::string late = "AT+P1\r\n\r\n6012\r\n\r\nERROR\r\n",
                      got = line.Receive(late.size() + 4);
    EXPECT_TRUE(got == "RING" + late || got == late + "RING") << got;
    EXPECT_TRUE(line.Answers("X\r\n", Unsupported("X")));
    mUsb = std::move(again);  // stays plugged in for the checks of TearDown
}

TEST_F(Consoles, AQuietIntervalEndsACommandAsAWhole) {
    const auto wcn = Wcn();
    Start(false, R"({"mode": "timetick", "millisecond": 300})");
    Station stations[] = {Tcp(), Tcp(), Tcp(), Tcp()};
    const int64_t begin = MonotonicMs();
    ASSERT_TRUE(stations[0].Send("AT+W"));
    while (!Polls(stations[0].Fd(), POLLIN) && MonotonicMs() - begin < 5000) {
        const Station rejected = Tcp();
        Thread::SleepMs(50);
    }
    EXPECT_GE(MonotonicMs() - begin, 250);
    EXPECT_LT(MonotonicMs() - begin, 4000);
    EXPECT_TRUE(stations[0].Answers("", "<wcn:AT+W>"));
    // The bytes of the command are kept.
    EXPECT_TRUE(stations[0].Answers("\r\n2", "<wcn:AT+W\r\n2>"));
    // Bytes that wait when the interval ends belong to the command.
    ASSERT_TRUE(stations[0].Send("AT+W="));
    ASSERT_TRUE(mKelp->WaitForLog("tcp-->5 charactor(s) received"));
    kill(mKelp->Pid(), SIGSTOP);
    ASSERT_EQ(waitpid(mKelp->Pid(), nullptr, WUNTRACED), mKelp->Pid());
    ASSERT_TRUE(stations[0].Send("12"));
    const Station newcomer = Tcp();
    Thread::SleepMs(400);
    kill(mKelp->Pid(), SIGCONT);
    EXPECT_TRUE(stations[0].Answers("", "<wcn:AT+W\r\n2AT+W=12>"));
}

TEST_F(Consoles, FourStationsThatReconnectPerCommandAreServed) {
    Start();
    Station local = Station::Local();
    for (int round = 0; round < 2; ++round) {
        std::array<std::thread, 4> stations;
        for (std::thread& thread : stations) {
            thread = std::thread([&] {
                for (int j = 0; j < 200; ++j) {
                    Station station = Tcp();
                    ASSERT_TRUE(station.Answers("X\r\n", Unsupported("X")));
                    // The command of a client that leaves without reading is still read.
                    Station(std::move(station)).Send(j % 2 == 0 ? "Y\r\n" : "");
                }
            });
        }
        for (std::thread& thread : stations) {
            thread.join();
        }
        EXPECT_EQ(mKelp->Logged("reject now"), 0);
        Switch(local, "ZAT+TCP=0");  // the listening socket gets another descriptor
        Switch(local, "ZAT+TCP=1");
    }
}

TEST_F(Consoles, UrgentBytesStayInOrder) {
    Start();
    const int64_t begin = MonotonicMs();
    for (Station& station : std::array{Tcp(), Station::Local()}) {
        for (int i = 0; i < 10; ++i) {
            ASSERT_TRUE(station.Send("A"));
            ASSERT_EQ(send(station.Fd(), "!", 1, MSG_OOB), 1);
            ASSERT_TRUE(station.Answers("B\r\n", Unsupported("A!B")));
        }
    }
    EXPECT_LT(MonotonicMs() - begin, 5000);
}

TEST_F(Consoles, OpeningALineSetsItsAttributes) {
    const UniqueFd line(open(mUart.Device().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    struct termios set = {};
    tcgetattr(line.Get(), &set);
    set.c_iflag = INLCR | IGNCR | ICRNL | IXON | IXOFF | BRKINT | ISTRIP;
    set.c_oflag = OPOST | ONLCR | OCRNL;
    set.c_lflag = ISIG | ICANON | ECHO | ECHOE | IEXTEN;
    cfsetspeed(&set, B9600);
    ASSERT_EQ(tcsetattr(line.Get(), TCSANOW, &set), 0);
    Start();
    ASSERT_EQ(tcgetattr(line.Get(), &set), 0);
    const std::array have = {set.c_iflag,       set.c_oflag,
                             set.c_lflag,       set.c_cflag & (CSIZE | PARENB),
                             cfgetispeed(&set), cfgetospeed(&set)};
    const std::array<tcflag_t, 6> want = {BRKINT | ISTRIP, OPOST,  ECHOE | IEXTEN, CS8,
                                          B115200,         B115200};
    EXPECT_EQ(have, want);
}

}  // namespace
}  // namespace kelp::test
