#include "processor/framebuffer.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "support/cutnaively.h"

namespace kelp {
namespace {

using Lines = std::vector<std::string>;

void Cut(FrameBuffer& buffer, std::string_view tail, Lines& lines) {
    for (std::string_view line; buffer.CutLine(tail, line);) {
        EXPECT_EQ(line.substr(line.size() - tail.size()), tail);
        lines.emplace_back(line.substr(0, line.size() - tail.size()));
    }
}

TEST(Framing, CutsAtTheTerminatorAndKeepsTheRest) {
    const struct {
        const char* tail;
        std::vector<std::string> reads;
        Lines lines;
        std::string rest;
    } cases[] = {
        {"\r\n", {"AT\r\nAT+B\r\n"}, {"AT", "AT+B"}, ""},
        {"\r\n", {"\r\n\r\nAT\r\n\r\n\r\nI\r\n"}, {"AT", "I"}, ""},
        {"\r\n", {"AT", "\r", "\n"}, {"AT"}, ""},
        {"\r\n", {"AT\rAT\n\r"}, {}, "AT\rAT\n\r"},
        {"\r\n", {"\r\r\n"}, {"\r"}, ""},
        {"\n", {"A\n"}, {}, "A\n"},
        {"\n", {"AB\n", "C"}, {"AB"}, "C"},
        {"END", {"AEN", "DBEND"}, {"A", "B"}, ""},
    };
    for (const auto& c : cases) {
        FrameBuffer buffer;
        Lines lines;
        for (const std::string& read : c.reads) {
            buffer.Append(read.data(), read.size());
            Cut(buffer, c.tail, lines);
        }
        EXPECT_EQ(lines, c.lines) << c.reads[0];
        EXPECT_EQ(buffer.View(), c.rest);
    }
}

TEST(Framing, EqualsTheNaiveRuleHoweverTheBytesArrive) {
    std::mt19937 random(1);
    for (int round = 0; round < 2000; ++round) {
        const std::string tail = std::string("\r\n\r\r\n").substr(round % 3, 1 + round % 5 % 3);
        FrameBuffer buffer;
        std::string naive;
        Lines lines, expected;
        for (int read = 0; read < 12; ++read) {
            std::string bytes;
            for (unsigned n = random() % 9; n > 0; --n)
                bytes += "\r\nA"[random() % 3];
            buffer.Append(bytes.data(), bytes.size());
            naive += bytes;
            test::CutNaively(naive, tail, expected);
            if (buffer.Size() >= tail.size()) {
                Cut(buffer, tail, lines);
            }
        }
        ASSERT_EQ(lines, expected) << round;
        ASSERT_EQ(buffer.View(), naive) << round;
    }
}

}  // namespace
}  // namespace kelp
