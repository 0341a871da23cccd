#include "check/configcheck.h"

#include <climits>
#include <optional>

#include "check/configprint.h"
#include "common/text.h"
#include "config/configmanager.h"

namespace kelp::tools {

namespace {

constexpr int kMaxPort = 65535;
constexpr size_t kMaxTailDigits = 2u * kMaxTailBytes;
constexpr char kNothingCut[] = ": no console cuts anything into commands";

const ConfigMember* Find(const std::vector<ConfigMember>& members, const char* key) {
    for (const ConfigMember& member : members) {
        if (member.key == key) {
            return &member;
        }
    }
    return nullptr;
}

}  // namespace

ConfigCheck::ConfigCheck(ConfigText& text, ConfigManager& result)
    : mText(text), mResult(result), mModules(text, result) {}

void ConfigCheck::Run(bool paths) {
    const size_t root = mText.Root();
    const std::vector<ConfigMember> members = mText.Members(root, "the configuration");
    for (const ConfigMember& member : members) {
        if (member.key == "console") {
            CheckConsoles(member.valueOffset);
        } else if (member.key == "receive-mode") {
            CheckReceiveMode(member);
        } else if (member.key == "module") {
            mModules.CheckMember(member);
        } else if (member.key != "$schema") {  // where editors look for the schema
            mText.Warn(member.keyOffset, "unknown key " + Quoted(member.key));
        }
    }
    if (Find(members, "receive-mode") == nullptr) {
        mText.Warn(root, std::string("no \"receive-mode\"") + kNothingCut);
    }
    mModules.CheckTogether(root, paths);
}

void ConfigCheck::CheckConsoles(size_t object) {
    for (const ConfigMember& console : mText.Members(object, "\"console\"")) {
        const CommonConfig* record = mResult.GetConfigByName(console.key);
        if (record != nullptr) {
            CheckConsole(console, *record);
        } else {
            mText.Warn(console.keyOffset,
                       "no such console as " + Quoted(console.key) +
                           "; there are \"uart\", \"usb\", \"local\" and \"tcp\"");
        }
    }
}

void ConfigCheck::CheckConsole(const ConfigMember& console, const CommonConfig& record) {
    const bool local = console.key == "local";
    const std::vector<ConfigMember> members =
        mText.Members(console.valueOffset, Quoted(console.key));
    for (const ConfigMember& member : members) {
        if (local && member.key != "timeout") {
            CheckLocalMember(member, record);
        } else {
            CheckConsoleMember(console.key, member);
        }
    }
    // Only the presence of the console's object makes this a trap: without it the default stays.
    if (!local && Find(members, "active") == nullptr) {
        mText.Warn(console.keyOffset, Quoted(console.key) + " without \"active\" is off");
    }
}

void ConfigCheck::CheckConsoleMember(const std::string& console, const ConfigMember& member) {
    const size_t value = member.valueOffset;
    const std::string what = Quoted(member.key);
    if (member.key == "support") {
        mText.Expect(value, ConfigType::kFlag, what);
    } else if (member.key == "active") {
        CheckActive(what, value);
    } else if (member.key == "port") {
        mText.ExpectNumber(value, console == "tcp" ? 1 : 0, kMaxPort, what);
    } else if (member.key == "timeout") {
        mText.ExpectNumber(value, 0, INT_MAX, what);
    } else if (member.key != "route") {
        mText.Warn(member.keyOffset, "unknown key " + what);
    } else if (mText.Expect(value, ConfigType::kText, what)) {
        const std::string route = *mText.String(value);
        if (console == "tcp" && !route.empty() && !IsIpv4(route)) {
            mText.Warn(value, what + " must be an IPv4 address, or empty for all of them");
        } else if (console != "tcp" && route.empty()) {
            mText.Warn(value, what + " must name a tty");
        }
    }
}

// The daemon writes the record of the local console into the file with the others: what says
// nothing else than the record is no finding.
void ConfigCheck::CheckLocalMember(const ConfigMember& member, const CommonConfig& record) {
    const size_t value = member.valueOffset;
    bool same = false;
    if (member.key == "support" || member.key == "active") {
        const bool own = member.key == "support" ? record.support : record.active.Get();
        same = mText.Is(value, ConfigType::kFlag) && mText.IsTrue(value) == own;
    } else if (member.key == "route") {
        same = mText.String(value) == std::optional<std::string>(record.route);
    } else if (member.key == "port") {
        same = mText.Number(value) == std::optional<int>(record.port.Get());
    } else {
        mText.Warn(member.keyOffset, "unknown key " + Quoted(member.key));
        return;
    }
    if (!same) {
        mText.Warn(member.keyOffset,
                   Quoted(member.key) + " of \"local\" is not read: only its \"timeout\" is");
    }
}

void ConfigCheck::CheckActive(const std::string& what, size_t value) {
    if (mText.Is(value, ConfigType::kFlag)) {
        return;
    }
    if (!mText.Is(value, ConfigType::kObject)) {
        mText.Warn(value, what + " must be true, false or {\"PROPERTY\": \"VALUE\"}: it is off");
        return;
    }
    const std::vector<ConfigMember> members = mText.Members(value, what);
    if (members.empty()) {
        mText.Warn(value, what + " names no property: it is off");
        return;
    }
    if (!mText.Is(members[0].valueOffset, ConfigType::kText)) {
        mText.Warn(members[0].valueOffset,
                   "the value of a property must be a string: \"1\" is expected");
    }
    for (size_t i = 1; i < members.size(); ++i) {
        mText.Warn(members[i].keyOffset, "only the first property counts");
    }
}

void ConfigCheck::CheckReceiveMode(const ConfigMember& receive) {
    const ReceiveConfig& result = *mResult.GetReceiveConfig();
    const std::vector<ConfigMember> members =
        mText.Members(receive.valueOffset, "\"receive-mode\"");
    const bool timeTick = result.mode == kReceiveTimeTick;
    for (const ConfigMember& member : members) {
        if (member.key == "mode") {
            if (result.mode == kReceiveNone) {
                mText.Warn(member.valueOffset,
                           std::string("\"mode\" must be \"tail\" or \"timetick\"") + kNothingCut);
            }
        } else if (member.key == "tail") {
            CheckTail(member.valueOffset);
        } else if (member.key == "millisecond") {
            mText.ExpectNumber(member.valueOffset, timeTick ? 1 : 0, INT_MAX, Quoted(member.key));
        } else {
            mText.Warn(member.keyOffset, "unknown key " + Quoted(member.key));
        }
    }
    if (Find(members, "mode") == nullptr) {
        mText.Warn(receive.keyOffset,
                   std::string("\"receive-mode\" without \"mode\"") + kNothingCut);
    }
    if (timeTick && Find(members, "millisecond") == nullptr) {
        mText.Warn(receive.keyOffset,
                   "\"timetick\" without \"millisecond\": whatever one read brings is a command");
    }
}

void ConfigCheck::CheckTail(size_t value) {
    if (!mText.Expect(value, ConfigType::kText, "\"tail\"")) {
        return;
    }
    const std::string tail = *mText.String(value);
    std::string wrong;
    if (tail.size() < 2) {
        wrong = "is too short";
    } else if (tail.size() > kMaxTailDigits) {
        wrong = "is cut to " + std::to_string(kMaxTailBytes) + " bytes";
    } else if (tail.find_first_not_of("0123456789ABCDEFabcdef") != tail.npos) {
        wrong = "has more in it than hexadecimal digits";
    } else if (tail.size() % 2 != 0) {
        wrong = "has an odd digit";
    } else if (tail.size() == 2 && mResult.GetReceiveConfig()->mode == kReceiveTail) {
        // Framing needs a byte behind it, which a station that waits for its answer never sends.
        wrong = "of one byte is found only when more bytes follow";
    } else {
        return;
    }
    mText.Warn(value, "\"tail\" " + wrong + ": commands end with " +
                          TailDigits(*mResult.GetReceiveConfig()));
}

}  // namespace kelp::tools
