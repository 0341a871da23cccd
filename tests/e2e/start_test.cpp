// What the daemon makes of its command line and its configuration file, and its log.

#include <sys/wait.h>

#include "support/bench.h"

namespace kelp::test {
namespace {

TEST(Start, MissingFileEndsWith255) {
    KelpProcess kelp({"-file", "/nonexistent/kelp.json"});
    const int status = kelp.WaitForExit();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 255) << status;
    EXPECT_EQ(kelp.Logged(" E KELP    : GetJsonPath: json file() not exist. \n"), 1) << kelp.Log();
}

TEST(Start, BadFileLeavesTheLocalConsole) {
    const TempDir dir;
    const struct {
        std::string path;
        std::string record;
    } rows[] = {
        {dir.Write("empty.json", ""), "syntax error!!!"},
        {dir.Write("cut.json", R"({"console": {"tcp": )"), "syntax error!!!"},
        {dir.Path(""), "open error!!!"},
    };
    for (const auto& row : rows) {
        KelpProcess kelp({"--second", "5", "--file", row.path});
        const std::string record = ": ReadJSONDoc: Json file(" + row.path + ") " + row.record;
        EXPECT_TRUE(kelp.WaitForLog(" E KELP    " + record + "\n")) << kelp.Log();
        const Station local = Station::Local();
        EXPECT_TRUE(kelp.WaitForLog(" I KELP    : AcceptClient: local-->connect to new client"));
        EXPECT_EQ(kelp.Logged("ReadJSONDoc: Json file("), 1) << kelp.Log();
        EXPECT_TRUE(kelp.Running());
    }
}

using Log = Bench;

TEST_F(Log, NothingThatAClientSendsForgesARecord) {
    Start();
    const std::string forged =
        "X\n01-01 00:00:00.000     1     1 E KELP    : FORGED: X\r\x1b[2J\x01\xff\n";
    EXPECT_TRUE(Tcp().Answers(forged + "\r\n", Unsupported(forged)));
    // An address is logged as it was given.
    EXPECT_TRUE(Tcp().Answers("ZAT+IP=" + forged + "\r\n", Ok("ZAT+IP=" + forged)));
    EXPECT_TRUE(mKelp->WaitForLog(":IP Address: X\\n01-01 00:00:00.000"));
    // The shape of every line is looked at when the test ends.
    EXPECT_EQ(mKelp->Logged("\n01-01 00:00:00.000     1"), 0);
}

TEST_F(Log, FilterOfTheEnvironmentDropsRecords) {
    const auto logWith = [&](const char* filter) {
        Start(false, kTail, {std::string("ANDROID_LOG_TAGS=") + filter});
        EXPECT_TRUE(Tcp().Answers("XYZ\r\n", Unsupported("XYZ")));
        return mKelp->Log();
    };
    EXPECT_EQ(logWith("*:S"), "");
    const std::string errors = logWith("*:D KELP:E");
    EXPECT_NE(errors.find(" E KELP    : HandleRequest: all modules: unsupport command.\n"),
              std::string::npos);
    EXPECT_EQ(errors.find(" D KELP "), std::string::npos) << errors;
    EXPECT_EQ(errors.find(" I KELP "), std::string::npos) << errors;
}

}  // namespace
}  // namespace kelp::test
