#include "subject.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace kelp::bench {

namespace {

// The daemon listens here and nowhere else.
constexpr char kKelpLocal[] = "@/dev/socket/kelp";
constexpr char kCommand[] = "AT+WIFI=0123456";
constexpr char kTerminator[] = "\r\n";

constexpr const char* kNames[] = {"direct", "one-thread", "two-threads", "contract",
                                  "socat",  "ser2net",    "kelp"};

std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
}

// Every console and all five modules are up, whatever is measured.
void WriteKelpConfig(const Subject& subject, const Environment& environment, const Front& front,
                     const std::string& path) {
    const std::string peer = Quoted(environment.peerName);
    std::ofstream(path)
        << "{\"console\":{\"usb\":{\"support\":true,\"active\":true,\"route\":"
        << Quoted(front.mDevice) << "},\"uart\":{\"support\":true,\"active\":true,\"route\":"
        << Quoted(environment.uartDevice)
        << "},\"tcp\":{\"support\":true,\"active\":true,\"route\":\"127.0.0.1\",\"port\":"
        << front.mPort
        << "}},\"receive-mode\":{\"mode\":\"tail\",\"tail\":\"0D0A\"},\"module\":{"
           "\"support-modules\":[\"wcn\",\"modem\",\"pcba\",\"fm\",\"kelp\"],\"interaction\":{"
           "\"wcn\":{\"keep-alive\":"
        << (subject.kept ? "true" : "false") << ",\"path\":" << peer
        << ",\"timeout\":15},\"modem\":{\"keep-alive\":true,\"path\":" << peer
        << ",\"timeout\":0},\"pcba\":{\"keep-alive\":false,\"path\":" << peer
        << ",\"timeout\":30},\"fm\":{\"keep-alive\":false,\"path\":" << peer
        << ",\"timeout\":10}},\"whitelist\":{\"wcn\":[\"AT+WIFI\",\"AT+BT\",\"AT+GNSS\"],"
           "\"modem\":[\"AT+C\",\"AT+G\",\"ATD\",\"ATI\"],\"pcba\":[\"AT+PCBA\"],"
           "\"fm\":[\"AT+FM\"],\"kelp\":[\"ZAT+\"]}}}\n";
}

bool StartKelp(const Subject& subject, const Environment& environment, const Front& front,
               Process& relay) {
    const std::string config = environment.directory + "/kelp.json";
    const std::string log = environment.directory + "/kelp.log";
    WriteKelpConfig(subject, environment, front, config);
    unlink(log.c_str());
    std::vector<std::string> variables;
    if (subject.log == "filtered") {
        variables.push_back("ANDROID_LOG_TAGS=KELP:E");
    }
    return relay.Start({environment.kelp, "--file=" + config},
                       subject.log == "file" ? log : "/dev/null", variables);
}

bool StartSocat(const Subject& subject, const Environment& environment, const Front& front,
                Process& relay) {
    std::string listen;
    switch (subject.transport) {
        case Transport::kLocal:
            listen = "UNIX-LISTEN:" + front.mLocal + ",fork";
            break;
        case Transport::kTcp:
            listen = "TCP-LISTEN:" + std::to_string(front.mPort) +
                     ",bind=127.0.0.1,reuseaddr,nodelay,fork";
            break;
        case Transport::kPty:
            listen = "OPEN:" + front.mDevice + ",raw,echo=0";
            break;
    }
    return relay.Start({"socat", listen, "UNIX-CONNECT:" + environment.peerName}, "/dev/null");
}

bool StartSer2net(const Subject& subject, const Environment& environment, const Front& front,
                  Process& relay) {
    const std::string config = environment.directory + "/ser2net.yaml";
    // Without the delay in which it collects characters, as a bench would tune it.
    std::ofstream(config) << "%YAML 1.1\n---\nconnection: &bench\n  accepter: "
                          << (subject.transport == Transport::kTcp
                                  ? "tcp(nodelay=true),127.0.0.1," + std::to_string(front.mPort)
                                  : "unix," + front.mLocal)
                          << "\n  connector: unix," << environment.peerName
                          << "\n  options:\n    chardelay: false\n";
    return relay.Start({"ser2net", "-n", "-u", "-c", config},
                       environment.directory + "/ser2net.log");
}

}  // namespace

Front::Front(const Environment& environment, size_t number)
    : mLocal(environment.directory + "/relay-" + std::to_string(number) + ".sock"),
      mPort(FreePort()) {
    OpenPty(mMaster, mKeptOpen, mDevice);
}

Front::~Front() {
    close(mMaster);
    close(mKeptOpen);
}

std::string Subject::Who() const {
    std::string who = kNames[static_cast<int>(relaying)];
    if (!log.empty()) {
        who += "-" + log;
    }
    return who;
}

std::string Subject::Key() const {
    return Who() + "/" + Name(transport) + (kept ? "/kept" : "/per-request");
}

bool Installed(const std::string& program) {
    const char* const path = getenv("PATH");
    std::istringstream directories(std::string(path != nullptr ? path : "") + ":/usr/sbin");
    std::string directory;
    while (std::getline(directories, directory, ':')) {
        if (access((directory + "/" + program).c_str(), X_OK) == 0) {
            return true;
        }
    }
    return false;
}

std::vector<Subject> AllSubjects() {
    std::vector<Subject> subjects;
    const bool socat = Installed("socat");
    const bool ser2net = Installed("ser2net");
    for (const Transport transport : {Transport::kLocal, Transport::kTcp, Transport::kPty}) {
        const bool pty = transport == Transport::kPty;
        subjects.push_back({Relaying::kDirect, transport, true});
        if (!pty) {
            subjects.push_back({Relaying::kDirect, transport, false});
        }
        for (const bool kept : {true, false}) {
            subjects.push_back({Relaying::kOneThread, transport, kept});
            subjects.push_back({Relaying::kTwoThreads, transport, kept});
            // Divided by itself it tells how far the other ratios can be trusted.
            subjects.push_back({Relaying::kTwoThreads, transport, kept, "again"});
            for (const char* log : {"null", "filtered"}) {
                subjects.push_back({Relaying::kContract, transport, kept, log});
            }
            for (const char* log : {"null", "filtered", "file"}) {
                subjects.push_back({Relaying::kKelp, transport, kept, log});
            }
        }
        if (socat) {
            subjects.push_back({Relaying::kSocat, transport, true});
        }
        if (ser2net && !pty) {
            subjects.push_back({Relaying::kSer2net, transport, true});
        }
    }
    if (!socat) {
        puts("SKIPPED: socat is not installed");
    }
    puts(ser2net ? "SKIPPED: ser2net on the pseudo-terminal (it accepts from networks only)"
                 : "SKIPPED: ser2net is not installed");
    return subjects;
}

Road RoadOf(const Subject& subject, const Environment& environment, const Front& front) {
    const bool direct = subject.relaying == Relaying::kDirect;
    // Those who cut lines hand the command on without its terminator, and the peer echoes that.
    const bool cuts =
        !direct && subject.relaying != Relaying::kSocat && subject.relaying != Relaying::kSer2net;
    Road road;
    road.transport = subject.transport;
    road.name = direct                                ? environment.peerName
                : subject.relaying == Relaying::kKelp ? kKelpLocal
                                                      : front.mLocal;
    road.port = direct ? environment.peerPort : front.mPort;
    road.master = direct ? environment.peerMaster : front.mMaster;
    road.command = std::string(kCommand) + kTerminator;
    road.answerBytes = cuts ? road.command.size() - 2 : road.command.size();
    road.clientReopens = direct && !subject.kept;
    return road;
}

bool StartRelay(const Subject& subject, const Environment& environment, const Front& front,
                Process& relay) {
    unlink(front.mLocal.c_str());
    switch (subject.relaying) {
        case Relaying::kDirect:
            return true;
        case Relaying::kOneThread:
        case Relaying::kTwoThreads:
        case Relaying::kContract: {
            std::string where = front.mLocal;
            if (subject.transport != Transport::kLocal) {
                where = subject.transport == Transport::kTcp ? std::to_string(front.mPort)
                                                             : front.mDevice;
            }
            return relay.Start(
                {environment.self, "serve-relay", Name(subject.transport), where, subject.Who(),
                 subject.kept ? "kept" : "per-request", environment.peerName},
                "/dev/null");
        }
        case Relaying::kSocat:
            return StartSocat(subject, environment, front, relay);
        case Relaying::kSer2net:
            return StartSer2net(subject, environment, front, relay);
        case Relaying::kKelp:
            return StartKelp(subject, environment, front, relay);
    }
    return false;
}

}  // namespace kelp::bench
