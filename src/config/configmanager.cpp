#include "config/configmanager.h"

#include <errno.h>

#include <utility>

#include "config/configkeys.h"
#include "platform/cjsonobject.h"
#include "platform/log.h"
#include "platform/wholefile.h"

namespace kelp {

namespace {

constexpr int32_t kDefaultModuleTimeout = 15;

CommonConfig MakeConsole(const char* name, bool active, const char* route, int32_t port) {
    CommonConfig console;
    console.name = name;
    console.active = console.ordered = active;
    console.support = true;
    console.route = std::string(route);
    console.port = port;
    return console;
}

template <typename Record>
Record* FindByName(std::vector<Record>& records, const std::string& name) {
    for (Record& record : records) {
        if (record.name == name) {
            return &record;
        }
    }
    return nullptr;
}

}  // namespace

ConfigManager::ConfigManager() : mConsoleConfig(new ConsoleConfig) {
    InitModuleConfig();
    InitCommonConfig();
}

void ConfigManager::InitModuleConfig() {
    std::vector<ModuleInfo>& modules = mConsoleConfig->modules;
    modules.push_back({kDefaultModuleTimeout, 0, false, "wcn", "/dev/socket/sync_wcn", {}, {}});
    modules.push_back({0, 0, true, "modem", "/dev/socket/async_tolm", {}, {}});
}

void ConfigManager::InitCommonConfig() {
    mConsoleConfig->consoles = {
        MakeConsole("uart", false, "/dev/ttyQVZ1", 0),
        MakeConsole("usb", true, "/dev/ttyGS0", 0),
        MakeConsole("local", true, "/dev/socket/kelp", 0),
        MakeConsole("tcp", false, "192.168.1.100", 3000),
    };
}

void ConfigManager::ConstructModuleConfig(const std::string& name) {
    mConsoleConfig->modules.push_back({kDefaultModuleTimeout, 0, false, name, "", {}, {}});
}

CommonConfig* ConfigManager::GetConfigByName(const std::string& name) {
    return FindByName(mConsoleConfig->consoles, name);
}

ModuleInfo* ConfigManager::GetModuleByName(const std::string& name) {
    return FindByName(mConsoleConfig->modules, name);
}

bool ConfigManager::SupportConsoleMode(const std::string& name) {
    const CommonConfig* const console = GetConfigByName(name);
    return console != nullptr && console->support;
}

bool ConfigManager::ReadJSONDoc(const std::string& path, neb::CJsonObject& doc,
                                std::string* content) {
    std::string& own = mConsoleConfig->path;
    if (!path.empty()) {
        own = path;
    }
    std::string text;
    if (!ReadWholeFile(own, kMaxConfigBytes, text)) {
        KLOG(kLogError) << "Json file(" << own << ") open error!!!";
        KLOG(kLogInfo) << "not read, errno = " << errno;
        return false;
    }
    if (!doc.Parse(text)) {
        const neb::CJsonPosition at = doc.ErrorPosition();
        KLOG(kLogError) << "Json file(" << own << ") syntax error!!!";
        KLOG(kLogInfo) << "line " << at.line << ", column " << at.column << ": "
                       << doc.ErrorReason();
        return false;
    }
    if (content != nullptr) {
        *content = std::move(text);
    }
    return true;
}

bool ConfigManager::RefreshConfig() {
    MutexLock lock(mRefreshMutex);
    const std::string& path = mConsoleConfig->path;
    neb::CJsonObject doc;
    std::string old;
    if (!ReadJSONDoc("", doc, &old)) {
        return false;
    }
    for (const CommonConfig& console : mConsoleConfig->consoles) {
        neb::CJsonObject record = doc[kKeyConsole][console.name];
        record.Replace(kKeySupport, console.support);
        record.Replace(kKeyActive, console.ordered.Get());
        record.Replace(kKeyRoute, console.route.Get());
        record.Replace(kKeyPort, console.port.Get());
        record.Replace(kKeyTimeout, console.timeout);
    }
    const std::string content = doc.ToFormattedString();
    if (content == old) {
        return true;
    }
    if (content.size() > kMaxConfigBytes) {
        errno = EFBIG;  // the next start would refuse it
    } else if (ReplaceWholeFile(path, content)) {
        return true;
    }
    KLOG(kLogError) << "Json file(" << path << ") open error!!!";
    KLOG(kLogInfo) << "not written, errno = " << errno;
    return false;
}

}  // namespace kelp
