// The bench programs against each other, without the daemon.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/tempdir.h"

namespace kelp::test {
namespace {

// A running program, its standard output and standard error in one.
class Program {
  public:
    explicit Program(const std::string& command)
        : mPipe(popen(("echo $$; exec " + command + " 2>&1").c_str(), "re")),
          mPid(static_cast<pid_t>(strtol(Output('\n').c_str(), nullptr, 10))) {}
    ~Program() { End(SIGKILL); }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // What it prints, up to `last` or its end.
    std::string Output(int last = EOF) {
        std::string text;
        for (int c = EOF + 1; c != last && (c = fgetc(mPipe)) != EOF;) {
            text += static_cast<char>(c);
        }
        return text;
    }
    // Sends a signal, or none for 0. The exit status as text, "-" when there is none.
    std::string End(int number) {
        const int status = mPipe != nullptr && kill(mPid, number) == 0 ? pclose(mPipe) : SIGKILL;
        mPipe = nullptr;
        return WIFEXITED(status) ? std::to_string(WEXITSTATUS(status)) : "-";
    }

  private:
    FILE* mPipe;
    pid_t mPid;
};

// All that a program prints, '|', and its exit status.
std::string Result(const std::string& command) {
    Program program(command);
    const std::string output = program.Output();
    return output + "|" + program.End(0);
}
// An abstract name of this run's own, which commands spell $S.
const std::string kSocket = "@kelp-test-tools-" + std::to_string(getpid());
const bool kExported = setenv("S", kSocket.c_str(), 1) == 0;

std::string Send(const std::string& arguments) {
    return Result(KELP_SEND " --terminator '' --quiet 5000 " + arguments);
}

TEST(Tools, AnswersOutcomesAndExitStatus) {
    ASSERT_TRUE(kExported);
    Program peer(KELP_PEER
                 R"( --wcn $S --request OK --answer '1\r\nOK\r\n' --pieces 1 --pause 1)"
                 R"( --request TEXT --answer abc --bytes 7 --request HEX --hex FF00)"
                 R"( --request BAD --answer 'x\r\nERROR\r\n' --delay 9 --request MUTE --silent)"
                 R"( --request GO --silent --close --prefix E --echo)"
                 R"( --modem $S-m --answer . --echo --unsolicited U --after 0)");
    ASSERT_EQ(peer.Output('\n'), "ready " + kSocket + " " + kSocket + "-m\n");
    const char* const rows[][2] = {
        {"$S BAD OK", "x\r\nERROR\r\n1\r\nOK\r\n|0"},
        {"$S BAD OK --stop", "x\r\nERROR\r\n|1"},
        {"$S TEXT --quiet 50", "abcabca|4"},
        {"$S TEXT --quiet 50 --expect cab", "abcabca|0"},
        {"$S OK --expect y", "1\r\nOK\r\nkelp-send: OK: the answer is not the expected one\n|1"},
        {"$S ECHO --quiet 1 --timeout 2", "ECHOkelp-send: ECHO: no complete answer in time\n|2"},
        {"$S MUTE OK --timeout 1", "kelp-send: MUTE: no complete answer in time\n1\r\nOK\r\n|0"},
        {"$S GO", "kelp-send: GO: the connection ended without an answer\n|3"},
        {"@none X", "kelp-send: @none: Connection refused\n|3"},
        {"$S-m 'A\r\nB' --terminator 0d0a --expect B --quiet 50", "UA\r\n.B\r\n.|0"},
    };
    for (const auto& [arguments, result] : rows) {
        EXPECT_EQ(Send(arguments), result) << arguments;
    }
    EXPECT_NE(Send("$S HEX --json --quiet 50").find(",\"hex\":\"FF00\"}\n|4"), std::string::npos);
    EXPECT_EQ(peer.End(SIGTERM), "0");
}

TEST(Tools, BadScriptIsRefusedWithItsPlace) {
    const TempDir dir;
    const std::string answers = R"({"roles": [{"role": "wcn", "socket": "@x", "answers": [)"
                                "\n";
    const std::pair<std::string, const char*> rows[] = {
        {"{\n  \"roles\": [ {,} ] }", "2:15: not valid JSON"},
        {"{\"roles\": [],\n \"rolls\": 1}", "2:2: unknown key \"rolls\""},
        {answers + R"({}, {"delay": "1"}]}]})",
         "2:15: \"delay\" must be a whole number from 0 to 86400000"},
        {answers + R"({"result": 1}]}]})", "2:2: \"result\" is only for \"pcba\""},
    };
    for (const auto& [script, error] : rows) {
        const std::string path = dir.Write("script.json", script);
        EXPECT_EQ(Result(KELP_PEER " " + path), path + ":" + error + "\n|65");
    }
}

}  // namespace
}  // namespace kelp::test
