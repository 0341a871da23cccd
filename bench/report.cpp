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
using Rounds = std::map<std::string, std::vector<Compared>>;

// -1 when no visit has the figure.
double MedianOf(const std::vector<Compared>& visits, Sample Compared::*part,
                const std::string& figure) {
    std::vector<double> values;
    for (const Compared& visit : visits) {
        const auto found = (visit.*part).find(figure);
        if (found != (visit.*part).end()) {
            values.push_back(found->second);
        }
    }
    return values.empty() ? -1 : Median(values);
}

// The same, of the figure itself.
double MedianOf(const std::vector<Compared>& visits, const std::string& figure) {
    return MedianOf(visits, &Compared::sample, figure);
}

double FigureOf(const std::map<std::string, Sample>& samples, const std::string& key,
                const std::string& figure) {
    const auto found = samples.find(key);
    return found != samples.end() ? MedianOf({{found->second, {}, {}}}, figure) : -1;
}

void Cell(double value, int digits = 2) {
    if (value < 0) {
        printf("%8s", "-");
    } else {
        printf("%8.*f", digits, value);
    }
}

void PrintRoundTrips(const std::string& placement, const Rounds& rounds) {
    printf(
        "\nRound trips, %s; x-floor: over the direct exchange on the local socket; x-ref: over\n"
        "the two-thread relay on the same road; /s in units of that relay's, too\n",
        placement == "one-core" ? "all on one core" : "where the scheduler places them");
    printf("%-32s%8s%8s%8s%8s|%8s%8s%8s%8s%8s%8s%8s\n", "", "p50", "p90", "p99", "max", "p50",
           "p99", "pair", "/s one", "/s pipe", "/s four", "cpu");
    printf("%-32s%32s|%56s\n", "", "x-floor", "x-ref");
    for (const auto& [key, visits] : rounds) {
        printf("%-32s", key.c_str());
        for (const char* figure : {"p50_ns", "p90_ns", "p99_ns", "max_ns"}) {
            Cell(MedianOf(visits, &Compared::overFloor, figure));
        }
        printf("|");
        for (const char* figure :
             {"p50_ns", "p99_ns", "pair_ns", "per_second", "pipelined_per_second",
              "four_clients_per_second", "cpu_us_per_1000"}) {
            Cell(MedianOf(visits, &Compared::overReference, figure));
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
    for (const auto& [key, visits] : rounds) {
        printf("%-32s", key.c_str());
        Cell(MedianOf(visits, "switches"));
        Cell(MedianOf(visits, "path_switches"));
        const double pair = MedianOf(visits, "pair_ns");
        Cell(pair > 0 ? pair / MedianOf(visits, "p50_ns") : -1);
        Cell(MedianOf(visits, &Compared::overReference, "start_ms"));
        for (const char* figure : {"rss_kib", "pss_kib", "threads"}) {
            Cell(MedianOf(visits, figure), 0);
        }
        Cell(FigureOf(results.calls, key, "all"));
        Cell(FigureOf(results.idle, key, "switches"), 0);
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
    const auto placement = results.rounds.find("one-core");
    if (placement == results.rounds.end() || results.bursts.empty()) {
        return;
    }
    const auto direct = placement->second.find(kFloor);
    const double floor =
        direct != placement->second.end() ? MedianOf(direct->second, "p50_ns") : -1;
    printf(
        "\nBursts of 64-byte commands on the local socket, one core: time per command in direct\n"
        "exchanges, x-ref as above, growth of the resident memory in KiB, and the log-log slope\n"
        "of the time of the whole burst\n");
    for (const auto& [key, sizes] : results.bursts) {
        printf("%-32s", key.c_str());
        std::vector<double> x;
        std::vector<double> y;
        for (const auto& [bytes, visits] : sizes) {
            const double ns = MedianOf(visits, "ns");
            printf("  %zu KiB: %.2f", bytes >> 10, floor > 0 ? ns / floor : -1);
            const double ratio = MedianOf(visits, &Compared::overReference, "ns");
            if (ratio >= 0) {
                printf(" x-ref %.2f", ratio);
            }
            printf(" (%+.0f)", MedianOf(visits, "kib"));
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

// The figures themselves are on the same level as the two sets of ratios.
void Write(std::ostream& out, const Compared& visit) {
    out << "{\"over_floor\":";
    Write(out, visit.overFloor);
    out << ",\"over_reference\":";
    Write(out, visit.overReference);
    for (const auto& [name, value] : visit.sample) {
        out << ",\"" << name << "\":" << value;
    }
    out << "}";
}

void Write(std::ostream& out, const std::vector<Compared>& visits) {
    const char* separator = "[";
    for (const Compared& visit : visits) {
        out << separator;
        Write(out, visit);
        separator = ",\n";
    }
    out << (visits.empty() ? "[]" : "]");
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
