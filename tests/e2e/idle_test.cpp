// An idle daemon: no thread wakes up.

#include "support/bench.h"
#include "support/procstat.h"

namespace kelp::test {
namespace {

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

}  // namespace
}  // namespace kelp::test
