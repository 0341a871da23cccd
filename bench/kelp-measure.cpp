// Measures kelp beside what a bench would otherwise use, in one run; scripts/bench starts it.
//
// Usage: kelp-measure --kelp=DAEMON [--json=FILE] [--smoke] [--rounds=N] [--only=TEXT,...]

#include <getopt.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "measure.h"
#include "report.h"
#include "servers.h"

namespace kelp::bench {
namespace {

constexpr int64_t kSecondNs = 1000000000;
constexpr size_t kShortestBurst = 16u << 10;
constexpr size_t kShortBurst = 1u << 20;  // one that can be repeated often

struct Options {
    std::string kelp;
    std::string json = "bench.json";
    std::string only;  // texts, by commas: round trips of subjects whose key holds one
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
    int keptOpen;
    std::string peerDevice;
    int uartMaster;
    if (!OpenPty(environment.peerMaster, keptOpen, peerDevice) ||
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

// Subjects that are measured side by side: one road, and one kelp at most.
struct Group {
    std::vector<Subject> subjects;  // the floor first, the reference second
    std::set<std::string> rows;     // keys of those that are there for their own sake
};

class Run {
  public:
    Run(const Options& options, Environment& environment)
        : mOptions(options), mEnvironment(environment) {
        if (options.smoke) {
            mEffort = {1, 1, 30, 1, 0, 0, 1, 64u << 10};
        }
        if (options.rounds > 0) {
            mEffort.rounds = options.rounds;
        }
        for (const Subject& subject : AllSubjects()) {
            if (Wanted(subject.Key(), options.only)) {
                mSubjects.push_back(subject);
            }
        }
        for (const Transport transport : {Transport::kLocal, Transport::kTcp, Transport::kPty}) {
            for (const bool kept : {true, false}) {
                for (const char* log : {"null", "filtered", "file"}) {
                    AddGroup(transport, kept, log);
                }
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

    // Those with this log; those who have none are with the first.
    void AddGroup(Transport transport, bool kept, const std::string& log) {
        Group group;
        group.subjects = {{Relaying::kDirect, Transport::kLocal, true},
                          {Relaying::kTwoThreads, transport, kept}};
        for (const Subject& subject : mSubjects) {
            const bool logs =
                subject.relaying == Relaying::kKelp || subject.relaying == Relaying::kContract;
            if (subject.transport != transport || subject.kept != kept ||
                (logs ? subject.log : "null") != log) {
                continue;
            }
            group.rows.insert(subject.Key());
            if (subject.Key() != group.subjects[0].Key() &&
                subject.Key() != group.subjects[1].Key()) {
                group.subjects.push_back(subject);
            }
        }
        if (!group.rows.empty()) {
            mGroups.push_back(group);
        }
    }

    void Place(const std::string& placement, int core) {
        Pin(core);
        PinProcess(mEnvironment.peer.Pid(), core);
        const size_t count = mGroups.size();
        const size_t visits = count * static_cast<size_t>(mEffort.rounds);
        const int64_t deadline = NowNs() + mEffort.seconds * kSecondNs;
        for (size_t visit = 0; visit < visits && NowNs() < deadline; ++visit) {
            // Each round begins elsewhere, so that no group always follows the same other.
            const Group& group = mGroups[(visit + visit / count * 7) % count];
            const std::vector<Compared> results = Visit(group.subjects, mEnvironment, mEffort);
            for (size_t i = 0; i < results.size(); ++i) {
                const std::string key = group.subjects[i].Key();
                Checked(placement + " " + key, results[i].sample);
                if (group.rows.count(key) != 0) {
                    mResults.rounds[placement][key].push_back(results[i]);
                }
            }
        }
    }

    void Bursts() {
        const size_t largest = mEffort.largestBurst;
        for (size_t bytes = kShortestBurst; bytes <= std::min(largest, kShortBurst); bytes *= 8) {
            const int64_t deadline = NowNs() + mEffort.shortBurstSeconds * kSecondNs;
            for (int i = 0; i < mEffort.shortBursts || NowNs() < deadline; ++i) {
                Burst(bytes, i % 2 == 0);
            }
        }
        const int64_t deadline = NowNs() + mEffort.longBurstSeconds * kSecondNs;
        for (int i = 0; largest > kShortBurst && NowNs() < deadline; ++i) {
            Burst(largest / 2, i % 2 == 0);
            Burst(largest, i % 2 == 0);
        }
    }

    // The two that are compared run moments apart; each is the first as often as the other.
    void Burst(size_t bytes, bool kelpFirst) {
        const Subject subjects[] = {{Relaying::kTwoThreads, Transport::kLocal, true},
                                    {Relaying::kKelp, Transport::kLocal, true, "null"}};
        Sample samples[2];
        for (size_t i = 0; i < 2; ++i) {
            const size_t which = kelpFirst ? 1 - i : i;
            samples[which] = OneBurst(subjects[which], bytes, false);
        }
        for (size_t i = 0; i < 2; ++i) {
            Sample overReference;
            if (!samples[0].empty() && !samples[i].empty()) {
                overReference["ns"] = samples[i]["ns"] / samples[0]["ns"];
            }
            mResults.bursts[subjects[i].Who() + "/served"][bytes].push_back(
                {samples[i], {}, overReference});
        }
        mResults.bursts[subjects[1].Who() + "/refused"][bytes].push_back(
            {OneBurst(subjects[1], bytes, true), {}, {}});
    }

    Sample OneBurst(const Subject& subject, size_t bytes, bool refused) {
        return Checked("burst of " + std::to_string(bytes) + " " + subject.Key(),
                       VisitBurst(subject, mEnvironment, bytes, refused));
    }

    // Untimed: system calls, and what an idle relay does.
    void Looks() {
        const bool traced = Installed("strace");
        if (!traced) {
            puts("SKIPPED: strace is not installed, no system calls are counted");
        }
        std::vector<Subject> idle;
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
                idle.push_back(subject);
            }
        }
        const std::vector<Sample> samples = VisitIdle(idle, mEnvironment, mEffort.idleSeconds);
        for (size_t i = 0; i < idle.size(); ++i) {
            mResults.idle[idle[i].Key()] = Checked("idle " + idle[i].Key(), samples[i]);
        }
    }

    const Options& mOptions;
    Environment& mEnvironment;
    Effort mEffort;
    std::vector<Subject> mSubjects;
    std::vector<Group> mGroups;
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
        const std::string who = argv[4];
        options.contract = who.find("contract") == 0;
        options.records = who == "contract-null";
        options.twoThreads = options.contract || who.find("two-threads") == 0;
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
    std::filesystem::remove_all(environment.directory);
    return result;
}

}  // namespace
}  // namespace kelp::bench

int main(int argc, char** argv) {
    return kelp::bench::Main(argc, argv);
}
