// Tells what the daemon makes of a configuration file: see kHelp.

#include <errno.h>
#include <getopt.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "check/configcheck.h"
#include "check/configprint.h"
#include "check/configtext.h"
#include "config/configmanager.h"
#include "platform/cjsonobject.h"
#include "platform/wholefile.h"

namespace {

constexpr int kExitWarnings = 1;
constexpr int kExitUnreadable = 2;
constexpr int kExitUsage = 64;
constexpr int kExitPrint = 74;

const char kHelp[] =
    "Usage: kelp-check [OPTION]... FILE...\n"
    "\n"
    "Reads each configuration as the daemon would, and prints the one that results on standard\n"
    "output: a file of its own, with every value written out and each \"active\" as it was found\n"
    "(KELP_PROPERTIES names the file of system properties). Then warns on standard error, as\n"
    "FILE:LINE:COLUMN: warning: TEXT, of what the daemon would pass over in silence or could not\n"
    "serve. Opens no socket and changes nothing.\n"
    "\n"
    "  --no-paths  do not look for the peers' sockets: the file is for another machine\n"
    "  --help      print this and end\n"
    "\n"
    "Exit status, of the worst file:\n"
    "  0   nothing to tell\n"
    "  1   warnings\n"
    "  2   a file that cannot be read or is not JSON: the daemon would run on its defaults\n"
    "  64  a usage error; 74 a failure to print\n";

// The records of the daemon's own reader would only repeat what is told here, less exactly. Its
// filter is read while the program loads: a constructor with a priority runs before that.
__attribute__((constructor(200))) void SilenceLog() {
    setenv("ANDROID_LOG_TAGS", "*:S KELP:S", 1);
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

int RefuseUsage(const std::string& why) {
    fprintf(stderr, "kelp-check: %s\nTry kelp-check --help\n", why.c_str());
    return kExitUsage;
}

}  // namespace

int main(int argc, char** argv) {
    static constexpr int kHelpCode = 256;  // no letter's
    static constexpr int kNoPathsCode = 257;
    static constexpr struct option kOptions[] = {
        {"help", no_argument, nullptr, kHelpCode},
        {"no-paths", no_argument, nullptr, kNoPathsCode},
        {nullptr, 0, nullptr, 0},
    };
    bool paths = true;
    int status = 0;
    opterr = 0;
    for (int code; (code = getopt_long(argc, argv, "", kOptions, nullptr)) != -1;) {
        if (code == kHelpCode) {
            return fputs(kHelp, stdout) < 0 || fflush(stdout) != 0 ? kExitPrint : 0;
        }
        if (code != kNoPathsCode) {
            // Several letters in one word are behind optind only once all of them are read.
            const bool letter = optopt > 0 && optopt < kHelpCode;
            return RefuseUsage((letter ? std::string("-") + static_cast<char>(optopt)
                                       : std::string(argv[optind - 1])) +
                               ": no such option");
        }
        paths = false;
    }
    if (optind >= argc) {
        return RefuseUsage("no file");
    }
    for (int i = optind; i < argc; ++i) {
        status = std::max(status, Check(argv[i], paths, argc - optind > 1));
    }
    return ferror(stdout) != 0 ? kExitPrint : status;
}
