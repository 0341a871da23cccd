// The command line of a tool, read by the C library's argp.
#pragma once

#include <argp.h>

namespace kelp::tools {

// Parses the arguments as `program` describes them, and adds -h, --help, --usage and --version,
// which print and end the process with status 0. The parser gets the options in their order on the
// command line, with `input` as its state's input, and refuses errors by argp_error: that, like an
// unknown option, ends the process with status 64 and a hint at --help. `program` has no children.
void ReadArguments(int argc, char** argv, struct argp program, void* input);

}  // namespace kelp::tools
