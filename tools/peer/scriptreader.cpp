#include "peer/scriptreader.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <utility>

#include "common/text.h"
#include "platform/wholefile.h"

namespace kelp::tools {

namespace {

// By the role's name; false when there is no such kind.
bool SetKind(Role& role) {
    if (role.name == "modem") {
        role.kind = RoleKind::kModem;
        role.requestEnd = "\r\n";
    } else if (role.name == "pcba") {
        role.kind = RoleKind::kPcba;
    }
    return role.name == "wcn" || role.kind != RoleKind::kWcn;
}

}  // namespace

ScriptReader::ScriptReader(std::string file, std::string text)
    : mFile(std::move(file)), mText(WithoutByteOrderMark(std::move(text))), mLocator(mText) {}

bool ScriptReader::Read(Script& script) {
    neb::CJsonObject document;
    if (!document.Parse(mText)) {
        return FailAt(document.ErrorPosition(), "not valid JSON");
    }
    std::vector<JsonMember> members;
    if (!Expect(mLocator.Root(), '{', "an object") ||
        !OpenObject(mLocator.Root(), document, members)) {
        return false;
    }
    for (const JsonMember& member : members) {
        if (member.key != "roles") {
            return Fail(member.keyOffset, "unknown key " + Quoted(member.key));
        }
        if (!ReadRoles(member.valueOffset, script)) {
            return false;
        }
    }
    return !script.empty() || Fail(mLocator.Root(), "no roles");
}

bool ScriptReader::ReadRoles(size_t list, Script& script) {
    if (!Expect(list, '[', "an array")) {
        return false;
    }
    for (const size_t element : mLocator.Elements(list)) {
        if (!Expect(element, '{', "an object") || !ReadRole(element, script)) {
            return false;
        }
    }
    return true;
}

bool ScriptReader::ReadRole(size_t object, Script& script) {
    neb::CJsonObject json;
    std::vector<JsonMember> members;
    if (!OpenObject(object, json, members)) {
        return false;
    }
    // The kind decides what the other members mean, wherever it is in the object.
    Role role;
    if (!json.Get("role", role.name) || !SetKind(role)) {
        size_t place = object;
        for (const JsonMember& member : members) {
            place = member.key == "role" ? member.valueOffset : place;
        }
        return Fail(place, "\"role\" must be \"wcn\", \"modem\" or \"pcba\"");
    }
    for (const JsonMember& member : members) {
        if (member.key != "role" && !ReadRoleMember(json, member, role)) {
            return false;
        }
    }
    if (role.socket.empty() || role.socket == "@") {
        return Fail(object, "a role needs a \"socket\"");
    }
    script.push_back(std::move(role));
    return true;
}

bool ScriptReader::ReadRoleMember(const neb::CJsonObject& json, const JsonMember& member,
                                  Role& role) {
    if (member.key == "answers") {
        return ReadAnswers(member.valueOffset, kToRequests, role);
    }
    if (member.key == "unsolicited") {
        return ReadAnswers(member.valueOffset, kBySelf, role);
    }
    std::string* const text = member.key == "socket"          ? &role.socket
                              : member.key == "name"          ? &role.name
                              : member.key == "request-start" ? &role.requestStart
                                                              : nullptr;
    if (text == nullptr) {
        return Fail(member.keyOffset, "unknown key " + Quoted(member.key));
    }
    if (text == &role.requestStart && !role.requestEnd.empty()) {
        return Fail(member.keyOffset, "\"request-start\" is not for \"modem\"");
    }
    return json.Get(std::string(member.key), *text) ||
           Fail(member.valueOffset, Quoted(member.key) + " must be a string");
}

bool ScriptReader::ReadAnswers(size_t list, AnswerUse use, Role& role) {
    if (!Expect(list, '[', "an array")) {
        return false;
    }
    for (const size_t element : mLocator.Elements(list)) {
        Answer answer;
        answer.echo = role.kind == RoleKind::kPcba;
        if (!Expect(element, '{', "an object") || !ReadAnswer(element, use, role, answer)) {
            return false;
        }
        (use == kBySelf ? role.unsolicited : role.answers).push_back(std::move(answer));
    }
    return true;
}

bool ScriptReader::ReadAnswer(size_t object, AnswerUse use, const Role& role, Answer& answer) {
    neb::CJsonObject json;
    std::vector<JsonMember> members;
    if (!OpenObject(object, json, members)) {
        return false;
    }
    for (const JsonMember& member : members) {
        const AnswerKey* key = FindAnswerKey(member.key, use);
        if (key == nullptr) {
            return Fail(member.keyOffset, "unknown key " + Quoted(member.key));
        }
        if ((key->use & kOnlyPcba) != 0 && role.kind != RoleKind::kPcba) {
            return Fail(member.keyOffset, Quoted(member.key) + " is only for \"pcba\"");
        }
        KeyValue value;
        if (!CheckExclusion(members, member, key->excludes) ||
            !ReadValue(json, member, *key, value)) {
            return false;
        }
        key->set(answer, value);
    }
    const std::string wrong = CheckAnswer(answer, use, role.kind);
    return wrong.empty() || Fail(object, wrong);
}

bool ScriptReader::CheckExclusion(const std::vector<JsonMember>& members, const JsonMember& member,
                                  const char* excluded) {
    for (const JsonMember& other : members) {
        if (excluded != nullptr && other.key == excluded) {
            const size_t later = std::max(member.keyOffset, other.keyOffset);
            return Fail(later,
                        Quoted(member.key) + " and " + Quoted(excluded) + " exclude each other");
        }
    }
    return true;
}

bool ScriptReader::ReadValue(const neb::CJsonObject& json, const JsonMember& member,
                             const AnswerKey& answerKey, KeyValue& value) {
    const std::string key(member.key);
    switch (answerKey.type) {
        case KeyType::kText:
            return json.Get(key, value.text) ||
                   Fail(member.valueOffset, Quoted(key) + " must be a string");
        case KeyType::kHex: {
            std::string digits;
            return (json.Get(key, digits) && ParseHex(digits, value.text)) ||
                   Fail(member.valueOffset, Quoted(key) + " must be a string of hex digit pairs");
        }
        case KeyType::kFlag:
            return json.Get(key, value.flag) ||
                   Fail(member.valueOffset, Quoted(key) + " must be true or false");
        default:
            return ReadNumber(json, member, answerKey, value.number);
    }
}

bool ScriptReader::ReadNumber(const neb::CJsonObject& json, const JsonMember& member,
                              const AnswerKey& key, int& number) {
    const bool ok = json.Get(std::string(member.key), number);
    return (ok && number >= key.min && number <= key.max) ||
           Fail(member.valueOffset, Quoted(member.key) + " must be a whole number from " +
                                        std::to_string(key.min) + " to " + std::to_string(key.max));
}

bool ScriptReader::OpenObject(size_t object, neb::CJsonObject& json,
                              std::vector<JsonMember>& members) {
    members = mLocator.Members(object);
    for (size_t i = 0; i < members.size(); ++i) {
        for (size_t j = 0; j < i; ++j) {
            if (members[i].key == members[j].key) {
                return Fail(members[i].keyOffset, "duplicate key " + Quoted(members[i].key));
            }
        }
    }
    return json.Parse(std::string(mLocator.Value(object))) || Fail(object, "not valid JSON");
}

bool ScriptReader::Expect(size_t value, char first, const char* what) {
    return mLocator.First(value) == first || Fail(value, std::string("must be ") + what);
}

bool ScriptReader::Fail(size_t offset, const std::string& message) {
    return FailAt(mLocator.PositionOf(offset), message);
}

bool ScriptReader::FailAt(neb::CJsonPosition position, const std::string& message) {
    mError = mFile + ":" + std::to_string(position.line) + ":" + std::to_string(position.column) +
             ": " + message;
    return false;
}

bool ReadScript(const std::string& path, Script& script, std::string& error) {
    constexpr size_t kMaxBytes = 64u << 20;
    std::string text;
    if (!ReadWholeFile(path, kMaxBytes, text)) {
        error = path + ": " + strerror(errno);
        return false;
    }
    ScriptReader reader(path, std::move(text));
    const bool ok = reader.Read(script);
    error = reader.Error();
    return ok;
}

}  // namespace kelp::tools
