#include "processor/processor.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/socket.h>

#include "config/configmanager.h"
#include "messager/defaultmessager.h"
#include "messager/messagermanager.h"
#include "processor/command.h"
#include "support/logcapture.h"

namespace kelp {
namespace {

class Console : public Processor {
  public:
    Console(ConfigManager* config, MessagerManager* messagers)
        : Processor(config, messagers, SERVER_MODE) {
        mConsoleConfig = config->GetConfigByName("tcp");
        mWriteStallMs = 100;
    }
    using Processor::DisConnect;
    using Processor::ReadBuffer;
    using Processor::ThrowException;
    using Processor::WriteBuffer;
    int Connect() override { return mServerFd != -1 ? mServerFd.load() : dup(mListener); }
    void DisConnect(int& fd) override {
        UniqueFd(fd).Reset();
        fd = -1;
    }

    int mListener = -1;
};

TEST(Console, ClassifiesErrorsAndGivesUpAClientThatTakesNothing) {
    ConfigManager config;
    config.GetModuleConfigs()->clear();
    MessagerManager messagers(&config);
    Console console(&config, &messagers);
    LogCapture log;
    const struct {
        int code;
        bool drops;
        std::vector<std::string> records;
    } rows[] = {
        {0, false, {}},
        {EINTR, false, {"E ThrowException: tcp-->ioctl read error.errno->4"}},
        {EAGAIN, false, {"E ThrowException: tcp-->ioctl read error.errno->11"}},
        {ECONNRESET, true, {"E ThrowException: tcp-->ioctl read error.errno->104"}},
        {EIO, true, {"E ThrowException: tcp-->ioctl read error.errno->5"}},
        {255, false, {}},
        {4999, false, {}},
        {6001, true, {"E ThrowException: tcp --> KELP predefined error.errno->6001"}},
    };
    for (const auto& row : rows) {
        int fd = 0;
        EXPECT_EQ(console.ThrowException(row.code, fd), row.drops) << row.code;
        EXPECT_EQ(fd, row.code == EIO ? -1 : 0);
        EXPECT_EQ(log.Take(), row.records);
    }
    EXPECT_EQ(console.ReceiveCmdData(-1), 6005);
    EXPECT_EQ(console.GetMaxFd(), -1);
    EXPECT_EQ(console.ReadBuffer(-1, 1), -1);
    EXPECT_EQ(console.WriteBuffer(-1, "x", 1), -1);
    console.SendDataDone(nullptr);
    EXPECT_EQ(log.Take(), (std::vector<std::string>{"E ReadBuffer: tcp--> Error FD!!!",
                                                    "E WriteBuffer: tcp-->Error FD!!!",
                                                    "E SendDataDone: tcp-->data is null"}));
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

TEST(Console, MayBeStoppedOnItsOwnSendThreadWhileAnotherStopsIt) {
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

TEST(Messager, SupportsWholeTestCommandsAndPrefixesOfTheWhiteList) {
    ConfigManager config;
    *config.GetModuleConfigs() = {ModuleInfo()};
    ModuleInfo& module = config.GetModuleConfigs()->front();
    module.name = "m";
    module.whiteList = {"AT", "AT+C", "at+l", std::string("N\0L", 3)};
    module.testCmds = {"AT+C?", "TEST"};
    MessagerManager messagers(&config);
    const std::unique_ptr<Messager> messager(DefaultMessager::Create(&messagers, "m"));
    LogCapture log;
    const struct {
        std::string request, record;
    } rows[] = {
        {"at+c?", "D isSupportCmd: m: support test command (AT+C?)"},
        {"AT+C?1", "D isSupportCmd: m: support white command (AT)"},
        {"At", "D isSupportCmd: m: support white command (AT)"},
        {"tesT", "D isSupportCmd: m: support test command (TEST)"},
        {std::string("TEST\0junk", 9), "D isSupportCmd: m: support test command (TEST)"},
        {"TESTS", ""},
        {"A", ""},
        {"", ""},
        {std::string("N\0", 2), ""},
        {std::string("n\0lx", 4), "D isSupportCmd: m: support white command (N"},
    };
    for (const auto& row : rows) {
        const int length = static_cast<int>(row.request.size());
        EXPECT_EQ(messager->isSupportCmd(row.request.data(), length), !row.record.empty());
        const std::vector<std::string> records = log.Take();
        EXPECT_EQ(records.empty() ? "" : records[0].substr(0, row.record.size()), row.record);
    }
    EXPECT_FALSE(messager->isSupportCmd(nullptr, 0));
    EXPECT_EQ(messagers.HandleRequest(nullptr, nullptr), 6007u);
    EXPECT_EQ(messagers.HandleResponse(nullptr, nullptr), 6008u);
    EXPECT_EQ(log.Take(), (std::vector<std::string>{"E isSupportCmd: m: pData is null",
                                                    "E HandleRequest: get null COMMAND",
                                                    "E HandleResponse: input error"}));
}

}  // namespace
}  // namespace kelp
