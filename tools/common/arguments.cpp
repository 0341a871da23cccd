#include "common/arguments.h"

#include <sysexits.h>

#include <cstdio>
#include <cstdlib>

namespace kelp::tools {

namespace {

constexpr int kUsage = 256;  // no letter

error_t TakeHelp(int key, char*, struct argp_state* state) {
    switch (key) {
        case 'h':
        case '?':
            argp_state_help(state, stdout, ARGP_HELP_STD_HELP);
            return 0;
        case kUsage:
            argp_state_help(state, stdout, ARGP_HELP_USAGE | ARGP_HELP_EXIT_OK);
            return 0;
        case 'V':
            printf("%s %s\n", state->name, KELP_VERSION);
            exit(EXIT_SUCCESS);
        default:
            return ARGP_ERR_UNKNOWN;
    }
}

}  // namespace

void ReadArguments(int argc, char** argv, struct argp program, void* input) {
    // In place of those of argp, which lack -h.
    static constexpr struct argp_option kOptions[] = {
        {"help", 'h', nullptr, 0, "print a summary and exit", -1},
        {nullptr, '?', nullptr, OPTION_ALIAS, nullptr, -1},
        {"usage", kUsage, nullptr, 0, "print a short usage message and exit", -1},
        {"version", 'V', nullptr, 0, "print the version and exit", -1},
        {nullptr, 0, nullptr, 0, nullptr, 0},
    };
    static constexpr struct argp kHelp = {kOptions, TakeHelp, nullptr, nullptr,
                                          nullptr,  nullptr,  nullptr};
    static constexpr struct argp_child kChildren[] = {{&kHelp, 0, nullptr, 0},
                                                      {nullptr, 0, nullptr, 0}};
    program.children = kChildren;
    argv[0] = program_invocation_short_name;  // for messages
    argp_err_exit_status = EX_USAGE;
    argp_parse(&program, argc, argv, ARGP_NO_HELP, nullptr, input);
}

}  // namespace kelp::tools
