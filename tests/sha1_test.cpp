// SHA-1 on both compression paths: RFC 3174 digests split at every kind of
// block boundary; the whole context against a byte-at-a-time model after
// every call (all tail lengths, carries, overflows); the return codes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "util/sha1_internal.h"
#include "vxio/lock_sha1.h"

using vxio::sha1::Path;

namespace {

// The reference: input one byte at a time, padding one byte at a time.
void model_push(SHA1Context *c, uint8_t byte) {
    c->Message_Block[c->Message_Block_Index++] = byte;
    if (c->Message_Block_Index == 64) {
        vxio::sha1::compress_portable(c->Intermediate_Hash, c->Message_Block, 1);
        c->Message_Block_Index = 0;
    }
}

int32_t model_input(SHA1Context *c, const uint8_t *m, uint32_t n) {
    if (n == 0) return shaSuccess;
    if (c->Computed) return c->Corrupted = shaStateError;
    if (c->Corrupted) return c->Corrupted;
    for (; n && !c->Corrupted; --n) {
        model_push(c, *m++);
        c->Length_Low += 8;
        if (c->Length_Low == 0 && ++c->Length_High == 0) c->Corrupted = 1;
    }
    return shaSuccess;
}

int32_t model_result(SHA1Context *c) {
    if (c->Corrupted || c->Computed) return c->Corrupted;
    const uint64_t bits = uint64_t(c->Length_High) << 32 | c->Length_Low;
    model_push(c, 0x80);
    while (c->Message_Block_Index != 56) model_push(c, 0);
    for (int shift = 56; shift >= 0; shift -= 8) model_push(c, uint8_t(bits >> shift));
    std::memset(c->Message_Block, 0, 64);
    c->Length_Low = c->Length_High = 0;
    c->Computed = 1;
    return shaSuccess;
}

class Sha1Path : public testing::TestWithParam<Path> {
protected:
    void SetUp() override {
        if (vxio::sha1::force_path(GetParam()) != GetParam()) GTEST_SKIP() << "no SHA extensions on this CPU";
    }
    void TearDown() override { vxio::sha1::force_path(Path::Auto); }
};

TEST_P(Sha1Path, RfcDigestsAtEverySplit) {
    const std::string tv4 = "0123456701234567012345670123456701234567012345670123456701234567";
    const struct { std::string unit; int repeat; const char *digest; } vectors[] = {
        {"", 1, "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {"abc", 1, "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq", 1, "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
        {"a", 1000000, "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
        {tv4, 10, "dea356a2cddd90c7a7ecedc5ebb563934f460452"},
    };
    // 0 feeds the unit as the RFC's driver repeats it; the last is the whole.
    for (const auto &v : vectors) {
        std::string message;
        for (int i = 0; i < v.repeat; ++i) message += v.unit;
        for (size_t chunk : {size_t(0), size_t(1), size_t(55), size_t(56), size_t(63), size_t(64), size_t(65), SIZE_MAX}) {
            if (chunk == 0) chunk = std::max<size_t>(v.unit.size(), 1);
            SHA1Context c;
            uint8_t d[SHA1HashSize];
            ASSERT_EQ(SHA1Reset(&c), shaSuccess);
            for (size_t at = 0; at < message.size(); at += chunk) {
                const size_t n = std::min(chunk, message.size() - at);
                ASSERT_EQ(SHA1Input(&c, reinterpret_cast<const uint8_t *>(&message[at]), uint32_t(n)), shaSuccess);
            }
            ASSERT_EQ(SHA1Result(&c, d), shaSuccess);
            char hex[2 * SHA1HashSize + 1];
            for (int i = 0; i < SHA1HashSize; ++i) snprintf(hex + 2 * i, 3, "%02x", d[i]);
            EXPECT_STREQ(hex, v.digest) << v.repeat << " x \"" << v.unit << "\" in pieces of " << chunk;
        }
    }
}

TEST_P(Sha1Path, ContextMatchesTheByteLoopAfterEveryCall) {
    const struct { uint32_t high, low; } starts[] = {
        {0, 0},
        {0, 0xFFFFFC00},           // low word carries after 128 bytes
        {0xFFFFFFFF, 0xFFFFF000},  // overflows on byte 512, mid-call
        {0xFFFFFFFF, 0xFFFFFE00},  // overflows on byte 64, the last of a call
        {0xFFFFFFFF, 0xFFFFFFF0},  // overflows on the second byte
        {0, 0xFFFFFFFC},           // not whole bytes: the low word never carries
    };
    std::vector<std::vector<uint32_t>> splits = {
        {1, 55, 8, 64, 63, 1, 65, 128, 129, 0, 200, 3},
        {64, 64, 1, 63, 56, 8, 1000, 7, 62},
        {65, 0, 127, 2, 4096, 1, 447},
    };
    for (uint32_t n = 0; n <= 130; ++n) splits.push_back({n});  // every tail for the padding
    std::vector<uint8_t> data(8192);
    uint32_t seed = 12345;
    for (auto &b : data) b = uint8_t((seed = seed * 1103515245u + 12345u) >> 24);
    const uint32_t initial[5] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};

    for (const auto &start : starts) {
        for (const auto &split : splits) {
            SCOPED_TRACE(testing::Message() << std::hex << start.high << ":" << start.low << std::dec
                                            << ", split of " << split.size() << " from " << split[0]);
            // Both from the same stale bytes: Reset must leave the block alone.
            SHA1Context lib, ref;
            std::memset(&lib, 0xA5, sizeof lib);
            std::memcpy(&ref, &lib, sizeof lib);  // padding bytes too
            ASSERT_EQ(SHA1Reset(&lib), shaSuccess);
            std::memcpy(ref.Intermediate_Hash, initial, sizeof initial);
            ref.Length_Low = ref.Length_High = ref.Message_Block_Index = ref.Computed = ref.Corrupted = 0;
            ASSERT_EQ(std::memcmp(&lib, &ref, sizeof lib), 0) << "after Reset";
            lib.Length_High = ref.Length_High = start.high;
            lib.Length_Low = ref.Length_Low = start.low;

            size_t at = 0;
            for (uint32_t n : split) {
                EXPECT_EQ(SHA1Input(&lib, &data[at], n), model_input(&ref, &data[at], n));
                ASSERT_EQ(std::memcmp(&lib, &ref, sizeof lib), 0) << "after " << n << " bytes at " << at;
                at += n;
            }
            uint8_t digest[2][SHA1HashSize] = {};
            for (int call = 0; call < 2; ++call) {
                EXPECT_EQ(SHA1Result(&lib, digest[call]), model_result(&ref));
                ASSERT_EQ(std::memcmp(&lib, &ref, sizeof lib), 0) << "after Result " << call;
            }
            EXPECT_EQ(std::memcmp(digest[0], digest[1], SHA1HashSize), 0) << "a second Result differs";
            EXPECT_EQ(SHA1Input(&lib, &data[0], 1), model_input(&ref, &data[0], 1));
            EXPECT_EQ(std::memcmp(&lib, &ref, sizeof lib), 0) << "after input following Result";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(BothPaths, Sha1Path, testing::Values(Path::Portable, Path::Accelerated),
                         [](const auto &info) { return info.param == Path::Portable ? "Portable" : "Accelerated"; });

TEST(Sha1Codes, NullsZeroLengthStateAndBadIndex) {
    const uint8_t byte = 'x';
    uint8_t digest[SHA1HashSize];
    SHA1Context c;
    ASSERT_EQ(SHA1Reset(&c), shaSuccess);
    EXPECT_EQ(SHA1Reset(nullptr), shaNull);
    EXPECT_EQ(SHA1Input(nullptr, &byte, 1), shaNull);
    EXPECT_EQ(SHA1Input(&c, nullptr, 1), shaNull);
    EXPECT_EQ(SHA1Input(nullptr, nullptr, 0), shaSuccess);  // the length is tested first
    EXPECT_EQ(SHA1Result(nullptr, digest), shaNull);
    EXPECT_EQ(SHA1Result(&c, nullptr), shaNull);

    ASSERT_EQ(SHA1Result(&c, digest), shaSuccess);
    EXPECT_EQ(SHA1Input(&c, &byte, 0), shaSuccess);
    EXPECT_EQ(c.Corrupted, 0) << "a zero length must not reach the state test";
    EXPECT_EQ(SHA1Input(&c, &byte, 1), shaStateError);
    std::memset(digest, 0xEE, sizeof digest);
    EXPECT_EQ(SHA1Result(&c, digest), shaStateError);
    EXPECT_EQ(digest[0], 0xEE) << "no digest from a corrupted context";

    // A block index the context can never hold is refused, not followed.
    ASSERT_EQ(SHA1Reset(&c), shaSuccess);
    c.Message_Block_Index = 64;
    EXPECT_EQ(SHA1Input(&c, &byte, 1), shaStateError);
    c.Corrupted = 0;
    EXPECT_EQ(SHA1Result(&c, digest), shaStateError);
}

}  // namespace
