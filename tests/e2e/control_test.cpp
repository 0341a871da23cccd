// The control commands: what they answer, switch and store.

#include "support/bench.h"
#include "support/wait.h"

namespace kelp::test {
namespace {

using Control = Bench;

// Records of a completed switch.
constexpr char kOff[] = ": kelp: tcp deactive communication\n";
constexpr char kOn[] = ": kelp: tcp active communication\n";

TEST_F(Control, AThousandSwitchesWithSilentPeers) {
    const auto wcn = Wcn(Silent());
    const auto pcba = Daemon("pcba", Silent());
    Start();
    Station local = Station::Local();
    for (int i = 0; i < (KELP_SANITIZED ? 250 : 1000); ++i) {
        Switch(local, "ZAT+TCP=0");
        ASSERT_TRUE(Refused(mPort));
        Switch(local, "ZAT+TCP=1");
        Station station = Tcp();
        // Pending at the next switch; a PCBA request keeps its connection for a second.
        const char* const request = i % 250 == 0 ? "AT+P\r\n" : i % 2 == 0 ? "AT+W\r\n" : "X\r\n";
        ASSERT_TRUE(station.Send(request));
    }
}

TEST_F(Control, AConsoleSwitchesItselfOffAfterItsAnswer) {
    Start();
    Station local = Station::Local();
    for (int i = 0; i < 100; ++i) {
        const int offs = mKelp->Logged(kOff);
        Station self = Tcp();
        Station other = Tcp();
        ASSERT_TRUE(other.Answers("X\r\n", Unsupported("X")));
        // In every second round more commands follow, which end in the same state.
        const bool more = i % 2 == 1;
        ASSERT_TRUE(self.Send(more ? "ZAT+TCP=0\r\nZAT+TCP=1\r\nZAT+TCP=0\r\n" : "zat+tcp=0\r\n"));
        EXPECT_EQ(self.ReceiveToEnd().find(Ok(more ? "ZAT+TCP=0" : "zat+tcp=0")), 0u);
        EXPECT_EQ(other.ReceiveToEnd(), "");
        // Even without a pause: switches are done in the order of the requests.
        const int ons = mKelp->Logged(kOn);
        Command(local, "ZAT+TCP=1");
        ASSERT_TRUE(mKelp->WaitForLog(kOff, offs + (more ? 2 : 1)));
        ASSERT_TRUE(mKelp->WaitForLog(kOn, ons + 1));
        ASSERT_TRUE(WaitUntil([&] { return !Refused(mPort); }));
    }
}

TEST_F(Control, UpdateStoresSwitchesThatAreNotDoneYet) {
    Start(true);
    Station local = Station::Local();
    for (int i = 0; i < 60; ++i) {
        const std::string order = i % 2 == 0 ? "ZAT+TCP=0" : "ZAT+TCP=1";
        ASSERT_TRUE(local.Answers(order + "\r\nZAT+UPDATE\r\n", Ok(order) + Ok("ZAT+UPDATE")));
        ASSERT_EQ(Occurrences(mDir.Read("kelp.json"), "false"), i % 2 == 0) << i;
    }
}

TEST_F(Control, AnswersAndStoredSettings) {
    Start();
    Station local = Station::Local();
    const int port = FreePort();
    const std::pair<std::string, std::string> rows[] = {
        {"zat+Port=" + std::to_string(port), ""},
        {"ZAT+IP=127.0.0.1", ""},
        {"ZAT+IP", ""},
        {"ZAT+TCP=2", "\r\n\r\n+TCP:Unsupport command"},
        {"zat+update ", "\r\n\r\n+update :Unsupport command"},
        {"ZAT+", "\r\n\r\n+:Unsupport command"},
        {"zat+update", ""},
    };
    for (const auto& [command, value] : rows) {
        EXPECT_TRUE(local.Answers(command + "\r\n", Ok(command + value)));
    }
    EXPECT_FALSE(Refused(mPort));
    Switch(local, "ZAT+TCP=0");
    Switch(local, "ZAT+TCP=1");
    EXPECT_TRUE(Refused(mPort));
    EXPECT_FALSE(Refused(port));
    // With an address that cannot be bound the console stays off until corrected and switched off
    // and on.
    const size_t descriptors = mKelp->Descriptors();
    const std::string longest(255, '1');
    for (const std::string bad : {"203.0.113.1", "NOWHERE", "\xff\xfe", longest.c_str()}) {
        Command(local, "ZAT+IP=" + bad);
        Switch(local, "ZAT+TCP=0");
        const int failures = mKelp->Logged(" E KELP    : Start: tcp-->start fail\n");
        Switch(local, "ZAT+TCP=1");
        EXPECT_EQ(mKelp->Logged(" E KELP    : Start: tcp-->start fail\n"), failures + 1);
        Command(local, "ZAT+IP=0");
        Command(local, "ZAT+IP=1" + longest);  // not stored
        Command(local, "ZAT+TCP=0");
        Switch(local, "ZAT+TCP=1");
        EXPECT_FALSE(Refused(port));
        EXPECT_TRUE(WaitUntil([&] { return mKelp->Descriptors() <= descriptors; }));
    }
    EXPECT_EQ(mKelp->Logged(" E KELP    : UpdateTCPIPConfig: kelp:address of 256 bytes ignored\n"),
              4);
    EXPECT_EQ(mKelp->Logged(":IP Address: 11"), 1);
    Command(local, "ZAT+UPDATE");
    EXPECT_NE(mDir.Read("kelp.json").find("\"route\": \"\""), std::string::npos);
    Command(local, "ZAT+PORT=text");
    Command(local, "ZAT+PORT=99999999999");
    EXPECT_EQ(mKelp->Logged(": kelp:IP Port: 0\n"), 1);
    EXPECT_EQ(mKelp->Logged(": kelp:IP Port: 2147483647\n"), 1);
    Restart();
    EXPECT_TRUE(WaitUntil([&] { return !Refused(port); }));
}

}  // namespace
}  // namespace kelp::test
