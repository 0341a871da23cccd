#include "check/configtext.h"

#include <algorithm>
#include <unordered_map>

#include "common/text.h"
#include "platform/cjsonobject.h"

namespace kelp::tools {

ConfigText::ConfigText(std::string text)
    : mText(WithoutByteOrderMark(std::move(text))), mLocator(mText) {}

std::vector<ConfigMember> ConfigText::Members(size_t object, const std::string& what) {
    std::vector<ConfigMember> members;
    if (!Expect(object, ConfigType::kObject, what)) {
        return members;
    }
    std::unordered_map<std::string, size_t> places;
    for (const JsonMember& member : mLocator.Members(object)) {
        const std::string key = String(member.keyOffset).value_or(std::string());
        const auto [found, isNew] = places.emplace(key, members.size());
        if (isNew) {
            members.push_back({key, member.keyOffset, member.valueOffset});
            continue;
        }
        Warn(member.keyOffset, "duplicate key " + Quoted(key) +
                                   ": the last value counts, at the position of the first");
        members[found->second].keyOffset = member.keyOffset;
        members[found->second].valueOffset = member.valueOffset;
    }
    return members;
}

std::optional<std::string> ConfigText::String(size_t value) const {
    neb::CJsonObject array;
    if (mLocator.First(value) != '"' ||
        !array.Parse("[" + std::string(mLocator.Value(value)) + "]")) {
        return std::nullopt;
    }
    return array(0);
}

std::optional<int> ConfigText::Number(size_t value) const {
    neb::CJsonObject object;
    int number = 0;
    if (Is(value, ConfigType::kObject) || Is(value, ConfigType::kArray) ||
        !object.Parse("{\"\":" + std::string(mLocator.Value(value)) + "}") ||
        !object.Get("", number)) {
        return std::nullopt;
    }
    return number;
}

bool ConfigText::Is(size_t value, ConfigType type) const {
    const char first = mLocator.First(value);
    switch (type) {
        case ConfigType::kFlag:
            return first == 't' || first == 'f';
        case ConfigType::kText:
            return first == '"';
        case ConfigType::kObject:
            return first == '{';
        default:
            return first == '[';
    }
}

bool ConfigText::Expect(size_t value, ConfigType type, const std::string& what) {
    static constexpr const char* kNames[] = {"true or false", "a string", "an object", "an array"};
    if (!Is(value, type)) {
        Warn(value, what + " must be " + kNames[static_cast<size_t>(type)]);
        return false;
    }
    return true;
}

std::optional<int> ConfigText::ExpectNumber(size_t value, const std::string& what) {
    const std::optional<int> number = Number(value);
    if (!number) {
        Warn(value, what + " must be a 32-bit integer");
    }
    return number;
}

void ConfigText::Warn(size_t offset, std::string message) {
    mFindings.push_back({offset, true, std::move(message)});
}

void ConfigText::Note(size_t offset, std::string message) {
    mFindings.push_back({offset, false, std::move(message)});
}

bool ConfigText::HasWarnings() const {
    return std::any_of(mFindings.begin(), mFindings.end(),
                       [](const Finding& finding) { return finding.isWarning; });
}

std::string ConfigText::Findings(const std::string& file) const {
    std::vector<const Finding*> sorted;
    for (const Finding& finding : mFindings) {
        sorted.push_back(&finding);
    }
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Finding* a, const Finding* b) { return a->offset < b->offset; });
    std::string lines;
    size_t line = 1;
    size_t lineStart = 0;
    size_t lineEnd = mText.find('\n');
    for (const Finding* finding : sorted) {
        for (; lineEnd < finding->offset; lineEnd = mText.find('\n', lineStart)) {
            ++line;
            lineStart = lineEnd + 1;
        }
        lines += file + ":" + std::to_string(line) + ":" +
                 std::to_string(finding->offset - lineStart + 1) +
                 (finding->isWarning ? ": warning: " : ": note: ") + finding->message + "\n";
    }
    return lines;
}

}  // namespace kelp::tools
