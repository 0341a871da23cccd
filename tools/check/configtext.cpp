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
        Warn(member.keyOffset,
             "a second " + Quoted(key) + ": this one counts, but at the place of the first");
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

bool ConfigText::ExpectNumber(size_t value, int min, int max, const std::string& what) {
    const std::optional<int> number = Number(value);
    if (!number || *number < min || *number > max) {
        Warn(value, what + " must be a whole number from " + std::to_string(min) + " to " +
                        std::to_string(max));
        return false;
    }
    return true;
}

void ConfigText::Warn(size_t offset, std::string message) {
    mWarnings.emplace_back(offset, std::move(message));
}

std::vector<std::string> ConfigText::Warnings(const std::string& file) const {
    std::vector<std::pair<size_t, std::string>> sorted = mWarnings;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> lines;
    for (const auto& [offset, message] : sorted) {
        const neb::CJsonPosition at = mLocator.PositionOf(offset);
        lines.push_back(file + ":" + std::to_string(at.line) + ":" + std::to_string(at.column) +
                        ": warning: " + message);
    }
    return lines;
}

}  // namespace kelp::tools
