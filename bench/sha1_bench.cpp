// SHA-1 throughput through the exports: each run hashes one 1 MiB buffer
// (Reset, one Input, Result), runs repeat for about two seconds, and the best
// run gives the figure in MB/s (10^6 bytes per second).
//
//   sha1_bench [--reference-mbps <MB/s>]
//
// With a reference (the native figure for 1 MiB blocks measured on the same
// CPU by scripts/bench) it also prints the ratio of ours to it.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bench_util.h"
#include "vxio/lock_sha1.h"

int main(int argc, char **argv) {
    double reference = 0;
    for (int i = 1; i < argc; ++i) {
        char *end = nullptr;
        if (std::strcmp(argv[i], "--reference-mbps") == 0 && i + 1 < argc)
            reference = std::strtod(argv[++i], &end);
        if (!end || *end || reference <= 0) {
            std::fprintf(stderr, "usage: sha1_bench [--reference-mbps <positive number>]\n");
            return 2;
        }
    }

    constexpr uint32_t kSize = 1u << 20;
    std::vector<uint8_t> buffer(kSize);
    for (uint32_t i = 0; i < kSize; ++i) buffer[i] = uint8_t(i * 2654435761u >> 24);

    uint8_t digest[SHA1HashSize];
    int32_t failures = 0;
    const double best = bench::best_time(
        [&] {
            SHA1Context context;
            failures |= SHA1Reset(&context);
            failures |= SHA1Input(&context, buffer.data(), kSize);
            failures |= SHA1Result(&context, digest);
        },
        2.0);
    if (failures) {
        std::fprintf(stderr, "sha1_bench: SHA-1 reported status %d\n", failures);
        return 1;
    }

    const double mbps = kSize / best / 1e6;
    std::printf("sha1 vxio MB/s: %.1f\n", mbps);
    if (reference > 0) std::printf("sha1 ratio vs openssl: %.3f\n", mbps / reference);
    return 0;
}
