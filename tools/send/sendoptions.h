// The command line of kelp-send.
#pragma once

#include <string>
#include <vector>

#include "send/station.h"
#include "send/stationlink.h"

namespace kelp::tools {

struct SendOptions {
    bool json = false;
    bool stop = false;      // at the first command that does not pass
    bool terminal = false;  // no commands: lines come from the terminal
    Target target;
    std::string targetText;
    StationSettings settings;
    std::vector<std::string> commands;
    std::string file;  // with further commands; "-": standard input, empty: none
};

// Ends the process on --help, --version and errors: see ReadArguments.
SendOptions ReadSendOptions(int argc, char** argv);

}  // namespace kelp::tools
