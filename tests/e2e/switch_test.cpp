// The control commands, above all consoles that are switched while they are in use.

#include "support/bench.h"
#include "support/wait.h"

namespace kelp::test {
namespace {

class Switch : public Bench {
  protected:
    // What the log says once a switch is done; several commands of one write are done when the
    // last one is.
    static constexpr char kOff[] = ": kelp: tcp deactive communication\n";
    static constexpr char kOn[] = ": kelp: tcp active communication\n";

    void Command(const std::string& command) {
        ASSERT_TRUE(mLocal.Answers(command + "\r\n", Ok(command)));
    }
    void SwitchTcp(bool on) {
        const int before = mKelp->Logged(on ? kOn : kOff);
        Command(on ? "ZAT+TCP=1" : "ZAT+TCP=0");
        ASSERT_TRUE(mKelp->WaitForLog(on ? kOn : kOff, before + 1));
    }
    void TearDown() override {
        { const Station gone = std::move(mLocal); }
        Bench::TearDown();
    }

    Station mLocal = (Start(), Station::Local());
};

TEST_F(Switch, OffAndOnAnyNumberOfTimes) {
    const auto silent = [](const std::string&) { return Peer::Answer{}; };
    const auto wcn = Wcn(silent);
    const Peer pcba(mDir.Path("pcba"), LocalNamespace::kFilesystem, silent);
    for (int i = 0; i < 1000; ++i) {
        SwitchTcp(false);
        ASSERT_TRUE(Refused(mPort));
        SwitchTcp(true);
        Station station = Tcp();
        // Under way at the next switch; the board test holds its connection for a second.
        ASSERT_TRUE(station.Send(i % 250 == 0 ? "AT+P\r\n" : i % 2 == 0 ? "AT+W\r\n" : "X\r\n"));
    }
}

TEST_F(Switch, AConsoleSwitchesItselfOffAfterItsAnswer) {
    for (int i = 0; i < 100; ++i) {
        const int offs = mKelp->Logged(kOff);
        Station self = Tcp();
        Station other = Tcp();
        ASSERT_TRUE(other.Answers("X\r\n", Unsupported("X")));
        // Sometimes with more behind it, which ends in the same state.
        const bool more = i % 2 == 1;
        ASSERT_TRUE(self.Send(more ? "ZAT+TCP=0\r\nZAT+TCP=1\r\nZAT+TCP=0\r\n" : "zat+tcp=0\r\n"));
        EXPECT_EQ(self.ReceiveToEnd().find(Ok(more ? "ZAT+TCP=0" : "zat+tcp=0")), 0u);
        EXPECT_EQ(other.ReceiveToEnd(), "");
        // However soon: what was asked for before is done before.
        const int ons = mKelp->Logged(kOn);
        Command("ZAT+TCP=1");
        ASSERT_TRUE(mKelp->WaitForLog(kOff, offs + (more ? 2 : 1)));
        ASSERT_TRUE(mKelp->WaitForLog(kOn, ons + 1));
        ASSERT_TRUE(WaitUntil([&] { return !Refused(mPort); }));
        ASSERT_TRUE(mKelp->WaitForLog(": process kelp command->ZAT+TCP=1", more ? i + 1 : 1));
    }
    Station usb = Station::Line(mUsb.Master());
    EXPECT_TRUE(usb.Answers("ZAT+USB=0\r\n", Ok("ZAT+USB=0")));
    ASSERT_TRUE(mKelp->WaitForLog(": kelp: usb deactive communication\n"));
    Command("ZAT+USB=1");
    EXPECT_TRUE(usb.Answers("X\r\n", Unsupported("X")));
}

TEST_F(Switch, NothingThatAConsoleIsInHoldsUpTheOneThatSwitchesIt) {
    const std::string big((4 << 20) - 1, 'x');  // all that may wait before reading stops
    const auto wcn = Wcn([](const std::string&) { return Peer::Answer{}; });
    const auto bench = Default([&](const std::string&) { return Peer::Answer{big}; });
    for (int i = 0; i < 10; ++i) {
        Station exchange = Tcp(), line = Tcp(), deaf = Tcp();
        // A client that reads nothing, with the send thread in its answer; then half a line; then
        // an exchange that is never answered, with more commands behind it.
        ASSERT_TRUE(deaf.Send("AT+B\r\n"));
        ASSERT_TRUE(bench->WaitForRequest("AT+B"));
        ASSERT_TRUE(exchange.Send("AT+W" + std::to_string(i) + "\r\nAT+W\r\nAT+W\r\nAT+HA"));
        ASSERT_TRUE(wcn->WaitForRequest("AT+W" + std::to_string(i)));
        ASSERT_TRUE(line.Send("AT+LF"));
        const int64_t begin = MonotonicMs();
        SwitchTcp(false);
        EXPECT_LT(MonotonicMs() - begin, 1000);
        EXPECT_TRUE(Refused(mPort));
        EXPECT_EQ(exchange.ReceiveToEnd(), "");
        SwitchTcp(true);
        Station fresh[] = {Tcp(), Tcp(), Tcp(), Tcp()};
        for (Station& station : fresh) {
            EXPECT_TRUE(station.Answers("X\r\n", Unsupported("X")));
        }
        SwitchTcp(false);  // frees the slots
        SwitchTcp(true);
    }
}

TEST_F(Switch, TwoConsolesThatSwitchEachOtherOffBothEndOff) {
    Station usb = Station::Line(mUsb.Master());
    for (int i = 0; i < 100; ++i) {
        Station tcp = Tcp();
        ASSERT_TRUE(tcp.Answers("X\r\n", Unsupported("X")));
        const int offs = mKelp->Logged(" deactive communication\n");
        ASSERT_TRUE(usb.Send("ZAT+TCP=0\r\n") && tcp.Send("ZAT+USB=0\r\n"));
        ASSERT_TRUE(mKelp->WaitForLog(" deactive communication\n", offs + 1));
        Command("ZAT+TCP=0");
        Command("ZAT+USB=0");
        // One of them may have been off before it had read its command; by now both are.
        tcp.ReceiveToEnd();
        const int ons = mKelp->Logged(" active communication\n");
        ASSERT_TRUE(WaitUntil([&] { return Refused(mPort); }));
        mUsb.Flush();
        Command("ZAT+USB=1");
        Command("ZAT+TCP=1");
        ASSERT_TRUE(mKelp->WaitForLog(" active communication\n", ons + 2));
        ASSERT_TRUE(usb.Answers("X\r\n", Unsupported("X")));
    }
}

TEST_F(Switch, AnswersAndWhatTheyPersist) {
    const int port = FreePort();
    const struct {
        std::string command, answer;
    } rows[] = {
        {"zat+Port=" + std::to_string(port), ""},
        {"ZAT+IP=127.0.0.1", ""},
        {"ZAT+IP", ""},
        {"ZAT+PORT", ""},
        {"ZAT+TCP=2", "Unsupport command"},
        {"zat+update ", "Unsupport command"},
        {"ZAT+", "Unsupport command"},
        {"zat+update", ""},
    };
    for (const auto& row : rows) {
        const std::string head = row.command.substr(3, row.command.find('=') - 3);
        const std::string value = row.answer.empty() ? "" : "\r\n\r\n" + head + ":" + row.answer;
        EXPECT_TRUE(mLocal.Answers(row.command + "\r\n", row.command + value + "\r\n\r\nOK\r\n"));
    }
    EXPECT_FALSE(Refused(mPort));
    SwitchTcp(false);
    SwitchTcp(true);
    EXPECT_TRUE(Refused(mPort));
    EXPECT_FALSE(Refused(port));
    // What cannot be bound leaves the console off until it is corrected, off and on.
    const size_t descriptors = mKelp->Descriptors();
    for (const char* bad : {"ZAT+IP=203.0.113.1", "ZAT+IP=NOWHERE", "ZAT+IP=\xff\xfe"}) {
        Command(bad);
        SwitchTcp(false);
        const int failures = mKelp->Logged(" E KELP    : Start: tcp-->start fail\n");
        SwitchTcp(true);
        EXPECT_EQ(mKelp->Logged(" E KELP    : Start: tcp-->start fail\n"), failures + 1);
        Command("ZAT+UPDATE");
        Command("ZAT+IP=0");
        Command("ZAT+TCP=0");
        SwitchTcp(true);
        EXPECT_FALSE(Refused(port));
        EXPECT_TRUE(WaitUntil([&] { return mKelp->Descriptors() <= descriptors; }));
    }
    Command("ZAT+PORT=text");
    Command("ZAT+PORT=99999999999");
    EXPECT_EQ(mKelp->Logged(": kelp:IP Port: 0\n"), 1);
    EXPECT_EQ(mKelp->Logged(": kelp:IP Port: 2147483647\n"), 1);
    Command("ZAT+PORT=" + std::to_string(port));
    Command("ZAT+UPDATE");
    // A file that the next start would find too long is not written.
    const std::string kept = mDir.Read("kelp.json");
    Command("ZAT+IP=" + std::string(200000, '\1'));
    Command("ZAT+UPDATE");
    EXPECT_EQ(mKelp->Logged("RefreshConfig: not written, errno = 27\n"), 1);
    EXPECT_EQ(mDir.Read("kelp.json"), kept);
    Restart();
    EXPECT_TRUE(WaitUntil([&] { return !Refused(port); }));
    // A file that cannot be read is left alone.
    mDir.Write("kelp.json", "{");
    mLocal = Station::Local();
    Command("ZAT+UPDATE");
    EXPECT_EQ(mDir.Read("kelp.json"), "{");
}

}  // namespace
}  // namespace kelp::test
