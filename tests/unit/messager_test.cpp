#include "messager/messager.h"

#include <gtest/gtest.h>

#include "config/configmanager.h"
#include "messager/defaultmessager.h"
#include "messager/messagermanager.h"
#include "support/logcapture.h"

namespace kelp::test {
namespace {

TEST(Messager, MatchesTestCommandsAndWhiteListPrefixes) {
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
        {"tesT", "D isSupportCmd: m: support test command (TEST)"},
        {std::string("TEST\0junk", 9), "D isSupportCmd: m: support test command (TEST)"},
        {"TESTS", ""},
        {"A", ""},
        {"", ""},
        {std::string("n\0lx", 4), "D isSupportCmd: m: support white command (N"},
    };
    for (const auto& row : rows) {
        const int length = static_cast<int>(row.request.size());
        EXPECT_EQ(messager->isSupportCmd(row.request.data(), length), !row.record.empty());
        const std::vector<std::string> records = log.Take();
        EXPECT_EQ(records.empty() ? "" : records[0].substr(0, row.record.size()), row.record);
    }
}

}  // namespace
}  // namespace kelp::test
