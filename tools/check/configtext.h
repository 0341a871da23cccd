// The text of a configuration file and the findings in it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "common/jsonlocator.h"

namespace kelp::tools {

struct ConfigMember {
    std::string key;
    size_t keyOffset;
    size_t valueOffset;
};

enum class ConfigType { kFlag, kText, kObject, kArray };

// Reads values as the daemon's reader does, but knows their positions. For a text that
// neb::CJsonObject accepts. One thread.
class ConfigText {
  public:
    explicit ConfigText(std::string text);
    ConfigText(const ConfigText&) = delete;
    ConfigText& operator=(const ConfigText&) = delete;

    size_t Root() const { return mLocator.Root(); }
    // The object's members in reading order. Of duplicates the last value counts, at the position
    // of the first, with a warning for each further one. Any other type gives none, and a warning
    // that calls the value `what`. Call once for each object.
    std::vector<ConfigMember> Members(size_t object, const std::string& what);
    std::vector<size_t> Elements(size_t array) const { return mLocator.Elements(array); }

    std::optional<std::string> String(size_t value) const;
    std::optional<int> Number(size_t value) const;  // an integer of 32 bits
    bool Is(size_t value, ConfigType type) const;
    bool IsTrue(size_t value) const { return mLocator.First(value) == 't'; }
    // The same with a warning that calls the value `what`.
    bool Expect(size_t value, ConfigType type, const std::string& what);
    std::optional<int> ExpectNumber(size_t value, const std::string& what);

    void Warn(size_t offset, std::string message);
    void Note(size_t offset, std::string message);  // for what may be intended
    bool HasWarnings() const;
    // One line for each, "file:line:column: warning: message" (or "note"), in the order of the
    // text. Linear in the text and the findings, except for sorting.
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
