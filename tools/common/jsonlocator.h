// Where in a JSON text its members and elements stand, for messages that name line and column.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "platform/cjsonobject.h"

namespace kelp::tools {

struct JsonMember {
    std::string_view key;  // as it is spelled between its quotes
    size_t keyOffset;
    size_t valueOffset;
};

// Pure, without recursion. Made for a text that neb::CJsonObject has parsed, and free of byte-order
// marks; any other text gives nonsense, but never a read outside of it. `text` must outlive it.
class JsonLocator {
  public:
    explicit JsonLocator(std::string_view text) : mText(text) {}

    // Offsets name the first byte of a value. Each call takes time linear in the value's length.
    size_t Root() const { return SkipBlanks(0); }
    std::vector<JsonMember> Members(size_t object) const;  // empty for what is no object
    std::vector<size_t> Elements(size_t array) const;      // empty for what is no array
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
