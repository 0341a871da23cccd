#include "measure.h"

#include <signal.h>
#include <sys/resource.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "stats.h"

namespace kelp::bench {

namespace {

constexpr int kWarmUp = 30;
constexpr int kPipelined = 16;  // commands in one write
constexpr int kClients = 4;     // as many as a console accepts
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
    Running(const Subject& subject, const Environment& environment)
        : mRoad(RoadOf(subject, environment)), mClient(mRoad) {
        if (subject.transport == Transport::kPty) {
            tcflush(mRoad.master, TCIOFLUSH);  // what an earlier subject left behind
        }
        const int64_t begin = NowNs();
        if (!StartRelay(subject, environment, mRelay)) {
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

    const Road mRoad;
    Process mRelay;
    Client mClient;
    bool mGood = false;
    double mStartNs = 0;
};

bool TakeRoundTrips(Running& running, const Environment& environment, int commands,
                    Sample& sample) {
    std::vector<double> times;
    times.reserve(static_cast<size_t>(commands));
    const std::vector<pid_t> relay = running.mRelay.Tree();
    const Counters relayBefore = ReadCounters(relay);
    const Counters peerBefore = ReadCounters({environment.peer.Pid()});
    const int64_t ownBefore = OwnSwitches();
    const int64_t begin = NowNs();
    if (!running.mClient.OneAtATime(commands, times)) {
        return false;
    }
    const auto elapsed = static_cast<double>(NowNs() - begin);
    const int64_t own = OwnSwitches() - ownBefore;
    const Counters relayAfter = ReadCounters(relay);
    const Counters peerAfter = ReadCounters({environment.peer.Pid()});
    sample["p50_ns"] = Quantile(times, 0.50);
    sample["p90_ns"] = Quantile(times, 0.90);
    sample["p99_ns"] = Quantile(times, 0.99);
    sample["max_ns"] = Quantile(times, 1);
    sample["per_second"] = commands * 1e9 / elapsed;
    const auto relaySwitches = static_cast<double>(relayAfter.switches - relayBefore.switches);
    const auto peerSwitches = static_cast<double>(peerAfter.switches - peerBefore.switches);
    sample["path_switches"] = (relaySwitches + peerSwitches + static_cast<double>(own)) / commands;
    if (!relay.empty()) {
        sample["switches"] = relaySwitches / commands;
        sample["cpu_us_per_1000"] =
            static_cast<double>(relayAfter.cpuNs - relayBefore.cpuNs) / commands;
    }
    return true;
}

// Two commands in one write: on TCP a second answer that waits for an acknowledgement shows here.
bool TakePairs(Running& running, int commands, Sample& sample) {
    const std::string pair = Repeat(running.mRoad.command, 2);
    std::vector<double> times;
    for (int i = 0; i < commands / 4; ++i) {
        const int64_t begin = NowNs();
        if (!running.mClient.Exchange(pair, 2 * running.mRoad.answerBytes)) {
            return false;
        }
        times.push_back(static_cast<double>(NowNs() - begin));
    }
    sample["pair_ns"] = Median(times);
    return true;
}

bool TakePipelined(Running& running, int commands, Sample& sample) {
    const std::string data = Repeat(running.mRoad.command, kPipelined);
    const int writes = std::max(commands / kPipelined, 1);
    const int64_t begin = NowNs();
    for (int i = 0; i < writes; ++i) {
        if (!running.mClient.Exchange(data, kPipelined * running.mRoad.answerBytes)) {
            return false;
        }
    }
    sample["pipelined_per_second"] =
        writes * kPipelined * 1e9 / static_cast<double>(NowNs() - begin);
    return true;
}

bool TakeFourClients(Running& running, int commands, Sample& sample) {
    running.mClient.Close();
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < kClients; ++i) {
        clients.push_back(std::make_unique<Client>(running.mRoad));
        // Known to be accepted before the next one knocks, whatever slot the last client had.
        if (!clients.back()->Open() ||
            !clients.back()->Exchange(running.mRoad.command, running.mRoad.answerBytes)) {
            return false;
        }
    }
    std::vector<char> good(kClients, 0);
    std::vector<std::thread> threads;
    const int64_t begin = NowNs();
    for (size_t i = 0; i < kClients; ++i) {
        threads.emplace_back([&, i] {
            std::vector<double> times;
            good[i] = clients[i]->OneAtATime(commands / kClients, times) ? 1 : 0;
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    sample["four_clients_per_second"] =
        commands / kClients * kClients * 1e9 / static_cast<double>(NowNs() - begin);
    return std::count(good.begin(), good.end(), 1) == kClients;
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

Sample Visit(const Subject& subject, const Environment& environment, const Effort& effort) {
    Running running(subject, environment);
    Sample sample;
    std::vector<double> ignored;
    const bool reopens = running.mRoad.clientReopens;
    if (!running.mGood || !running.mClient.OneAtATime(kWarmUp, ignored) ||
        !TakeRoundTrips(running, environment, effort.commands, sample)) {
        return {};
    }
    if (subject.relaying != Relaying::kDirect) {
        sample["start_ms"] = running.mStartNs / 1e6;
        const Footprint footprint = ReadFootprint(running.mRelay.Tree());
        sample["rss_kib"] = static_cast<double>(footprint.rssKib);
        sample["pss_kib"] = static_cast<double>(footprint.pssKib);
        sample["threads"] = footprint.threads;
    }
    if (!reopens && (!TakePairs(running, effort.commands, sample) ||
                     !TakePipelined(running, effort.commands, sample))) {
        return {};
    }
    // ser2net has one client per peer connection.
    if (!reopens && subject.transport != Transport::kPty &&
        subject.relaying != Relaying::kSer2net &&
        !TakeFourClients(running, effort.commands, sample)) {
        return {};
    }
    return sample;
}

Sample VisitIdle(const Subject& subject, const Environment& environment, int seconds) {
    Running running(subject, environment);
    if (!running.mGood) {
        return {};
    }
    usleep(200000);  // what the last command has set in motion
    const Counters before = ReadCounters(running.mRelay.Tree());
    sleep(static_cast<unsigned>(seconds));
    const Counters after = ReadCounters(running.mRelay.Tree());
    return {{"switches", static_cast<double>(after.switches - before.switches)},
            {"cpu_us", static_cast<double>(after.cpuNs - before.cpuNs) / 1e3}};
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
    const Counters countersBefore = ReadCounters(running.mRelay.Tree());
    const int64_t begin = NowNs();
    if (!running.mClient.Burst(data, answer * static_cast<size_t>(commands))) {
        return {};
    }
    const auto elapsed = static_cast<double>(NowNs() - begin);
    const Counters countersAfter = ReadCounters(running.mRelay.Tree());
    const Footprint after = ReadFootprint(running.mRelay.Tree());
    return {{"ns", elapsed / commands},
            {"cpu_ns", static_cast<double>(countersAfter.cpuNs - countersBefore.cpuNs) / commands},
            {"kib", static_cast<double>(after.rssKib - before.rssKib)}};
}

}  // namespace kelp::bench
