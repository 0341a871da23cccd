#include "processor/processor.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "config/configmanager.h"
#include "messager/defaultmessager.h"
#include "messager/messagermanager.h"
#include "platform/localserver.h"
#include "processor/command.h"
#include "support/logcapture.h"
#include "support/sockets.h"
#include "support/wait.h"

namespace kelp::test {
namespace {

class Console : public Processor {
  public:
    Console(ConfigManager* config, MessagerManager* messagers)
        : Processor(config, messagers, SERVER_MODE) {
        mConsoleConfig = config->GetConfigByName("tcp");
        mWriteStallMs = 100;
    }
    int Connect() override { return mServerFd != -1 ? mServerFd.load() : dup(mListener); }
    void DisConnect(int& fd) override {
        UniqueFd(fd).Reset();
        fd = -1;
    }

    int mListener = -1;
};

TEST(Processor, GivesUpAClientThatDoesNotRead) {
    ConfigManager config;
    config.GetModuleConfigs()->clear();
    config.GetReceiveConfig()->mode = kReceiveTail;
    config.GetConfigByName("tcp")->active = true;
    MessagerManager messagers(&config);
    Console console(&config, &messagers);
    LogCapture log;
    const std::string name = "kelp-test-processor-" + std::to_string(getpid());
    const LocalAddress address = AddressOf(name, LocalNamespace::kAbstract);
    const UniqueFd listener(ListenLocalAbstract(name));
    console.mListener = listener.Get();
    ASSERT_EQ(console.Start(), 0);
    const UniqueFd deaf = ConnectLocalBlocking(address), other = ConnectLocalBlocking(address);
    std::string bytes = std::string(1 << 20, 'x') + "\r\n";
    ASSERT_EQ(write(deaf.Get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    EXPECT_TRUE(WaitUntil([&] {
        const std::vector<std::string> records = log.Take();
        return std::count(records.begin(), records.end(),
                          "E WriteBuffer: tcp-->Write Error! errno->110") == 1;
    }));
    ASSERT_EQ(write(other.Get(), "X\r\n", 3), 3);
    const auto receive = [&](const UniqueFd& client) {
        return recv(client.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    };
    EXPECT_TRUE(WaitUntil([&] { return receive(other) == 29; }));  // the refusal of "X"
    EXPECT_TRUE(WaitUntil([&] { return receive(deaf) == 0; }));
    console.Stop();
}

class Stopper : public DefaultMessager {
  public:
    Stopper(MessagerManager* manager, Console* console)
        : DefaultMessager(manager, "wcn"), mConsole(console) {}
    unsigned HandleComplete() override {
        mConsole->Stop();
        return 0;
    }

  private:
    Console* const mConsole;
};

TEST(Processor, ConcurrentStopsWithOneOnTheSendThread) {
    ConfigManager config;
    MessagerManager messagers(&config);
    config.GetConfigByName("tcp")->active = true;
    Console console(&config, &messagers);
    Stopper stopper(&messagers, &console);
    LogCapture log;
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    const UniqueFd quiet(pair[0]), other(pair[1]);
    console.mListener = quiet.Get();
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
