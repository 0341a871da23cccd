// Stations at their worst: amounts and slowness.

#include <array>

#include "support/bench.h"

namespace kelp::test {
namespace {

using Endurance = Bench;

std::string Pattern(size_t length) {
    std::string bytes(length, '\0');
    unsigned state = 1;
    for (char& byte : bytes) {
        state = state * 1103515245 + 12345;
        byte = static_cast<char>(state >> 16);
    }
    return bytes;
}

TEST_F(Endurance, SlowReaderGetsALongAnswerWhole) {
    const std::string answer = Pattern(5 << 20);
    const auto wcn = Wcn([&](const std::string&) { return Peer::Answer{answer}; });
    Start();
    Station uart = Station::Line(mUart.Master());
    for (Station& station : std::array{Tcp(), Station::Local()}) {
        ASSERT_TRUE(station.Send("AT+W\r\n"));
        ASSERT_TRUE(wcn->WaitForRequest("AT+W"));
        EXPECT_TRUE(uart.Answers("X\r\n", Unsupported("X")));
        EXPECT_TRUE(station.Receive(answer.size()) == answer);
        EXPECT_TRUE(station.Answers("X\r\n", Unsupported("X")));
    }
}

// The peer sees the last command before the station reads anything.
TEST_F(Endurance, SixThousandCommandsBeforeAnyReadingAreAnsweredInOrder) {
    const auto wcn = Wcn();
    Start(true, kTail, {"ANDROID_LOG_TAGS=*:S"});
    for (Station& station : std::array{Tcp(), Station::Local()}) {
        std::string request, requests, answers;
        for (int i = 1; i <= 6000; ++i) {
            const bool refused = i % 4 != 0;
            request = (refused ? "AT+X=" : "AT+W=") + std::to_string(i);
            request.resize(43, '.');
            requests += request + "\r\n";
            answers += refused ? Unsupported(request) : "<wcn:" + request + ">";
        }
        ASSERT_TRUE(station.Send(requests));
        ASSERT_TRUE(wcn->WaitForRequest(request));
        EXPECT_TRUE(station.Answers("", answers));
    }
}

}  // namespace
}  // namespace kelp::test
