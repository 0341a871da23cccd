#include "peer/peeroptions.h"

#include <errno.h>
#include <getopt.h>
#include <string.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "common/text.h"
#include "peer/peerkeys.h"
#include "peer/scriptreader.h"
#include "platform/wholefile.h"

namespace kelp::tools {

namespace {

constexpr size_t kMaxScriptBytes = 64u << 20;

constexpr char kHelpHead[] =
    "Usage: kelp-peer [--log] SCRIPT.json\n"
    "       kelp-peer [--log] ROLE...\n"
    "\n"
    "Plays peer daemons until SIGINT or SIGTERM. Prints one line, \"ready\" and its sockets,\n"
    "once all of them are served, and removes them at the end.\n"
    "\n"
    "  --wcn SOCKET           answers each request with text\n"
    "  --modem SOCKET         the same; requests end in CR LF\n"
    "  --pcba SOCKET          answers with binary records: result, request, response\n"
    "  --log                  print requests and answers on standard error\n"
    "  --help                 print this and end\n"
    "\n"
    "SOCKET is a path or, with '@' in front, an abstract name. What follows a role describes\n"
    "it. TEXT may hold \\r \\n \\t \\\\ and \\xHH.\n"
    "\n";

constexpr char kHelpAnswers[] =
    "\n"
    "Answers. --request and --prefix begin one; what stands before the first of them makes the\n"
    "answer to everything else. The first that matches counts; a request that none matches gets\n"
    "\"\\r\\nERROR\\r\\n\", from a pcba peer a record with result 6003.\n"
    "\n";

constexpr char kHelpUnsolicited[] =
    "  --no-echo              pcba: the record has no request\n"
    "\n"
    "Said unasked, on every connection. --hex, --close, --repeat, --bytes, --pieces and --pause\n"
    "behind it belong to it, too.\n"
    "\n"
    "  --unsolicited TEXT     say TEXT\n";

constexpr char kHelpTail[] =
    "\n"
    "A script says the same in JSON, with the options' names (\"text\" for what is unsolicited):\n"
    "  {\"roles\": [{\"role\": \"wcn\", \"socket\": \"@wcn\",\n"
    "     \"answers\": [{\"request\": \"AT\", \"answer\": \"\\r\\nOK\\r\\n\", \"delay\": 50}],\n"
    "     \"unsolicited\": [{\"text\": \"\\r\\n+BEAT\\r\\n\", \"every\": 1000}]}]}\n"
    "\n"
    "Example, an echo peer: kelp-peer --wcn @echo --echo\n"
    "\n"
    "Exit status: 0 after a signal, 1 when the roles cannot be served, 64 for a usage error,\n"
    "65 for a script with an error.\n";

// Options other than those made from the tables of keys; theirs count from kFirstKey.
enum OptionCode { kHelp = 1, kLog, kUnsolicited, kNoEcho, kFirstKind, kFirstKey = 100 };

constexpr RoleKind kKinds[] = {RoleKind::kWcn, RoleKind::kModem, RoleKind::kPcba};

bool IsOption(const AnswerKey& key) {
    return key.info.help != nullptr;
}

class Parser {
  public:
    Parser(PeerOptions& options, std::string& error) : mOptions(options), mError(error) {}

    bool Parse(int argc, char** argv);

  private:
    std::vector<struct option> Table() const;
    bool Take(int code, const std::string& value);
    bool TakeRoleKey(const RoleKey& key, const std::string& value);
    bool TakeAnswerKey(const AnswerKey& key, const std::string& value);
    bool TakeUnsolicited(const std::string& value);
    bool Convert(const KeyInfo& info, const std::string& text, KeyValue& value);
    bool ReadScript(const std::string& path);
    bool CheckRoles();
    bool Fail(const std::string& message) {
        mError = message;
        return false;
    }

    Role& CurrentRole() { return mOptions.script.back(); }

    PeerOptions& mOptions;
    std::string& mError;
    bool mBySelf = false;  // the last thing begun is unsolicited
};

std::vector<struct option> Parser::Table() const {
    std::vector<struct option> table = {
        {"help", no_argument, nullptr, kHelp},
        {"log", no_argument, nullptr, kLog},
        {"unsolicited", required_argument, nullptr, kUnsolicited},
        {"no-echo", no_argument, nullptr, kNoEcho},
    };
    int code = kFirstKind;
    for (const RoleKind kind : kKinds) {
        table.push_back({RoleKindName(kind), required_argument, nullptr, code++});
    }
    code = kFirstKey;
    for (const RoleKey& key : RoleKeys()) {
        const int argument = key.info.type == KeyType::kFlag ? no_argument : required_argument;
        table.push_back({key.info.name, argument, nullptr, code++});
    }
    for (const AnswerKey& key : AnswerKeys()) {
        const int argument = key.info.type == KeyType::kFlag ? no_argument : required_argument;
        if (IsOption(key)) {
            table.push_back({key.info.name, argument, nullptr, code});
        }
        ++code;
    }
    table.push_back({nullptr, 0, nullptr, 0});
    return table;
}

bool Parser::Parse(int argc, char** argv) {
    const std::vector<struct option> table = Table();
    opterr = 0;
    int code;
    while ((code = getopt_long(argc, argv, "+:", table.data(), nullptr)) != -1) {
        if (code == ':') {
            return Fail(std::string(argv[optind - 1]) + " needs a value");
        }
        if (code == '?') {
            return Fail(std::string("unknown option ") + argv[optind - 1]);
        }
        if (!Take(code, optarg != nullptr ? optarg : "")) {
            return false;
        }
    }
    if (mOptions.help) {
        return true;
    }
    if (argc - optind > 1 || (argc > optind) != mOptions.script.empty()) {
        return Fail("give one script, or roles");
    }
    return argc > optind ? ReadScript(argv[optind]) : CheckRoles();
}

bool Parser::Take(int code, const std::string& value) {
    if (code == kHelp) {
        mOptions.help = true;
        return true;
    }
    if (code == kLog) {
        mOptions.log = true;
        return true;
    }
    if (code >= kFirstKind && code < kFirstKey) {
        mOptions.script.push_back(MakeRole(kKinds[code - kFirstKind]));
        CurrentRole().socket = value;
        mBySelf = false;
        return true;
    }
    if (mOptions.script.empty()) {
        return Fail("a role must come first: --wcn, --modem or --pcba");
    }
    if (code == kUnsolicited) {
        return TakeUnsolicited(value);
    }
    if (code == kNoEcho) {
        const bool ok = TakeAnswerKey(*FindAnswerKey("echo", kToRequests), "");
        if (ok) {
            CurrentRole().answers.back().echo = false;
        }
        return ok;
    }
    const size_t index = static_cast<size_t>(code - kFirstKey);
    const size_t roleKeys = RoleKeys().size();
    return index < roleKeys ? TakeRoleKey(RoleKeys()[index], value)
                            : TakeAnswerKey(AnswerKeys()[index - roleKeys], value);
}

bool Parser::TakeRoleKey(const RoleKey& key, const std::string& value) {
    KeyValue converted;
    if (!Convert(key.info, value, converted)) {
        return false;
    }
    key.set(CurrentRole(), converted);
    return true;
}

bool Parser::TakeAnswerKey(const AnswerKey& key, const std::string& value) {
    const std::string_view name = key.info.name;
    Role& role = CurrentRole();
    const bool begins = name == "request" || name == "prefix";
    mBySelf = mBySelf && !begins;
    if ((key.use & (mBySelf ? kBySelf : kToRequests)) == 0) {
        return Fail("--" + std::string(name) + " does not belong behind " +
                    (mBySelf ? "--unsolicited" : "a role or an answer"));
    }
    if ((key.use & kOnlyPcba) != 0 && role.kind != RoleKind::kPcba) {
        return Fail("--" + std::string(name) + " is only for --pcba");
    }
    KeyValue converted;
    if (!Convert(key.info, value, converted)) {
        return false;
    }
    std::vector<Answer>& answers = mBySelf ? role.unsolicited : role.answers;
    if (begins || answers.empty()) {
        answers.push_back(MakeAnswer(role.kind));
    }
    key.set(answers.back(), converted);
    return true;
}

bool Parser::TakeUnsolicited(const std::string& value) {
    mBySelf = true;
    CurrentRole().unsolicited.push_back(MakeAnswer(CurrentRole().kind));
    return TakeAnswerKey(*FindAnswerKey("text", kBySelf), value);
}

bool Parser::Convert(const KeyInfo& info, const std::string& text, KeyValue& value) {
    const std::string name = std::string("--") + info.name;
    switch (info.type) {
        case KeyType::kText:
            return Unescape(text, value.text) || Fail(name + ": a backslash that means nothing");
        case KeyType::kHex:
            return ParseHex(text, value.text) || Fail(name + " must be pairs of hex digits");
        case KeyType::kFlag:
            value.flag = true;
            return true;
        default:
            return ParseNumber(text, info.min, info.max, value.number) ||
                   Fail(name + " must be a whole number from " + std::to_string(info.min) + " to " +
                        std::to_string(info.max));
    }
}

bool Parser::ReadScript(const std::string& path) {
    std::string text;
    mOptions.scriptFailed = true;
    if (!ReadWholeFile(path, kMaxScriptBytes, text)) {
        return Fail(path + ": " + strerror(errno));
    }
    ScriptReader reader(path, std::move(text));
    mOptions.scriptFailed = !reader.Read(mOptions.script);
    return !mOptions.scriptFailed || Fail(reader.Error());
}

bool Parser::CheckRoles() {
    for (Role& role : mOptions.script) {
        // What answers everything must not stand in the way of those that answer something.
        std::vector<Answer>& answers = role.answers;
        if (answers.size() > 1 && answers[0].isPrefix && answers[0].match.empty()) {
            std::rotate(answers.begin(), answers.begin() + 1, answers.end());
        }
        const std::string option = std::string("--") + RoleKindName(role.kind);
        std::string wrong = CheckRole(role);
        for (const Answer& answer : role.answers) {
            wrong = wrong.empty() ? CheckAnswer(answer, kToRequests, role.kind) : wrong;
        }
        for (const Answer& answer : role.unsolicited) {
            wrong = wrong.empty() ? CheckAnswer(answer, kBySelf, role.kind) : wrong;
        }
        if (!wrong.empty()) {
            return Fail(option + " " + role.socket + ": " + wrong);
        }
    }
    return true;
}

std::string OptionHelp(const KeyInfo& info) {
    constexpr size_t kColumn = 25;
    constexpr const char* kValues[] = {" TEXT", " HEX", " N", ""};
    std::string line =
        std::string("  --") + info.name + kValues[static_cast<size_t>(info.type)] + " ";
    line.resize(std::max(line.size(), kColumn), ' ');
    for (const char* c = info.help; *c != '\0'; ++c) {
        line += *c;
        if (*c == '\n') {
            line.append(kColumn, ' ');
        }
    }
    return line + "\n";
}

}  // namespace

bool ParsePeerOptions(int argc, char** argv, PeerOptions& options, std::string& error) {
    return Parser(options, error).Parse(argc, argv);
}

std::string PeerHelp() {
    std::string text = kHelpHead;
    for (const RoleKey& key : RoleKeys()) {
        text += OptionHelp(key.info);
    }
    text += kHelpAnswers;
    for (const AnswerKey& key : AnswerKeys()) {
        text += (key.use & kToRequests) != 0 ? OptionHelp(key.info) : "";
    }
    text += kHelpUnsolicited;
    for (const AnswerKey& key : AnswerKeys()) {
        text += key.use == kBySelf && IsOption(key) ? OptionHelp(key.info) : "";
    }
    return text + kHelpTail;
}

}  // namespace kelp::tools
