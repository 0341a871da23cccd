#include "send/sendoptions.h"

#include <unistd.h>

#include "common/arguments.h"
#include "common/text.h"

namespace kelp::tools {

namespace {

constexpr int kMaxTimeoutSeconds = 24 * 60 * 60;
constexpr int kMaxQuietMs = 60 * 60 * 1000;

constexpr char kHelp[] =
    "Sends each command and prints its answer, byte for byte as it comes. Without a command and on "
    "a terminal: sends the lines that are typed and shows what comes, until end of file (Ctrl-D)."
    "\v"
    "TARGET is HOST:PORT, [IPV6]:PORT, an IPv4 address alone (port 3000), @NAME for an abstract "
    "local socket, or the path of a local socket or of a tty (put in raw mode at 115200 baud, and "
    "what it had received is dropped). A path must have a '/' in it. In TEXT, \\r \\n \\t \\\\ and "
    "\\xHH are resolved.\n"
    "\n"
    "An answer is complete when it ends in a line OK, ERROR, +CME ERROR: or +CMS ERROR: between "
    "CR LFs, when the connection ends, or after the quiet time if it is more than the command's "
    "own echo. With --expect and --expect-error, neither the echo nor an unsolicited report "
    "counts, "
    "and silence completes only an error or, if --quiet is given, what passes. What arrives "
    "between "
    "two commands is printed too (--json: status UNASKED).\n"
    "\n"
    "Exit status, the largest of all commands:\n"
    "  0   OK          passed: the answer ends in OK, or it is as expected\n"
    "  1   ERROR       ends in ERROR, +CME ERROR:, +CMS ERROR: or an error text of\n"
    "                  the daemon, or has \"Unsupport command\" in it\n"
    "  1   UNEXPECTED  complete, but not as expected\n"
    "  2   TIMEOUT     not complete in time; what came is printed\n"
    "  3   NOCONNECT   could not connect\n"
    "  3   LOST        the connection ended without an answer\n"
    "  4   TEXT        complete, nothing was expected, and neither OK nor an error\n"
    "  64  a usage error; 66 an unreadable FILE or no command in it; 74 a failure\n"
    "      to print\n";

enum OptionCode {
    kTimeout = 256,  // no letters
    kExpect,
    kExpectError,
    kQuiet,
    kTerminator,
    kFile,
    kStop,
    kJson,
};

constexpr struct argp_option kOptions[] = {
    {"timeout", kTimeout, "SECONDS", 0,
     "wait for each answer so long, connecting included (10; 0.25 will do)", 0},
    {"expect", kExpect, "TEXT", 0,
     "pass when the answer is no error and has TEXT in it; given again, all must be there", 0},
    {"expect-error", kExpectError, "TEXT", 0,
     "pass when the answer is an error and has TEXT in it; likewise", 0},
    {"quiet", kQuiet, "MS", 0,
     "silence that completes an answer without a result line (500; 0: none); what is expected "
     "passes so only with this option",
     0},
    {"terminator", kTerminator, "HEX", 0, "bytes behind each command (0D0A; empty: none)", 0},
    {"file", kFile, "FILE", 0,
     "then send the lines of FILE ('-': standard input); empty ones and those that begin with '#' "
     "are skipped",
     0},
    {"stop", kStop, nullptr, 0, "end with the first command that does not pass", 0},
    {"json", kJson, nullptr, 0,
     "print one line for each command instead: an object of \"command\", \"answer\", \"status\" "
     "and \"milliseconds\" (to the last byte). Bytes that are no UTF-8 show as U+FFFD; \"hex\" "
     "then has the true ones",
     0},
    {nullptr, 0, nullptr, 0, nullptr, 0},
};

void AddExpected(const char* value, bool error, struct argp_state* state, Expectation& all) {
    std::string text;
    if (!Unescape(value, text) || text.empty()) {
        argp_error(state, "what is expected must be a text without stray backslashes");
    }
    if (!all.texts.empty() && all.error != error) {
        argp_error(state, "--expect and --expect-error exclude each other");
    }
    all.texts.push_back(text);
    all.error = error;
}

void TakeWord(const char* word, struct argp_state* state, SendOptions& options) {
    if (state->arg_num > 0) {
        options.commands.emplace_back(word);
        return;
    }
    options.targetText = word;
    if (!ParseTarget(options.targetText, options.target)) {
        argp_error(state, "%s is neither HOST:PORT, @NAME nor a path with a '/'", word);
    }
}

void Check(struct argp_state* state, SendOptions& options) {
    if (options.targetText.empty()) {
        argp_error(state, "no target");
    }
    const bool plain = !options.json && !options.stop && options.settings.expectation.texts.empty();
    if (options.commands.empty() && options.file.empty()) {
        options.terminal = plain && isatty(STDIN_FILENO) == 1;
        if (!options.terminal) {
            argp_error(state, "no command");
        }
    }
}

error_t Take(int key, char* value, struct argp_state* state) {
    SendOptions& options = *static_cast<SendOptions*>(state->input);
    StationSettings& settings = options.settings;
    switch (key) {
        case kTimeout:
            if (!ParseSeconds(value, kMaxTimeoutSeconds, settings.timeoutMs)) {
                argp_error(state, "--timeout must be seconds, with up to three decimals");
            }
            return 0;
        case kExpect:
        case kExpectError:
            AddExpected(value, key == kExpectError, state, settings.expectation);
            return 0;
        case kQuiet:
            if (!ParseNumber(value, 0, kMaxQuietMs, settings.quietMs)) {
                argp_error(state, "--quiet must be milliseconds");
            }
            settings.expectation.inSilence = true;
            return 0;
        case kTerminator:
            if (!ParseHex(value, settings.terminator)) {
                argp_error(state, "--terminator must be pairs of hex digits");
            }
            return 0;
        case kFile:
            options.file = value;
            return 0;
        case kStop:
            options.stop = true;
            return 0;
        case kJson:
            options.json = true;
            return 0;
        case ARGP_KEY_ARG:
            TakeWord(value, state, options);
            return 0;
        case ARGP_KEY_END:
            Check(state, options);
            return 0;
        default:
            return ARGP_ERR_UNKNOWN;
    }
}

}  // namespace

SendOptions ReadSendOptions(int argc, char** argv) {
    SendOptions options;
    ReadArguments(argc, argv,
                  {kOptions, Take, "TARGET [COMMAND...]", kHelp, nullptr, nullptr, nullptr},
                  &options);
    return options;
}

}  // namespace kelp::tools
