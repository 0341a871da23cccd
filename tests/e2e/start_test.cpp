// Command line, configuration file and log of the daemon.

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>

#include "platform/clock.h"
#include "support/bench.h"
#include "support/wait.h"

namespace kelp::test {
namespace {

TEST(Start, EchoesOptionsAndEndsWith255WithoutAFile) {
    // "second" and unknown, ambiguous or incomplete options log nothing.
    KelpProcess kelp({"--mode",   "a",          "-hex=b",   "-micorsecond",
                      "c",        "-m",         "1",        "-x2",
                      "-t",       "3",          "-ip",      "10.0.0.1",
                      "--port=5", "--usb",      "u",        "--serial",
                      "s",        "--optarg=x", "--optarg", "--second",
                      "9",        "--nope",     "-z",       "--m=1",
                      "stray",    "--ip=1",     "-file",    "/nonexistent/kelp.json",
                      "--port"});
    const int status = kelp.WaitForExit();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 255) << status;
    EXPECT_EQ(std::regex_replace(kelp.Log(), std::regex(".*([DE]) KELP    : (ArgParser: param )?"),
                                 "$1 "),
              "D m value: a\nD x value: b\nD t value: c\nD m value: 1\nD x value: 2\n"
              "D t value: 3\nD IP value: 10.0.0.1\nD PORT value: 5\nD USB value: u\n"
              "D SERIAL value: s\nD ArgParser: optarg: x\nD ArgParser: optarg: no arg\n"
              "D IP value: 1\nD f value: /nonexistent/kelp.json\n"
              "E GetJsonPath: json file() not exist. \n");
}

TEST(Start, ABadFileStillStartsTheLocalConsole) {
    const TempDir dir;
    const std::string path = dir.Write("cut.json", R"({"console": {"tcp": )");
    KelpProcess kelp(
        {"--second", "5", "--file", path},
        {"bash", "-c", "JOURNAL_STREAM=$(stat -Lc %d:%i /dev/fd/2) exec \"$@\"", "bash"});
    EXPECT_TRUE(
        kelp.WaitForLog(" E KELP    : ReadJSONDoc: Json file(" + path + ") syntax error!!!\n"));
    const Station local = Station::Local();
    EXPECT_TRUE(kelp.WaitForLog(" I KELP    : AcceptClient: local-->connect to new client"));
    EXPECT_EQ(kelp.Logged("GetJsonPath: json file(" + path + ") exist. \n"), 1);
    // In systemd's journal records begin with their priority.
    const std::string log = "\n" + kelp.Log();  // of one moment: threads still write to it
    for (const std::string row : {"7D", "6I", "3E"}) {
        const int records = Occurrences(log, std::string(" ") + row[1] + " KELP    : ");
        EXPECT_GT(records, 0);
        EXPECT_EQ(Occurrences(log, std::string("\n<") + row[0] + ">"), records);
    }
}

using Log = Bench;

TEST_F(Log, ClientsCannotForgeRecords) {
    Start();  // TearDown checks the format of every line
    // Beyond ASCII: a control character, and a line separator.
    const std::string forged =
        "X\n01-01 00:00:00.000     1     1 E KELP    : FORGED: "
        "X\r\x1b[2J\x7f~\xc2\x9b\xe2\x80\xa8\n";
    EXPECT_TRUE(Tcp().Answers(forged + "\r\n", Unsupported(forged)));
    EXPECT_TRUE(mKelp->WaitForLog("KELP    : FORGED: X..[2J.~......|\n"));  // in a dump
    // The log shows the address as received.
    EXPECT_TRUE(Tcp().Answers("ZAT+IP=" + forged + "\r\n", Ok("ZAT+IP=" + forged)));
    EXPECT_TRUE(mKelp->WaitForLog(":IP Address: X\\n01-01 00:00:00.000"));
    EXPECT_TRUE(mKelp->WaitForLog("X\\r\\x1B[2J\\x7F~\\xC2\\x9B\\xE2\\x80\\xA8\\n\n"));
    const std::string large(257, 'y');
    EXPECT_TRUE(Tcp().Answers(large + "\r\n", Unsupported(large)));
    EXPECT_TRUE(mKelp->WaitForLog("yy|...\n"));
}

TEST_F(Log, TheFilterDropsRecords) {
    const auto logWith = [&](const char* filter) {
        // JOURNAL_STREAM names another file: no priorities, as TearDown checks.
        Start(false, kTail, {std::string("ANDROID_LOG_TAGS=") + filter, "JOURNAL_STREAM=1:1"});
        EXPECT_TRUE(Tcp().Answers("XYZ\r\n", Unsupported("XYZ")));
        return mKelp->Log();
    };
    EXPECT_EQ(logWith("*:S"), "");
    const std::string errors = logWith("*:D KELP:E");
    EXPECT_GT(mKelp->Logged(" E KELP    : HandleRequest: all modules: unsupport command.\n"), 0);
    EXPECT_EQ(mKelp->Logged(" D KELP ") + mKelp->Logged(" I KELP "), 0) << errors;
}

// A command that starts the daemon with redirections of standard descriptors, for Bench::Start.
std::vector<std::string> Redirected(const std::string& redirections) {
    return {"bash", "-c", "exec \"$@\" " + redirections, "bash"};
}

// The log's reader stalls: full pipe, socket and terminal.
TEST_F(Log, AStalledLogReaderDoesNotBlockConsoles) {
    int pipeEnds[2], socketEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, socketEnds), 0);
    const Pty terminal;
    const struct {
        const char* name;
        UniqueFd reader, writer;
    } rows[] = {
        {"pipe", UniqueFd(pipeEnds[0]), UniqueFd(pipeEnds[1])},
        {"socket", UniqueFd(socketEnds[0]), UniqueFd(socketEnds[1])},
        {"terminal", UniqueFd(dup(terminal.Master())),
         UniqueFd(open(terminal.Device().c_str(), O_RDWR | O_NOCTTY))},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Start(false, kTail, Redirected("2>&" + std::to_string(row.writer.Get())));
        std::string log;
        const auto drain = [&] {
            char chunk[4096];
            struct pollfd readable = {row.reader.Get(), POLLIN, 0};
            while (poll(&readable, 1, 0) > 0) {
                const ssize_t n = read(row.reader.Get(), chunk, sizeof(chunk));
                log.append(chunk, static_cast<size_t>(std::max<ssize_t>(n, 0)));
            }
        };
        Station station = Tcp();
        const int64_t begin = MonotonicMs();
        for (int i = 0; i < 1000; ++i) {
            ASSERT_TRUE(station.Answers("X\r\n", Unsupported("X")));
        }
        EXPECT_LT(MonotonicMs() - begin, 10000);
        EXPECT_EQ(fcntl(row.writer.Get(), F_GETFL) & O_NONBLOCK, 0);
        drain();
        for (int i = 0; i < 100; ++i) {
            ASSERT_TRUE(station.Answers("Y\r\n", Unsupported("Y")));
            drain();
        }
        const auto count = [&](const std::string& text) { return Occurrences(log, text); };
        // From here on no record is lost.
        EXPECT_TRUE(WaitUntil([&] {
            drain();
            return count(": SendCmd: Response <<<<<<< (29 bytes) 59 ") == 100;
        })) << log;
        EXPECT_EQ(count("HandleRequest (1 bytes) 59 |Y|"), 100);
        EXPECT_EQ(count(" E KELP    : Log: "), 1);
        EXPECT_GT(strtol(log.c_str() + log.find(" E KELP    : Log: ") + 18, nullptr, 10), 1000);
        // A cut record is a line of its own: no line has two records.
        EXPECT_GE(count("\n"), count(" KELP    : "));
    }
}

TEST_F(Log, ClosedStandardDescriptorsAreFilledAndNewFilesPrivate) {
    const auto wcn = Wcn();
    Start(false, kTail, Redirected("<&- >&- 2>&-"));
    const std::string process = "/proc/" + std::to_string(mKelp->Pid());
    for (const char* number : {"0", "1", "2"}) {
        EXPECT_EQ(std::filesystem::read_symlink(process + "/fd/" + number), "/dev/null");
    }
    std::string status;
    std::getline(std::ifstream(process + "/status"), status, '\0');
    EXPECT_NE(status.find("Umask:\t0077\n"), std::string::npos);
    EXPECT_TRUE(Tcp().Answers("AT+W\r\n", "<wcn:AT+W>"));
}

}  // namespace
}  // namespace kelp::test
