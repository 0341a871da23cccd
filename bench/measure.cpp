#include "measure.h"

#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <thread>

#include "stats.h"

namespace kelp::bench {

namespace {

constexpr int kWarmUp = 30;
// A turn is long enough to be warm for most of its length, and short beside what disturbs a
// machine.
constexpr int kTurnWarmUp = 5;
constexpr int kTurn = 50;       // round trips
constexpr int kPairs = 12;      // exchanges of two commands
constexpr int kPipelined = 16;  // commands in one write
constexpr int kPipelines = 3;   // such writes in a turn
constexpr int kClients = 4;     // as many as a console accepts
constexpr int kEachOfFour = 15;
constexpr int kCounted = 100;  // round trips whose context switches are counted
constexpr int kTraced = 200;
constexpr int64_t kStartPatienceNs = 5000000000;

int64_t OwnSwitches() {
    struct rusage usage = {};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw + usage.ru_nivcsw;
}

std::string Repeat(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

// A running relay with one client on it that has had its first answer.
class Running {
  public:
    Running(const Subject& subject, const Environment& environment, size_t number = 0)
        : mFront(environment, number), mRoad(RoadOf(subject, environment, mFront)), mClient(mRoad) {
        if (subject.transport == Transport::kPty) {
            tcflush(mRoad.master, TCIOFLUSH);  // what an earlier client of the peer left behind
        }
        const int64_t begin = NowNs();
        if (!StartRelay(subject, environment, mFront, mRelay)) {
            return;
        }
        while (!mClient.Open()) {
            mClient.Close();
            if (NowNs() - begin > kStartPatienceNs) {
                return;
            }
            usleep(200);
        }
        mGood = mClient.Exchange(mRoad.command, mRoad.answerBytes);
        // Without what it took to prepare the configuration.
        mStartNs = static_cast<double>(NowNs() - mRelay.StartedNs());
    }

    const Front mFront;
    const Road mRoad;
    Process mRelay;
    Client mClient;
    bool mGood = false;
    double mStartNs = 0;
};

// A subject under measurement, among others that are silent while it has its turn.
class Measuring {
  public:
    Measuring(const Subject& subject, const Environment& environment, size_t number)
        : mSubject(subject),
          mPeer({environment.peer.Pid()}),
          mRunning(subject, environment, number) {
        std::vector<double> ignored;
        mGood = mRunning.mGood && mRunning.mClient.OneAtATime(kWarmUp, ignored);
        if (mGood && subject.relaying != Relaying::kDirect) {
            mSample["start_ms"] = mRunning.mStartNs / 1e6;
        }
        mRelay = mRunning.mRelay.Tree();
    }

    // A turn on the one connection.
    void TakeTurn() {
        mGood = mGood && TakeRoundTrips() &&
                (mRunning.mRoad.clientReopens || (TakePairs() && TakePipelined()));
    }

    // A turn that nobody times, because reading the counters takes longer than the turn.
    void TakeSwitches() {
        std::vector<double> ignored;
        const int64_t relayBefore = Switches(mRelay);
        const int64_t peerBefore = Switches(mPeer);
        const int64_t ownBefore = OwnSwitches();
        mGood = mGood && mRunning.mClient.OneAtATime(kCounted, ignored);
        const int64_t own = OwnSwitches() - ownBefore;
        const auto relay = static_cast<double>(Switches(mRelay) - relayBefore);
        const auto path = static_cast<double>(Switches(mPeer) - peerBefore + own) + relay;
        mSample["path_switches"] = path / kCounted;
        if (!mRelay.empty()) {
            mSample["switches"] = relay / kCounted;
        }
    }

    void OpenFourClients() {
        // ser2net has one client per peer connection.
        if (!mGood || mRunning.mRoad.clientReopens || mSubject.transport == Transport::kPty ||
            mSubject.relaying == Relaying::kSer2net) {
            return;
        }
        mRunning.mClient.Close();
        for (int i = 0; i < kClients; ++i) {
            mClients.push_back(std::make_unique<Client>(mRunning.mRoad));
            // Known to be accepted before the next one knocks, whatever slot the last client had.
            mGood = mGood && mClients.back()->Open() &&
                    mClients.back()->Exchange(mRunning.mRoad.command, mRunning.mRoad.answerBytes);
        }
    }

    // A turn of four clients, if it has them.
    void TakeFourClients() {
        if (!mGood || mClients.empty()) {
            return;
        }
        struct Span {
            int64_t begin;
            int64_t end;
            bool good;
        };
        std::vector<Span> spans(kClients);
        std::vector<std::thread> threads;
        // A turn is so short that starting the threads must not be part of it.
        pthread_barrier_t ready;
        pthread_barrier_init(&ready, nullptr, kClients);
        for (size_t i = 0; i < kClients; ++i) {
            threads.emplace_back([&, i] {
                std::vector<double> ignored;
                pthread_barrier_wait(&ready);
                spans[i].begin = NowNs();
                spans[i].good = mClients[i]->OneAtATime(kEachOfFour, ignored);
                spans[i].end = NowNs();
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        pthread_barrier_destroy(&ready);
        int64_t begin = INT64_MAX;
        int64_t end = 0;
        for (const Span& span : spans) {
            begin = std::min(begin, span.begin);
            end = std::max(end, span.end);
            mGood = mGood && span.good;
        }
        mTurns["four_clients_per_second"].push_back(
            mFourClients.Add(kClients * kEachOfFour, end - begin));
    }

    // Of the relay with its one client.
    void TakeFootprint() {
        if (mSubject.relaying != Relaying::kDirect) {
            const Footprint footprint = ReadFootprint(mRelay);
            mSample["rss_kib"] = static_cast<double>(footprint.rssKib);
            mSample["pss_kib"] = static_cast<double>(footprint.pssKib);
            mSample["threads"] = footprint.threads;
        }
    }

    // Empty when an answer was wrong or missing.
    Sample Figures() const {
        if (!mGood) {
            return {};
        }
        Sample sample = mSample;
        sample["p50_ns"] = Quantile(mRoundTrips, 0.50);
        sample["p90_ns"] = Quantile(mRoundTrips, 0.90);
        sample["p99_ns"] = Quantile(mRoundTrips, 0.99);
        sample["max_ns"] = Quantile(mRoundTrips, 1);
        sample["per_second"] = mOneAtATime.PerSecond();
        if (!mRelay.empty()) {
            sample["cpu_us_per_1000"] = static_cast<double>(mCpuNs) / mOneAtATime.commands;
        }
        if (!mPairs.empty()) {
            sample["pair_ns"] = Median(mPairs);
            sample["pipelined_per_second"] = mPipelined.PerSecond();
        }
        if (!mClients.empty()) {
            sample["four_clients_per_second"] = mFourClients.PerSecond();
        }
        return sample;
    }

    // Figure by figure. What every turn has is compared turn by turn: a turn that was disturbed
    // then counts no more than any other.
    Sample Over(const Measuring& base) const {
        Sample ratios;
        const Sample over = Figures();
        const Sample under = base.Figures();
        for (const auto& [figure, value] : over) {
            const auto found = under.find(figure);
            if (found != under.end() && found->second > 0) {
                ratios[figure] = value / found->second;
            }
        }
        for (const auto& [figure, turns] : mTurns) {
            const auto found = base.mTurns.find(figure);
            if (ratios.count(figure) == 0 || found == base.mTurns.end()) {
                continue;
            }
            std::vector<double> quotients;
            for (size_t i = 0; i < turns.size(); ++i) {
                quotients.push_back(turns[i] / found->second[i]);
            }
            ratios[figure] = Median(quotients);
        }
        return ratios;
    }

  private:
    struct Rate {
        // Returns that of the addition alone.
        double Add(int more, int64_t moreNs) {
            commands += more;
            ns += moreNs;
            return more * 1e9 / static_cast<double>(moreNs);
        }
        double PerSecond() const { return commands * 1e9 / static_cast<double>(ns); }

        int commands = 0;
        int64_t ns = 0;
    };

    bool TakeRoundTrips() {
        std::vector<double> times;
        // The caches are those of another subject.
        if (!mRunning.mClient.OneAtATime(kTurnWarmUp, times)) {
            return false;
        }
        times.clear();
        const int64_t cpuBefore = CpuNs(mRelay);
        const int64_t begin = NowNs();
        if (!mRunning.mClient.OneAtATime(kTurn, times)) {
            return false;
        }
        const int64_t elapsed = NowNs() - begin;
        const int64_t cpuNs = CpuNs(mRelay) - cpuBefore;
        mCpuNs += cpuNs;
        mRoundTrips.insert(mRoundTrips.end(), times.begin(), times.end());
        mTurns["p50_ns"].push_back(Median(times));
        mTurns["per_second"].push_back(mOneAtATime.Add(kTurn, elapsed));
        mTurns["cpu_us_per_1000"].push_back(static_cast<double>(cpuNs) / kTurn);
        return true;
    }

    // Two commands in one write: on TCP a second answer that waits for an acknowledgement shows
    // here.
    bool TakePairs() {
        const std::string pair = Repeat(mRunning.mRoad.command, 2);
        std::vector<double> times;
        for (int i = 0; i < kPairs; ++i) {
            const int64_t begin = NowNs();
            if (!mRunning.mClient.Exchange(pair, 2 * mRunning.mRoad.answerBytes)) {
                return false;
            }
            times.push_back(static_cast<double>(NowNs() - begin));
        }
        mPairs.insert(mPairs.end(), times.begin(), times.end());
        mTurns["pair_ns"].push_back(Median(times));
        return true;
    }

    bool TakePipelined() {
        const std::string data = Repeat(mRunning.mRoad.command, kPipelined);
        const int64_t begin = NowNs();
        for (int i = 0; i < kPipelines; ++i) {
            if (!mRunning.mClient.Exchange(data, kPipelined * mRunning.mRoad.answerBytes)) {
                return false;
            }
        }
        mTurns["pipelined_per_second"].push_back(
            mPipelined.Add(kPipelines * kPipelined, NowNs() - begin));
        return true;
    }

    const Subject mSubject;
    const std::vector<pid_t> mPeer;
    Running mRunning;
    std::vector<pid_t> mRelay;
    std::vector<std::unique_ptr<Client>> mClients;
    bool mGood = false;

    Sample mSample;                                     // what does not come from turns
    std::map<std::string, std::vector<double>> mTurns;  // by figure
    std::vector<double> mRoundTrips;
    std::vector<double> mPairs;
    Rate mOneAtATime;
    Rate mPipelined;
    Rate mFourClients;
    int64_t mCpuNs = 0;  // of the relay, while mOneAtATime counted
};

// Each time another one begins, so that none always follows the same other.
void TakeTurns(std::vector<std::unique_ptr<Measuring>>& all, int turns, void (Measuring::*turn)()) {
    for (size_t first = 0; first < static_cast<size_t>(turns); ++first) {
        for (size_t i = 0; i < all.size(); ++i) {
            (*all[(first + i) % all.size()].*turn)();
        }
    }
}

// Calls and their counts from the table of strace -c, whose last line is the total.
Sample ReadTrace(const std::string& path, double commands) {
    Sample sample;
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        std::istringstream words(line);
        std::vector<std::string> columns;
        for (std::string word; words >> word;) {
            columns.push_back(word);
        }
        // share, seconds, microseconds per call, calls, perhaps errors, name
        if (columns.size() < 5 || columns[0].find_first_not_of("0123456789.") != columns[0].npos) {
            continue;
        }
        const std::string name = columns.back() == "total" ? "all" : columns.back();
        sample[name] = std::stod(columns[3]) / commands;
    }
    return sample;
}

}  // namespace

std::vector<Compared> Visit(const std::vector<Subject>& group, const Environment& environment,
                            const Effort& effort) {
    std::vector<std::unique_ptr<Measuring>> all;
    for (const Subject& subject : group) {
        all.push_back(std::make_unique<Measuring>(subject, environment, all.size()));
    }
    TakeTurns(all, effort.turns, &Measuring::TakeTurn);
    TakeTurns(all, 1, &Measuring::TakeSwitches);
    TakeTurns(all, 1, &Measuring::TakeFootprint);
    // Last, because they take the place of the one client.
    TakeTurns(all, 1, &Measuring::OpenFourClients);
    TakeTurns(all, effort.turns, &Measuring::TakeFourClients);
    std::vector<Compared> results;
    for (const auto& one : all) {
        results.push_back({one->Figures(), one->Over(*all[0]), one->Over(*all[1])});
    }
    return results;
}

std::vector<Sample> VisitIdle(const std::vector<Subject>& group, const Environment& environment,
                              int seconds) {
    std::vector<std::unique_ptr<Running>> all;
    for (const Subject& subject : group) {
        all.push_back(std::make_unique<Running>(subject, environment, all.size()));
    }
    usleep(200000);  // what the last command has set in motion
    std::vector<int64_t> switches;
    std::vector<int64_t> cpuNs;
    for (const auto& one : all) {
        switches.push_back(Switches(one->mRelay.Tree()));
        cpuNs.push_back(CpuNs(one->mRelay.Tree()));
    }
    sleep(static_cast<unsigned>(seconds));
    std::vector<Sample> samples;
    for (size_t i = 0; i < all.size(); ++i) {
        const std::vector<pid_t> relay = all[i]->mRelay.Tree();
        samples.emplace_back();
        if (all[i]->mGood) {
            samples[i]["switches"] = static_cast<double>(Switches(relay) - switches[i]);
            samples[i]["cpu_us"] = static_cast<double>(CpuNs(relay) - cpuNs[i]) / 1e3;
        }
    }
    return samples;
}

Sample VisitTraced(const Subject& subject, const Environment& environment) {
    Running running(subject, environment);
    std::vector<double> times;
    if (!running.mGood || !running.mClient.OneAtATime(kWarmUp, times)) {
        return {};
    }
    const std::string table = environment.directory + "/strace.txt";
    const std::string says = environment.directory + "/strace.log";
    unlink(table.c_str());
    unlink(says.c_str());
    std::vector<std::string> arguments = {"strace", "-f", "-c", "-o", table};
    for (const pid_t pid : running.mRelay.Tree()) {
        arguments.insert(arguments.end(), {"-p", std::to_string(pid)});
    }
    Process strace;
    strace.Start(arguments, says);
    const int64_t deadline = NowNs() + kStartPatienceNs;
    const auto attached = [&] {
        std::ifstream file(says);
        const std::string text((std::istreambuf_iterator<char>(file)),
                               std::istreambuf_iterator<char>());
        return text.find("attached") != std::string::npos;
    };
    while (!attached()) {
        if (!strace.Running() || NowNs() > deadline) {
            return {};
        }
        usleep(10000);
    }
    // All threads of one process are attached in one go, but not at once.
    usleep(200000);
    const bool good = running.mClient.OneAtATime(kTraced, times);
    usleep(20000);
    strace.Stop(SIGINT);
    return good ? ReadTrace(table, kTraced) : Sample();
}

Sample VisitBurst(const Subject& subject, const Environment& environment, size_t bytes,
                  bool refused) {
    Running running(subject, environment);
    std::vector<double> times;
    if (!running.mGood || !running.mClient.OneAtATime(kWarmUp, times)) {
        return {};
    }
    constexpr size_t kCommandBytes = 64;
    std::string command = refused ? "XX+NONE=" : "AT+WIFI=";
    command.resize(kCommandBytes - 2, '7');
    const size_t answer =
        kCommandBytes - 2 + (refused ? strlen("\r\nUnsupport command\r\nERROR\r\n") : 0);
    command += "\r\n";
    const int commands = static_cast<int>(bytes / kCommandBytes);
    const std::string data = Repeat(command, commands);
    const Footprint before = ReadFootprint(running.mRelay.Tree());
    const int64_t cpuNs = CpuNs(running.mRelay.Tree());
    const int64_t begin = NowNs();
    if (!running.mClient.Burst(data, answer * static_cast<size_t>(commands))) {
        return {};
    }
    const auto elapsed = static_cast<double>(NowNs() - begin);
    const int64_t cpuNsAfter = CpuNs(running.mRelay.Tree());
    const Footprint after = ReadFootprint(running.mRelay.Tree());
    return {{"ns", elapsed / commands},
            {"cpu_ns", static_cast<double>(cpuNsAfter - cpuNs) / commands},
            {"kib", static_cast<double>(after.rssKib - before.rssKib)}};
}

}  // namespace kelp::bench
