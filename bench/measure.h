// One visit to one subject, and the separate looks that must not be timed.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "subject.h"

namespace kelp::bench {

// Figures by name; see docs/performance.md for what each one is. A figure that a subject cannot
// have is absent.
using Sample = std::map<std::string, double>;

struct Effort {
    int commands = 300;  // of each timed part
    int rounds = 15;     // visits to each subject
    int seconds = 80;    // no new round of visits begins later than this after the first
    int idleSeconds = 10;
    size_t largestBurst = 16u << 20;  // bytes
};

// Starts the subject, takes every figure once and stops it. Empty when it gave a wrong answer or
// none.
Sample Visit(const Subject& subject, const Environment& environment, const Effort& effort);

// Context switches of the relay in `seconds` during which a client is connected and silent.
Sample VisitIdle(const Subject& subject, const Environment& environment, int seconds);

// System calls per command, by name, and all of them as "all".
Sample VisitTraced(const Subject& subject, const Environment& environment);

// Nanoseconds for each of the small commands that fill `bytes`, written as fast as the relay takes
// them, as "ns", and the growth of its resident memory as "kib". `refused`: no module takes them.
Sample VisitBurst(const Subject& subject, const Environment& environment, size_t bytes,
                  bool refused);

}  // namespace kelp::bench
