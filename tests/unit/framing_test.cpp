#include "processor/framebuffer.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "support/cutnaively.h"

namespace kelp::test {
namespace {

using Lines = std::vector<std::string>;

TEST(Framing, MatchesTheReferenceForAnySplitOfTheInput) {
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
            std::string_view line;
            while (buffer.Size() >= tail.size() && buffer.CutLine(tail, line)) {
                lines.emplace_back(line);
            }
        }
        for (std::string& command : expected) {
            command += tail;
        }
        ASSERT_EQ(lines, expected) << round;
        ASSERT_EQ(buffer.View(), naive) << round;
    }
}

}  // namespace
}  // namespace kelp::test
