// Tells what the daemon makes of a configuration file: see kHelp.

#include <errno.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "check/configcheck.h"
#include "check/configprint.h"
#include "check/configtext.h"
#include "common/arguments.h"
#include "config/configmanager.h"
#include "platform/cjsonobject.h"
#include "platform/log.h"
#include "platform/systemproperty.h"
#include "platform/wholefile.h"

namespace {

constexpr int kExitWarnings = 1;
constexpr int kExitUnreadable = 2;
constexpr int kExitPrint = 74;

constexpr char kHelp[] =
    "Reads each configuration as the daemon would, and prints the one that results on standard "
    "output: a file of its own, with every value written out and each \"active\" as it was found "
    "(KELP_PROPERTIES names the file of system properties). Then warns on standard error, as "
    "FILE:LINE:COLUMN: warning: TEXT, of what the daemon would pass over in silence or could not "
    "serve. Opens no socket and changes nothing."
    "\v"
    "Exit status, of the worst file:\n"
    "  0   nothing to tell\n"
    "  1   warnings\n"
    "  2   a file that cannot be read or is no JSON: the daemon takes its defaults\n"
    "  64  a usage error; 74 a failure to print\n";

constexpr int kNoPaths = 256;  // no letter's
constexpr struct argp_option kOptions[] = {
    {"no-paths", kNoPaths, nullptr, 0,
     "do not look for the peers' sockets: the file is for another machine", 0},
    {nullptr, 0, nullptr, 0, nullptr, 0},
};

struct CheckOptions {
    bool paths = true;
    std::vector<std::string> files;
};

error_t TakeArgument(int key, char* text, struct argp_state* state) {
    CheckOptions& options = *static_cast<CheckOptions*>(state->input);
    switch (key) {
        case kNoPaths:
            options.paths = false;
            return 0;
        case ARGP_KEY_ARG:
            options.files.emplace_back(text);
            return 0;
        case ARGP_KEY_NO_ARGS:
            argp_error(state, "no file");
            return EINVAL;
        default:
            return ARGP_ERR_UNKNOWN;
    }
}

int Refuse(const std::string& file, const std::string& why) {
    fprintf(stderr, "%s: error: %s\n", file.c_str(), why.c_str());
    return kExitUnreadable;
}

int Check(const std::string& file, bool paths, bool title) {
    constexpr size_t kMaxBytes = 1u << 30;  // beyond what the daemon takes: it tells that itself
    kelp::ConfigManager config;
    neb::CJsonObject document;
    std::string text;
    // An empty name would mean the daemon's default file.
    if (file.empty() || !kelp::ReadWholeFile(file, kMaxBytes, text)) {
        return Refuse(file, strerror(file.empty() ? ENOENT : errno));
    }
    errno = 0;
    if (!config.ReadJSONDoc(file, document)) {
        const neb::CJsonPosition at = document.ErrorPosition();
        return at.line == 0
                   ? Refuse(file, strerror(errno))
                   : Refuse(file + ":" + std::to_string(at.line) + ":" + std::to_string(at.column),
                            "not valid JSON");
    }
    config.ParseJSONDoc(file);
    kelp::tools::ConfigText checked(text);
    kelp::tools::ConfigCheck(checked, config).Run(paths);
    const std::vector<std::string> warnings = checked.Warnings(file);
    printf("%s%s", title ? ("==> " + file + " <==\n").c_str() : "",
           kelp::tools::PrintConfig(config).c_str());
    fflush(stdout);
    for (const std::string& warning : warnings) {
        fprintf(stderr, "%s\n", warning.c_str());
    }
    return warnings.empty() ? 0 : kExitWarnings;
}

}  // namespace

int main(int argc, char** argv) {
    // The records of the daemon's own reader would only repeat what is told here, less exactly.
    kelp::SetLogFilter("*:S");
    kelp::SystemProperty::SetFile(getenv("KELP_PROPERTIES"));
    CheckOptions options;
    kelp::tools::ReadArguments(
        argc, argv, {kOptions, TakeArgument, "FILE...", kHelp, nullptr, nullptr, nullptr},
        &options);
    int status = 0;
    for (const std::string& file : options.files) {
        status = std::max(status, Check(file, options.paths, options.files.size() > 1));
    }
    return ferror(stdout) != 0 ? kExitPrint : status;
}
