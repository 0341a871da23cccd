// The command line of kelp-send.
#pragma once

#include <string>
#include <vector>

#include "send/station.h"
#include "send/stationlink.h"

namespace kelp::tools {

struct SendOptions {
    bool help = false;
    bool json = false;
    bool stop = false;  // at the first command that is not answered OK
    Target target;
    std::string targetText;
    StationSettings settings;
    std::vector<std::string> commands;
    std::string file;  // of further commands; "-" is standard input, empty none
};

// False with a message for standard error, without the program's name in front.
bool ParseSendOptions(int argc, char** argv, SendOptions& options, std::string& error);

extern const char kSendHelp[];

}  // namespace kelp::tools
