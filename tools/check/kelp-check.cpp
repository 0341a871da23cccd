// Reports how the daemon reads a configuration file: see kHelp.

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
    "Reads each configuration file as the daemon does, and prints the resulting configuration on "
    "standard output: a complete file, with all values and with each \"active\" as the resulting "
    "true or false (KELP_PROPERTIES names a file used in place of system properties). Then warns "
    "on standard error, as FILE:LINE:COLUMN: warning: TEXT, about what the daemon would ignore or "
    "could not serve. What may be intended is a note instead of a warning. Opens no socket and "
    "changes nothing."
    "\v"
    "Exit status, the largest of all files:\n"
    "  0   no warnings; there may be notes\n"
    "  1   warnings\n"
    "  2   the daemon refuses the file and would use its built-in configuration\n"
    "  64  usage error\n"
    "  74  standard output could not be written\n";

constexpr int kNoPaths = 256;  // without a letter
constexpr struct argp_option kOptions[] = {
    {"no-paths", kNoPaths, nullptr, 0,
     "do not check the paths of sockets and ttys; for a file that is meant for another machine", 0},
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

const char* Reason(int error) {
    return error == EFBIG ? "longer than 1 MiB" : strerror(error);
}

int Refuse(const std::string& file, const std::string& why) {
    fprintf(stderr, "%s: error: %s\n", file.c_str(), why.c_str());
    return kExitUnreadable;
}

int Check(const std::string& file, bool paths, bool title) {
    kelp::ConfigManager config;
    neb::CJsonObject document;
    std::string text;
    // An empty name would mean the daemon's default file.
    if (file.empty() || !kelp::ReadWholeFile(file, kelp::kMaxConfigBytes, text)) {
        const int error = file.empty() ? ENOENT : errno;
        return Refuse(file, Reason(error));
    }
    if (!document.Parse(text)) {
        const neb::CJsonPosition at = document.ErrorPosition();
        return Refuse(file + ":" + std::to_string(at.line) + ":" + std::to_string(at.column),
                      document.ErrorReason());
    }
    if (!config.ParseJSONDoc(file)) {
        return Refuse(file, "changed while it was read");
    }
    kelp::tools::ConfigText checked(text);
    kelp::tools::ConfigCheck(checked, config, paths).Run();
    const std::string findings = checked.Findings(file);
    printf("%s%s", title ? ("==> " + file + " <==\n").c_str() : "",
           kelp::tools::PrintConfig(config).c_str());
    fflush(stdout);
    fputs(findings.c_str(), stderr);
    return checked.HasWarnings() ? kExitWarnings : 0;
}

}  // namespace

int main(int argc, char** argv) {
    // The log records of the daemon's own reader would only repeat these findings, less exactly.
    kelp::SetLogFilter("*:S");
    CheckOptions options;
    kelp::tools::ReadArguments(
        argc, argv, {kOptions, TakeArgument, "FILE...", kHelp, nullptr, nullptr, nullptr},
        &options);
    int status = 0;
    if (!kelp::SystemProperty::SetFile(getenv("KELP_PROPERTIES"))) {
        fprintf(stderr, "%s: warning: every property counts as absent: %s\n",
                getenv("KELP_PROPERTIES"), Reason(errno));
        status = kExitWarnings;
    }
    for (const std::string& file : options.files) {
        status = std::max(status, Check(file, options.paths, options.files.size() > 1));
    }
    return ferror(stdout) != 0 ? kExitPrint : status;
}
