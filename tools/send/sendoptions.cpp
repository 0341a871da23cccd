#include "send/sendoptions.h"

#include <unistd.h>

#include "common/arguments.h"
#include "common/text.h"

namespace kelp::tools {

namespace {

constexpr int kMaxTimeoutSeconds = 24 * 60 * 60;
constexpr int kMaxQuietMs = 60 * 60 * 1000;

constexpr char kHelp[] =
    "Sends each command and prints its answer, byte for byte as it arrives. Without a command and "
    "on a terminal, sends each typed line and shows everything that arrives, until the end of file "
    "(Ctrl-D)."
    "\v"
    "TARGET is HOST:PORT, an IPv4 address alone (port 3000), @NAME for an abstract "
    "local socket, or the path of a local socket or of a tty. A path must contain a '/'. A tty is "
    "locked and put in raw mode at 115200 baud, and bytes that it received before it was opened "
    "are dropped. "
    "TEXT may contain \\r \\n \\t \\\\ and \\xHH.\n"
    "\n"
    "An answer is complete when it ends in a line OK, ERROR, +CME ERROR: or +CMS ERROR: between "
    "CR LFs, when the connection ends, or after the quiet time (--quiet), if more than the "
    "echo of the command has arrived. --expect and --expect-error ignore the echo and unsolicited "
    "reports, and with them the quiet time completes only an error or, if --quiet is given, an "
    "answer that passes. Bytes that arrive between two commands are also printed (with --json: "
    "status UNASKED). After a time-out the next command uses a new connection; on a tty it is sent "
    "only after the late answer, which is printed like these bytes, or ends with a time-out, too.\n"
    "\n"
    "Exit status, the largest of all commands:\n"
    "  0 OK          passed: the answer ends in OK, or it is as expected\n"
    "  1 ERROR       the answer ends in ERROR, +CME ERROR:, +CMS ERROR: or an error\n"
    "                text of the daemon, or contains \"Unsupport command\"\n"
    "  1 UNEXPECTED  the answer is complete, but not as expected\n"
    "  2 TIMEOUT     the answer was not complete in time; what arrived is printed\n"
    "  3 NOCONNECT   could not connect, or another program has locked the tty\n"
    "  3 LOST        the connection ended without an answer\n"
    "  4 TEXT        the answer is complete, but neither OK nor an error, and\n"
    "                nothing was expected\n"
    "  64            usage error\n"
    "  66            FILE cannot be read or has no command in it\n"
    "  74            standard output could not be written\n";

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
     "wait at most SECONDS for each answer, including the connect; default 10; fractions such as "
     "0.25 are allowed",
     0},
    {"expect", kExpect, "TEXT", 0,
     "pass if the answer is not an error and contains TEXT; it need not end in OK. If the option "
     "is given more than once, the answer must contain all texts",
     0},
    {"expect-error", kExpectError, "TEXT", 0,
     "pass if the answer is an error and contains TEXT: for a command that must be refused. If the "
     "option is given more than once, the answer must contain all texts. Not together with "
     "--expect",
     0},
    {"quiet", kQuiet, "MS", 0,
     "milliseconds of silence that complete an answer without a result line; default 500; 0: "
     "never. With --expect or --expect-error, such an answer passes only if it is an error or this "
     "option is given. Choose more than the longest pause in an answer",
     0},
    {"terminator", kTerminator, "HEX", 0,
     "bytes to send after each command; default 0D0A; empty: none", 0},
    {"file", kFile, "FILE", 0,
     "after the commands of the command line, send the lines of FILE ('-': standard input). Empty "
     "lines and lines that begin with '#' are skipped",
     0},
    {"stop", kStop, nullptr, 0, "stop after the first command that does not pass", 0},
    {"json", kJson, nullptr, 0,
     "for each command, print one line in place of the answer: an object with \"command\", "
     "\"answer\", \"status\" and \"milliseconds\" (to the last byte). If the answer is not UTF-8, "
     "its invalid bytes are shown as U+FFFD, and \"hex\" has the original bytes in hexadecimal",
     0},
    {nullptr, 0, nullptr, 0, nullptr, 0},
};

void AddExpected(const char* value, bool error, struct argp_state* state, Expectation& all) {
    std::string text;
    if (!Unescape(value, text) || text.empty()) {
        argp_error(state,
                   "the expected text must not be empty; valid escapes: "
                   "\\r \\n \\t \\\\ and \\xHH");
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
                argp_error(state, "--timeout must be 0 to %d seconds, with up to three decimals",
                           kMaxTimeoutSeconds);
            }
            return 0;
        case kExpect:
        case kExpectError:
            AddExpected(value, key == kExpectError, state, settings.expectation);
            return 0;
        case kQuiet:
            if (!ParseNumber(value, 0, kMaxQuietMs, settings.quietMs)) {
                argp_error(state, "--quiet must be 0 to %d milliseconds", kMaxQuietMs);
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
