// The module part of a configuration check.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "check/configtext.h"

namespace kelp {
class ConfigManager;
struct ModuleInfo;
}  // namespace kelp

namespace kelp::tools {

class ModuleCheck {
  public:
    // As ConfigCheck; before CheckMember it knows only the built-in modules.
    ModuleCheck(ConfigText& text, ConfigManager& result);

    // The member "module" of the configuration.
    void CheckMember(const ConfigMember& member);
    // Checks across members: call once, at the end. `root` is the position for what the file does
    // not mention.
    void CheckTogether(size_t root, bool paths);

  private:
    struct Entry {
        std::string text;
        size_t offset;
        bool matches;  // at least one request
    };
    struct Module {
        const ModuleInfo* info = nullptr;
        bool exists = false;    // known to the reader at this point of the file
        size_t nameOffset = 0;  // in "support-modules"; 0: not named there
        size_t pathOffset = 0;  // in "interaction"; 0: not set there
        std::vector<Entry> whiteList;
        std::vector<Entry> testCmds;
    };

    Module* Find(const std::string& name);
    void CheckSupportModules(const ConfigMember& names);
    void CheckSettings(const ConfigMember& section);
    void CheckInteraction(const ConfigMember& member, Module& module);
    void CheckQuiet(const ConfigMember& member, bool used);
    void CheckList(const ConfigMember& member, std::vector<Entry>& list);
    void CheckMatches(std::vector<Entry>& list, bool whole);
    void CheckHidden();
    void CheckPath(const Module& module, size_t root, bool paths);

    ConfigText& mText;
    ConfigManager& mResult;
    std::vector<Module> mModules;                     // in the order in which modules are asked
    std::unordered_map<std::string, size_t> mPlaces;  // in mModules, by name
};

}  // namespace kelp::tools
