#include "check/modulecheck.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <optional>
#include <set>

#include "common/text.h"
#include "config/configkeys.h"
#include "config/configmanager.h"
#include "messager/messagermanager.h"
#include "platform/localaddress.h"
#include "platform/uppercase.h"

namespace kelp::tools {

namespace {

// Maximum time for further reading of an answer, in milliseconds.
constexpr int kMaxQuietMs = 30000;

// The first module with each entry, by its index in the order.
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
    // The first module with an entry that `text` begins with.
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
    return MakeLocalAddress(path, LocalNamespace::kAbstract, address);
}

// A socket file, or an abstract name with a listener, in the order in which the daemon tries them.
// Does not connect, because a peer would notice.
bool SocketIsThere(const std::string& path) {
    struct stat status;
    const bool isPath = path.find('\0') == path.npos;
    if (isPath && stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) {
        return true;
    }
    static constexpr char kListening[] = " 00010000 ";
    std::string ending = " @" + path;
    std::replace(ending.begin(), ending.end(), '\0', '@');  // as in the table
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
        module.info = &info;
        module.exists = builtIn.GetModuleByName(info.name) != nullptr;
        mPlaces.emplace(info.name, mModules.size());
        mModules.push_back(module);
    }
}

ModuleCheck::Module* ModuleCheck::Find(const std::string& name) {
    const auto found = mPlaces.find(name);
    return found != mPlaces.end() ? &mModules[found->second] : nullptr;
}

void ModuleCheck::CheckMember(const ConfigMember& member) {
    for (const ConfigMember& section : mText.Members(member.valueOffset, Quoted(member.key))) {
        if (section.key == kKeySupportModules) {
            CheckSupportModules(section);
        } else if (section.key == kKeyInteraction || section.key == kKeyWhiteList ||
                   section.key == kKeyTestCommands) {
            CheckSettings(section);
        } else {
            mText.Warn(section.keyOffset, "unknown key " + Quoted(section.key));
        }
    }
}

void ModuleCheck::CheckSupportModules(const ConfigMember& names) {
    if (!mText.Expect(names.valueOffset, ConfigType::kArray, Quoted(names.key))) {
        return;
    }
    for (const size_t element : mText.Elements(names.valueOffset)) {
        if (!mText.Expect(element, ConfigType::kText, "the name of a module")) {
            continue;
        }
        const std::string name = *mText.String(element);
        Module* const module = Find(name);
        if (module == nullptr) {
            continue;  // the file has changed since the daemon's reader read it
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
            mText.Warn(member.keyOffset, "unknown module " + Quoted(member.key) + ": not in " +
                                             Quoted(kKeySupportModules));
        } else if (!module->exists) {
            mText.Warn(member.keyOffset, "not read: " + Quoted(kKeySupportModules) +
                                             ", which creates " + Quoted(member.key) +
                                             ", must come before " + Quoted(section.key));
        } else if (section.key == kKeyInteraction) {
            CheckInteraction(member, *module);
        } else {
            CheckList(member, section.key == kKeyWhiteList ? module->whiteList : module->testCmds);
        }
    }
}

void ModuleCheck::CheckInteraction(const ConfigMember& settings, Module& module) {
    const PeerE peer = MessagerManager::PeerOf(module.info->name);
    for (const ConfigMember& member : mText.Members(settings.valueOffset, Quoted(settings.key))) {
        const std::string what = Quoted(member.key);
        bool used = peer != PeerE::kNone;
        if (member.key == kKeyKeepAlive) {
            mText.Expect(member.valueOffset, ConfigType::kFlag, what);
        } else if (member.key == kKeyPath) {
            mText.Expect(member.valueOffset, ConfigType::kText, what);
            module.pathOffset = member.valueOffset;
        } else if (member.key == kKeyTimeout) {
            used = peer == PeerE::kRecords;
            const std::optional<int> timeout = mText.ExpectNumber(member.valueOffset, what);
            if (used && timeout && *timeout < 0) {
                mText.Warn(member.valueOffset, what + " below 0 waits without limit, as 0 does");
            }
        } else if (member.key == kKeyQuiet) {
            used = peer == PeerE::kRelayed;
            CheckQuiet(member, used);
        } else {
            mText.Warn(member.keyOffset, "unknown key " + what);
            continue;
        }
        if (!used) {
            mText.Note(member.keyOffset, what + " is not used by " + Quoted(module.info->name));
        }
    }
}

void ModuleCheck::CheckQuiet(const ConfigMember& member, bool used) {
    const std::string what = Quoted(member.key);
    const int quietMs = mText.ExpectNumber(member.valueOffset, what).value_or(0);
    if (used && quietMs < 0) {
        mText.Warn(member.valueOffset, what + " below 0 is not used");
    } else if (used && quietMs > kMaxQuietMs) {
        mText.Warn(member.valueOffset, what + " is more than " + std::to_string(kMaxQuietMs) +
                                           ": no answer is read longer than that");
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
    std::unordered_map<std::string, const Module*> byPath;
    for (Module& module : mModules) {
        CheckMatches(module.whiteList, false);
        CheckMatches(module.testCmds, true);
        if (module.nameOffset != 0 && module.whiteList.empty() && module.testCmds.empty()) {
            mText.Warn(module.nameOffset, Quoted(module.info->name) + " gets no commands: its " +
                                              Quoted(kKeyWhiteList) + " and " +
                                              Quoted(kKeyTestCommands) + " are empty");
        }
        if (MessagerManager::PeerOf(module.info->name) == PeerE::kNone) {
            continue;
        }
        CheckPath(module, root, paths);
        const auto [other, isFirst] = byPath.emplace(module.info->path, &module);
        if (!isFirst && !module.info->path.empty()) {
            mText.Note(module.pathOffset != 0 ? module.pathOffset : root,
                       "module " + Quoted(module.info->name) + " has the same " + Quoted(kKeyPath) +
                           " as " + Quoted(other->second->info->name));
        }
    }
    CheckHidden();
}

void ModuleCheck::CheckMatches(std::vector<Entry>& list, bool whole) {
    const ReceiveConfig& receive = *mResult.GetReceiveConfig();
    const std::string tail(receive.tail, receive.tail + receive.tailLength);
    // A terminator with a capital letter may be in a command that has the small one in its place.
    const bool cuts =
        receive.mode == kReceiveTail &&
        std::none_of(tail.begin(), tail.end(), [](char c) { return 'A' <= c && c <= 'Z'; });
    for (Entry& entry : list) {
        if (whole && entry.text.find('\0') != entry.text.npos) {
            const std::string read = entry.text.c_str();
            mText.Warn(entry.offset, Quoted(entry.text) + " is read as " + Quoted(read));
            entry.text = read;
        }
        if (whole && entry.text.empty()) {
            mText.Warn(entry.offset, "\"\" matches only commands that begin with a zero byte");
        }
        if (!entry.text.empty() && (entry.text.back() == ' ' || entry.text.back() == '\t')) {
            mText.Warn(entry.offset,
                       Quoted(entry.text) + " ends in white space: commands match only with it");
        }
        std::string why;
        if (entry.text != UpperCase(entry.text)) {
            why = "commands are compared in upper case";
        } else if (cuts && entry.text.find(tail) != entry.text.npos) {
            why = "commands are compared without their terminator";
        } else {
            continue;
        }
        entry.matches = false;
        mText.Warn(entry.offset, Quoted(entry.text) + " never matches: " + why);
    }
}

// A module gets only what no earlier module accepts, even if it fits better.
void ModuleCheck::CheckHidden() {
    Owners prefixes;
    Owners commands;
    for (size_t i = 0; i < mModules.size(); ++i) {
        const auto check = [&](const Entry& entry, size_t owner) {
            if (entry.matches && owner < i) {
                mText.Warn(entry.offset, Quoted(entry.text) + " is hidden by module " +
                                             Quoted(mModules[owner].info->name) +
                                             ", which comes first");
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
    const std::string& path = module.info->path;
    const size_t named = module.nameOffset != 0 ? module.nameOffset : root;
    const size_t offset = module.pathOffset != 0 ? module.pathOffset : named;
    const std::string what = "module " + Quoted(module.info->name);
    if (path.empty()) {
        mText.Warn(offset, what + " has no " + Quoted(kKeyPath) + " to its peer");
    } else if (!IsSocketName(path)) {
        mText.Warn(offset, what + ": no local socket can have this " + Quoted(kKeyPath));
    } else if (paths && !SocketIsThere(path)) {
        mText.Warn(offset, what + ": no socket at " + Quoted(path));
    }
}

}  // namespace kelp::tools
