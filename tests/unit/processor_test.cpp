#include "processor/processor.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "config/configmanager.h"
#include "messager/messagermanager.h"
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
    int Connect() override { return -1; }
    void DisConnect(int&) override {}
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

}  // namespace
}  // namespace kelp::test
