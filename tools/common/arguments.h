// The command line of a tool, read by the C library's argp.
#pragma once

#include <argp.h>

namespace kelp::tools {

// Reads the arguments as `program` describes them, and adds -h, --help, --usage and --version,
// which print and end the process with status 0. Its parser gets the options in the order in which
// they stand, `input` as its state's input, and refuses what is wrong by argp_error: that, like an
// unknown option, ends the process with status 64 and a hint at --help. `program` comes without
// children.
void ReadArguments(int argc, char** argv, struct argp program, void* input);

}  // namespace kelp::tools
