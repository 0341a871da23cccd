// Positions of members and elements in a JSON text, for messages with line and column.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "platform/cjsonobject.h"

namespace kelp::tools {

struct JsonMember {
    std::string_view key;  // as spelled between its quotes
    size_t keyOffset;
    size_t valueOffset;
};

// Not recursive. For a text that neb::CJsonObject has parsed and that has no byte-order mark; any
// other text gives wrong results, but no read outside it. `text` must outlive the object.
class JsonLocator {
  public:
    explicit JsonLocator(std::string_view text) : mText(text) {}

    // Offsets name the first byte of a value. Each call takes time linear in the value's length.
    size_t Root() const { return SkipBlanks(0); }
    std::vector<JsonMember> Members(size_t object) const;  // empty for any other type
    std::vector<size_t> Elements(size_t array) const;      // empty for any other type
    std::string_view Value(size_t value) const { return mText.substr(value, End(value) - value); }
    // The value's first byte, which tells its type: { [ " t f n, else a number.
    char First(size_t value) const { return value < mText.size() ? mText[value] : '\0'; }

    neb::CJsonPosition PositionOf(size_t offset) const;

  private:
    size_t SkipBlanks(size_t offset) const;
    size_t EndOfString(size_t offset) const;
    size_t End(size_t value) const;

    const std::string_view mText;
};

}  // namespace kelp::tools
