// The text of a configuration file, with what is to be said about it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
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
    std::optional<int> Number(size_t value) const;  // a whole one of 32 bits
    bool Is(size_t value, ConfigType type) const;
    bool IsTrue(size_t value) const { return mLocator.First(value) == 't'; }
    // The same with a warning that calls the value `what`.
    bool Expect(size_t value, ConfigType type, const std::string& what);
    std::optional<int> ExpectNumber(size_t value, const std::string& what);

    void Warn(size_t offset, std::string message);
    void Note(size_t offset, std::string message);  // of what may well be meant
    bool HasWarnings() const;
    // "file:line:column: warning: message" of each, or "note", in the order of the text, as lines.
    // Linear in the text and the findings, but for their sorting.
    std::string Findings(const std::string& file) const;

  private:
    struct Finding {
        size_t offset;
        bool isWarning;
        std::string message;
    };

    const std::string mText;
    const JsonLocator mLocator;
    std::vector<Finding> mFindings;
};

}  // namespace kelp::tools
