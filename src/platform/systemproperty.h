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
    // On Linux the file is the one that the environment variable KELP_PROPERTIES named when the
    // program was loaded: lines `name=value` with blanks around either ignored, `#` comments, the
    // last line of a name counts. Without the variable or the file every property is absent.
    static std::string Get(const std::string& name, const std::string& defaultValue);
};

}  // namespace kelp
