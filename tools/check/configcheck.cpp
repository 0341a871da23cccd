#include "check/configcheck.h"

#include <arpa/inet.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <climits>
#include <cstring>
#include <fstream>
#include <optional>

#include "check/configprint.h"
#include "common/text.h"
#include "config/configkeys.h"
#include "config/configmanager.h"

namespace kelp::tools {

namespace {

constexpr size_t kMaxTailDigits = 2u * kMaxTailBytes;
constexpr char kNothingCut[] = ": no console serves commands";

const ConfigMember* Find(const std::vector<ConfigMember>& members, const char* key) {
    for (const ConfigMember& member : members) {
        if (member.key == key) {
            return &member;
        }
    }
    return nullptr;
}

bool IsOnTty(const std::string& console) {
    return console != "tcp" && console != "local";
}

// Uses the kernel's list of terminal drivers: opening a serial line would assert DTR and RTS.
bool TtyIsThere(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || !S_ISCHR(status.st_mode)) {
        return false;
    }
    std::ifstream drivers("/proc/tty/drivers");
    bool known = false;  // the list exists
    std::string name, node;
    for (unsigned number; drivers >> name >> node >> number; drivers.ignore(INT_MAX, '\n')) {
        known = true;
        if (number == major(status.st_rdev)) {
            return true;
        }
    }
    return !known;
}

// The same path, or on this machine two paths to one device.
bool NameOneTty(const std::string& a, const std::string& b, bool paths) {
    struct stat first, second;
    return strcmp(a.c_str(), b.c_str()) == 0 ||
           (paths && stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 &&
            S_ISCHR(first.st_mode) && S_ISCHR(second.st_mode) && first.st_rdev == second.st_rdev);
}

}  // namespace

ConfigCheck::ConfigCheck(ConfigText& text, ConfigManager& result, bool paths)
    : mText(text), mResult(result), mPaths(paths), mModules(text, result) {}

void ConfigCheck::Run() {
    const size_t root = mText.Root();
    const std::vector<ConfigMember> members = mText.Members(root, "the configuration");
    for (const ConfigMember& member : members) {
        if (member.key == kKeyConsole) {
            CheckConsoles(member);
        } else if (member.key == kKeyReceiveMode) {
            CheckReceiveMode(member);
        } else if (member.key == kKeyModule) {
            mModules.CheckMember(member);
        } else if (member.key != "$schema") {  // for editors: the location of the schema
            mText.Warn(member.keyOffset, "unknown key " + Quoted(member.key));
        }
    }
    if (Find(members, kKeyReceiveMode) == nullptr) {
        mText.Warn(root, "no " + Quoted(kKeyReceiveMode) + kNothingCut);
    }
    mModules.CheckTogether(root, mPaths);
}

void ConfigCheck::CheckConsoles(const ConfigMember& consoles) {
    for (const ConfigMember& console : mText.Members(consoles.valueOffset, Quoted(consoles.key))) {
        const CommonConfig* record = mResult.GetConfigByName(console.key);
        if (record != nullptr) {
            CheckConsole(console, *record);
        } else {
            mText.Warn(console.keyOffset,
                       "unknown console " + Quoted(console.key) +
                           "; there are \"uart\", \"usb\", \"local\" and \"tcp\"");
        }
    }
    std::vector<const CommonConfig*> lines;
    for (const CommonConfig& console : mResult.GetConsoleConfig()->consoles) {
        if (!console.support || !IsOnTty(console.name)) {
            continue;
        }
        for (const CommonConfig* other : lines) {
            if (NameOneTty(console.route.Get(), other->route.Get(), mPaths)) {
                mText.Warn(consoles.keyOffset,
                           "the " + Quoted(kKeyRoute) + " of " + Quoted(console.name) + " and " +
                               Quoted(other->name) +
                               " is the same tty: each would read bytes of the other");
            }
        }
        lines.push_back(&console);
    }
}

void ConfigCheck::CheckConsole(const ConfigMember& console, const CommonConfig& record) {
    const bool local = console.key == "local";
    const std::vector<ConfigMember> members =
        mText.Members(console.valueOffset, Quoted(console.key));
    for (const ConfigMember& member : members) {
        if (local && member.key != kKeyTimeout) {
            CheckLocalMember(member, record);
        } else {
            CheckConsoleMember(console.key, member);
        }
    }
    if (local) {
        return;
    }
    const ConfigMember* const active = Find(members, kKeyActive);
    if (active == nullptr) {
        // Only when the console's object is present: without the object the default stays.
        mText.Warn(console.keyOffset,
                   Quoted(console.key) + " without " + Quoted(kKeyActive) + " is off");
    } else if (record.active && !record.support) {
        mText.Warn(active->keyOffset, Quoted(console.key) + " is off: it is not supported");
    }
}

void ConfigCheck::CheckConsoleMember(const std::string& console, const ConfigMember& member) {
    const size_t value = member.valueOffset;
    const std::string what = Quoted(member.key);
    if (member.key == kKeySupport) {
        mText.Expect(value, ConfigType::kFlag, what);
    } else if (member.key == kKeyActive) {
        CheckActive(what, value);
    } else if (member.key == kKeyPort) {
        const std::optional<int> port = mText.ExpectNumber(value, what);
        if (console == "tcp" && port) {
            CheckPort(what, value, *port);
        }
    } else if (member.key == kKeyTimeout) {
        mText.ExpectNumber(value, what);
    } else if (member.key != kKeyRoute) {
        mText.Warn(member.keyOffset, "unknown key " + what);
    } else if (mText.Expect(value, ConfigType::kText, what)) {
        const std::string route = *mText.String(value);
        if (IsOnTty(console)) {
            CheckTty(what, value, route);
        } else {
            CheckAddress(what, value, route);
        }
    }
}

void ConfigCheck::CheckPort(const std::string& what, size_t value, int port) {
    const int used = port & 0xffff;
    if (used != port) {
        mText.Warn(value, "only the low 16 bits of " + what + " count: " + std::to_string(used));
    }
    if (used == 0) {
        mText.Warn(value, what + " 0: the system picks a free port");
    }
}

// As the TCP console reads it: the text up to its first zero byte, in any notation that inet_addr
// accepts.
void ConfigCheck::CheckAddress(const std::string& what, size_t value, const std::string& route) {
    struct in_addr address = {};
    if (!route.empty()) {
        address.s_addr = inet_addr(route.c_str());
    }
    char spelled[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address, spelled, sizeof(spelled));
    if (address.s_addr == INADDR_NONE) {
        mText.Warn(value,
                   what + " must be an IPv4 address to listen on, or empty for all addresses");
    } else if (!route.empty() && route != spelled) {
        mText.Warn(value, what + " is read as " + Quoted(spelled));
    }
}

void ConfigCheck::CheckTty(const std::string& what, size_t value, const std::string& route) {
    const std::string path = route.c_str();
    if (path != route) {
        mText.Warn(value, what + " is read as " + Quoted(path));
    }
    if (path.empty()) {
        mText.Warn(value, what + " must name a tty");
    } else if (mPaths && !TtyIsThere(path)) {
        mText.Warn(value, what + ": no tty at " + Quoted(path));
    }
}

// The daemon also writes the record of the local console into the file: values equal to the record
// are no finding.
void ConfigCheck::CheckLocalMember(const ConfigMember& member, const CommonConfig& record) {
    const size_t value = member.valueOffset;
    bool same = false;
    if (member.key == kKeySupport || member.key == kKeyActive) {
        const bool own = member.key == kKeySupport ? record.support : record.active.Get();
        same = mText.Is(value, ConfigType::kFlag) && mText.IsTrue(value) == own;
    } else if (member.key == kKeyRoute) {
        same = mText.String(value) == std::optional<std::string>(record.route);
    } else if (member.key == kKeyPort) {
        same = mText.Number(value) == std::optional<int>(record.port.Get());
    } else {
        mText.Warn(member.keyOffset, "unknown key " + Quoted(member.key));
        return;
    }
    if (!same) {
        mText.Warn(member.keyOffset, Quoted(member.key) + " of \"local\" is not read: only its " +
                                         Quoted(kKeyTimeout) + " is");
    }
}

void ConfigCheck::CheckActive(const std::string& what, size_t value) {
    if (mText.Is(value, ConfigType::kFlag)) {
        return;
    }
    if (!mText.Is(value, ConfigType::kObject)) {
        mText.Warn(value,
                   what + " must be true, false or {\"PROPERTY\": \"VALUE\"}: the console is off");
        return;
    }
    const std::vector<ConfigMember> members = mText.Members(value, what);
    if (members.empty()) {
        mText.Warn(value, what + " names no property: the console is off");
        return;
    }
    if (members[0].key.empty()) {
        mText.Warn(members[0].keyOffset, what + " has an empty property name: it counts as \"0\"");
    }
    if (!mText.Is(members[0].valueOffset, ConfigType::kText)) {
        mText.Warn(members[0].valueOffset,
                   "the value of a property must be a string: it counts as \"1\"");
    } else if (mText.String(members[0].valueOffset)->empty()) {
        mText.Warn(members[0].valueOffset,
                   what + " is never true: an absent or empty property counts as \"0\"");
    }
    for (size_t i = 1; i < members.size(); ++i) {
        mText.Warn(members[i].keyOffset, "only the first property counts");
    }
}

void ConfigCheck::CheckReceiveMode(const ConfigMember& receive) {
    const ReceiveConfig& result = *mResult.GetReceiveConfig();
    const std::string what = Quoted(receive.key);
    const std::vector<ConfigMember> members = mText.Members(receive.valueOffset, what);
    for (const ConfigMember& member : members) {
        if (member.key == kKeyMode) {
            if (result.mode == kReceiveNone) {
                mText.Warn(member.valueOffset, Quoted(kKeyMode) + " must be " + Quoted(kModeTail) +
                                                   " or " + Quoted(kModeTimeTick) + kNothingCut);
            }
        } else if (member.key == kKeyTail) {
            CheckTail(member.valueOffset);
        } else if (member.key == kKeyMillisecond) {
            mText.ExpectNumber(member.valueOffset, Quoted(member.key));
        } else {
            mText.Warn(member.keyOffset, "unknown key " + Quoted(member.key));
        }
    }
    if (Find(members, kKeyMode) == nullptr) {
        mText.Warn(receive.keyOffset, what + " without " + Quoted(kKeyMode) + kNothingCut);
    }
    if (result.mode == kReceiveTimeTick && result.millisecond <= 0) {
        const ConfigMember* const interval = Find(members, kKeyMillisecond);
        mText.Warn(interval != nullptr ? interval->valueOffset : receive.keyOffset,
                   Quoted(kModeTimeTick) + " without an interval in " + Quoted(kKeyMillisecond) +
                       ": the bytes of each read are a command");
    }
}

void ConfigCheck::CheckTail(size_t value) {
    if (!mText.Expect(value, ConfigType::kText, Quoted(kKeyTail))) {
        return;
    }
    const std::string tail = *mText.String(value);
    std::string wrong;
    if (tail.size() < 2) {
        wrong = "is too short";
    } else if (tail.size() > kMaxTailDigits) {
        wrong = "is cut to " + std::to_string(kMaxTailBytes) + " bytes";
    } else if (tail.find_first_not_of("0123456789ABCDEFabcdef") != tail.npos) {
        wrong = "has characters that are not hexadecimal digits";
    } else if (tail.size() % 2 != 0) {
        wrong = "has an odd number of digits";
    } else if (tail.size() == 2 && mResult.GetReceiveConfig()->mode == kReceiveTail) {
        // Framing needs a further byte, which a station that waits for its answer never sends.
        wrong = "of one byte is found only when more bytes follow";
    } else {
        return;
    }
    mText.Warn(value, Quoted(kKeyTail) + " " + wrong + ": commands end with " +
                          TailDigits(*mResult.GetReceiveConfig()));
}

}  // namespace kelp::tools
