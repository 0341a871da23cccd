#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "config/configmanager.h"
#include "messager/defaultmessager.h"
#include "messager/messagermanager.h"
#include "processor/command.h"
#include "processor/localprocessor.h"
#include "processor/sfiochannel.h"
#include "processor/usbprocessor.h"
#include "support/bench.h"
#include "support/logcapture.h"
#include "support/sockets.h"
#include "support/wait.h"

namespace kelp::test {
namespace {

template <typename Console>
class Impatient : public Console {
  public:
    Impatient(ConfigManager* config, MessagerManager* messagers) : Console(config, messagers) {
        this->mWriteStallMs = 50;
    }
};

// The record of the console, which then cuts lines and accepts no command.
CommonConfig* Activate(ConfigManager& config, const char* console) {
    config.GetModuleConfigs()->clear();
    config.GetReceiveConfig()->mode = kReceiveTail;
    config.GetConfigByName(console)->active = true;
    return config.GetConfigByName(console);
}

TEST(Processor, GivesUpAClientThatDoesNotRead) {
    ConfigManager config;
    const std::string name = "kelp-test-processor-" + std::to_string(getpid());
    Activate(config, "local")->route = name;
    MessagerManager messagers(&config);
    Impatient<LocalProcessor> console(&config, &messagers);
    LogCapture log;
    const LocalAddress address = AddressOf(name, LocalNamespace::kAbstract);
    ASSERT_EQ(console.Start(), 0);
    Station deaf = Station::Line(ConnectLocalBlocking(address).Get()),
            other = Station::Line(ConnectLocalBlocking(address).Get());
    ASSERT_TRUE(deaf.Send(std::string(1 << 20, 'x') + "\r\n"));
    EXPECT_TRUE(WaitUntil([&] {
        const std::vector<std::string> records = log.Take();
        return std::count(records.begin(), records.end(),
                          "E WriteBuffer: local-->Write Error! errno->110") == 1;
    }));
    EXPECT_TRUE(other.Answers("X\r\n", Unsupported("X")));
    deaf.ReceiveToEnd();
    char byte;
    EXPECT_EQ(recv(deaf.Fd(), &byte, 1, MSG_DONTWAIT), 0);
    console.Stop();
}

TEST(Processor, AHostThatPausesLosesOnlyAnswersWhoseWriteFailed) {
    const Pty pty;
    ConfigManager config;
    Activate(config, "usb")->route = pty.Device();
    MessagerManager messagers(&config);
    Impatient<USBProcessor> line(&config, &messagers);
    LogCapture log;
    Station host = Station::Line(pty.Master());
    ASSERT_EQ(line.Start(), 0);
    // Returns the number of answers whose write failed.
    const auto ask = [&](const std::string& request, int count) {
        for (int i = 0; i < count; ++i) {
            EXPECT_TRUE(host.Send(request + "\r\n"));
        }
        int failed = 0;
        EXPECT_TRUE(WaitUntil([&] {
            for (const std::string& record : log.Take()) {
                failed += record == "E WriteBuffer: usb-->Write Error! errno->110";
                count -= record.find("D SendCmd: Response <<<<<<<") == 0;
            }
            return count == 0;
        }));
        return failed;
    };
    // More than a pty takes.
    const std::string request(8000, 'x'), answer = Unsupported(request);
    const int failed = ask(request, 10);
    EXPECT_GE(failed, 1);
    for (int i = failed; i < 10; ++i) {
        ASSERT_TRUE(host.Receive(answer.size()) == answer);
    }
    EXPECT_GE(ask(request, 10), 1);
    line.Stop();
    ASSERT_EQ(line.Start(), 0);
    EXPECT_EQ(ask("X", 1), 0);  // there is room again
    line.Stop();
    std::string rest;  // not dropped, because the last write succeeded
    for (size_t n = 0; rest.size() == n && rest.find(Unsupported("X")) == rest.npos; ++n) {
        rest += host.Receive(1);
    }
    EXPECT_NE(rest.find(Unsupported("X")), rest.npos);
}

TEST(SFIOChannel, LocksATtyUntilItIsClosed) {
    const Pty pty;
    const UniqueFd other(open(pty.Device().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    const auto locks = [&] { return flock(other.Get(), LOCK_EX | LOCK_NB) == 0; };
    SFIOChannel channel;
    for (const bool held : {true, false}) {
        LogCapture log;
        flock(other.Get(), held ? LOCK_EX : LOCK_UN);
        EXPECT_GE(channel.Open(pty.Device().c_str(), false), 0);
        EXPECT_EQ(locks(), held);
        EXPECT_EQ(log.Take().at(0).find("E Open: " + pty.Device() + ": locked by"),
                  held ? 0 : std::string::npos);
        const UniqueFd duplicate(dup(channel.fd));
        channel.Close();
        EXPECT_TRUE(locks());
    }
}

class Stopper : public DefaultMessager {
  public:
    Stopper(MessagerManager* manager, Processor* console)
        : DefaultMessager(manager, "wcn"), mConsole(console) {}
    unsigned HandleComplete() override {
        mConsole->Stop();
        return 0;
    }

  private:
    Processor* const mConsole;
};

TEST(Processor, ConcurrentStopsWithOneOnTheSendThread) {
    ConfigManager config;
    MessagerManager messagers(&config);
    config.GetConfigByName("local")->active = true;
    config.GetConfigByName("local")->route = "kelp-test-stops-" + std::to_string(getpid());
    LocalProcessor console(&config, &messagers);
    Stopper stopper(&messagers, &console);
    LogCapture log;
    for (int round = 0; round < 300; ++round) {
        ASSERT_EQ(console.Start(), 0);
        auto* command = new Command;
        command->mMessager = &stopper;
        console.SendDataDone(command);
        if (round % 2 == 0) {
            sched_yield();
        }
        console.Stop();
        ASSERT_FALSE(console.IsConnect());
    }
}

}  // namespace
}  // namespace kelp::test
