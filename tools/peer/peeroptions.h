// The command line of kelp-peer.
#pragma once

#include <string>

#include "peer/peerscript.h"

namespace kelp::tools {

struct PeerOptions {
    bool log = false;
    std::string file;  // of the script; empty: the options describe it
    Script script;
};

// Ends the process on --help, --version and errors: see ReadArguments. Does not read the file.
PeerOptions ReadPeerOptions(int argc, char** argv);

}  // namespace kelp::tools
