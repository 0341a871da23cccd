#include "common/arguments.h"

#include <errno.h>
#include <sysexits.h>

#include <cstdio>

namespace kelp::tools {

namespace {

error_t TakeHelp(int key, char*, struct argp_state* state) {
    if (key != 'h') {
        return ARGP_ERR_UNKNOWN;
    }
    argp_state_help(state, stdout, ARGP_HELP_STD_HELP);
    return 0;
}

void PrintVersion(FILE* stream, struct argp_state* state) {
    fprintf(stream, "%s %s\n", state->name, KELP_VERSION);
}

}  // namespace

void ReadArguments(int argc, char** argv, struct argp program, void* input) {
    // argp itself accepts only -? besides --help.
    static constexpr struct argp_option kOptions[] = {
        {nullptr, 'h', nullptr, 0, "the same as --help", -1},
        {nullptr, 0, nullptr, 0, nullptr, 0},
    };
    static constexpr struct argp kHelp = {kOptions, TakeHelp, nullptr, nullptr,
                                          nullptr,  nullptr,  nullptr};
    static constexpr struct argp_child kChildren[] = {{&kHelp, 0, nullptr, 0},
                                                      {nullptr, 0, nullptr, 0}};
    program.children = kChildren;
    argv[0] = program_invocation_short_name;  // for messages
    argp_err_exit_status = EX_USAGE;
    argp_program_version_hook = PrintVersion;
    argp_parse(&program, argc, argv, 0, nullptr, input);
}

}  // namespace kelp::tools
