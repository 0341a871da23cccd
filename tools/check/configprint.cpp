#include "check/configprint.h"

#include <cstdio>
#include <vector>

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

// "NAME": VALUE, with what stands between it and the one before.
void Append(std::string& list, const char* indent, const std::string& name,
            const std::string& value) {
    list += (list.empty() ? "" : ",\n") + std::string(indent) + Json(name) + ": " + value;
}

std::string Strings(const std::vector<std::string>& entries) {
    std::string list;
    for (const std::string& entry : entries) {
        list += (list.empty() ? "" : ", ") + Json(entry);
    }
    return "[" + list + "]";
}

std::string Consoles(ConfigManager& config) {
    std::string list;
    for (const CommonConfig& console : config.GetConsoleConfig()->consoles) {
        Append(list, "        ", console.name,
               "{ \"support\": " + Json(console.support) + ", \"active\": " +
                   Json(console.active.Get()) + ", \"route\": " + Json(console.route.Get()) +
                   ", \"port\": " + std::to_string(console.port.Get()) +
                   ", \"timeout\": " + std::to_string(console.timeout) + " }");
    }
    return list;
}

std::string Receive(const ReceiveConfig& receive) {
    const std::string mode = receive.mode == kReceiveNone   ? ""
                             : receive.mode == kReceiveTail ? "\"mode\": \"tail\", "
                                                            : "\"mode\": \"timetick\", ";
    return "{ " + mode + "\"tail\": " + Json(TailDigits(receive)) +
           ", \"millisecond\": " + std::to_string(receive.millisecond) + " }";
}

std::string Modules(const std::vector<ModuleInfo>& modules) {
    constexpr char kIndent[] = "            ";
    std::vector<std::string> names;
    std::string interaction;
    std::string whiteLists;
    std::string testCommands;
    for (const ModuleInfo& module : modules) {
        names.push_back(module.name);
        Append(interaction, kIndent, module.name,
               "{ \"keep-alive\": " + Json(module.keepAlive) + ", \"path\": " + Json(module.path) +
                   ", \"timeout\": " + std::to_string(module.timeout) +
                   ", \"quiet\": " + std::to_string(module.quietMs) + " }");
        Append(whiteLists, kIndent, module.name, Strings(module.whiteList));
        Append(testCommands, kIndent, module.name, Strings(module.testCmds));
    }
    return "        \"support-modules\": " + Strings(names) +         //
           ",\n        \"interaction\": {\n" + interaction +          //
           "\n        },\n        \"whitelist\": {\n" + whiteLists +  //
           "\n        },\n        \"test-commands\": {\n" + testCommands + "\n        }\n";
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
    return "{\n    \"console\": {\n" + Consoles(config) +
           "\n    },\n    \"receive-mode\": " + Receive(*config.GetReceiveConfig()) +
           ",\n    \"module\": {\n" + Modules(*config.GetModuleConfigs()) + "    }\n}\n";
}

}  // namespace kelp::tools
