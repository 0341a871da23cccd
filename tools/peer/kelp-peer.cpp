// Simulates the peer daemons of a bench: see kHelp.

#include <signal.h>

#include <cstdio>
#include <string>

#include "common/arguments.h"
#include "peer/peerlog.h"
#include "peer/peerserver.h"
#include "peer/scriptreader.h"

namespace {

constexpr int kExitFailed = 1;
constexpr int kExitScript = 65;

constexpr char kHelp[] =
    "Listens on local sockets in place of the peer daemons, and answers as described by a script. "
    "When all sockets are open, prints one line, \"ready\" and the sockets. Runs until SIGINT, "
    "SIGTERM or SIGHUP, and then removes the sockets."
    "\v"
    "The script is a JSON object whose only member is the array \"roles\":\n"
    "\n"
    "  {\"roles\": [{\"role\": \"wcn\", \"socket\": \"@wcn\", \"answers\": [\n"
    "  {\"request\": \"AT\", \"answer\": \"\\r\\nOK\\r\\n\", \"delay\": 50}],\n"
    "  \"unsolicited\": [{\"text\": \"\\r\\n+BEAT\\r\\n\", \"every\": 1000}]}]}\n"
    "\n"
    "Keys of a role:\n"
    "  role              \"wcn\": answers with text; \"modem\": the same, and requests\n"
    "                    end in CR LF; \"pcba\": answers with a binary record of\n"
    "                    result, request and response\n"
    "  socket            a path, or '@' and an abstract name\n"
    "  name              of the peer in the log; default: the role\n"
    "  request-start     beginning of each request, so that requests that arrive\n"
    "                    together are separated; not for \"modem\"\n"
    "  answers           an array; the first that matches a request is used. If\n"
    "                    none does, the answer is ERROR between CR LFs, of a pcba\n"
    "                    peer a record with result 6003\n"
    "  unsolicited       an array of messages that are sent on every connection\n"
    "                    without a request\n"
    "\n"
    "Keys of an answer (N is a number, FLAG true or false):\n"
    "  request TEXT      for requests that are equal to TEXT\n"
    "  prefix TEXT       for requests that begin with TEXT; without both: all\n"
    "  answer TEXT       send TEXT\n"
    "  hex HEX           send exactly these bytes, without echo or record\n"
    "  echo FLAG         send the request before the answer; pcba: in the record,\n"
    "                    default true\n"
    "  silent FLAG       send no answer\n"
    "  close FLAG        close the connection after the answer\n"
    "  delay N           send the answer N milliseconds after the request\n"
    "  bytes N           cut or repeat the answer to exactly N bytes\n"
    "  pieces N          write the answer in pieces of N bytes\n"
    "  pause N           pause N milliseconds between the pieces\n"
    "  result N          pcba: result code of the record; default 0\n"
    "  request-length N, response-length N\n"
    "                    pcba: put N into the record as the length of the request\n"
    "                    or response, even if it is wrong\n"
    "\n"
    "Keys of an unsolicited message:\n"
    "  text TEXT         send TEXT\n"
    "  hex, close, bytes, pieces, pause\n"
    "                    as of an answer\n"
    "  after N           send it N milliseconds after the connection was made\n"
    "  every N           send it every N milliseconds; this or \"after\" is\n"
    "                    required\n"
    "\n"
    "Exit status:\n"
    "  0   ended by a signal\n"
    "  1   a socket could not be opened\n"
    "  64  usage error\n"
    "  65  the script cannot be read or has an error; the position is printed\n";

constexpr int kLog = 256;  // without a letter
constexpr struct argp_option kOptions[] = {
    {"log", kLog, nullptr, 0, "print requests and answers on standard error", 0},
    {nullptr, 0, nullptr, 0, nullptr, 0},
};

struct PeerOptions {
    bool log = false;
    std::string file;
};

error_t TakeArgument(int key, char* text, struct argp_state* state) {
    PeerOptions& options = *static_cast<PeerOptions*>(state->input);
    if (key == kLog) {
        options.log = true;
    } else if (key == ARGP_KEY_ARG && state->arg_num == 0) {
        options.file = text;
    } else if (key == ARGP_KEY_NO_ARGS) {
        argp_error(state, "no script");
    } else {
        return ARGP_ERR_UNKNOWN;
    }
    return 0;
}

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
    PeerOptions options;
    kelp::tools::ReadArguments(
        argc, argv, {kOptions, TakeArgument, "SCRIPT.json", kHelp, nullptr, nullptr, nullptr},
        &options);
    kelp::tools::Script script;
    std::string error;
    if (!kelp::tools::ReadScript(options.file, script, error)) {
        fprintf(stderr, "%s\n", error.c_str());
        return kExitScript;
    }
    const kelp::tools::PeerLog log(options.log);
    kelp::tools::PeerServer server(script, log);
    if (!server.Open(error)) {
        fprintf(stderr, "kelp-peer: %s\n", error.c_str());
        return kExitFailed;
    }
    PrintReady(script);
    server.Run(sStop, duringWait);
    return 0;
}
