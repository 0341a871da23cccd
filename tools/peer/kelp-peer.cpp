// Simulates the peer daemons of a bench: see ReadPeerOptions.

#include <signal.h>

#include <cstdio>
#include <string>

#include "peer/peerlog.h"
#include "peer/peeroptions.h"
#include "peer/peerserver.h"
#include "peer/scriptreader.h"

namespace {

constexpr int kExitFailed = 1;
constexpr int kExitScript = 65;

volatile sig_atomic_t sStop = 0;

void HandleStop(int) {
    sStop = 1;
}

// Blocked except during the server's wait, so that no signal is lost between test and wait.
sigset_t CatchStopSignals() {
    signal(SIGPIPE, SIG_IGN);
    sigset_t stopping;
    sigset_t before;
    sigemptyset(&stopping);
    struct sigaction action = {};
    action.sa_handler = HandleStop;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&stopping, number);
        sigaction(number, &action, nullptr);
    }
    sigprocmask(SIG_BLOCK, &stopping, &before);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigdelset(&before, number);
    }
    return before;
}

void PrintReady(const kelp::tools::Script& script) {
    std::string line = "ready";
    for (const kelp::tools::Role& role : script) {
        line += " " + role.socket;
    }
    puts(line.c_str());
    fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    const sigset_t duringWait = CatchStopSignals();
    kelp::tools::PeerOptions options = kelp::tools::ReadPeerOptions(argc, argv);
    std::string error;
    if (!options.file.empty() && !kelp::tools::ReadScript(options.file, options.script, error)) {
        fprintf(stderr, "%s\n", error.c_str());
        return kExitScript;
    }
    const kelp::tools::PeerLog log(options.log);
    kelp::tools::PeerServer server(options.script, log);
    if (!server.Open(error)) {
        fprintf(stderr, "kelp-peer: %s\n", error.c_str());
        return kExitFailed;
    }
    PrintReady(options.script);
    server.Run(sStop, duringWait);
    return 0;
}
