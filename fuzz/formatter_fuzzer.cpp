// Any request, echo, text and result: the answer equals that of a simple implementation on strings.

#include <fuzzer/FuzzedDataProvider.h>

#include <string>

#include "check.h"
#include "messager/formatter.h"
#include "platform/errortext.h"
#include "processor/command.h"

namespace {

std::string NaiveAnswer(const std::string& request, const std::string& echo,
                        const std::string& text, int result) {
    if (echo.empty() || echo.compare(0, request.size(), request) != 0) {
        return request + "\r\n\r\n6012\r\n\r\nERROR\r\n";
    }
    if (result != 0) {
        kelp::ErrorBuffer error;
        kelp::GetStringByErrCode(result, kelp::kErrorBase, error);
        return request + "\r\n\r\n" + error + "\r\n\r\nERROR\r\n";
    }
    if (text.empty()) {
        return request + "\r\n\r\nOK\r\n";
    }
    if (text.find(echo) != std::string::npos) {
        return text;
    }
    std::string head;
    const size_t plus = request.find('+');
    if (plus != std::string::npos) {
        size_t end = request.find('=');
        end = end == std::string::npos ? request.find('?') : end;
        head = request.substr(plus, end < plus ? end : end - plus) + ":";
        if (end < plus) {
            head = request.substr(plus) + ":";
        }
    }
    return request + "\r\n\r\n" + head + text + "\r\n\r\nOK\r\n";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    kelp::Formatter formatter;
    // Twice on one formatter: the first answer must leave no state for the second.
    for (int i = 0; i < 2; ++i) {
        const int result = input.ConsumeBool() ? 0 : input.ConsumeIntegralInRange(-1, 6256);
        const std::string request = input.ConsumeRandomLengthString(512);
        const std::string rest = input.ConsumeRandomLengthString(512);
        const std::string echo = input.ConsumeBool() ? request + rest : rest;
        const std::string text = input.ConsumeRandomLengthString(512);
        kelp::Command command;
        command.mRequest.assign(request.begin(), request.end());
        formatter.SetResult(result);
        formatter.SetRequest(echo.data(), static_cast<int>(echo.size()));
        formatter.SetResponse(text.data(), static_cast<int>(text.size()));
        formatter.GetResponse(&command);
        const std::string answer(command.mResponse.begin(), command.mResponse.end());
        KELP_FUZZ_CHECK(answer == NaiveAnswer(request, echo, text, result));
    }
    return 0;
}
