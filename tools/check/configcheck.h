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
    // `result` has read the same file. Both must outlive this object. `paths` adds what shows only
    // on the machine that the file is for: peers without a socket, routes that are no tty.
    ConfigCheck(ConfigText& text, ConfigManager& result, bool paths);

    // Leaves each finding in the text.
    void Run();

  private:
    void CheckConsoles(const ConfigMember& consoles);
    void CheckConsole(const ConfigMember& console, const CommonConfig& record);
    void CheckConsoleMember(const std::string& console, const ConfigMember& member);
    void CheckPort(const std::string& what, size_t value, int port);
    void CheckAddress(const std::string& what, size_t value, const std::string& route);
    void CheckTty(const std::string& what, size_t value, const std::string& route);
    void CheckLocalMember(const ConfigMember& member, const CommonConfig& record);
    void CheckActive(const std::string& what, size_t value);
    void CheckReceiveMode(const ConfigMember& receive);
    void CheckTail(size_t value);

    ConfigText& mText;
    ConfigManager& mResult;
    const bool mPaths;
    ModuleCheck mModules;
};

}  // namespace kelp::tools
