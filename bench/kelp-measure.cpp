// Measures kelp beside what a bench would otherwise use, in one run; scripts/bench starts it.
//
// Usage: kelp-measure --kelp=DAEMON [--json=FILE] [--smoke] [--rounds=N] [--only=TEXT,...]

#include <getopt.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>

#include "measure.h"
#include "report.h"
#include "servers.h"

namespace kelp::bench {
namespace {

struct Options {
    std::string kelp;
    std::string json = "bench.json";
    std::string
        only;  // texts, by commas: round trips of subjects whose key holds one, and the floor
    bool smoke = false;
    int rounds = 0;  // 0: as the effort says
};

bool ReadOptions(int argc, char** argv, Options& options) {
    constexpr struct option kOptions[] = {
        {"kelp", required_argument, nullptr, 'k'}, {"json", required_argument, nullptr, 'j'},
        {"smoke", no_argument, nullptr, 's'},      {"rounds", required_argument, nullptr, 'r'},
        {"only", required_argument, nullptr, 'o'}, {nullptr, 0, nullptr, 0}};
    int option;
    while ((option = getopt_long(argc, argv, "", kOptions, nullptr)) != -1) {
        switch (option) {
            case 'k':
                options.kelp = optarg;
                break;
            case 'j':
                options.json = optarg;
                break;
            case 's':
                options.smoke = true;
                break;
            case 'r':
                options.rounds = atoi(optarg);
                break;
            case 'o':
                options.only = optarg;
                break;
            default:
                return false;
        }
    }
    return !options.kelp.empty();
}

bool Prepare(const Options& options, Environment& environment) {
    char self[4096] = {};
    char directory[] = "/tmp/kelp-bench-XXXXXX";
    if (readlink("/proc/self/exe", self, sizeof(self) - 1) < 0 || mkdtemp(directory) == nullptr) {
        return false;
    }
    environment.self = self;
    environment.kelp = options.kelp;
    environment.directory = directory;
    environment.peerName = environment.directory + "/peer.sock";
    environment.peerPort = FreePort();
    do {
        environment.relayPort = FreePort();
    } while (environment.relayPort == environment.peerPort);
    int keptOpen;
    std::string peerDevice;
    int uartMaster;
    if (!OpenPty(environment.peerMaster, keptOpen, peerDevice) ||
        !OpenPty(environment.relayMaster, keptOpen, environment.relayDevice) ||
        !OpenPty(uartMaster, keptOpen, environment.uartDevice)) {
        return false;
    }
    return environment.peer.Start({environment.self, "serve-echo", environment.peerName,
                                   std::to_string(environment.peerPort), peerDevice},
                                  "/dev/null");
}

// Whether `key` holds one of the texts in the list, or there is none.
bool Wanted(const std::string& key, const std::string& list) {
    std::istringstream texts(list);
    for (std::string text; std::getline(texts, text, ',');) {
        if (key.find(text) != std::string::npos) {
            return true;
        }
    }
    return list.empty();
}

class Run {
  public:
    Run(const Options& options, Environment& environment)
        : mOptions(options), mEnvironment(environment) {
        if (options.smoke) {
            mEffort = {40, 1, 30, 1, 64u << 10};
        }
        if (options.rounds > 0) {
            mEffort.rounds = options.rounds;
        }
        for (const Subject& subject : AllSubjects()) {
            const bool floor = subject.relaying == Relaying::kDirect &&
                               subject.transport == Transport::kLocal && subject.kept;
            if (floor || Wanted(subject.Key(), options.only)) {
                mSubjects.push_back(subject);
            }
        }
    }

    int All() {
        Place("one-core", LastCore());
        if (mOptions.only.empty()) {
            Bursts();
        }
        Place("scheduler", -1);
        if (mOptions.only.empty()) {
            Looks();
        }
        PrintTables(mResults);
        if (!WriteJson(mResults, mOptions.json)) {
            fprintf(stderr, "cannot write %s\n", mOptions.json.c_str());
            return 1;
        }
        printf("\nAll samples are in %s; %d visits failed.\n", mOptions.json.c_str(),
               mResults.failures);
        return mResults.failures == 0 ? 0 : 1;
    }

  private:
    // Counts, and tells at once, a visit that brought nothing.
    Sample Checked(const std::string& what, Sample sample) {
        if (sample.empty()) {
            ++mResults.failures;
            fprintf(stderr, "FAILED: %s\n", what.c_str());
        }
        return sample;
    }

    void Place(const std::string& placement, int core) {
        Pin(core);
        PinProcess(mEnvironment.peer.Pid(), core);
        const size_t count = mSubjects.size();
        const int64_t deadline = NowNs() + mEffort.seconds * int64_t{1000000000};
        for (int round = 0; round < mEffort.rounds && NowNs() < deadline; ++round) {
            // Each round begins elsewhere, so that no subject always follows the same other.
            for (size_t i = 0; i < count; ++i) {
                const Subject& subject = mSubjects[(i + static_cast<size_t>(round) * 7) % count];
                mResults.rounds[placement][subject.Key()].push_back(Checked(
                    placement + " " + subject.Key(), Visit(subject, mEnvironment, mEffort)));
            }
        }
    }

    void Bursts() {
        const Subject reference = {Relaying::kTwoThreads, Transport::kLocal, true};
        const Subject kelp = {Relaying::kKelp, Transport::kLocal, true, "null"};
        for (size_t bytes = 16u << 10; bytes <= mEffort.largestBurst; bytes *= 8) {
            Burst(reference, bytes, false);
            Burst(kelp, bytes, false);
            Burst(kelp, bytes, true);
        }
        if (mEffort.largestBurst > 8u << 20) {
            Burst(reference, mEffort.largestBurst, false);
            Burst(kelp, mEffort.largestBurst, false);
            Burst(kelp, mEffort.largestBurst, true);
        }
    }

    void Burst(const Subject& subject, size_t bytes, bool refused) {
        const std::string key = subject.Who() + (refused ? "/refused" : "/served");
        // Small bursts are short: more of them for a steady median.
        const int times = mOptions.smoke ? 1 : bytes <= (1u << 20) ? 5 : 1;
        for (int i = 0; i < times; ++i) {
            mResults.bursts[key][bytes].push_back(
                Checked("burst " + key, VisitBurst(subject, mEnvironment, bytes, refused)));
        }
    }

    // Untimed: system calls, and what an idle relay does.
    void Looks() {
        const bool traced = Installed("strace");
        if (!traced) {
            puts("SKIPPED: strace is not installed, no system calls are counted");
        }
        for (const Subject& subject : mSubjects) {
            const bool kelp = subject.relaying == Relaying::kKelp;
            if (subject.relaying == Relaying::kDirect || subject.log == "file" ||
                subject.log == "again") {
                continue;
            }
            if (traced && (!mOptions.smoke || kelp)) {
                mResults.calls[subject.Key()] =
                    Checked("strace " + subject.Key(), VisitTraced(subject, mEnvironment));
            }
            if (subject.transport == Transport::kLocal && subject.kept &&
                subject.log != "filtered") {
                mResults.idle[subject.Key()] = Checked(
                    "idle " + subject.Key(), VisitIdle(subject, mEnvironment, mEffort.idleSeconds));
            }
        }
    }

    const Options& mOptions;
    Environment& mEnvironment;
    Effort mEffort;
    std::vector<Subject> mSubjects;
    Results mResults;
};

int Serve(int argc, char** argv) {
    const std::string role = argv[1];
    if (role == "serve-echo" && argc == 5) {
        return ServeEcho(argv[2], atoi(argv[3]), argv[4]);
    }
    if (role == "serve-relay" && argc == 7) {
        RelayOptions options;
        const std::string transport = argv[2];
        options.transport = transport == "tcp"   ? Transport::kTcp
                            : transport == "pty" ? Transport::kPty
                                                 : Transport::kLocal;
        options.where = argv[3];
        options.twoThreads = std::string(argv[4]) == "two";
        options.kept = std::string(argv[5]) == "kept";
        options.peer = argv[6];
        return ServeRelay(options);
    }
    return 2;
}

int Main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);
    umask(077);
    if (argc > 1 && strncmp(argv[1], "serve-", 6) == 0) {
        return Serve(argc, argv);
    }
    Options options;
    if (!ReadOptions(argc, argv, options)) {
        fprintf(stderr,
                "usage: %s --kelp=DAEMON [--json=FILE] [--smoke] [--rounds=N]"
                " [--only=TEXT,...]\n",
                argv[0]);
        return 2;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    Environment environment;
    if (!Prepare(options, environment)) {
        perror("cannot prepare");
        return 1;
    }
    const int result = Run(options, environment).All();
    environment.peer.Stop();
    const std::string directory = environment.directory;
    for (const char* file : {"peer.sock", "relay.sock", "kelp.json", "kelp.log", "ser2net.yaml",
                             "ser2net.log", "strace.txt", "strace.log"}) {
        unlink((directory + "/" + file).c_str());
    }
    rmdir(directory.c_str());
    return result;
}

}  // namespace
}  // namespace kelp::bench

int main(int argc, char** argv) {
    return kelp::bench::Main(argc, argv);
}
