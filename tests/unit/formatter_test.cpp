#include "messager/formatter.h"

#include <gtest/gtest.h>

#include "processor/command.h"

namespace kelp::test {
namespace {

TEST(Formatter, BuildsCompleteAnswers) {
    constexpr int kUnset = -1;
    const struct {
        std::string request, stored;
        int result;
        std::string text, answer;
    } cases[] = {
        {"AT+A=1", "AT+A=1", 0, "", "AT+A=1\r\n\r\nOK\r\n"},
        {"AT+B?", "AT+B?", 0, "3000", "AT+B?\r\n\r\n+B:3000\r\n\r\nOK\r\n"},
        {"AT+X=1,2", "AT+X=1,2", 0, "7", "AT+X=1,2\r\n\r\n+X:7\r\n\r\nOK\r\n"},
        {"ATI", "ATI", 0, "a\r\nb", "ATI\r\n\r\na\r\nb\r\n\r\nOK\r\n"},
        {"AT+X", "AT+X", 0, "AT+X\r\n+X: 5", "AT+X\r\n+X: 5"},
        {"AT+X", "AT+X", 0, "see AT+X", "see AT+X"},
        {"A=1+B", "A=1+B", 0, "7", "A=1+B\r\n\r\n+B:7\r\n\r\nOK\r\n"},
        {"A?+B=2", "A?+B=2", 0, "7", "A?+B=2\r\n\r\n+B:7\r\n\r\nOK\r\n"},
        {"AT+X", "AT+XYZ", 0, "7", "AT+X\r\n\r\n+X:7\r\n\r\nOK\r\n"},
        {"AT+X", "AT+X", 6002, "7", "AT+X\r\n\r\nTime out\r\n\r\nERROR\r\n"},
        {"AT+X", "AT+X", 2, "", "AT+X\r\n\r\nTime out\r\n\r\nERROR\r\n"},
        {"AT+X", "AT+X", 77, "", "AT+X\r\n\r\nUnknow error\r\n\r\nERROR\r\n"},
        {"AT+X", "AT+X", kUnset, "7", "AT+X\r\n\r\nResponse is null\r\n\r\nERROR\r\n"},
        {"AT+X", "AT+Y", 0, "7", "AT+X\r\n\r\n6012\r\n\r\nERROR\r\n"},
        {"AT+X", "AT+", 0, "7", "AT+X\r\n\r\n6012\r\n\r\nERROR\r\n"},
        {"AT+X", "", 6002, "7", "AT+X\r\n\r\n6012\r\n\r\nERROR\r\n"},
    };
    for (const auto& c : cases) {
        Command command;
        command.mRequest.assign(c.request.begin(), c.request.end());
        command.mResponse.assign(3, 'x');
        Formatter formatter;
        if (c.result != kUnset) {
            formatter.SetResult(c.result);
        }
        // In two pieces, which must be joined.
        const int half = static_cast<int>(c.stored.size() / 2);
        formatter.SetRequest(c.stored.data(), half);
        formatter.SetRequest(c.stored.data() + half, static_cast<int>(c.stored.size()) - half);
        formatter.SetResponse(c.text.data(), static_cast<int>(c.text.size()));
        formatter.SetResponse(c.text.data(), -1);
        formatter.GetResponse(&command);
        EXPECT_EQ(std::string(command.mResponse.begin(), command.mResponse.end()), c.answer);
    }
}

}  // namespace
}  // namespace kelp::test
