// What a run has gathered, as tables for people and as JSON for programs.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "measure.h"

namespace kelp::bench {

struct Results {
    // By placement ("one-core", "scheduler") and subject key: one for each round.
    std::map<std::string, std::map<std::string, std::vector<Compared>>> rounds;
    std::map<std::string, Sample> idle;   // by subject key
    std::map<std::string, Sample> calls;  // by subject key
    // By "WHO/served" or "WHO/refused" and bytes of the burst.
    std::map<std::string, std::map<size_t, std::vector<Compared>>> bursts;
    int failures = 0;
};

// Every ratio is the median over the rounds of the ratio within one visit.
void PrintTables(const Results& results);
bool WriteJson(const Results& results, const std::string& path);

}  // namespace kelp::bench
