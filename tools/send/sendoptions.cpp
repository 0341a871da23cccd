#include "send/sendoptions.h"

#include <getopt.h>

#include "common/text.h"

namespace kelp::tools {

const char kSendHelp[] =
    "Usage: kelp-send [OPTION]... TARGET COMMAND...\n"
    "       kelp-send [OPTION]... --file FILE TARGET [COMMAND]...\n"
    "\n"
    "Sends each command and prints its answer, byte for byte as it comes.\n"
    "\n"
    "TARGET is HOST:PORT, [IPV6]:PORT, an IPv4 address alone (port 3000), @NAME for an abstract\n"
    "local socket, or the path of a local socket or of a tty (put in raw mode at 115200 baud). A\n"
    "path must have a '/' in it.\n"
    "\n"
    "  --timeout SECONDS   wait for each answer so long, connecting included (10; 0.25 will do)\n"
    "  --expect TEXT       pass when the answer has TEXT in it, whatever it ends in, fail when\n"
    "                      not; \\r \\n \\t \\\\ and \\xHH are resolved\n"
    "  --quiet MS          silence that completes an answer without OK or ERROR (500; 0: none)\n"
    "  --terminator HEX    bytes behind each command (0D0A; empty: none)\n"
    "  --file FILE         then send the lines of FILE ('-': standard input); empty ones and\n"
    "                      those that begin with '#' are skipped\n"
    "  --stop              end with the first command that does not pass\n"
    "  --json              print one line for each command instead: an object of \"command\",\n"
    "                      \"answer\", \"status\" and \"milliseconds\" (to the last byte). Bytes "
    "that\n"
    "                      are no UTF-8 show as U+FFFD; \"hex\" then has the true ones\n"
    "  --help              print this and end\n"
    "\n"
    "An answer is complete when it ends in an OK or ERROR line between CR LFs, when the\n"
    "connection ends, or after the quiet time, if it is more than the command's own echo. With\n"
    "--expect, silence completes only an answer that has TEXT. What arrives between two\n"
    "commands is printed too (--json: status UNASKED). After a time-out the next command\n"
    "connects anew (not to a tty), so that a late answer is not taken for its own.\n"
    "\n"
    "Exit status, of the last command:\n"
    "  0   OK          the answer's last line is OK; with --expect: the answer has TEXT\n"
    "  1   ERROR       the last line is ERROR, +CME ERROR... or +CMS ERROR...\n"
    "  1   UNEXPECTED  complete, but without the TEXT of --expect\n"
    "  2   TIMEOUT     not complete in time; what came is printed\n"
    "  3   NOCONNECT   could not connect\n"
    "  3   LOST        the connection ended without an answer\n"
    "  4   TEXT        a complete answer that ends in neither OK nor ERROR; what a peer that\n"
    "                  answers so should say is for --expect to tell\n"
    "  64  a usage error; 66 an unreadable FILE or no command in it; 74 a failure to print\n";

namespace {

constexpr int kMaxTimeoutSeconds = 24 * 60 * 60;
constexpr int kMaxQuietMs = 60 * 60 * 1000;

enum OptionCode { kHelp = 1, kTimeout, kExpect, kQuiet, kTerminator, kFile, kStop, kJson };

constexpr struct option kTable[] = {
    {"help", no_argument, nullptr, kHelp},
    {"timeout", required_argument, nullptr, kTimeout},
    {"expect", required_argument, nullptr, kExpect},
    {"quiet", required_argument, nullptr, kQuiet},
    {"terminator", required_argument, nullptr, kTerminator},
    {"file", required_argument, nullptr, kFile},
    {"stop", no_argument, nullptr, kStop},
    {"json", no_argument, nullptr, kJson},
    {nullptr, 0, nullptr, 0},
};

// What is wrong with the option's value, or null.
const char* Take(int code, const std::string& value, SendOptions& options) {
    StationSettings& settings = options.settings;
    switch (code) {
        case kTimeout:
            return ParseSeconds(value, kMaxTimeoutSeconds, settings.timeoutMs)
                       ? nullptr
                       : "--timeout must be seconds, with up to three decimals";
        case kExpect:
            return Unescape(value, settings.expected) && !settings.expected.empty()
                       ? nullptr
                       : "--expect must be a text without stray backslashes";
        case kQuiet:
            return ParseNumber(value, 0, kMaxQuietMs, settings.quietMs)
                       ? nullptr
                       : "--quiet must be milliseconds";
        case kTerminator:
            return ParseHex(value, settings.terminator)
                       ? nullptr
                       : "--terminator must be pairs of hex digits";
        case kFile:
            options.file = value;
            return value.empty() ? "--file must name a file" : nullptr;
        case kHelp:
            options.help = true;
            return nullptr;
        case kStop:
            options.stop = true;
            return nullptr;
        default:
            options.json = true;
            return nullptr;
    }
}

}  // namespace

bool ParseSendOptions(int argc, char** argv, SendOptions& options, std::string& error) {
    opterr = 0;
    int code;
    while ((code = getopt_long(argc, argv, ":", kTable, nullptr)) != -1) {
        if (code == ':' || code == '?') {
            error = std::string(argv[optind - 1]) +
                    (code == ':' ? " needs a value" : ": no such option");
            return false;
        }
        const char* wrong = Take(code, optarg != nullptr ? optarg : "", options);
        if (wrong != nullptr) {
            error = wrong;
            return false;
        }
    }
    if (options.help) {
        return true;
    }
    if (optind >= argc) {
        error = "no target";
        return false;
    }
    options.targetText = argv[optind++];
    if (!ParseTarget(options.targetText, options.target)) {
        error = options.targetText + " is neither HOST:PORT, @NAME nor a path with a '/'";
        return false;
    }
    options.commands.assign(argv + optind, argv + argc);
    if (options.commands.empty() && options.file.empty()) {
        error = "no command";
        return false;
    }
    return true;
}

}  // namespace kelp::tools
