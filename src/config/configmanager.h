// The owner of the configuration: built-in defaults, the file that overrides them, and the way of
// changed console records back into the file.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "config/consoleconfig.h"

namespace neb {
class CJsonObject;
}

namespace kelp {

// Built and filled by the main thread before any other thread starts. Afterwards any thread may
// call the getters, the lookups and RefreshConfig; what it reaches through them follows the rules
// of the records. The pointers that are handed out belong to this object and stay valid as long as
// it lives.
//
// The file is read tolerantly: unknown keys are passed over, and a key that is absent or of another
// type keeps its value. Members count in the order of the file, so the settings of a module that
// "support-modules" adds must come behind it.
class ConfigManager {
  public:
    ConfigManager();
    ~ConfigManager();
    ConfigManager(const ConfigManager&) = delete;
    ConfigManager& operator=(const ConfigManager&) = delete;

    ReceiveConfig* GetReceiveConfig() { return &mConsoleConfig->receive; }
    ConsoleConfig* GetConsoleConfig() { return mConsoleConfig.get(); }
    std::vector<ModuleInfo>* GetModuleConfigs() { return &mConsoleConfig->modules; }
    // The first record of exactly this name, or null.
    CommonConfig* GetConfigByName(const std::string& name);
    ModuleInfo* GetModuleByName(const std::string& name);
    // Whether this build supports the console; false for a name that no console has.
    bool SupportConsoleMode(const std::string& name);

    // Appends the record of a module that only the file names.
    void ConstructModuleConfig(const std::string& name);
    void InitModuleConfig();  // appends the built-in modules
    void InitCommonConfig();  // replaces the consoles by the built-in ones

    // Remembers `path` unless it is empty, and reads the remembered file into `doc`. False, with
    // one severity-4 record, when it cannot be read (anything but a regular file of at most
    // kMaxConfigBytes counts so) or is no JSON; a severity-2 record then tells the reason.
    bool ReadJSONDoc(const std::string& path, neb::CJsonObject& doc);
    // Overrides the configuration by the file. False as above, with nothing changed but the path.
    bool ParseJSONDoc(const std::string& path);

    // Each takes the value of the key that it is named after.
    void ParseConsole(neb::CJsonObject& obj);
    void ParseReceiveMode(neb::CJsonObject& obj);
    void ParseModule(neb::CJsonObject& obj);
    void ParseSupportModules(neb::CJsonObject& array);
    void ParseInteraction(neb::CJsonObject& obj);
    void ParseWhiteList(neb::CJsonObject& obj);
    void ParseTestCmds(neb::CJsonObject& obj);
    // Plain true or false, or {"PROPERTY": "expected text"}; anything else is false.
    bool ParseActive(neb::CJsonObject& value);

    // Two hexadecimal digits to a byte; an odd digit at the end is dropped, and what is no digit
    // repeats the byte before (0 at the start). `out` has room for kMaxTailBytes + 1 bytes; longer
    // texts are cut, and one that gives no byte changes nothing (a severity-4 record each).
    static void HexToString(std::string hex, unsigned char* out, int& length);

    // Writes "support", "active", "route", "port" and "timeout" of every console into the file,
    // which is read afresh: everything else in it stays. A file that says all that already is not
    // written. False, with the records of ReadJSONDoc and the file untouched, when it cannot be
    // read, or cannot be written (more than kMaxConfigBytes counts so). Serialised; blocks for the
    // disk.
    bool RefreshConfig();

  private:
    bool ReadOwnFile(std::string& content, neb::CJsonObject& doc);

    const std::unique_ptr<ConsoleConfig> mConsoleConfig;
};

}  // namespace kelp
