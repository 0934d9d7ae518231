// Timing helpers shared by the benchmarks.
#pragma once

#include <windows.h>

#include <cstdint>

namespace bench {

inline double now_seconds() {
    LARGE_INTEGER frequency, counter;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&counter);
    return static_cast<double>(counter.QuadPart) / static_cast<double>(frequency.QuadPart);
}

// Runs body repeatedly for at least min_seconds and returns the best time of
// one run (best-of keeps other load on the machine out of the figure).
template <typename Body>
double best_time(Body &&body, double min_seconds = 1.0, int min_runs = 5) {
    double best = 1e30;
    const double start = now_seconds();
    for (int run = 0; run < min_runs || now_seconds() - start < min_seconds; ++run) {
        const double t0 = now_seconds();
        body();
        const double t = now_seconds() - t0;
        if (t < best) best = t;
    }
    return best;
}

// Times a and b in alternation, round after round, and returns the best time
// of each: both see the same machine load, so their ratio is steadier than
// that of two separate measurements.
struct PairTimes {
    double a;
    double b;
};
template <typename A, typename B>
PairTimes best_pair(A &&a, B &&b, int rounds = 15) {
    PairTimes best{1e30, 1e30};
    for (int round = 0; round < rounds; ++round) {
        double t0 = now_seconds();
        a();
        double t = now_seconds() - t0;
        if (t < best.a) best.a = t;
        t0 = now_seconds();
        b();
        t = now_seconds() - t0;
        if (t < best.b) best.b = t;
    }
    return best;
}

}  // namespace bench
