// System properties: the platform's own on Android; on Linux a build.prop-style file.
#pragma once

#include <string>

namespace kelp {

class SystemProperty {
  public:
    // The value of the property now, or `defaultValue` when it is absent or empty (a property that
    // was once set can only be emptied, never removed). Any thread; does not block beyond the
    // reading of one file.
    //
    // On Linux the file has lines `name=value` with blanks around either ignored, `#` comments, and
    // the last line of a name counts. Without a file every property is absent.
    static std::string Get(const std::string& name, const std::string& defaultValue);

    // Names the file, null for none; it is read at each Get. Before any other thread runs. Does
    // nothing on Android.
    static void SetFile(const char* path);
};

}  // namespace kelp
