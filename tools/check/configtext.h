// The text of a configuration file, with what is to be said about it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/jsonlocator.h"

namespace kelp::tools {

struct ConfigMember {
    std::string key;
    size_t keyOffset;
    size_t valueOffset;
};

enum class ConfigType { kFlag, kText, kObject, kArray };

// Sees values as the daemon's reader does, but knows where they stand. Made for a text that
// neb::CJsonObject accepts. One thread.
class ConfigText {
  public:
    explicit ConfigText(std::string text);
    ConfigText(const ConfigText&) = delete;
    ConfigText& operator=(const ConfigText&) = delete;

    size_t Root() const { return mLocator.Root(); }
    // The object's members in the order in which they are read: of several with one name the last
    // value, at the place of the first, and a warning for each further one. None, with a warning
    // that calls the value `what`, for what is no object. Once for each object.
    std::vector<ConfigMember> Members(size_t object, const std::string& what);
    std::vector<size_t> Elements(size_t array) const { return mLocator.Elements(array); }

    std::optional<std::string> String(size_t value) const;
    std::optional<int> Number(size_t value) const;  // an integral one of 32 bits
    bool Is(size_t value, ConfigType type) const;
    bool IsTrue(size_t value) const { return mLocator.First(value) == 't'; }
    // The same with a warning that calls the value `what`.
    bool Expect(size_t value, ConfigType type, const std::string& what);
    bool ExpectNumber(size_t value, int min, int max, const std::string& what);

    void Warn(size_t offset, std::string message);
    // "file:line:column: warning: message" of each, in the order of the text.
    std::vector<std::string> Warnings(const std::string& file) const;

  private:
    const std::string mText;
    const JsonLocator mLocator;
    std::vector<std::pair<size_t, std::string>> mWarnings;
};

}  // namespace kelp::tools
