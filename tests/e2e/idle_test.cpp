// While nothing happens, nothing runs: not one wake-up of any thread.

#include "support/bench.h"
#include "support/procstat.h"
#include "support/wait.h"

namespace kelp::test {
namespace {

class Idle : public Bench {
  protected:
    void SetUp() override {
        if (KELP_SANITIZED) {
            GTEST_SKIP() << "a sanitizer may run a thread of its own";
        }
    }
    std::unique_ptr<Peer> Modem() const {
        return std::make_unique<Peer>(mDir.Path("modem"), LocalNamespace::kFilesystem,
                                      Peer::Echo("modem"));
    }
};

TEST_F(Idle, WithEveryPeerThenWithoutTheForwardingOnes) {
    const auto modem = Modem();
    auto wcn = Wcn(), bench = Default();
    Start(true);
    // Clients, one of them with half a line.
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

TEST_F(Idle, ALostModemDaemonIsLookedForOnceASecond) {
    auto modem = Modem();
    Start(true);
    Station station = Tcp();
    ASSERT_TRUE(station.Answers("AT+M\r\n", "<modem:AT+M\r\n>"));
    modem.reset();
    ASSERT_TRUE(mKelp->WaitForLog(" E KELP    : Run: disconnect ,retry:"));
    const int64_t before = Switches(mKelp->Pid());
    Thread::SleepMs(5000);
    const int64_t switches = Switches(mKelp->Pid()) - before;
    RecordProperty("switches", std::to_string(switches));
    EXPECT_LE(switches, 12);
    modem = Modem();
    EXPECT_TRUE(station.Answers("AT+M\r\n", "<modem:AT+M\r\n>"));
}

}  // namespace
}  // namespace kelp::test
