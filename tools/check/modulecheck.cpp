#include "check/modulecheck.h"

#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <fstream>
#include <set>
#include <unordered_map>

#include "common/text.h"
#include "config/configmanager.h"
#include "platform/localaddress.h"

namespace kelp::tools {

namespace {

// The one module that serves its commands by itself.
constexpr char kWithoutPeer[] = "kelp";
// The modules that do not relay one answer to each request as it comes.
constexpr const char* kNoForwarders[] = {"modem", "pcba", "fm", kWithoutPeer};
// What an answer is read on for at most.
constexpr int kMaxQuietMs = 30000;

bool HasLowerCase(const std::string& text) {
    for (const char c : text) {
        if (c >= 'a' && c <= 'z') {
            return true;
        }
    }
    return false;
}

// The modules that come first with an entry, by their place in the order.
class Owners {
  public:
    static constexpr size_t kNobody = SIZE_MAX;

    void Add(const std::string& entry, size_t module) {
        mModules.emplace(entry, module);
        mLengths.insert(entry.size());
    }
    size_t OfSame(const std::string& text) const {
        const auto found = mModules.find(text);
        return found != mModules.end() ? found->second : kNobody;
    }
    // Of an entry that `text` begins with.
    size_t OfPrefix(const std::string& text) const {
        size_t first = kNobody;
        for (const size_t length : mLengths) {
            if (length > text.size()) {
                break;
            }
            first = std::min(first, OfSame(text.substr(0, length)));
        }
        return first;
    }

  private:
    std::unordered_map<std::string, size_t> mModules;
    std::set<size_t> mLengths;
};

bool IsSocketName(const std::string& path) {
    LocalAddress address;
    return MakeLocalAddress(path, LocalNamespace::kFilesystem, address);
}

// A socket file, or an abstract name that somebody listens on, as the daemon would try them. Only
// looks: a peer would notice a connection.
bool SocketIsThere(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) {
        return true;
    }
    static constexpr char kListening[] = " 00010000 ";
    const std::string ending = " @" + path;
    std::ifstream table("/proc/net/unix");
    for (std::string line; std::getline(table, line);) {
        if (line.size() > ending.size() && line.find(kListening) != line.npos &&
            line.compare(line.size() - ending.size(), ending.size(), ending) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

ModuleCheck::ModuleCheck(ConfigText& text, ConfigManager& result) : mText(text), mResult(result) {
    ConfigManager builtIn;
    for (const ModuleInfo& info : *mResult.GetModuleConfigs()) {
        Module module;
        module.name = info.name;
        module.exists = builtIn.GetModuleByName(info.name) != nullptr;
        mModules.push_back(module);
    }
}

ModuleCheck::Module* ModuleCheck::Find(const std::string& name) {
    for (Module& module : mModules) {
        if (module.name == name) {
            return &module;
        }
    }
    return nullptr;
}

void ModuleCheck::CheckMember(const ConfigMember& member) {
    for (const ConfigMember& section : mText.Members(member.valueOffset, Quoted(member.key))) {
        if (section.key == "support-modules") {
            CheckSupportModules(section.valueOffset);
        } else if (section.key == "interaction" || section.key == "whitelist" ||
                   section.key == "test-commands") {
            CheckSettings(section);
        } else {
            mText.Warn(section.keyOffset, "unknown key " + Quoted(section.key));
        }
    }
}

void ModuleCheck::CheckSupportModules(size_t array) {
    if (!mText.Expect(array, ConfigType::kArray, "\"support-modules\"")) {
        return;
    }
    for (const size_t element : mText.Elements(array)) {
        if (!mText.Expect(element, ConfigType::kText, "the name of a module")) {
            continue;
        }
        const std::string name = *mText.String(element);
        Module* const module = Find(name);
        if (module == nullptr) {
            continue;  // the file has changed since the daemon's reader saw it
        }
        if (module->nameOffset != 0) {
            mText.Warn(element, Quoted(name) + " is named twice");
        }
        module->exists = true;
        module->nameOffset = element;
    }
}

void ModuleCheck::CheckSettings(const ConfigMember& section) {
    for (const ConfigMember& member : mText.Members(section.valueOffset, Quoted(section.key))) {
        Module* const module = Find(member.key);
        if (module == nullptr) {
            mText.Warn(member.keyOffset,
                       "no such module as " + Quoted(member.key) + " in \"support-modules\"");
        } else if (!module->exists) {
            mText.Warn(member.keyOffset, "not read: \"support-modules\", which creates " +
                                             Quoted(member.key) + ", must come before " +
                                             Quoted(section.key));
        } else if (section.key == "interaction") {
            CheckInteraction(member, *module);
        } else {
            CheckList(member, section.key == "whitelist" ? module->whiteList : module->testCmds);
        }
    }
}

void ModuleCheck::CheckInteraction(const ConfigMember& settings, Module& module) {
    for (const ConfigMember& member : mText.Members(settings.valueOffset, Quoted(settings.key))) {
        const std::string what = Quoted(member.key);
        if (member.key == "keep-alive") {
            mText.Expect(member.valueOffset, ConfigType::kFlag, what);
        } else if (member.key == "path") {
            mText.Expect(member.valueOffset, ConfigType::kText, what);
            module.pathOffset = member.valueOffset;
        } else if (member.key == "timeout") {
            mText.ExpectNumber(member.valueOffset, 0, INT_MAX, what);
        } else if (member.key == "quiet") {
            CheckQuiet(member, module);
        } else {
            mText.Warn(member.keyOffset, "unknown key " + what);
        }
    }
}

void ModuleCheck::CheckQuiet(const ConfigMember& member, const Module& module) {
    if (!mText.ExpectNumber(member.valueOffset, 0, kMaxQuietMs, Quoted(member.key)) ||
        mText.Number(member.valueOffset) == 0) {
        return;
    }
    for (const char* name : kNoForwarders) {
        if (module.name == name) {
            mText.Warn(member.keyOffset, Quoted(member.key) + " is not used by " + Quoted(name));
        }
    }
}

void ModuleCheck::CheckList(const ConfigMember& member, std::vector<Entry>& list) {
    if (!mText.Expect(member.valueOffset, ConfigType::kArray, Quoted(member.key))) {
        return;
    }
    for (const size_t element : mText.Elements(member.valueOffset)) {
        if (mText.Expect(element, ConfigType::kText, "a command")) {
            list.push_back({*mText.String(element), element, true});
        }
    }
}

void ModuleCheck::CheckTogether(size_t root, bool paths) {
    for (Module& module : mModules) {
        CheckMatches(module.whiteList, true);
        CheckMatches(module.testCmds, false);
        CheckPath(module, root, paths);
    }
    CheckHidden();
}

void ModuleCheck::CheckMatches(std::vector<Entry>& list, bool mayBeEmpty) {
    const ReceiveConfig& receive = *mResult.GetReceiveConfig();
    const std::string tail(receive.tail, receive.tail + receive.tailLength);
    for (Entry& entry : list) {
        std::string why;
        if (HasLowerCase(entry.text)) {
            why = "requests are compared in upper case";
        } else if (entry.text.empty() && !mayBeEmpty) {
            why = "no request is empty";
        } else if (receive.mode == kReceiveTail && entry.text.find(tail) != entry.text.npos) {
            why = "requests come without their terminator";
        } else {
            continue;
        }
        entry.matches = false;
        mText.Warn(entry.offset, Quoted(entry.text) + " never matches: " + why);
    }
}

// A module gets only what no module before it accepts, whichever fits better.
void ModuleCheck::CheckHidden() {
    Owners prefixes;
    Owners commands;
    for (size_t i = 0; i < mModules.size(); ++i) {
        const auto check = [&](const Entry& entry, size_t owner) {
            if (entry.matches && owner < i) {
                mText.Warn(entry.offset, Quoted(entry.text) + " is hidden by module " +
                                             Quoted(mModules[owner].name) +
                                             ", which is asked first");
            }
        };
        for (const Entry& entry : mModules[i].whiteList) {
            const size_t owner = prefixes.OfPrefix(entry.text);
            check(entry, owner);
            prefixes.Add(entry.text, i);
        }
        for (const Entry& entry : mModules[i].testCmds) {
            check(entry, std::min(prefixes.OfPrefix(entry.text), commands.OfSame(entry.text)));
            commands.Add(entry.text, i);
        }
    }
}

void ModuleCheck::CheckPath(const Module& module, size_t root, bool paths) {
    if (module.name == kWithoutPeer) {
        return;
    }
    const std::string& path = mResult.GetModuleByName(module.name)->path;
    const size_t named = module.nameOffset != 0 ? module.nameOffset : root;
    const size_t offset = module.pathOffset != 0 ? module.pathOffset : named;
    const std::string what = "module " + Quoted(module.name);
    if (path.empty()) {
        mText.Warn(offset, what + " has no \"path\" to its peer");
    } else if (!IsSocketName(path)) {
        mText.Warn(offset, what + ": no local socket can have this \"path\"");
    } else if (paths && !SocketIsThere(path)) {
        mText.Warn(offset, what + ": no socket at " + Quoted(path));
    }
}

}  // namespace kelp::tools
