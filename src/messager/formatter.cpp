#include "messager/formatter.h"

#include <string_view>

#include "platform/errortext.h"
#include "processor/command.h"

namespace kelp {

namespace {

constexpr char kEmptyLine[] = "\r\n\r\n";
constexpr char kOk[] = "\r\nOK\r\n";
constexpr char kErrorEnd[] = "\r\n\r\nERROR\r\n";

std::string_view View(const std::vector<char>& bytes) {
    return {bytes.data(), bytes.size()};
}

void Append(std::vector<char>& to, std::string_view text) {
    to.insert(to.end(), text.begin(), text.end());
}

void AppendBytes(std::vector<char>& to, const char* data, int length) {
    if (length >= 1) {
        to.insert(to.end(), data, data + length);
    }
}

}  // namespace

void Formatter::SetRequest(const char* data, int length) {
    AppendBytes(mReqCommand, data, length);
}

void Formatter::SetResponse(const char* data, int length) {
    AppendBytes(mResCommand, data, length);
}

bool Formatter::Matches(const Command& command) const {
    const std::string_view request = View(command.mRequest);
    return !mReqCommand.empty() && View(mReqCommand).substr(0, request.size()) == request;
}

void Formatter::GetResponse(Command* command) {
    const std::vector<char>& request = *command->GetRequest();
    std::vector<char>& answer = *command->GetResponse();
    answer = request;
    if (!Matches(*command)) {
        // Part of the protocol: the code in digits, not its text.
        Append(answer, kEmptyLine);
        Append(answer, std::to_string(kErrorMismatch));
        Append(answer, kErrorEnd);
    } else if (mResult != 0) {
        ErrorBuffer text;
        GetStringByErrCode(mResult, kErrorBase, text);
        Append(answer, kEmptyLine);
        Append(answer, text);
        Append(answer, kErrorEnd);
    } else if (mResCommand.empty()) {
        Append(answer, "\r\n");
        Append(answer, kOk);
    } else {
        AppendValue(request, answer);
    }
    mReqCommand.clear();
    mResCommand.clear();
}

void Formatter::AppendValue(const std::vector<char>& request, std::vector<char>& answer) const {
    if (View(mResCommand).find(View(mReqCommand)) != std::string_view::npos) {
        answer = mResCommand;
        return;
    }
    std::string head;
    GetCmdValueHead(request, head);
    Append(answer, kEmptyLine);
    Append(answer, head);
    Append(answer, View(mResCommand));
    Append(answer, "\r\n");
    Append(answer, kOk);
}

void Formatter::GetCmdValueHead(const std::vector<char>& request, std::string& head) {
    const std::string_view text = View(request);
    const size_t plus = text.find('+');
    if (plus == std::string_view::npos) {
        return;
    }
    size_t end = text.find('=');
    if (end == std::string_view::npos) {
        end = text.find('?');
    }
    // An end before the '+' would give a negative length: take the rest of the request.
    if (end == std::string_view::npos || end < plus) {
        end = text.size();
    }
    head.append(text.substr(plus, end - plus));
    head.push_back(':');
}

}  // namespace kelp
