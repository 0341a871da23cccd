// The command line of kelp-peer.
#pragma once

#include <string>

#include "peer/peerscript.h"

namespace kelp::tools {

struct PeerOptions {
    bool help = false;
    bool log = false;
    Script script;              // whether from a file or from options
    bool scriptFailed = false;  // the error is in the script, not in the command line
};

// False with a message for standard error, without the program's name in front.
bool ParsePeerOptions(int argc, char** argv, PeerOptions& options, std::string& error);

std::string PeerHelp();

}  // namespace kelp::tools
