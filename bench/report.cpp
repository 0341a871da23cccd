#include "report.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "stats.h"

namespace kelp::bench {

namespace {

constexpr char kFloor[] = "direct/local/kept";
using Rounds = std::map<std::string, std::vector<Sample>>;

double MedianOf(const std::vector<Sample>& samples, const std::string& figure) {
    std::vector<double> values;
    for (const Sample& sample : samples) {
        const auto found = sample.find(figure);
        if (found != sample.end()) {
            values.push_back(found->second);
        }
    }
    return values.empty() ? -1 : Median(values);
}

// -1 when one of the two has no such figure.
double RatioOf(const std::vector<Sample>& samples, const std::vector<Sample>& base,
               const std::string& figure) {
    std::vector<double> ratios;
    for (size_t i = 0; i < samples.size() && i < base.size(); ++i) {
        const auto over = samples[i].find(figure);
        const auto under = base[i].find(figure);
        if (over != samples[i].end() && under != base[i].end() && under->second > 0) {
            ratios.push_back(over->second / under->second);
        }
    }
    return ratios.empty() ? -1 : Median(ratios);
}

void Cell(double value, int digits = 2) {
    if (value < 0) {
        printf("%8s", "-");
    } else {
        printf("%8.*f", digits, value);
    }
}

// The two-thread reference on the same transport, in the same mode.
std::string YardstickFor(const std::string& key) {
    return "two-threads" + key.substr(key.find('/'));
}

const std::vector<Sample>& Of(const Rounds& rounds, const std::string& key) {
    static const std::vector<Sample> kNone;
    const auto found = rounds.find(key);
    return found != rounds.end() ? found->second : kNone;
}

void PrintRoundTrips(const std::string& placement, const Rounds& rounds) {
    printf(
        "\nRound trips, %s; x-floor: over the direct exchange on the local socket; x-ref: over\n"
        "the two-thread relay on the same road; /s in units of that relay's, too\n",
        placement == "one-core" ? "all on one core" : "where the scheduler places them");
    printf("%-32s%8s%8s%8s%8s|%8s%8s%8s%8s%8s%8s%8s\n", "", "p50", "p90", "p99", "max", "p50",
           "p99", "pair", "/s one", "/s pipe", "/s four", "cpu");
    printf("%-32s%32s|%56s\n", "", "x-floor", "x-ref");
    for (const auto& [key, samples] : rounds) {
        printf("%-32s", key.c_str());
        for (const char* figure : {"p50_ns", "p90_ns", "p99_ns", "max_ns"}) {
            Cell(RatioOf(samples, Of(rounds, kFloor), figure));
        }
        printf("|");
        for (const char* figure :
             {"p50_ns", "p99_ns", "pair_ns", "per_second", "pipelined_per_second",
              "four_clients_per_second", "cpu_us_per_1000"}) {
            Cell(RatioOf(samples, Of(rounds, YardstickFor(key)), figure));
        }
        printf("\n");
    }
}

void PrintFootprints(const Results& results, const std::string& placement, const Rounds& rounds) {
    printf(
        "\nCosts, %s: context switches per command of the relay and of the whole road, pair in\n"
        "single round trips, start to first answer over the two-thread relay's, memory in KiB\n",
        placement.c_str());
    printf("%-32s%8s%8s%8s%8s%8s%8s%8s%8s%8s\n", "", "relay", "road", "pair", "start", "rss", "pss",
           "threads", "calls", "idle");
    for (const auto& [key, samples] : rounds) {
        printf("%-32s", key.c_str());
        Cell(MedianOf(samples, "switches"));
        Cell(MedianOf(samples, "path_switches"));
        const double pair = MedianOf(samples, "pair_ns");
        Cell(pair > 0 ? pair / MedianOf(samples, "p50_ns") : -1);
        Cell(RatioOf(samples, Of(rounds, YardstickFor(key)), "start_ms"));
        for (const char* figure : {"rss_kib", "pss_kib", "threads"}) {
            Cell(MedianOf(samples, figure), 0);
        }
        const auto calls = results.calls.find(key);
        Cell(calls != results.calls.end() ? MedianOf({calls->second}, "all") : -1);
        const auto idle = results.idle.find(key);
        Cell(idle != results.idle.end() ? MedianOf({idle->second}, "switches") : -1, 0);
        printf("\n");
    }
}

void PrintCalls(const Results& results) {
    printf("\nSystem calls per command\n");
    for (const auto& [key, sample] : results.calls) {
        printf("%-32s", key.c_str());
        for (const auto& [name, count] : sample) {
            if (count >= 0.05) {
                printf(" %s %.2f", name.c_str(), count);
            }
        }
        printf("\n");
    }
}

void PrintBursts(const Results& results) {
    const auto found = results.rounds.find("one-core");
    const double floor =
        found != results.rounds.end() ? MedianOf(Of(found->second, kFloor), "p50_ns") : 0;
    printf(
        "\nBursts of 64-byte commands on the local socket, one core: time per command in direct\n"
        "exchanges, growth of the resident memory in KiB, and the log-log slope of the time of\n"
        "the whole burst\n");
    for (const auto& [key, sizes] : results.bursts) {
        printf("%-32s", key.c_str());
        std::vector<double> x;
        std::vector<double> y;
        for (const auto& [bytes, samples] : sizes) {
            const double ns = MedianOf(samples, "ns");
            printf("  %zu KiB: %.2f (%+.0f)", bytes >> 10, floor > 0 ? ns / floor : -1,
                   MedianOf(samples, "kib"));
            x.push_back(static_cast<double>(bytes));
            y.push_back(ns * static_cast<double>(bytes));
        }
        if (x.size() > 1) {
            printf("  slope %.2f", LogLogSlope(x, y));
        }
        printf("\n");
    }
}

void Write(std::ostream& out, const Sample& sample) {
    const char* separator = "{";
    for (const auto& [name, value] : sample) {
        out << separator << "\"" << name << "\":" << value;
        separator = ",";
    }
    out << (sample.empty() ? "{}" : "}");
}

void Write(std::ostream& out, const std::vector<Sample>& samples) {
    const char* separator = "[";
    for (const Sample& sample : samples) {
        out << separator;
        Write(out, sample);
        separator = ",";
    }
    out << (samples.empty() ? "[]" : "]");
}

void Write(std::ostream& out, size_t key) {
    out << "\"" << key << "\":";
}

void Write(std::ostream& out, const std::string& key) {
    out << "\"" << key << "\":";
}

template <typename Key, typename Value>
void Write(std::ostream& out, const std::map<Key, Value>& values) {
    const char* separator = "{";
    for (const auto& [key, value] : values) {
        out << separator;
        Write(out, key);
        Write(out, value);
        separator = ",\n";
    }
    out << (values.empty() ? "{}" : "}");
}

}  // namespace

void PrintTables(const Results& results) {
    for (const auto& [placement, rounds] : results.rounds) {
        PrintRoundTrips(placement, rounds);
        PrintFootprints(results, placement, rounds);
    }
    PrintCalls(results);
    PrintBursts(results);
}

bool WriteJson(const Results& results, const std::string& path) {
    struct utsname system = {};
    uname(&system);
    double load = 0;
    getloadavg(&load, 1);
    std::ofstream out(path);
    out << "{\"machine\":{\"kernel\":\"" << system.release << "\",\"architecture\":\""
        << system.machine << "\",\"cores\":" << sysconf(_SC_NPROCESSORS_ONLN)
        << ",\"load_at_end\":" << load << "},\n\"rounds\":";
    Write(out, results.rounds);
    out << ",\n\"idle\":";
    Write(out, results.idle);
    out << ",\n\"system_calls\":";
    Write(out, results.calls);
    out << ",\n\"bursts\":";
    Write(out, results.bursts);
    out << ",\n\"failures\":" << results.failures << "}\n";
    out.close();
    return out.good();
}

}  // namespace kelp::bench
