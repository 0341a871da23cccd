#include "peer/peerkeys.h"

#include <climits>

namespace kelp::tools {

namespace {

constexpr int kDayMs = 24 * 60 * 60 * 1000;

void SetRaw(Answer& answer, const KeyValue& value) {
    answer.text = value.text;
    answer.isRaw = true;
}

void SetMatch(Answer& answer, const KeyValue& value, bool isPrefix) {
    answer.match = value.text;
    answer.isPrefix = isPrefix;
}

constexpr unsigned kBoth = kToRequests | kBySelf;
constexpr unsigned kPcbaRecord = kToRequests | kOnlyPcba;

constexpr AnswerKey kAnswerKeys[] = {
    {"request", KeyType::kText, 0, 0, kToRequests, "prefix",
     [](Answer& answer, const KeyValue& value) { SetMatch(answer, value, false); }},
    {"prefix", KeyType::kText, 0, 0, kToRequests, "request",
     [](Answer& answer, const KeyValue& value) { SetMatch(answer, value, true); }},
    {"answer", KeyType::kText, 0, 0, kToRequests, "hex",
     [](Answer& answer, const KeyValue& value) { answer.text = value.text; }},
    {"text", KeyType::kText, 0, 0, kBySelf, "hex",
     [](Answer& answer, const KeyValue& value) { answer.text = value.text; }},
    {"hex", KeyType::kHex, 0, 0, kBoth, nullptr, SetRaw},
    {"echo", KeyType::kFlag, 0, 0, kToRequests, nullptr,
     [](Answer& answer, const KeyValue& value) { answer.echo = value.flag; }},
    {"silent", KeyType::kFlag, 0, 0, kToRequests, nullptr,
     [](Answer& answer, const KeyValue& value) { answer.silent = value.flag; }},
    {"close", KeyType::kFlag, 0, 0, kBoth, nullptr,
     [](Answer& answer, const KeyValue& value) { answer.close = value.flag; }},
    {"delay", KeyType::kNumber, 0, kDayMs, kToRequests, nullptr,
     [](Answer& answer, const KeyValue& value) { answer.delayMs = value.number; }},
    {"bytes", KeyType::kNumber, 0, INT_MAX, kBoth, nullptr,
     [](Answer& answer, const KeyValue& value) { answer.totalBytes = value.number; }},
    {"pieces", KeyType::kNumber, 1, INT_MAX, kBoth, nullptr,
     [](Answer& answer, const KeyValue& value) { answer.pieceBytes = value.number; }},
    {"pause", KeyType::kNumber, 0, kDayMs, kBoth, nullptr,
     [](Answer& answer, const KeyValue& value) { answer.pauseMs = value.number; }},
    {"result", KeyType::kNumber, INT_MIN, INT_MAX, kPcbaRecord, nullptr,
     [](Answer& answer, const KeyValue& value) { answer.result = value.number; }},
    {"request-length", KeyType::kNumber, INT_MIN, INT_MAX, kPcbaRecord, nullptr,
     [](Answer& answer, const KeyValue& value) { answer.requestLength = value.number; }},
    {"response-length", KeyType::kNumber, INT_MIN, INT_MAX, kPcbaRecord, nullptr,
     [](Answer& answer, const KeyValue& value) { answer.responseLength = value.number; }},
    {"after", KeyType::kNumber, 0, kDayMs, kBySelf, nullptr,
     [](Answer& answer, const KeyValue& value) { answer.afterMs = value.number; }},
    {"every", KeyType::kNumber, 1, kDayMs, kBySelf, nullptr,
     [](Answer& answer, const KeyValue& value) { answer.everyMs = value.number; }},
};

}  // namespace

const AnswerKey* FindAnswerKey(std::string_view name, AnswerUse use) {
    for (const AnswerKey& key : kAnswerKeys) {
        if ((key.use & use) != 0 && name == key.name) {
            return &key;
        }
    }
    return nullptr;
}

std::string CheckAnswer(const Answer& answer, AnswerUse use, RoleKind kind) {
    if (use == kBySelf && answer.afterMs < 0 && answer.everyMs == 0) {
        return "an unsolicited message needs \"after\" or \"every\"";
    }
    const bool isRecord = use == kToRequests && kind == RoleKind::kPcba && !answer.isRaw;
    const bool isNothing = answer.text.empty() && !answer.echo && !isRecord;
    return isNothing && answer.totalBytes > 0 ? "\"bytes\" needs a text to cut or repeat" : "";
}

}  // namespace kelp::tools
