// One visit to subjects that run side by side, and the separate looks that must not be timed.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "subject.h"

namespace kelp::bench {

// Figures by name; see docs/performance.md for what each one is. A figure that a subject cannot
// have is absent.
using Sample = std::map<std::string, double>;

// What one visit brought of a subject, and its figures in units of those of the floor (the direct
// exchange on the local socket) and of the reference (the two-thread relay on the same road) that
// ran beside it. All empty where the visit failed.
struct Compared {
    Sample sample;
    Sample overFloor;
    Sample overReference;
};

struct Effort {
    int turns = 10;             // of each subject in one visit
    int rounds = 100;           // visits to each group
    int seconds = 80;           // no visit begins later than this after the first of its placement
    int shortBursts = 5;        // at least, of each short size
    int shortBurstSeconds = 6;  // for each short size
    int longBurstSeconds = 50;  // no round of the long ones begins later than this after the first
    int idleSeconds = 10;
    size_t largestBurst = 16u << 20;  // bytes
};

// Starts all subjects of the group, takes every figure of each in short turns, and stops them: what
// disturbs the machine for longer than a turn meets all of them alike. The first is the floor and
// the second the reference. A subject's sample is empty when it gave a wrong answer or none.
std::vector<Compared> Visit(const std::vector<Subject>& group, const Environment& environment,
                            const Effort& effort);

// Context switches of each relay in `seconds` during which a client is connected and silent.
std::vector<Sample> VisitIdle(const std::vector<Subject>& group, const Environment& environment,
                              int seconds);

// System calls per command, by name, and all of them as "all".
Sample VisitTraced(const Subject& subject, const Environment& environment);

// Nanoseconds for each of the small commands that fill `bytes`, written as fast as the relay takes
// them, as "ns", and the growth of its resident memory as "kib". `refused`: no module takes them.
Sample VisitBurst(const Subject& subject, const Environment& environment, size_t bytes,
                  bool refused);

}  // namespace kelp::bench
