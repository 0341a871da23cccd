// Compares relays on one transport with one kind of peer connection; bench/run.py starts it for
// each scenario of a pass.
//
// Usage: kelp-measure TURNS local|tcp|pty kept|per-request SUBJECT...
//        kelp-measure calls local|tcp|pty kept|per-request SUBJECT...
//
// Prints a line for each figure: subject, figure, value, and the value over that of the first
// subject (the figures: docs/performance.md). Ratios are formed per turn, and a turn takes
// milliseconds: a longer disturbance affects all subjects alike. The second form counts the relay's
// system calls per command. The exit status is 1 when an answer was wrong or missing.

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <sstream>

#include "client.h"
#include "environment.h"
#include "platform/thread.h"
#include "runningsubject.h"
#include "support/kelpprocess.h"
#include "support/procstat.h"
#include "support/wait.h"

namespace kelp::bench {
namespace {

constexpr int kWarmUp = 30;
// When a turn begins, the caches hold another subject's data.
constexpr int kTurnWarmUp = 5;
constexpr int kTurn = 50;  // round trips
constexpr int kWrites = 3;
constexpr int kPipelined = 16;  // commands per write
constexpr size_t kClients = 4;  // as many as a console accepts
constexpr int kEachOfFour = 15;
constexpr int kCounted = 200;

double NowUs() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

// 0 when there are no values.
double Quantile(std::vector<double> values, double fraction) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const double place = fraction * static_cast<double>(values.size() - 1);
    const auto below = static_cast<size_t>(place);
    const double next = values[std::min(below + 1, values.size() - 1)];
    return values[below] + (next - values[below]) * (place - std::floor(place));
}

template <typename Read>
double Sum(const std::vector<pid_t>& pids, Read read) {
    double sum = 0;
    for (const pid_t pid : pids) {
        sum += static_cast<double>(read(pid));
    }
    return sum;
}

// A subject under measurement, while the others are idle.
class Measuring {
  public:
    Measuring(const Subject& subject, Environment& environment, size_t number)
        : mSubject(subject), mRunning(subject, environment, number) {
        mClients.push_back(mRunning.Connect());
        RoundTrips(kWarmUp);
        mPids = mRunning.Pids();
    }

    void TakeTurn() {
        RoundTrips(kTurnWarmUp);
        const double cpuNs = Sum(mPids, test::CpuNs);
        const std::vector<double> times = RoundTrips(kTurn);
        if (!mPids.empty()) {
            mTurns["cpu_us"].push_back((Sum(mPids, test::CpuNs) - cpuNs) / 1e3 / kTurn);
        }
        mTurns["p50_us"].push_back(Quantile(times, 0.5));
        mTimes.insert(mTimes.end(), times.begin(), times.end());
        std::string commands;
        for (int i = 0; i < kPipelined; ++i) {
            commands += RunningSubject::kCommand;
        }
        const double begin = NowUs();
        for (int i = 0; i < kWrites; ++i) {
            mGood = mGood && mClients[0]->Exchange(commands, kPipelined * mRunning.AnswerBytes());
        }
        mTurns["pipelined"].push_back(kWrites * kPipelined * 1e6 / (NowUs() - begin));
    }

    // Not timed: reading the counters takes longer than a turn.
    void TakeCounts() {
        if (!mPids.empty()) {
            const double before = Sum(mPids, test::Switches);
            RoundTrips(kCounted);
            mTurns["switches"] = {(Sum(mPids, test::Switches) - before) / kCounted};
            mTurns["rss_kib"] = {Sum(mPids, test::ResidentKb)};
        }
    }

    void OpenFourClients() {
        // ser2net's clients share one connection to the peer.
        while (mGood && mSubject.transport != Transport::kPty && mSubject.who != "ser2net" &&
               mClients.size() < kClients) {
            mClients.push_back(mRunning.Connect());
            mGood = mClients.back()->Exchange(RunningSubject::kCommand, mRunning.AnswerBytes());
        }
    }

    void TakeFourClients() {
        if (mClients.size() < kClients) {
            return;
        }
        const double begin = NowUs();
        for (int i = 0; i < kEachOfFour; ++i) {
            for (const auto& client : mClients) {
                mGood = mGood && client->Send(RunningSubject::kCommand);
            }
            for (const auto& client : mClients) {
                mGood = mGood && client->Receive(mRunning.AnswerBytes());
            }
        }
        mTurns["four_clients"].push_back(kClients * kEachOfFour * 1e6 / (NowUs() - begin));
    }

    bool Print(const Measuring& reference) const {
        if (!mGood) {
            fprintf(stderr, "FAILED: %s\n", mSubject.who.c_str());
            return false;
        }
        printf("%s\tp99_us\t%f\n", mSubject.who.c_str(), Quantile(mTimes, 0.99));
        for (const auto& [figure, turns] : mTurns) {
            printf("%s\t%s\t%f", mSubject.who.c_str(), figure.c_str(), Quantile(turns, 0.5));
            const auto base = reference.mTurns.find(figure);
            std::vector<double> ratios;
            for (size_t i = 0; base != reference.mTurns.end() && i < turns.size(); ++i) {
                ratios.push_back(turns[i] / base->second[i]);
            }
            printf(reference.mGood && !ratios.empty() ? "\t%f\n" : "\n", Quantile(ratios, 0.5));
        }
        return true;
    }

    std::vector<double> RoundTrips(int count) {
        std::vector<double> times;
        for (int i = 0; i < count && mGood; ++i) {
            const double begin = NowUs();
            mGood = mClients[0]->Exchange(RunningSubject::kCommand, mRunning.AnswerBytes());
            times.push_back(NowUs() - begin);
        }
        return times;
    }
    bool Good() const { return mGood; }  // every exchange so far was answered
    const std::vector<pid_t>& Pids() const { return mPids; }

  private:
    const Subject mSubject;
    RunningSubject mRunning;
    std::vector<pid_t> mPids;
    std::vector<std::unique_ptr<Client>> mClients;
    bool mGood = true;
    std::map<std::string, std::vector<double>> mTurns;  // by figure
    std::vector<double> mTimes;
};

using All = std::vector<std::unique_ptr<Measuring>>;

// Each round starts with another subject, so that the order favours none.
void TakeTurns(All& all, size_t turns, void (Measuring::*turn)()) {
    for (size_t first = 0; first < turns; ++first) {
        for (size_t i = 0; i < all.size(); ++i) {
            (*all[(first + i) % all.size()].*turn)();
        }
    }
}

Transport TransportOf(const std::string& name) {
    return name == "tcp" ? Transport::kTcp : name == "pty" ? Transport::kPty : Transport::kLocal;
}

bool Measure(const std::vector<Subject>& subjects, Environment& environment, size_t turns) {
    All all;
    for (const Subject& subject : subjects) {
        all.push_back(std::make_unique<Measuring>(subject, environment, all.size()));
    }
    TakeTurns(all, turns, &Measuring::TakeTurn);
    TakeTurns(all, 1, &Measuring::TakeCounts);
    TakeTurns(all, 1, &Measuring::OpenFourClients);
    TakeTurns(all, turns, &Measuring::TakeFourClients);
    bool good = true;
    for (const auto& one : all) {
        good = one->Print(*all[0]) && good;
    }
    return good;
}

bool CountCalls(const Subject& subject, Environment& environment) {
    Measuring measuring(subject, environment, 0);
    std::vector<std::string> words = {"strace", "-f", "-c", "-o", environment.directory.Path("c")};
    for (const pid_t pid : measuring.Pids()) {
        words.insert(words.end(), {"-p", std::to_string(pid)});
    }
    test::Process strace(words, environment.directory.Write("strace", ""));
    // Also ends when strace cannot run: there is no table then.
    const bool attached = test::WaitUntil([&] {
        const int count = test::Occurrences(environment.directory.Read("strace"), "attached");
        return !strace.Running() || count >= static_cast<int>(measuring.Pids().size());
    });
    measuring.RoundTrips(kCounted);
    kill(strace.Pid(), SIGINT);
    strace.WaitForExit();
    // The last line: share, seconds, microseconds per call, calls, perhaps errors, "total".
    const std::string table = environment.directory.Read("c");
    std::istringstream total(table.substr(std::min(table.rfind("100.00"), table.size())));
    double calls = 0;
    for (int column = 0; column < 4; ++column) {
        total >> calls;
    }
    printf("%s\tcalls\t%f\n", subject.who.c_str(), calls / kCounted);
    return attached && measuring.Good() && !total.fail();
}

int Main(const std::vector<std::string>& words) {
    if (words.size() < 5) {
        fputs("usage: kelp-measure TURNS|calls local|tcp|pty kept|per-request SUBJECT...\n",
              stderr);
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);
    umask(077);
    Environment environment;
    // Relays with a kept connection open it at start, so the peer must listen.
    const LocalAddress peer = test::AddressOf(environment.peer);
    if (!test::WaitUntil([&] { return test::ConnectLocalBlocking(peer).Ok(); })) {
        fputs("FAILED: the echo peer does not listen\n", stderr);
        return 1;
    }
    std::vector<Subject> subjects;
    for (size_t i = 4; i < words.size(); ++i) {
        subjects.push_back({words[i], TransportOf(words[2]), words[3] == "kept"});
    }
    if (words[1] != "calls") {
        return Measure(subjects, environment, strtoul(words[1].c_str(), nullptr, 10)) ? 0 : 1;
    }
    bool good = true;
    for (const Subject& subject : subjects) {
        good = CountCalls(subject, environment) && good;
    }
    return good ? 0 : 1;
}

}  // namespace
}  // namespace kelp::bench

int main(int argc, char** argv) {
    return kelp::bench::Main({argv, argv + argc});
}
