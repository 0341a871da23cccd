#include "peer/peeroptions.h"

#include <algorithm>
#include <vector>

#include "common/arguments.h"
#include "common/text.h"
#include "peer/peerkeys.h"

namespace kelp::tools {

namespace {

constexpr char kHelp[] =
    "Listens on local sockets in place of the peer daemons, and answers as described by a script "
    "or by options. When all sockets are open, prints one line, \"ready\" and the sockets. Runs "
    "until SIGINT, SIGTERM or SIGHUP, and then removes the sockets."
    "\v"
    "A script describes the same in JSON, with the names of the options (an unsolicited message "
    "has its text in \"text\"):\n"
    "  {\"roles\": [{\"role\": \"wcn\", \"socket\": \"@wcn\", \"answers\": [\n"
    "     {\"request\": \"AT\", \"answer\": \"\\r\\nOK\\r\\n\", \"delay\": 50}],\n"
    "     \"unsolicited\": [{\"text\": \"\\r\\n+BEAT\\r\\n\", \"every\": 1000}]}]}\n"
    "\n"
    "Example, an echo peer: kelp-peer --wcn @echo --echo\n"
    "\n"
    "Exit status:\n"
    "  0   ended by a signal\n"
    "  1   a socket could not be opened\n"
    "  64  usage error\n"
    "  65  the script cannot be read or has an error; the position is printed\n";

constexpr char kRolesHelp[] =
    "Roles. Each of --wcn, --modem and --pcba starts a peer; the options after it describe this "
    "peer. SOCKET is a path, or '@' and an abstract name. TEXT may contain \\r \\n \\t \\\\ and "
    "\\xHH.";

constexpr char kAnswersHelp[] =
    "Answers. --request and --prefix each start an answer; the options after it describe this "
    "answer. Options before the first of them describe the answer to all other requests. The first "
    "answer that matches a request is used. A request that matches none gets "
    "\"\\r\\nERROR\\r\\n\", or from a pcba peer a record with result 6003.";

constexpr char kUnsolicitedHelp[] =
    "Unsolicited messages. --unsolicited starts a message that is sent on every connection "
    "without a request. --hex, --close, --repeat, --bytes, --pieces and --pause after it describe "
    "this message. --after or --every is required.";

struct KindOption {
    RoleKind kind;
    const char* help;
};
constexpr KindOption kKinds[] = {
    {RoleKind::kWcn, "answer each request with text"},
    {RoleKind::kModem, "answer each request with text; requests end in CR LF"},
    {RoleKind::kPcba, "answer each request with a binary record: result, request, response"},
};

// Options beside those from the key tables, which start at kFirstKey.
enum OptionCode { kLog = 256, kUnsolicited, kNoEcho, kFirstKind, kFirstKey = 300 };

// The sections of the help.
enum Group { kGeneral, kRoles, kAnswers, kMessages };

struct argp_option Heading(const char* text, int group) {
    return {nullptr, 0, nullptr, 0, text, group};
}

struct argp_option OptionOf(const KeyInfo& info, int code, int group) {
    constexpr const char* kValues[] = {"TEXT", "HEX", "N", nullptr};
    return {info.name, code, kValues[static_cast<size_t>(info.type)], 0, info.help, group};
}

std::vector<struct argp_option> Table() {
    std::vector<struct argp_option> table = {
        {"log", kLog, nullptr, 0, "print requests and answers on standard error", kGeneral},
        Heading(kRolesHelp, kRoles),
        Heading(kAnswersHelp, kAnswers),
        {"no-echo", kNoEcho, nullptr, 0, "pcba: leave the request out of the record", kAnswers},
        Heading(kUnsolicitedHelp, kMessages),
        {"unsolicited", kUnsolicited, "TEXT", 0, "send TEXT as an unsolicited message", kMessages},
    };
    int code = kFirstKind;
    for (const KindOption& kind : kKinds) {
        table.push_back({RoleKindName(kind.kind), code++, "SOCKET", 0, kind.help, kRoles});
    }
    code = kFirstKey;
    for (const RoleKey& key : RoleKeys()) {
        table.push_back(OptionOf(key.info, code++, kRoles));
    }
    for (const AnswerKey& key : AnswerKeys()) {
        if (key.info.help != nullptr) {
            const bool unsolicited = key.use == kBySelf;
            table.push_back(OptionOf(key.info, code, unsolicited ? kMessages : kAnswers));
        }
        ++code;
    }
    table.push_back({nullptr, 0, nullptr, 0, nullptr, 0});
    return table;
}

// Refuses by argp_error, which does not return.
class Parser {
  public:
    explicit Parser(PeerOptions& options) : mOptions(options) {}

    // As an argp_parser_t, with a Parser as input.
    static error_t Take(int key, char* value, struct argp_state* state);

  private:
    bool TakeOption(int code, const char* value);
    void TakeAnswerKey(const AnswerKey& key, const char* value);
    void TakeUnsolicited(const char* value);
    KeyValue Convert(const KeyInfo& info, const char* text);
    void Check();
    void CheckRole(Role& role);
    void Fail(const std::string& message) { argp_error(mState, "%s", message.c_str()); }

    Role& CurrentRole() { return mOptions.script.back(); }

    PeerOptions& mOptions;
    struct argp_state* mState = nullptr;
    bool mBySelf = false;  // the last answer begun is unsolicited
};

error_t Parser::Take(int key, char* value, struct argp_state* state) {
    Parser& parser = *static_cast<Parser*>(state->input);
    parser.mState = state;
    if (key == ARGP_KEY_ARG && state->arg_num == 0) {
        parser.mOptions.file = value;
        return 0;
    }
    if (key == ARGP_KEY_END) {
        parser.Check();
        return 0;
    }
    return parser.TakeOption(key, value) ? 0 : ARGP_ERR_UNKNOWN;
}

bool Parser::TakeOption(int code, const char* value) {
    const size_t roleKeys = RoleKeys().size();
    const size_t index = static_cast<size_t>(code - kFirstKey);
    if (code < kLog || (code >= kFirstKey && index >= roleKeys + AnswerKeys().size())) {
        return false;  // one of argp's own
    }
    if (code == kLog) {
        mOptions.log = true;
        return true;
    }
    if (code >= kFirstKind && code < kFirstKey) {
        mOptions.script.push_back(MakeRole(kKinds[code - kFirstKind].kind));
        CurrentRole().socket = value;
        mBySelf = false;
        return true;
    }
    if (mOptions.script.empty()) {
        Fail("a role must come first: --wcn, --modem or --pcba");
    }
    if (code == kUnsolicited) {
        TakeUnsolicited(value);
    } else if (code == kNoEcho) {
        TakeAnswerKey(*FindAnswerKey("echo", kToRequests), value);
        CurrentRole().answers.back().echo = false;
    } else if (index < roleKeys) {
        const RoleKey& key = RoleKeys()[index];
        key.set(CurrentRole(), Convert(key.info, value));
    } else {
        TakeAnswerKey(AnswerKeys()[index - roleKeys], value);
    }
    return true;
}

void Parser::TakeAnswerKey(const AnswerKey& key, const char* value) {
    const std::string_view name = key.info.name;
    Role& role = CurrentRole();
    const bool begins = name == "request" || name == "prefix";
    mBySelf = mBySelf && !begins;
    if ((key.use & (mBySelf ? kBySelf : kToRequests)) == 0) {
        Fail("--" + std::string(name) +
             (mBySelf ? " does not apply to --unsolicited" : " is only for --unsolicited"));
    }
    if ((key.use & kOnlyPcba) != 0 && role.kind != RoleKind::kPcba) {
        Fail("--" + std::string(name) + " is only for --pcba");
    }
    std::vector<Answer>& answers = mBySelf ? role.unsolicited : role.answers;
    if (begins || answers.empty()) {
        answers.push_back(MakeAnswer(role.kind));
    }
    key.set(answers.back(), Convert(key.info, value));
}

void Parser::TakeUnsolicited(const char* value) {
    mBySelf = true;
    CurrentRole().unsolicited.push_back(MakeAnswer(CurrentRole().kind));
    TakeAnswerKey(*FindAnswerKey("text", kBySelf), value);
}

KeyValue Parser::Convert(const KeyInfo& info, const char* text) {
    const std::string name = std::string("--") + info.name;
    KeyValue value;
    switch (info.type) {
        case KeyType::kText:
            if (!Unescape(text, value.text)) {
                Fail(name + ": invalid escape; valid: \\r \\n \\t \\\\ and \\xHH");
            }
            break;
        case KeyType::kHex:
            if (!ParseHex(text, value.text)) {
                Fail(name + " must be pairs of hex digits");
            }
            break;
        case KeyType::kFlag:
            value.flag = true;
            break;
        default:
            if (!ParseNumber(text, info.min, info.max, value.number)) {
                Fail(name + " must be a whole number from " + std::to_string(info.min) + " to " +
                     std::to_string(info.max));
            }
    }
    return value;
}

void Parser::Check() {
    if (mOptions.file.empty() == mOptions.script.empty()) {
        Fail("give either a script or roles");
    }
    for (Role& role : mOptions.script) {
        CheckRole(role);
    }
}

void Parser::CheckRole(Role& role) {
    // Move the answer to every request after the specific ones.
    std::vector<Answer>& answers = role.answers;
    if (answers.size() > 1 && answers[0].isPrefix && answers[0].match.empty()) {
        std::rotate(answers.begin(), answers.begin() + 1, answers.end());
    }
    std::string wrong = tools::CheckRole(role);
    for (const Answer& answer : role.answers) {
        wrong = wrong.empty() ? CheckAnswer(answer, kToRequests, role.kind) : wrong;
    }
    for (const Answer& answer : role.unsolicited) {
        wrong = wrong.empty() ? CheckAnswer(answer, kBySelf, role.kind) : wrong;
    }
    if (!wrong.empty()) {
        Fail(std::string("--") + RoleKindName(role.kind) + " " + role.socket + ": " + wrong);
    }
}

}  // namespace

PeerOptions ReadPeerOptions(int argc, char** argv) {
    PeerOptions options;
    Parser parser(options);
    const std::vector<struct argp_option> table = Table();
    ReadArguments(
        argc, argv,
        {table.data(), Parser::Take, "SCRIPT.json\nROLE...", kHelp, nullptr, nullptr, nullptr},
        &parser);
    return options;
}

}  // namespace kelp::tools
