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
    {{"name", KeyType::kText, 0, 0, "the role's name in the log"},
     [](Role& role, const KeyValue& value) { role.name = value.text; }},
    {{"request-end", KeyType::kText, 0, 0,
      "a request ends with TEXT (modem: \\r\\n; others: empty, a request is what arrives "
      "together)"},
     [](Role& role, const KeyValue& value) { role.requestEnd = value.text; }},
    {{"request-start", KeyType::kText, 0, 0,
      "without an end: TEXT begins another request, so that requests "
      "that arrive together are told apart"},
     [](Role& role, const KeyValue& value) { role.requestStart = value.text; }},
    {{"deaf", KeyType::kFlag, 0, 0, "never read"},
     [](Role& role, const KeyValue& value) { role.deaf = value.flag; }},
};

constexpr AnswerKey kAnswerKeys[] = {
    {{"request", KeyType::kText, 0, 0, "answer requests that equal TEXT"},
     kToRequests,
     "prefix",
     [](Answer& answer, const KeyValue& value) { SetMatch(answer, value, false); }},
    {{"prefix", KeyType::kText, 0, 0, "answer requests that begin with TEXT"},
     kToRequests,
     "request",
     [](Answer& answer, const KeyValue& value) { SetMatch(answer, value, true); }},
    {{"answer", KeyType::kText, 0, 0, "answer with TEXT"},
     kToRequests,
     "hex",
     [](Answer& answer, const KeyValue& value) { answer.text = value.text; }},
    {{"text", KeyType::kText, 0, 0, nullptr},
     kBySelf,
     "hex",
     [](Answer& answer, const KeyValue& value) { answer.text = value.text; }},
    {{"hex", KeyType::kHex, 0, 0, "answer with exactly these bytes: no echo, no record"},
     kBoth,
     nullptr,
     SetRaw},
    {{"echo", KeyType::kFlag, 0, 0,
      "put the request in front of the answer (pcba: into the record, the default)"},
     kToRequests,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.echo = value.flag; }},
    {{"silent", KeyType::kFlag, 0, 0, "answer with nothing"},
     kToRequests,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.silent = value.flag; }},
    {{"close", KeyType::kFlag, 0, 0, "close the connection behind the answer"},
     kBoth,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.close = value.flag; }},
    {{"delay", KeyType::kNumber, 0, kDayMs, "answer N milliseconds after the request"},
     kToRequests,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.delayMs = value.number; }},
    {{"repeat", KeyType::kNumber, 1, INT_MAX, "send the answer N times"},
     kBoth,
     "bytes",
     [](Answer& answer, const KeyValue& value) { answer.repeat = value.number; }},
    {{"bytes", KeyType::kNumber, 0, INT_MAX, "cut the answer or repeat it to exactly N bytes"},
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
    {{"result", KeyType::kNumber, INT_MIN, INT_MAX, "the record's result code, 0 by default"},
     kPcbaRecord,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.result = value.number; }},
    {{"echo-text", KeyType::kText, 0, 0, "the record echoes TEXT in place of the request"},
     kPcbaRecord,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.echoText = value.text; }},
    {{"request-length", KeyType::kNumber, INT_MIN, INT_MAX,
      "the record's request length says N, true or not"},
     kPcbaRecord,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.requestLength = value.number; }},
    {{"response-length", KeyType::kNumber, INT_MIN, INT_MAX,
      "the record's response length says N, true or not"},
     kPcbaRecord,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.responseLength = value.number; }},
    {{"after", KeyType::kNumber, 0, kDayMs, "say it N milliseconds after a connection was made"},
     kBySelf,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.afterMs = value.number; }},
    {{"every", KeyType::kNumber, 1, kDayMs, "say it again every N milliseconds"},
     kBySelf,
     nullptr,
     [](Answer& answer, const KeyValue& value) { answer.everyMs = value.number; }},
    {{"times", KeyType::kNumber, 1, INT_MAX, "say it no more than N times"},
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
        return "needs \"after\" or \"every\"";
    }
    const bool isRecord = use == kToRequests && kind == RoleKind::kPcba && !answer.isRaw;
    const bool isNothing = answer.text.empty() && !answer.echo && !isRecord;
    return isNothing && answer.totalBytes > 0 ? "has nothing to make \"bytes\" of" : "";
}

std::string CheckRole(const Role& role) {
    if (role.socket.empty() || role.socket == "@") {
        return "needs a \"socket\"";
    }
    return !role.requestEnd.empty() && !role.requestStart.empty()
               ? "\"request-end\" and \"request-start\" exclude each other"
               : "";
}

}  // namespace kelp::tools
