#include "common/jsonlocator.h"

#include <algorithm>

namespace kelp::tools {

size_t JsonLocator::SkipBlanks(size_t offset) const {
    return std::min(mText.find_first_not_of(" \t\r\n", offset), mText.size());
}

size_t JsonLocator::EndOfString(size_t offset) const {
    for (++offset; offset < mText.size() && mText[offset] != '"'; ++offset) {
        if (mText[offset] == '\\') {
            ++offset;
        }
    }
    return std::min(offset + 1, mText.size());
}

size_t JsonLocator::End(size_t value) const {
    size_t depth = 0;
    size_t i = value;
    while (i < mText.size()) {
        switch (mText[i]) {
            case '"':
                i = EndOfString(i);
                break;
            case '{':
            case '[':
                ++depth;
                ++i;
                continue;
            case '}':
            case ']':
                ++i;
                depth -= depth > 0 ? 1 : 0;
                break;
            default:
                i = std::min(mText.find_first_of(",:[]{}\" \t\r\n", i + 1), mText.size());
                break;
        }
        if (depth == 0) {
            return i;
        }
    }
    return mText.size();
}

std::vector<JsonMember> JsonLocator::Members(size_t object) const {
    std::vector<JsonMember> members;
    if (First(object) != '{') {
        return members;
    }
    size_t i = SkipBlanks(object + 1);
    while (i < mText.size() && mText[i] == '"') {
        const size_t keyEnd = EndOfString(i);
        const size_t value = SkipBlanks(SkipBlanks(keyEnd) + 1);
        members.push_back({mText.substr(i + 1, keyEnd - i - 2), i, value});
        i = SkipBlanks(SkipBlanks(End(value)) + 1);
    }
    return members;
}

std::vector<size_t> JsonLocator::Elements(size_t array) const {
    std::vector<size_t> elements;
    if (First(array) != '[') {
        return elements;
    }
    size_t i = SkipBlanks(array + 1);
    while (i < mText.size() && mText[i] != ']') {
        elements.push_back(i);
        // After the comma, or after the array if there is none.
        i = SkipBlanks(End(i));
        if (First(i) != ',') {
            break;
        }
        i = SkipBlanks(i + 1);
    }
    return elements;
}

neb::CJsonPosition JsonLocator::PositionOf(size_t offset) const {
    const std::string_view before = mText.substr(0, offset);
    neb::CJsonPosition position;
    position.line = static_cast<int>(std::count(before.begin(), before.end(), '\n')) + 1;
    const size_t lineStart = before.rfind('\n');
    position.column =
        static_cast<int>(before.size() - (lineStart == before.npos ? 0 : lineStart + 1) + 1);
    return position;
}

}  // namespace kelp::tools
