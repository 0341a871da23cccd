#include "peer/peeroptions.h"

#include <algorithm>
#include <vector>

#include "common/arguments.h"
#include "common/text.h"
#include "peer/peerkeys.h"

namespace kelp::tools {

namespace {

constexpr char kHelp[] =
    "Plays peer daemons until SIGINT or SIGTERM. Prints one line, \"ready\" and its sockets, once "
    "all "
    "of them are served, and removes them at the end."
    "\v"
    "A script says the same in JSON, with the options' names (\"text\" for what is unsolicited):\n"
    "  {\"roles\": [{\"role\": \"wcn\", \"socket\": \"@wcn\", \"answers\": [\n"
    "     {\"request\": \"AT\", \"answer\": \"\\r\\nOK\\r\\n\", \"delay\": 50}],\n"
    "     \"unsolicited\": [{\"text\": \"\\r\\n+BEAT\\r\\n\", \"every\": 1000}]}]}\n"
    "\n"
    "Example, an echo peer: kelp-peer --wcn @echo --echo\n"
    "\n"
    "Exit status: 0 after a signal, 1 when the roles cannot be served, 64 for a usage error, 65 "
    "for "
    "a script with an error.\n";

constexpr char kRolesHelp[] =
    "Roles. SOCKET is a path or, with '@' in front, an abstract name. What follows a role "
    "describes "
    "it. TEXT may hold \\r \\n \\t \\\\ and \\xHH.";

constexpr char kAnswersHelp[] =
    "Answers. --request and --prefix begin one; what stands before the first of them makes the "
    "answer to everything else. The first that matches counts; a request that none matches gets "
    "\"\\r\\nERROR\\r\\n\", from a pcba peer a record with result 6003.";

constexpr char kUnsolicitedHelp[] =
    "Said unasked, on every connection. --hex, --close, --repeat, --bytes, --pieces and --pause "
    "behind it belong to it, too.";

struct KindOption {
    RoleKind kind;
    const char* help;
};
constexpr KindOption kKinds[] = {
    {RoleKind::kWcn, "answer each request with text"},
    {RoleKind::kModem, "answer requests that end in CR LF with text"},
    {RoleKind::kPcba, "answer with binary records: result, request, response"},
};

// Options beside those from the key tables, which start at kFirstKey.
enum OptionCode { kLog = 256, kUnsolicited, kNoEcho, kFirstKind, kFirstKey = 300 };

// The sections of the help.
enum Group { kGeneral, kRoles, kAnswers, kSaidUnasked };

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
        Heading(kUnsolicitedHelp, kSaidUnasked),
        {"unsolicited", kUnsolicited, "TEXT", 0, "say TEXT", kSaidUnasked},
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
            const bool unasked = key.use == kBySelf;
            table.push_back(OptionOf(key.info, code, unasked ? kSaidUnasked : kAnswers));
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
        Fail("--" + std::string(name) + " does not belong behind " +
             (mBySelf ? "--unsolicited" : "a role or an answer"));
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
                Fail(name + ": a backslash that means nothing");
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
        Fail("give one script, or roles");
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
