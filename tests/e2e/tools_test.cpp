// The bench programs against each other, without the daemon.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include "support/pty.h"
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

    // Its output up to `last`, or up to its end.
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

// The output of a program, '|', and its exit status.
std::string Result(const std::string& command) {
    Program program(command);
    const std::string output = program.Output();
    return output + "|" + program.End(0);
}
// An abstract name that is unique to this run; commands use it as $S.
const std::string kSocket = "@kelp-test-tools-" + std::to_string(getpid());
const bool kExported = setenv("S", kSocket.c_str(), 1) == 0;

std::string Send(const std::string& arguments) {
    return Result(KELP_SEND " --terminator '' --quiet 5000 " + arguments);
}

TEST(Tools, SendReportsTheOutcomeOfEachAnswer) {
    ASSERT_TRUE(kExported);
    const TempDir dir;
    const std::string answers =
        R"({"request": "OK", "answer": "1\r\nOK\r\n", "pieces": 1, "pause": 1},
        {"request": "TEXT", "answer": "abc", "bytes": 7}, {"request": "HEX", "hex": "FF00"},
        {"request": "BAD", "answer": "x\r\nERROR\r\n", "delay": 9},
        {"request": "MUTE", "silent": true},
        {"request": "CME", "answer": "\r\n+CME ERROR: 10\r\n"},
        {"request": "OFF", "answer": "Invalid descriptor"},
        {"request": "Z=2", "answer": "Z=2\r\n\r\n+Z:Unsupport command\r\n\r\nOK\r\n"},
        {"request": "+R", "answer": "\r\n+C: 1\r\n\r\n+R: 2\r\n\r\nOK\r\n\r\n+C: 1\r\n",
         "pieces": 9, "pause": 200},
        {"request": "+Q", "answer": "\r\n+C: 1\r\n"},
        {"request": "+P=1", "answer": "\r\n+Ev: 1\r\n\r\nOK\r\n", "pause": 1},
        {"request": "ATI", "answer": "\r\n+GCAP: 1\r\n\r\nOK\r\n\r\n+C: 2\r\n"},
        {"request": "AT+H", "answer": "\r\n> AT+H\r\n+HI: 1\r\n+h: 2\r\n+C: 3\r\nOK\r\n"},
        {"request": "GO", "silent": true, "close": true}, {"request": "E", "echo": true},
        {"request": "ECHOFIRST", "echo": true, "answer": "\r\nERROR\r\n", "pieces": 9,
         "pause": 200})";
    const std::string script = R"({"roles": [{"role": "wcn", "socket": ")" + kSocket +
                               R"(", "answers": [)" + answers +
                               R"(]}, {"role": "modem", "socket": ")" + kSocket + R"(-m",
        "answers": [{"answer": ".", "echo": true}], "unsolicited": [{"text": "U", "after": 0}]}]})";
    Program peer(KELP_PEER " " + dir.Write("script.json", script));
    ASSERT_EQ(peer.Output('\n'), "ready " + kSocket + " " + kSocket + "-m\n");
    const std::string unexpected = ": the answer is not the expected one\n|1";
    const std::string error = ": the answer is an error\n|1";
    const std::string late = ": no complete answer in time\n|2";
    const auto report = [](const std::string& text, int status) {
        return (status == 1 ? ": the answer is not the expected one"
                            : ": no complete answer in time") +
               ("; \"" + text + "\" is only in an unsolicited report\n|") + std::to_string(status);
    };
    const std::string z = "Z=2\r\n\r\n+Z:Unsupport command\r\n\r\nOK\r\n";
    const std::string r = "\r\n+C: 1\r\n\r\n+R: 2\r\n\r\nOK\r\n\r\n+C: 1\r\n";
    const std::string i = "\r\n+GCAP: 1\r\n\r\nOK\r\n\r\n+C: 2\r\n";
    const std::string h = "\r\n> AT+H\r\n+HI: 1\r\n+h: 2\r\n+C: 3\r\nOK\r\n";
    const std::pair<const char*, std::string> rows[] = {
        {"$S BAD OK", "x\r\nERROR\r\n1\r\nOK\r\n|1"},
        {"$S BAD OK --stop", "x\r\nERROR\r\n|1"},
        {"$S TEXT OK --quiet 500", "abcabca1\r\nOK\r\n|4"},
        {"$S TEXT --quiet 50 --expect cab", "abcabca|0"},
        {"$S TEXT --quiet 50 --expect y --timeout 1", "abcabcakelp-send: TEXT" + late},
        {"$S OK --expect 1 --expect O", "1\r\nOK\r\n|0"},
        {"$S OK --expect 1 --expect y", "1\r\nOK\r\nkelp-send: OK" + unexpected},
        {"$S OK --expect-error 1", "1\r\nOK\r\nkelp-send: OK" + unexpected},
        {"$S BAD --expect x", "x\r\nERROR\r\nkelp-send: BAD" + error},
        {"$S BAD --expect-error x", "x\r\nERROR\r\n|0"},
        {"$S CME --timeout 2 --expect-error ': 10'", "\r\n+CME ERROR: 10\r\n|0"},
        {"$S OFF --quiet 50 --expect Inv", "Invalid descriptorkelp-send: OFF" + error},
        {"$S Z=2 --expect Z", z + "kelp-send: Z=2" + error},
        {"$S Z=2 --expect-error Z:Un", z + "|0"},
        {"$S Z=2 --expect-error =2", z + "kelp-send: Z=2" + unexpected},
        {"$S +R --quiet 550 --expect 2", r + "|0"},
        {"$S +R --quiet 400 --expect C:", r + "kelp-send: +R" + report("C:", 1)},
        {"$S +Q --quiet 50 --expect C --timeout 1", "\r\n+C: 1\r\nkelp-send: +Q" + report("C", 2)},
        {"$S +P=1 --expect 1", "\r\n+Ev: 1\r\n\r\nOK\r\nkelp-send: +P=1" + report("1", 1)},
        {"$S ATI --expect 1", i + "|0"},
        {"$S ATI --expect 2", i + "kelp-send: ATI" + report("2", 1)},
        {"$S AT+H --expect 2", h + "|0"},
        {"$S AT+H --expect AT", h + "kelp-send: AT+H" + unexpected},
        {"$S AT+H --expect 1", h + "kelp-send: AT+H" + report("1", 1)},
        {"$S E --quiet 1 --expect E --timeout 1", "Ekelp-send: E" + late},
        {"$S ECHOFIRST --quiet 50 --expect E",
         "ECHOFIRST\r\nERROR\r\nkelp-send: ECHOFIRST" + error},
        {"$S MUTE OK --timeout 1", "kelp-send: MUTE: no complete answer in time\n1\r\nOK\r\n|2"},
        {"$S GO",
         "kelp-send: GO: the connection ended without an answer; the console may already serve "
         "four clients\n|3"},
        {"@none X", "kelp-send: @none: Connection refused\n|3"},
        {"$S-m 'A\r\nB' --terminator 0d0a --expect B --quiet 50", "UA\r\n.B\r\n.|0"},
        {"$S OK --expect 1 --expect-error 1",
         "kelp-send: --expect and --expect-error exclude each other\nTry `kelp-send --help' or "
         "`kelp-send --usage' for more information.\n|64"},
    };
    for (const auto& [arguments, result] : rows) {
        EXPECT_EQ(Send(arguments), result) << arguments;
    }
    EXPECT_NE(Send("$S HEX --json --quiet 50").find(",\"hex\":\"FF00\"}\n|4"), std::string::npos);
    EXPECT_EQ(Result(KELP_SEND " --terminator '' --timeout 1 $S TEXT --expect cab"),
              "abcabcakelp-send: TEXT: no complete answer in time; an answer without a result line "
              "needs --quiet\n|2");

    const Pty line;
    ASSERT_EQ(write(line.Master(), "\r\nOK\r\n", 6), 6);  // the answer to an earlier command
    EXPECT_EQ(Send("--timeout 0.2 " + line.Device() + " OK"), "kelp-send: OK" + late);

    Pty keyboard;
    Program terminal(KELP_SEND " $S-m <" + keyboard.Device());
    ASSERT_EQ(write(keyboard.Master(), "A\nB\n", 4), 4);
    EXPECT_EQ(terminal.Output('.'), "UA\r\n.");
    EXPECT_EQ(terminal.Output('.'), "B\r\n.");
    keyboard.HangUp();
    EXPECT_EQ(terminal.Output(), "");
    EXPECT_EQ(terminal.End(0), "0");
    EXPECT_EQ(peer.End(SIGTERM), "0");
}

TEST(Tools, ABadScriptIsRejectedWithItsPosition) {
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
