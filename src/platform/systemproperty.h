// System properties: the platform's own on Android; on Linux a build.prop-style file.
#pragma once

#include <string>

namespace kelp {

class SystemProperty {
  public:
    // The value of the property now, or `defaultValue` when it is absent or empty (a property that
    // was once set can only be emptied, never removed). Any thread; blocks only to read one file.
    //
    // On Linux the file has lines `name=value` (blanks around either are ignored) and `#` comments;
    // the last line of a name wins. Without a file every property is absent.
    static std::string Get(const std::string& name, const std::string& defaultValue);

    // Sets the file, null for none; each Get reads it. Call before any other thread runs. Does
    // nothing on Android.
    static void SetFile(const char* path);
};

}  // namespace kelp
