#include "runningsubject.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <fstream>

#include "client.h"
#include "environment.h"
#include "support/sockets.h"
#include "support/wait.h"

namespace kelp::bench {

namespace {

bool IsKelp(const Subject& subject) {
    return subject.who.rfind("kelp", 0) == 0;
}

// Every console and all five modules are up, whatever is measured.
std::string KelpConfig(bool kept, const std::string& peer, const std::string& usb,
                       const std::string& uart, int port) {
    const auto module = [&](const char* name, bool keepAlive, int timeout) {
        return "\"" + std::string(name) + R"(":{"keep-alive":)" + (keepAlive ? "true" : "false") +
               R"(,"path":")" + peer + R"(","timeout":)" + std::to_string(timeout) + "}";
    };
    return R"({"console":{"usb":{"active":true,"route":")" + usb +
           R"("},"uart":{"active":true,"route":")" + uart +
           R"("},"tcp":{"active":true,"route":"127.0.0.1","port":)" + std::to_string(port) +
           R"(}},"receive-mode":{"mode":"tail","tail":"0D0A"},"module":{)"
           R"("support-modules":["wcn","modem","pcba","fm","kelp"],"interaction":{)" +
           module("wcn", kept, 15) + "," + module("modem", true, 0) + "," +
           module("pcba", false, 30) + "," + module("fm", false, 10) +
           R"(},"whitelist":{"wcn":["AT+WIFI","AT+BT","AT+GNSS"],)"
           R"("modem":["AT+C","AT+G","ATD","ATI"],"pcba":["AT+PCBA"],)"
           R"("fm":["AT+FM"],"kelp":["ZAT+"]}}})";
}

}  // namespace

RunningSubject::RunningSubject(const Subject& subject, Environment& environment, size_t number)
    : mSubject(subject),
      mEnvironment(environment),
      mPath(environment.directory.Path("relay-" + std::to_string(number))) {
    unlink(mPath.c_str());
    if (subject.who != "direct") {
        mRelay = std::make_unique<test::Process>(Words(), environment.directory.Path("log"));
    }
}

std::vector<std::string> RunningSubject::Words() const {
    const auto at = static_cast<size_t>(mSubject.transport);
    const std::string transport = std::array{"local", "tcp", "pty"}[at];
    const std::string where = std::array{mPath, std::to_string(mPort), mLine.Device()}[at];
    const std::string& peer = mEnvironment.peer;
    const std::string mode = mSubject.kept ? "kept" : "per-request";
    const std::string& who = mSubject.who;
    if (who == "python") {
        return {"/usr/bin/python3", ASYNCIO_RELAY, transport, where, mode, peer};
    }
    if (who == "socat") {
        const std::string listen[] = {
            "UNIX-LISTEN:" + where + ",fork",
            "TCP-LISTEN:" + where + ",bind=127.0.0.1,reuseaddr,nodelay,fork",
            "OPEN:" + where + ",raw,echo=0"};
        return {"socat", listen[at], "UNIX-CONNECT:" + peer};
    }
    if (who == "ser2net") {
        // chardelay off, as a bench would configure it.
        const std::string config = mPath + ".yaml";
        std::ofstream(config) << "%YAML 1.1\n---\nconnection: &bench\n  accepter: "
                              << (transport == "tcp" ? "tcp(nodelay=true),127.0.0.1," : "unix,")
                              << where << "\n  connector: unix," << peer
                              << "\n  options:\n    chardelay: false\n";
        return {"ser2net", "-n", "-u", "-c", config};
    }
    if (IsKelp(mSubject)) {
        const std::string config = mEnvironment.directory.Write(
            "kelp.json",
            KelpConfig(mSubject.kept, peer, mLine.Device(), mEnvironment.uart.Device(), mPort));
        return {"env", who == "kelp-file" ? "ANDROID_LOG_TAGS=KELP:V" : "ANDROID_LOG_TAGS=KELP:E",
                KELP_DAEMON_FILE, "--file=" + config};
    }
    return {BARE_RELAY, who, transport, where, mode, peer};
}

std::unique_ptr<Client> RunningSubject::Connect() {
    const bool direct = mRelay == nullptr;
    const LocalAddress address =
        IsKelp(mSubject) ? test::AddressOf("/dev/socket/kelp", LocalNamespace::kAbstract)
                         : test::AddressOf(direct ? mEnvironment.peer : mPath);
    UniqueFd fd;
    test::WaitUntil([&] {
        if (mSubject.transport == Transport::kLocal) {
            fd = test::ConnectLocalBlocking(address);
        } else if (mSubject.transport == Transport::kTcp) {
            fd = test::ConnectTcp(direct ? mEnvironment.port : mPort);
        } else {
            const int master = (direct ? mEnvironment.line : mLine).Master();
            fd.Reset(fcntl(master, F_DUPFD_CLOEXEC, 0));
        }
        return fd.Ok();
    });
    return std::make_unique<Client>(std::move(fd), mSubject.transport == Transport::kPty);
}

std::vector<pid_t> RunningSubject::Pids() const {
    if (mRelay == nullptr) {
        return {};
    }
    std::vector<pid_t> pids = {mRelay->Pid()};
    const std::string pid = std::to_string(mRelay->Pid());
    std::ifstream children("/proc/" + pid + "/task/" + pid + "/children");
    for (pid_t child; children >> child;) {
        pids.push_back(child);
    }
    return pids;
}

size_t RunningSubject::AnswerBytes() const {
    // A relay that cuts lines forwards the command without its terminator, and the peer echoes
    // that.
    const bool relaysBytes =
        mRelay == nullptr || mSubject.who == "socat" || mSubject.who == "ser2net";
    return kCommand.size() - (relaysBytes ? 0 : 2);
}

}  // namespace kelp::bench
