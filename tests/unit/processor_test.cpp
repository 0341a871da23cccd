#include "processor/processor.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/socket.h>

#include "config/configmanager.h"
#include "messager/defaultmessager.h"
#include "messager/messagermanager.h"
#include "processor/command.h"
#include "support/logcapture.h"

namespace kelp::test {
namespace {

class Console : public Processor {
  public:
    Console(ConfigManager* config, MessagerManager* messagers)
        : Processor(config, messagers, SERVER_MODE) {
        mConsoleConfig = config->GetConfigByName("tcp");
        mWriteStallMs = 100;
    }
    using Processor::WriteBuffer;
    int Connect() override { return mServerFd != -1 ? mServerFd.load() : dup(mListener); }
    void DisConnect(int& fd) override {
        UniqueFd(fd).Reset();
        fd = -1;
    }

    int mListener = -1;
};

TEST(Processor, GivesUpAClientThatTakesNothing) {
    ConfigManager config;
    config.GetModuleConfigs()->clear();
    MessagerManager messagers(&config);
    Console console(&config, &messagers);
    LogCapture log;
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, pair), 0);
    const UniqueFd writer(pair[0]), deaf(pair[1]);
    const std::string answer(1 << 20, 'x');
    EXPECT_EQ(console.WriteBuffer(writer.Get(), answer.data(), 1 << 20), -1);
    EXPECT_EQ(log.Take(), std::vector<std::string>{"E WriteBuffer: tcp-->Write Error! errno->110"});
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

TEST(Processor, MayBeStoppedOnItsOwnSendThreadWhileAnotherStopsIt) {
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
