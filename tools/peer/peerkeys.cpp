#include "peer/peerkeys.h"

#include <climits>
#include <iterator>

namespace kelp::tools {

namespace {

constexpr int kDayMs = 24 * 60 * 60 * 1000;

struct KindName {
    const char* name;
    RoleKind kind;
};
constexpr KindName kKindNames[] = {
    {"wcn", RoleKind::kWcn},
    {"modem", RoleKind::kModem},
    {"pcba", RoleKind::kPcba},
};

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

constexpr RoleKey kRoleKeys[] = {
    {{"name", KeyType::kText, 0, 0, "name of the peer in the log"},
     [](Role& role, const KeyValue& value) { role.name = value.text; }},
    {{"request-end", KeyType::kText, 0, 0,
      "end of each request; default: CR LF for a modem, empty for other peers (bytes that arrive "
      "together are one request)"},
     [](Role& role, const KeyValue& value) { role.requestEnd = value.text; }},
    {{"request-start", KeyType::kText, 0, 0,
      "with an empty --request-end: beginning of each request, so that requests that arrive "
      "together are separated"},
     [](Role& role, const KeyValue& value) { role.requestStart = value.text; }},
    {{"deaf", KeyType::kFlag, 0, 0, "never read requests"},
     [](Role& role, const KeyValue& value) { role.deaf = value.flag; }},
};

constexpr AnswerKey kAnswerKeys[] = {
    {{"request", KeyType::kText, 0, 0, "answer requests that are equal to TEXT"},
     kToRequests,
     "prefix",
     [](Answer& answer, const KeyValue& value) { SetMatch(answer, value, false); }},
    {{"prefix", KeyType::kText, 0, 0, "answer requests that begin with TEXT"},
     kToRequests,
     "request",
     [](Answer& answer, const KeyValue& value) { SetMatch(answer, value, true); }},
    {{"answer", KeyType::kText, 0, 0, "send TEXT as the answer"},
     kToRequests,
     "hex",
     [](Answer& answer, const KeyValue& value) { answer.text = value.text; }},
    {{"text", KeyType::kText, 0, 0, nullptr},
     kBySelf,
     "hex",
     [](Answer& answer, const KeyValue& value) { answer.text = value.text; }},
    {{"hex", KeyType::kHex, 0, 0, "send exactly these bytes, without echo or record"},
     kBoth,
     nullptr,
     SetRaw},
    {{"echo", KeyType::kFlag, 0, 0,
      "send the request before the answer; pcba: in the record (default)"},
     kToRequests,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.echo = value.flag; }},
    {{"silent", KeyType::kFlag, 0, 0, "send no answer"},
     kToRequests,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.silent = value.flag; }},
    {{"close", KeyType::kFlag, 0, 0, "close the connection after the answer"},
     kBoth,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.close = value.flag; }},
    {{"delay", KeyType::kNumber, 0, kDayMs, "send the answer N milliseconds after the request"},
     kToRequests,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.delayMs = value.number; }},
    {{"repeat", KeyType::kNumber, 1, INT_MAX, "send the answer N times"},
     kBoth,
     "bytes",
     [](Answer& answer, const KeyValue& value) { answer.repeat = value.number; }},
    {{"bytes", KeyType::kNumber, 0, INT_MAX,
      "cut or repeat the answer to exactly N bytes; --repeat is then ignored"},
     kBoth,
     "repeat",
     [](Answer& answer, const KeyValue& value) { answer.totalBytes = value.number; }},
    {{"pieces", KeyType::kNumber, 1, INT_MAX, "write the answer in pieces of N bytes"},
     kBoth,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.pieceBytes = value.number; }},
    {{"pause", KeyType::kNumber, 0, kDayMs, "pause N milliseconds between the pieces"},
     kBoth,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.pauseMs = value.number; }},
    {{"result", KeyType::kNumber, INT_MIN, INT_MAX, "pcba: result code of the record; default 0"},
     kPcbaRecord,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.result = value.number; }},
    {{"echo-text", KeyType::kText, 0, 0, "pcba: put TEXT into the record in place of the request"},
     kPcbaRecord,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.echoText = value.text; }},
    {{"request-length", KeyType::kNumber, INT_MIN, INT_MAX,
      "pcba: put N into the record as the request length, even if it is wrong"},
     kPcbaRecord,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.requestLength = value.number; }},
    {{"response-length", KeyType::kNumber, INT_MIN, INT_MAX,
      "pcba: put N into the record as the response length, even if it is wrong"},
     kPcbaRecord,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.responseLength = value.number; }},
    {{"after", KeyType::kNumber, 0, kDayMs,
      "send the message N milliseconds after the connection was made"},
     kBySelf,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.afterMs = value.number; }},
    {{"every", KeyType::kNumber, 1, kDayMs, "send the message every N milliseconds"},
     kBySelf,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.everyMs = value.number; }},
    {{"times", KeyType::kNumber, 1, INT_MAX, "send the message at most N times"},
     kBySelf,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.times = value.number; }},
};

}  // namespace

const std::vector<RoleKey>& RoleKeys() {
    static const std::vector<RoleKey> sKeys(std::begin(kRoleKeys), std::end(kRoleKeys));
    return sKeys;
}

const std::vector<AnswerKey>& AnswerKeys() {
    static const std::vector<AnswerKey> sKeys(std::begin(kAnswerKeys), std::end(kAnswerKeys));
    return sKeys;
}

const RoleKey* FindRoleKey(std::string_view name) {
    for (const RoleKey& key : RoleKeys()) {
        if (name == key.info.name) {
            return &key;
        }
    }
    return nullptr;
}

const AnswerKey* FindAnswerKey(std::string_view name, AnswerUse use) {
    for (const AnswerKey& key : AnswerKeys()) {
        if ((key.use & use) != 0 && name == key.info.name) {
            return &key;
        }
    }
    return nullptr;
}

bool FindRoleKind(std::string_view name, RoleKind& kind) {
    for (const KindName& entry : kKindNames) {
        if (name == entry.name) {
            kind = entry.kind;
            return true;
        }
    }
    return false;
}

const char* RoleKindName(RoleKind kind) {
    for (const KindName& entry : kKindNames) {
        if (kind == entry.kind) {
            return entry.name;
        }
    }
    return "";
}

Role MakeRole(RoleKind kind) {
    Role role;
    role.kind = kind;
    role.name = RoleKindName(kind);
    role.requestEnd = kind == RoleKind::kModem ? "\r\n" : "";
    return role;
}

Answer MakeAnswer(RoleKind kind) {
    Answer answer;
    answer.echo = kind == RoleKind::kPcba;
    return answer;
}

std::string CheckAnswer(const Answer& answer, AnswerUse use, RoleKind kind) {
    if (use == kBySelf && answer.afterMs < 0 && answer.everyMs == 0) {
        return "an unsolicited message needs \"after\" or \"every\"";
    }
    const bool isRecord = use == kToRequests && kind == RoleKind::kPcba && !answer.isRaw;
    const bool isNothing = answer.text.empty() && !answer.echo && !isRecord;
    return isNothing && answer.totalBytes > 0 ? "\"bytes\" needs a text to cut or repeat" : "";
}

std::string CheckRole(const Role& role) {
    if (role.socket.empty() || role.socket == "@") {
        return "a role needs a \"socket\"";
    }
    return !role.requestEnd.empty() && !role.requestStart.empty()
               ? "\"request-end\" and \"request-start\" exclude each other"
               : "";
}

}  // namespace kelp::tools
