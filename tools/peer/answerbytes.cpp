#include "peer/answerbytes.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "main/errorcode.h"

namespace kelp::tools {

namespace {

// A short pattern is repeated up to this size, so that a flood is not sent byte by byte.
constexpr size_t kRunBytes = 65536;

void AppendInt(std::string& record, int32_t value) {
    char bytes[sizeof(value)];
    memcpy(bytes, &value, sizeof(value));
    record.append(bytes, sizeof(bytes));
}

Output Shape(const Answer& answer, std::string bytes) {
    Output output;
    output.pieceBytes = static_cast<size_t>(answer.pieceBytes);
    output.pauseMs = answer.pauseMs;
    output.close = answer.close;
    if (bytes.empty() || answer.silent) {
        return output;
    }
    output.total = answer.totalBytes >= 0 ? static_cast<uint64_t>(answer.totalBytes) : bytes.size();
    const size_t once = bytes.size();
    const uint64_t wanted = std::min<uint64_t>(output.total, kRunBytes);
    while (bytes.size() < wanted) {
        bytes.append(bytes, 0, once);
    }
    output.pattern = std::move(bytes);
    return output;
}

}  // namespace

const Answer* FindAnswer(const Role& role, std::string_view request) {
    for (const Answer& answer : role.answers) {
        if (answer.isPrefix ? request.substr(0, answer.match.size()) == answer.match
                            : request == answer.match) {
            return &answer;
        }
    }
    return nullptr;
}

Answer AnswerToUnknown(RoleKind kind) {
    Answer answer;
    if (kind == RoleKind::kPcba) {
        answer.echo = true;
        answer.result = kErrorUnsupportCommand;
    } else {
        answer.text = "\r\nERROR\r\n";
    }
    return answer;
}

Output Compose(const Role& role, const Answer& answer, std::string_view request, int64_t nowMs) {
    std::string bytes;
    if (answer.isRaw) {
        bytes = answer.text;
    } else if (role.kind == RoleKind::kPcba) {
        bytes = PcbaRecord(answer, request);
    } else {
        if (answer.echo) {
            bytes.append(request).append(role.requestEnd);
        }
        bytes += answer.text;
    }
    Output output = Shape(answer, std::move(bytes));
    output.dueMs = nowMs + answer.delayMs;
    return output;
}

Output ComposeUnsolicited(const Answer& answer, int64_t nowMs) {
    Output output = Shape(answer, answer.text);
    output.dueMs = nowMs;
    return output;
}

std::string PcbaRecord(const Answer& answer, std::string_view request) {
    const std::string_view echoed = answer.echo ? request : std::string_view();
    std::string record;
    AppendInt(record, answer.result);
    AppendInt(record, answer.requestLength.value_or(static_cast<int32_t>(echoed.size())));
    record += echoed;
    AppendInt(record, answer.responseLength.value_or(static_cast<int32_t>(answer.text.size())));
    record += answer.text;
    return record;
}

}  // namespace kelp::tools
