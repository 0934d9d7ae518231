// Name cache: time per add and per lookup (an add of a name already there)
// at 1k, 10k, 100k and 1M names, through the exported interface only.
//
// Every insertion moves the slots after its place, so adds in random order
// cost O(n) each; they are measured only up to 100k. Adds in ascending
// order append and are measured at every size. Lookups run in random order.
// The last lines divide the lookup time by log2(n), the number of probes.
// Each probe follows two pointers (slot, then entry and name), so random
// lookups in a cache larger than the CPU's own caches pay memory latency
// on the deep probes and the figure rises; the same lookups in ascending
// order share their search paths, stay in the CPU's caches and show the
// pure cost of the search, which stays roughly flat.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "bench_util.h"
#include "vxio/name_cache.h"

namespace {

constexpr uint32_t kMaxNames = 1000000;
constexpr uint32_t kRandomAddLimit = 100000;
constexpr size_t kNameWidth = 40;

// Names shaped like the engine's (lower-case paths with a long shared
// prefix); the zero-padded counter makes ascending counters ascending
// names. "c:\windows\system32\f0000042.dll"
struct NameSet {
    std::vector<char> text;
    std::vector<const char *> ascending;
};

NameSet make_names(uint32_t n) {
    NameSet set;
    set.text.resize(size_t{n} * kNameWidth);
    set.ascending.resize(n);
    for (uint32_t i = 0; i < n; ++i) {
        char *slot = &set.text[size_t{i} * kNameWidth];
        std::snprintf(slot, kNameWidth, "c:\\windows\\system32\\f%07u.dll", i);
        set.ascending[i] = slot;
    }
    return set;
}

[[noreturn]] void fail(const char *what, const char *name, uint32_t code) {
    std::fprintf(stderr, "%s \"%s\": unexpected result 0x%08X\n", what, name, code);
    std::exit(1);
}

void add_all(DynArray *cache, const std::vector<const char *> &names) {
    uint32_t index;
    for (const char *name : names) {
        const uint32_t code = VOXA_IO_AddNameToCache(cache, name, &index);
        if (code != VXIO_CACHE_ADDED) fail("add", name, code);
    }
}

// Best time of filling a fresh cache with names; opening and closing the
// cache stay outside the figure.
double best_fill_time(const std::vector<const char *> &names, double min_seconds, int min_runs) {
    double best = 1e30;
    const double start = bench::now_seconds();
    for (int run = 0; run < min_runs || bench::now_seconds() - start < min_seconds; ++run) {
        DynArray *cache = VOXA_IO_OpenNameCache();
        if (!cache) fail("open", "", 0);
        const double t0 = bench::now_seconds();
        add_all(cache, names);
        best = std::min(best, bench::now_seconds() - t0);
        VOXA_IO_CloseNameCache(cache);
    }
    return best;
}

double nanoseconds_each(double seconds, uint32_t n) { return seconds * 1e9 / n; }

// Best time of looking up every name of order in cache (each an add that
// must find its name).
double best_lookup_time(DynArray *cache, const std::vector<const char *> &order, int min_runs) {
    return bench::best_time(
        [&] {
            uint32_t index;
            for (const char *name : order) {
                const uint32_t code = VOXA_IO_AddNameToCache(cache, name, &index);
                if (code != VXIO_CACHE_OK) fail("lookup", name, code);
            }
        },
        0.3, min_runs);
}

}  // namespace

int main() {
    const NameSet all = make_names(kMaxNames);
    std::mt19937 random(20240611);
    const uint32_t sizes[] = {1000, 10000, 100000, 1000000};
    double random_per_log2[4], ascending_per_log2[4];

    std::printf("%9s %12s %14s %14s %14s\n", "names", "add asc ns", "add random ns",
                "lookup ns", "lookup asc ns");
    for (int s = 0; s < 4; ++s) {
        const uint32_t n = sizes[s];
        const bool large = n >= kMaxNames;
        const std::vector<const char *> ascending(all.ascending.begin(), all.ascending.begin() + n);
        std::vector<const char *> shuffled = ascending;
        std::shuffle(shuffled.begin(), shuffled.end(), random);

        const double add_asc = best_fill_time(ascending, 0.3, large ? 1 : 3);
        double add_random = -1;
        if (n <= kRandomAddLimit) add_random = best_fill_time(shuffled, 0.3, n < kRandomAddLimit ? 3 : 1);

        DynArray *cache = VOXA_IO_OpenNameCache();
        if (!cache) fail("open", "", 0);
        add_all(cache, ascending);
        const double lookup_ns = nanoseconds_each(best_lookup_time(cache, shuffled, large ? 2 : 5), n);
        const double ascending_ns = nanoseconds_each(best_lookup_time(cache, ascending, large ? 2 : 5), n);
        VOXA_IO_CloseNameCache(cache);

        const double log2n = std::log2(static_cast<double>(n));
        random_per_log2[s] = lookup_ns / log2n;
        ascending_per_log2[s] = ascending_ns / log2n;
        char random_text[32] = "-";
        if (add_random >= 0) std::snprintf(random_text, sizeof random_text, "%.1f", nanoseconds_each(add_random, n));
        std::printf("%9u %12.1f %14s %14.1f %14.1f\n", n, nanoseconds_each(add_asc, n), random_text,
                    lookup_ns, ascending_ns);
        std::fflush(stdout);
    }
    std::printf("lookup ns / log2(n):    ");
    for (int s = 0; s < 4; ++s) std::printf("  %uk %.1f", sizes[s] / 1000, random_per_log2[s]);
    std::printf("\nlookup asc ns / log2(n):");
    for (int s = 0; s < 4; ++s) std::printf("  %uk %.1f", sizes[s] / 1000, ascending_per_log2[s]);
    std::printf("\n");
    return 0;
}
