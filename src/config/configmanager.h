// The owner of the configuration: built-in defaults, the file that overrides them, and the writing
// of changed console records back to the file.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "config/consoleconfig.h"
#include "platform/sync.h"

namespace neb {
class CJsonObject;
}

namespace kelp {

// Built and filled by the main thread before any other thread starts. Afterwards any thread may
// call the getters, the lookups and RefreshConfig; the records' headers say who may read and write
// their fields. Returned pointers belong to this object and stay valid as long as it lives.
//
// Unknown keys in the file are ignored, and a setting that is absent or of another type keeps its
// value. Members are parsed in file order, so the settings of a module that "support-modules" adds
// must come after it.
class ConfigManager {
  public:
    ConfigManager();
    ConfigManager(const ConfigManager&) = delete;
    ConfigManager& operator=(const ConfigManager&) = delete;

    ReceiveConfig* GetReceiveConfig() { return &mConsoleConfig->receive; }
    ConsoleConfig* GetConsoleConfig() { return mConsoleConfig.get(); }
    std::vector<ModuleInfo>* GetModuleConfigs() { return &mConsoleConfig->modules; }
    // The first record of exactly this name, or null.
    CommonConfig* GetConfigByName(const std::string& name);
    ModuleInfo* GetModuleByName(const std::string& name);
    // Whether the console exists ("support"); false for a name that no console has.
    bool SupportConsoleMode(const std::string& name);

    // Appends the record of a module that only the file names.
    void ConstructModuleConfig(const std::string& name);
    void InitModuleConfig();  // appends the built-in modules
    void InitCommonConfig();  // replaces the consoles by the built-in ones

    // Stores `path` unless it is empty, and reads the stored file into `doc`. False, with one
    // severity-4 record, when it cannot be read (only a regular file of at most kMaxConfigBytes
    // can) or is no valid JSON; a severity-2 record then gives the reason. `content` gets the text.
    bool ReadJSONDoc(const std::string& path, neb::CJsonObject& doc,
                     std::string* content = nullptr);
    // Applies the file to the configuration. False as above, with only the path changed.
    bool ParseJSONDoc(const std::string& path);

    // Each parses the value of the key that it is named after.
    void ParseConsole(neb::CJsonObject& obj);
    void ParseReceiveMode(neb::CJsonObject& obj);
    void ParseModule(neb::CJsonObject& obj);
    void ParseSupportModules(neb::CJsonObject& array);
    void ParseInteraction(neb::CJsonObject& obj);
    void ParseWhiteList(neb::CJsonObject& obj);
    void ParseTestCmds(neb::CJsonObject& obj);
    // Plain true or false, or {"PROPERTY": "expected text"}; anything else is false.
    bool ParseActive(neb::CJsonObject& value);

    // Two hexadecimal digits per byte; an odd last digit is dropped, and a pair that is no number
    // repeats the previous byte (0 at the start). `out` has room for kMaxTailBytes + 1 bytes;
    // longer texts are cut, and one that gives no byte changes nothing (a severity-4 record each).
    static void HexToString(std::string hex, unsigned char* out, int& length);

    // Reads the file again and writes "support", "active" (as ordered), "route", "port" and
    // "timeout" of every console into it; all other content stays. An unchanged file is not
    // written. False, with the records of ReadJSONDoc, when it cannot be read or written, or would
    // exceed kMaxConfigBytes; the file is then unchanged, except as for ReplaceWholeFile.
    // Serialised; blocks on disk I/O.
    bool RefreshConfig();

  private:
    // Held from reading to writing the file, so that the second of two concurrent updates starts
    // from the result of the first. Taken before the locks of the record fields.
    Mutex mRefreshMutex;
    const std::unique_ptr<ConsoleConfig> mConsoleConfig;
};

}  // namespace kelp
