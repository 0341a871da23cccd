// Noise on all consoles at once, with requests in between that must be answered exactly. The
// environment variables KELP_NOISE_SECONDS and KELP_NOISE_SEED set the duration and the noise.

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <random>
#include <thread>

#include "platform/uppercase.h"
#include "support/bench.h"
#include "support/procstat.h"
#include "support/wait.h"

namespace kelp::test {
namespace {

using Noise = Bench;
using Random = std::mt19937;

int Setting(const char* name, int otherwise) {
    const char* const text = getenv(name);
    return text != nullptr ? static_cast<int>(strtol(text, nullptr, 10)) : otherwise;
}

// One line without its terminator: valid, valid with a few bytes changed, or random bytes.
std::string Line(Random& random) {
    static const std::string kValid[] = {"AT+W=1",     "at+wifi?",  "WT",         "BT",
                                         "AT+B=\"x\"", "ZAT+NOISE", "AT+UNKNOWN", "AT+C"};
    std::string line = kValid[random() % std::size(kValid)];
    if (random() % 2 == 0) {
        line.resize(random() % 64 == 0 ? 100000 : random() % 300);
        std::generate(line.begin(), line.end(), [&] { return static_cast<char>(random()); });
    }
    for (unsigned changes = random() % 4; changes > 0 && !line.empty(); --changes) {
        line[random() % line.size()] = "\0\r\n\xff+TAW"[random() % 8];
    }
    for (size_t at; (at = line.find("\r\n")) != std::string::npos;) {
        line.erase(at, 2);
    }
    return line;
}

// The daemon's answer; empty for lines that must not be sent: those for the modem (its answers go
// to the client that sent last), for pcba and fm (no peer runs), and control commands that change
// the configuration.
std::string Expected(const std::string& line) {
    const std::string upper = UpperCase(line);
    const std::string text = upper.c_str();  // test commands end at a zero byte
    const auto begins = [&](const char* prefix) { return upper.rfind(prefix, 0) == 0; };
    if (begins("AT+W") || text == "WT") {
        return "<wcn:" + line + ">";
    }
    if (begins("AT+B") || text == "BT") {
        return "<bench:" + line + ">";
    }
    if (upper == "ZAT+NOISE") {
        return line + "\r\n\r\n+NOISE:Unsupport command\r\n\r\nOK\r\n";
    }
    if (line.empty() || begins("ZAT+") || begins("AT+M") || begins("AT+P") || begins("AT+F")) {
        return "";
    }
    return Unsupported(line);
}

TEST_F(Noise, RequestsBetweenNoiseAreAnsweredExactly) {
    const int seconds = Setting("KELP_NOISE_SECONDS", 3);
    const auto seed = static_cast<unsigned>(Setting("KELP_NOISE_SEED", 1));
    const auto wcn = Wcn(), bench = Default();
    // Every refusal is logged: millions would fill the disk.
    Start(seed % 2 == 0, kTail, {seconds <= 10 ? "ANDROID_LOG_TAGS=*:E" : "ANDROID_LOG_TAGS=*:S"});
    const int64_t endMs = MonotonicMs() + int64_t{seconds} * 1000;
    std::atomic<int64_t> answered{0};
    std::atomic<bool> good{true};
    // One client per console at a time: the clients of a console share its buffer.
    const auto play = [&](unsigned console) {
        Random random(seed * 4 + console);
        Station station = Connect(console);
        while (good && MonotonicMs() < endMs) {
            std::string bytes, answers;
            for (unsigned lines = 1 + random() % 20; lines > 0; --lines) {
                const std::string line = Line(random), answer = Expected(line);
                if (!answer.empty()) {
                    bytes += line + "\r\n";
                    answers += answer;
                    ++answered;
                }
            }
            const size_t cut = random() % (bytes.size() + 1);
            station.Send(bytes.substr(0, cut));  // if this fails, so does the next
            const auto result = station.Answers(bytes.substr(cut), answers);
            EXPECT_TRUE(good = result)
                << "seed " << seed << " console " << console << result.message();
            if (console < 2 && random() % 16 == 0) {
                EXPECT_TRUE(station.Send("AT+W half a line, and gone"));
                station.HalfClose();
                EXPECT_EQ(station.ReceiveToEnd(), "");
                station = Connect(console);
            }
        }
    };
    std::vector<std::thread> players;
    for (unsigned console = 0; console < 4; ++console) {
        players.emplace_back(play, console);
    }
    Thread::SleepMs(seconds * 1000 / 3);
    const int64_t residentKb = ResidentKb(mKelp->Pid());
    for (std::thread& player : players) {
        player.join();
    }
    const int64_t endKb = ResidentKb(mKelp->Pid());
    EXPECT_LT(endKb, residentKb + kRoomKb);
    EXPECT_LT(static_cast<int64_t>(mKelp->Log().size()), answered * 256);
    std::cout << answered << " requests answered exactly; " << residentKb << " KiB early, " << endKb
              << " at the end; log " << mKelp->Log().size() << " bytes\n";
}

}  // namespace
}  // namespace kelp::test
