#include "processor/framebuffer.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "support/cutnaively.h"

namespace kelp::test {
namespace {

using Lines = std::vector<std::string>;

void Cut(FrameBuffer& buffer, std::string_view tail, Lines& lines) {
    for (std::string_view line; buffer.CutLine(tail, line);) {
        EXPECT_EQ(line.substr(line.size() - tail.size()), tail);
        lines.emplace_back(line.substr(0, line.size() - tail.size()));
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
            for (unsigned n = random() % 9; n > 0; --n) {
                bytes += "\r\nA"[random() % 3];
            }
            buffer.Append(bytes.data(), bytes.size());
            naive += bytes;
            CutNaively(naive, tail, expected);
            if (buffer.Size() >= tail.size()) {
                Cut(buffer, tail, lines);
            }
        }
        ASSERT_EQ(lines, expected) << round;
        ASSERT_EQ(buffer.View(), naive) << round;
    }
}

}  // namespace
}  // namespace kelp::test
