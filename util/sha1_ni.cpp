// SHA-1 compression with the x86 SHA extensions, and the CPUID test that
// says whether they may be used. Only this function is compiled for the
// extensions (through its target attribute), so the rest of the library runs
// on any x86-64 and this code is reached only after the CPUID test.
//
// Register layout used by the instructions: A B C D in one register with A
// in the top lane; E alone in the top lane of another; message words with
// the earliest in the top lane. Each SHA1RNDS4 does four rounds, its
// immediate picking the round function and constant of rounds 0-19, 20-39,
// 40-59 or 60-79. After four rounds, E is A from before them rotated by 30,
// which SHA1NEXTE computes and adds to the next four message words.
#include <cpuid.h>
#include <immintrin.h>

#include "util/sha1_internal.h"

namespace vxio::sha1 {

bool cpu_has_sha_extensions() noexcept {
    unsigned eax, ebx, ecx, edx;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx)) return false;
    const bool sse41 = ecx & (1u << 19), ssse3 = ecx & (1u << 9);
    if (!__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx)) return false;
    return sse41 && ssse3 && (ebx & (1u << 29));
}

__attribute__((target("sha,sse4.1,ssse3")))
void compress_accelerated(uint32_t state[5], const uint8_t *blocks, size_t count) noexcept {
    // Reverses all sixteen bytes: big-endian words, earliest in the top lane.
    const __m128i reverse = _mm_set_epi64x(0x0001020304050607LL, 0x08090A0B0C0D0E0FLL);
    __m128i abcd = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(state)), 0x1B);
    __m128i e = _mm_set_epi32(int(state[4]), 0, 0, 0);

    for (; count; --count, blocks += 64) {
        const __m128i abcd_in = abcd, e_in = e;
        // (No helper lambda: it would not inherit this function's target.)
        const __m128i *in = reinterpret_cast<const __m128i *>(blocks);
        __m128i m0 = _mm_shuffle_epi8(_mm_loadu_si128(in + 0), reverse);
        __m128i m1 = _mm_shuffle_epi8(_mm_loadu_si128(in + 1), reverse);
        __m128i m2 = _mm_shuffle_epi8(_mm_loadu_si128(in + 2), reverse);
        __m128i m3 = _mm_shuffle_epi8(_mm_loadu_si128(in + 3), reverse);
        __m128i prev = abcd;  // A B C D before the latest four rounds
        __m128i ew;           // E plus the message words of the next four rounds

        ew = _mm_add_epi32(e, m0);
        abcd = _mm_sha1rnds4_epu32(abcd, ew, 0);
#define VXIO_SHA1_FOUR(m, f)                  \
    ew = _mm_sha1nexte_epu32(prev, m);        \
    prev = abcd;                              \
    abcd = _mm_sha1rnds4_epu32(abcd, ew, f)
        VXIO_SHA1_FOUR(m1, 0);
        VXIO_SHA1_FOUR(m2, 0);
        VXIO_SHA1_FOUR(m3, 0);
        // Words t..t+3 from t >= 16: w = rotl1(w[t-3] ^ w[t-8] ^ w[t-14] ^
        // w[t-16]). SHA1MSG1 folds in w[t-14] (from a, which holds w[t-16..]
        // and b, the next four), the XOR adds w[t-8] (c), and SHA1MSG2 adds
        // w[t-3] (d) and rotates, including the dependence of w[t+3] on w[t].
#define VXIO_SHA1_NEXT(a, b, c, d, f)                                             \
    a = _mm_sha1msg2_epu32(_mm_xor_si128(_mm_sha1msg1_epu32(a, b), c), d);        \
    VXIO_SHA1_FOUR(a, f)
        VXIO_SHA1_NEXT(m0, m1, m2, m3, 0);  // rounds 16-19
        VXIO_SHA1_NEXT(m1, m2, m3, m0, 1);
        VXIO_SHA1_NEXT(m2, m3, m0, m1, 1);
        VXIO_SHA1_NEXT(m3, m0, m1, m2, 1);
        VXIO_SHA1_NEXT(m0, m1, m2, m3, 1);
        VXIO_SHA1_NEXT(m1, m2, m3, m0, 1);  // rounds 36-39
        VXIO_SHA1_NEXT(m2, m3, m0, m1, 2);
        VXIO_SHA1_NEXT(m3, m0, m1, m2, 2);
        VXIO_SHA1_NEXT(m0, m1, m2, m3, 2);
        VXIO_SHA1_NEXT(m1, m2, m3, m0, 2);
        VXIO_SHA1_NEXT(m2, m3, m0, m1, 2);  // rounds 56-59
        VXIO_SHA1_NEXT(m3, m0, m1, m2, 3);
        VXIO_SHA1_NEXT(m0, m1, m2, m3, 3);
        VXIO_SHA1_NEXT(m1, m2, m3, m0, 3);
        VXIO_SHA1_NEXT(m2, m3, m0, m1, 3);
        VXIO_SHA1_NEXT(m3, m0, m1, m2, 3);  // rounds 76-79
#undef VXIO_SHA1_NEXT
#undef VXIO_SHA1_FOUR
        // The final E, added to the E this block started with.
        e = _mm_sha1nexte_epu32(prev, e_in);
        abcd = _mm_add_epi32(abcd, abcd_in);
    }

    _mm_storeu_si128(reinterpret_cast<__m128i *>(state), _mm_shuffle_epi32(abcd, 0x1B));
    state[4] = uint32_t(_mm_extract_epi32(e, 3));
}

}  // namespace vxio::sha1
