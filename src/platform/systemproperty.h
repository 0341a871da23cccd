// System properties: the platform's own on Android; on Linux a build.prop-style file.
#pragma once

#include <string>

namespace kelp {

class SystemProperty {
  public:
    // The value of the property now, or `defaultValue` when it is absent or empty (a property that
    // was once set can only be emptied, never removed). Any thread.
    //
    // On Linux the file has lines `name=value` (blanks around either are ignored) and `#` comments;
    // the last line of a name wins. Without a file every property is absent.
    static std::string Get(const std::string& name, const std::string& defaultValue);

    // Reads the file, null or empty for none. Call before any other thread runs. False, with errno
    // set and one severity-4 record, when it cannot be read. Does nothing on Android.
    static bool SetFile(const char* path);
};

}  // namespace kelp
