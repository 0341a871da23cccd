// The command line and the path of the configuration file.
#pragma once

#include <string>

namespace kelp {

// Reads the options; only "file" has an effect, the others are logged. Unknown options are ignored
// without a message. Returns the last result of the option scanner, always -1. Main thread only.
int ArgParser(int argc, char** argv);

// Gives the path of the configuration file. False, with `path` empty, when it does not exist.
bool GetJsonPath(std::string& path);

}  // namespace kelp
