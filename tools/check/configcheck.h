// What the daemon's tolerant reader passes over in silence, told in the words of the file.
#pragma once

#include <string>

#include "check/configtext.h"
#include "check/modulecheck.h"

namespace kelp {
class ConfigManager;
struct CommonConfig;
}  // namespace kelp

namespace kelp::tools {

// Reads only the text and what the daemon's own reader made of it. One thread.
class ConfigCheck {
  public:
    // `result` has read the same file. Both must outlive this object.
    ConfigCheck(ConfigText& text, ConfigManager& result);

    // Leaves a warning in the text for each finding; `paths` adds the peers whose socket is not
    // there on this machine.
    void Run(bool paths);

  private:
    void CheckConsoles(size_t object);
    void CheckConsole(const ConfigMember& console, const CommonConfig& record);
    void CheckConsoleMember(const std::string& console, const ConfigMember& member);
    void CheckLocalMember(const ConfigMember& member, const CommonConfig& record);
    void CheckActive(const std::string& what, size_t value);
    void CheckReceiveMode(const ConfigMember& receive);
    void CheckTail(size_t value);

    ConfigText& mText;
    ConfigManager& mResult;
    ModuleCheck mModules;
};

}  // namespace kelp::tools
