// Reports what the daemon's tolerant reader ignores, in terms of the file.
#pragma once

#include <string>

#include "check/configtext.h"
#include "check/modulecheck.h"

namespace kelp {
class ConfigManager;
struct CommonConfig;
}  // namespace kelp

namespace kelp::tools {

// Uses only the text and the result of the daemon's own reader. One thread.
class ConfigCheck {
  public:
    // `result` has read the same file. Both must outlive this object. `paths` adds checks that only
    // work on the target machine: peers without a socket, routes that are no tty.
    ConfigCheck(ConfigText& text, ConfigManager& result, bool paths);

    // Adds each finding to the text.
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
