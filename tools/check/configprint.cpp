#include "check/configprint.h"

#include <cstdio>
#include <vector>

#include "config/configkeys.h"
#include "config/configmanager.h"
#include "platform/cjsonobject.h"

namespace kelp::tools {

namespace {

std::string Json(const std::string& text) {
    neb::CJsonObject object;
    object.Replace("", text);
    return object[""].ToString();
}

std::string Json(bool flag) {
    return flag ? "true" : "false";
}

std::string Json(const std::vector<std::string>& entries) {
    std::string list;
    for (const std::string& entry : entries) {
        list += (list.empty() ? "" : ", ") + Json(entry);
    }
    return "[" + list + "]";
}

// The members of an object, each a name and a value in JSON.
class Members {
  public:
    explicit Members(const char* indent) : mIndent(indent) {}  // of each line; null: one line

    void Add(const std::string& name, const std::string& value) {
        mText += (mText.empty()        ? ""
                  : mIndent != nullptr ? ",\n"
                                       : ", ") +
                 std::string(mIndent != nullptr ? mIndent : "") + Json(name) + ": " + value;
    }
    // The object, with `indent` before its closing brace.
    std::string Object(const std::string& indent = "") const {
        return mIndent != nullptr ? "{\n" + mText + "\n" + indent + "}" : "{ " + mText + " }";
    }

  private:
    const char* const mIndent;
    std::string mText;
};

constexpr char kIndent1[] = "    ";
constexpr char kIndent2[] = "        ";
constexpr char kIndent3[] = "            ";

std::string Consoles(ConfigManager& config) {
    Members consoles(kIndent2);
    for (const CommonConfig& console : config.GetConsoleConfig()->consoles) {
        Members settings(nullptr);
        settings.Add(kKeySupport, Json(console.support));
        settings.Add(kKeyActive, Json(console.active.Get()));
        settings.Add(kKeyRoute, Json(console.route.Get()));
        settings.Add(kKeyPort, std::to_string(console.port.Get()));
        settings.Add(kKeyTimeout, std::to_string(console.timeout));
        consoles.Add(console.name, settings.Object());
    }
    return consoles.Object(kIndent1);
}

std::string Receive(const ReceiveConfig& receive) {
    Members settings(nullptr);
    if (receive.mode != kReceiveNone) {
        settings.Add(kKeyMode,
                     Json(std::string(receive.mode == kReceiveTail ? kModeTail : kModeTimeTick)));
    }
    settings.Add(kKeyTail, Json(TailDigits(receive)));
    settings.Add(kKeyMillisecond, std::to_string(receive.millisecond));
    return settings.Object();
}

std::string Modules(const std::vector<ModuleInfo>& modules) {
    std::vector<std::string> names;
    Members interaction(kIndent3);
    Members whiteLists(kIndent3);
    Members testCommands(kIndent3);
    for (const ModuleInfo& module : modules) {
        Members settings(nullptr);
        settings.Add(kKeyKeepAlive, Json(module.keepAlive));
        settings.Add(kKeyPath, Json(module.path));
        settings.Add(kKeyTimeout, std::to_string(module.timeout));
        settings.Add(kKeyQuiet, std::to_string(module.quietMs));
        names.push_back(module.name);
        interaction.Add(module.name, settings.Object());
        whiteLists.Add(module.name, Json(module.whiteList));
        testCommands.Add(module.name, Json(module.testCmds));
    }
    Members members(kIndent2);
    members.Add(kKeySupportModules, Json(names));
    members.Add(kKeyInteraction, interaction.Object(kIndent2));
    members.Add(kKeyWhiteList, whiteLists.Object(kIndent2));
    members.Add(kKeyTestCommands, testCommands.Object(kIndent2));
    return members.Object(kIndent1);
}

}  // namespace

std::string TailDigits(const ReceiveConfig& receive) {
    std::string digits;
    for (int i = 0; i < receive.tailLength; ++i) {
        char byte[3];
        snprintf(byte, sizeof(byte), "%02X", receive.tail[i]);
        digits += byte;
    }
    return digits;
}

std::string PrintConfig(ConfigManager& config) {
    Members members(kIndent1);
    members.Add(kKeyConsole, Consoles(config));
    members.Add(kKeyReceiveMode, Receive(*config.GetReceiveConfig()));
    members.Add(kKeyModule, Modules(*config.GetModuleConfigs()));
    return members.Object() + "\n";
}

}  // namespace kelp::tools
