// The configuration file: what its keys mean.

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <optional>
#include <utility>

#include "config/configkeys.h"
#include "config/configmanager.h"
#include "platform/cjsonobject.h"
#include "platform/log.h"
#include "platform/systemproperty.h"

namespace kelp {

namespace {

// Replaces `list` by the strings of `array`. False, with `list` unchanged, when that has no
// elements.
bool ReadStrings(const neb::CJsonObject& array, std::vector<std::string>& list) {
    const int size = array.GetArraySize();
    if (size < 1) {
        return false;
    }
    list.clear();
    for (int i = 0; i < size; ++i) {
        if (std::optional<std::string> entry = array(i)) {
            list.push_back(std::move(*entry));
        }
    }
    return true;
}

struct MemberParser {
    const char* key;
    void (ConfigManager::*parse)(neb::CJsonObject&);
};

// Calls the parser of each member that has one, in file order.
void ParseMembers(ConfigManager& manager, neb::CJsonObject& obj,
                  std::initializer_list<MemberParser> parsers) {
    std::string key;
    while (obj.GetKey(key)) {
        for (const MemberParser& parser : parsers) {
            if (key == parser.key) {
                neb::CJsonObject member = obj[key];
                (manager.*parser.parse)(member);
            }
        }
    }
}

}  // namespace

bool ConfigManager::ParseJSONDoc(const std::string& path) {
    neb::CJsonObject doc;
    if (!ReadJSONDoc(path, doc)) {
        return false;
    }
    ParseMembers(*this, doc,
                 {{kKeyConsole, &ConfigManager::ParseConsole},
                  {kKeyReceiveMode, &ConfigManager::ParseReceiveMode},
                  {kKeyModule, &ConfigManager::ParseModule}});
    return true;
}

void ConfigManager::ParseConsole(neb::CJsonObject& obj) {
    neb::CJsonObject active;
    std::string key;
    while (obj.GetKey(key)) {
        for (CommonConfig& console : mConsoleConfig->consoles) {
            if (console.name != key) {
                continue;
            }
            const neb::CJsonObject member = obj[key];
            // The local console must always be available: only its time-out can be set.
            if (key != "local") {
                member.Get(kKeySupport, console.support);
                member.Get(kKeyActive, active);
                console.active = console.ordered = ParseActive(active);
                std::string route = console.route;
                member.Get(kKeyRoute, route);
                console.route = route;
                int32_t port = console.port;
                member.Get(kKeyPort, port);
                console.port = port;
            }
            member.Get(kKeyTimeout, console.timeout);
        }
    }
    for (const CommonConfig& console : mConsoleConfig->consoles) {
        KLOG(kLogInfo) << console.name << ":" << console.support << ":" << console.active.Get()
                       << ":" << console.route.Get() << ":" << console.port.Get() << ":"
                       << console.timeout;
    }
}

bool ConfigManager::ParseActive(neb::CJsonObject& value) {
    const std::string text = value.ToString();
    KLOG(kLogInfo) << "Json: " << text;
    std::string name;
    if (!value.GetKeyAt(0, name)) {
        return text == "true";
    }
    std::string expected = "1";
    value.Get(name, expected);
    const std::string actual = SystemProperty::Get(name, "0");
    KLOG(kLogInfo) << "Property " << name << " real value is" << actual;
    return actual == expected;
}

void ConfigManager::ParseReceiveMode(neb::CJsonObject& obj) {
    ReceiveConfig& receive = mConsoleConfig->receive;
    std::string mode;
    obj.Get(kKeyMode, mode);
    if (mode == kModeTail) {
        receive.mode = kReceiveTail;
    } else if (mode == kModeTimeTick) {
        receive.mode = kReceiveTimeTick;
    }
    std::string tail;
    obj.Get(kKeyTail, tail);
    HexToString(tail, receive.tail, receive.tailLength);
    obj.Get(kKeyMillisecond, receive.millisecond);
}

void ConfigManager::HexToString(std::string hex, unsigned char* out, int& length) {
    if (hex.empty()) {
        KLOG(kLogError) << "length < 0";
        return;
    }
    if (hex.size() < 2) {
        KLOG(kLogError) << "less than two digits";
        return;
    }
    constexpr size_t kMaxDigits = 2u * kMaxTailBytes;
    if (hex.size() > kMaxDigits) {
        KLOG(kLogError) << hex.size() << " digits cut to " << kMaxDigits;
        hex.resize(kMaxDigits);
    }
    length = static_cast<int>(hex.size() / 2);
    unsigned value = 0;
    for (int i = 0; i < length; ++i) {
        const std::string pair = hex.substr(2 * static_cast<size_t>(i), 2);
        char* end = nullptr;
        const unsigned long scanned = strtoul(pair.c_str(), &end, 16);
        if (end != pair.c_str()) {
            value = static_cast<unsigned>(scanned);
        }
        KLOG(kLogDebug) << "hex data -> " << value;
        out[i] = static_cast<unsigned char>(value);
    }
    out[length] = 0;
}

void ConfigManager::ParseModule(neb::CJsonObject& obj) {
    ParseMembers(*this, obj,
                 {{kKeySupportModules, &ConfigManager::ParseSupportModules},
                  {kKeyInteraction, &ConfigManager::ParseInteraction},
                  {kKeyWhiteList, &ConfigManager::ParseWhiteList},
                  {kKeyTestCommands, &ConfigManager::ParseTestCmds}});
}

void ConfigManager::ParseSupportModules(neb::CJsonObject& array) {
    const int size = array.GetArraySize();
    for (int i = 0; i < size; ++i) {
        const std::optional<std::string> name = array(i);
        if (!name) {
            continue;
        }
        bool known = false;
        for (const ModuleInfo& module : mConsoleConfig->modules) {
            KLOG(kLogDebug) << i << ": load module(" << *name << ")";
            known = module.name == *name;
            if (known) {
                break;
            }
        }
        if (!known) {
            ConstructModuleConfig(*name);
        }
    }
}

void ConfigManager::ParseInteraction(neb::CJsonObject& obj) {
    for (ModuleInfo& module : mConsoleConfig->modules) {
        const neb::CJsonObject member = obj[module.name];
        if (!member.IsEmpty()) {
            member.Get(kKeyKeepAlive, module.keepAlive);
            member.Get(kKeyPath, module.path);
            member.Get(kKeyTimeout, module.timeout);
            member.Get(kKeyQuiet, module.quietMs);
        }
    }
    for (const ModuleInfo& module : mConsoleConfig->modules) {
        KLOG(kLogInfo) << "<<<<<<< " << module.name;
        KLOG(kLogInfo) << "keep-alive(" << module.keepAlive << "),path(" << module.path
                       << "),timeout(" << module.timeout << ")";
        if (module.quietMs != 0) {
            KLOG(kLogInfo) << "quiet(" << module.quietMs << ")";
        }
        KLOG(kLogInfo) << ">>>>>>> " << module.name;
    }
}

void ConfigManager::ParseWhiteList(neb::CJsonObject& obj) {
    for (ModuleInfo& module : mConsoleConfig->modules) {
        if (ReadStrings(obj[module.name], module.whiteList)) {
            std::sort(module.whiteList.begin(), module.whiteList.end());
        }
        KLOG(kLogInfo) << "<<<<<<< " << module.name << " command white list";
        for (const std::string& entry : module.whiteList) {
            KLOG(kLogInfo) << entry;
        }
        KLOG(kLogInfo) << ">>>>>>> " << module.name << " command white list";
    }
}

void ConfigManager::ParseTestCmds(neb::CJsonObject& obj) {
    for (ModuleInfo& module : mConsoleConfig->modules) {
        if (ReadStrings(obj[module.name], module.testCmds)) {
            std::stable_sort(
                module.testCmds.begin(), module.testCmds.end(),
                [](const std::string& a, const std::string& b) { return a.size() > b.size(); });
        }
        // Unlike the white list's, these markers have no blank.
        KLOG(kLogInfo) << "<<<<<<<" << module.name;
        for (const std::string& entry : module.testCmds) {
            KLOG(kLogInfo) << "<" << entry << ">";
        }
        KLOG(kLogInfo) << ">>>>>>>" << module.name;
    }
}

}  // namespace kelp
