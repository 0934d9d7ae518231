// SHA-1 with the RFC 3174 interface and context.
//
// The context is public and callers (and our tests) look inside it, so after
// every call it must hold exactly what the RFC's byte-at-a-time loop would
// leave there, down to the stale bytes in Message_Block. For speed, whole
// blocks are still compressed straight from the caller's buffer; the state is
// then rebuilt to match: the last block compressed stays in Message_Block
// (the byte loop leaves it there until later bytes overwrite it), and the
// tail goes over its front. When the bit count could overflow during a call,
// or has been set to something the byte loop would never produce, the call
// runs the byte loop itself, so that it stops on the same byte.
#include <atomic>
#include <cstring>

#include "util/sha1_internal.h"
#include "vxio/lock_sha1.h"

namespace {
constexpr int kBlock = 64;
constexpr int kLengthOffset = 56;  // where padding puts the 64-bit bit count
}  // namespace

namespace vxio::sha1 {
namespace {

inline uint32_t rotl(uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }

inline uint32_t load_be32(const uint8_t *p) {
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

// The choice of compression function. Null until the Auto choice is made;
// force_path stores into it directly. Racing first users all store the same
// pointer, so no lock is needed.
std::atomic<CompressFn> g_compress{nullptr};

CompressFn choose_by_cpu() noexcept {
    return cpu_has_sha_extensions() ? compress_accelerated : compress_portable;
}

}  // namespace

void compress_portable(uint32_t state[5], const uint8_t *blocks, size_t count) noexcept {
    for (; count; --count, blocks += kBlock) {
        uint32_t w[16];
        for (int i = 0; i < 16; ++i) w[i] = load_be32(blocks + 4 * i);
        // Words 16..79 are computed in place in a ring of sixteen.
        auto word = [&w](int t) {
            if (t < 16) return w[t];
            const uint32_t x = rotl(w[(t - 3) & 15] ^ w[(t - 8) & 15] ^ w[(t - 14) & 15] ^ w[t & 15], 1);
            w[t & 15] = x;
            return x;
        };
        uint32_t a = state[0], b = state[1], c = state[2], d = state[3], e = state[4];
        // One round, with the five working words renamed instead of moved:
        // the new A lands in e's variable and b is rotated where it stands.
        auto round = [](uint32_t a_, uint32_t &b_, uint32_t &e_, uint32_t f, uint32_t k, uint32_t wt) {
            e_ += rotl(a_, 5) + f + k + wt;
            b_ = rotl(b_, 30);
        };
        // Five rounds bring the names back to where they started. Unrolled
        // fully, so that the word schedule's test of t folds away (this
        // alone took this loop from about 290 to 540 MB/s here).
        auto twenty = [&](int first, uint32_t k, auto f) {
#pragma GCC unroll 4
            for (int t = first; t < first + 20; t += 5) {
                round(a, b, e, f(b, c, d), k, word(t));
                round(e, a, d, f(a, b, c), k, word(t + 1));
                round(d, e, c, f(e, a, b), k, word(t + 2));
                round(c, d, b, f(d, e, a), k, word(t + 3));
                round(b, c, a, f(c, d, e), k, word(t + 4));
            }
        };
        twenty(0, 0x5A827999u, [](uint32_t x, uint32_t y, uint32_t z) { return z ^ (x & (y ^ z)); });
        twenty(20, 0x6ED9EBA1u, [](uint32_t x, uint32_t y, uint32_t z) { return x ^ y ^ z; });
        twenty(40, 0x8F1BBCDCu, [](uint32_t x, uint32_t y, uint32_t z) { return (x & y) | (z & (x | y)); });
        twenty(60, 0xCA62C1D6u, [](uint32_t x, uint32_t y, uint32_t z) { return x ^ y ^ z; });
        state[0] += a;
        state[1] += b;
        state[2] += c;
        state[3] += d;
        state[4] += e;
    }
}

Path force_path(Path path) noexcept {
    CompressFn chosen = nullptr;  // Auto: chosen again on next use
    if (path == Path::Portable) chosen = compress_portable;
    if (path == Path::Accelerated) chosen = choose_by_cpu();
    g_compress.store(chosen, std::memory_order_release);
    return active_path();
}

CompressFn compressor() noexcept {
    CompressFn fn = g_compress.load(std::memory_order_acquire);
    if (!fn) {
        CompressFn expected = nullptr;
        fn = choose_by_cpu();
        // A concurrent force_path wins over the Auto choice.
        if (!g_compress.compare_exchange_strong(expected, fn, std::memory_order_acq_rel)) fn = expected;
    }
    return fn;
}

Path active_path() noexcept {
    return compressor() == compress_accelerated ? Path::Accelerated : Path::Portable;
}

}  // namespace vxio::sha1

namespace {

using vxio::sha1::compressor;

// Message_Block_Index is only ever 0..63 between calls. Anything else means
// a context that was never reset (or was overwritten), and indexing the
// block with it would write outside the context.
bool block_index_valid(const SHA1Context *context) {
    return context->Message_Block_Index >= 0 && context->Message_Block_Index < kBlock;
}

void process_block(SHA1Context *context) {
    compressor()(context->Intermediate_Hash, context->Message_Block, 1);
    context->Message_Block_Index = 0;
}

// The reference loop, one byte at a time. Only the bit count's carry rule
// matters here: the high word is bumped when the low word comes round to
// exactly zero, and the message is too long when the high word does too.
void input_bytewise(SHA1Context *context, const uint8_t *message, uint32_t length) {
    while (length-- && !context->Corrupted) {
        context->Message_Block[context->Message_Block_Index++] = *message++;
        context->Length_Low += 8;
        if (context->Length_Low == 0 && ++context->Length_High == 0) context->Corrupted = 1;
        if (context->Message_Block_Index == kBlock) process_block(context);
    }
}

void input_blockwise(SHA1Context *context, const uint8_t *message, uint32_t length) {
    const vxio::sha1::CompressFn compress = compressor();
    size_t index = size_t(context->Message_Block_Index);
    size_t left = length;
    if (index > 0) {
        const size_t fill = left < kBlock - index ? left : kBlock - index;
        std::memcpy(context->Message_Block + index, message, fill);
        index += fill;
        message += fill;
        left -= fill;
        if (index == kBlock) {
            compress(context->Intermediate_Hash, context->Message_Block, 1);
            index = 0;
        }
    }
    if (left >= kBlock) {
        const size_t blocks = left / kBlock;
        compress(context->Intermediate_Hash, message, blocks);
        message += blocks * kBlock;
        left -= blocks * kBlock;
        std::memcpy(context->Message_Block, message - kBlock, kBlock);
    }
    std::memcpy(context->Message_Block + index, message, left);
    context->Message_Block_Index = int16_t(index + left);
}

}  // namespace

extern "C" int32_t SHA1Reset(SHA1Context *context) noexcept {
    if (!context) return shaNull;
    static const uint32_t initial[5] = {0x67452301u, 0xEFCDAB89u, 0x98BADCFEu, 0x10325476u,
                                        0xC3D2E1F0u};
    std::memcpy(context->Intermediate_Hash, initial, sizeof initial);
    context->Length_Low = 0;
    context->Length_High = 0;
    context->Message_Block_Index = 0;
    // Message_Block is left as it was, as the reference leaves it.
    context->Computed = 0;
    context->Corrupted = 0;
    return shaSuccess;
}

extern "C" int32_t SHA1Input(SHA1Context *context, const uint8_t *message, uint32_t length) noexcept {
    if (!length) return shaSuccess;
    if (!context || !message) return shaNull;
    if (context->Computed) return context->Corrupted = shaStateError;
    if (context->Corrupted) return context->Corrupted;
    if (!block_index_valid(context)) return context->Corrupted = shaStateError;

    const uint64_t bits = uint64_t(context->Length_High) << 32 | context->Length_Low;
    const uint64_t added = uint64_t(length) * 8;
    // A bit count that is a multiple of 8 carries exactly like a 64-bit
    // sum, so the block path may add in one go when the sum cannot wrap.
    if ((bits & 7) != 0 || added > ~bits) {
        input_bytewise(context, message, length);
        // The reference reports success even on the call that overflowed;
        // the stored code is returned from the next call on.
        return shaSuccess;
    }
    input_blockwise(context, message, length);
    const uint64_t total = bits + added;
    context->Length_Low = uint32_t(total);
    context->Length_High = uint32_t(total >> 32);
    return shaSuccess;
}

extern "C" int32_t SHA1Result(SHA1Context *context, uint8_t digest[SHA1HashSize]) noexcept {
    if (!context || !digest) return shaNull;
    if (context->Corrupted) return context->Corrupted;
    if (!context->Computed) {
        if (!block_index_valid(context)) return context->Corrupted = shaStateError;
        // Padding: 0x80, zeros, and the bit count big-endian in the last
        // eight bytes, spilling into one more block when fewer than eight
        // bytes remain after the 0x80. Example: "abc" is 61 62 63 80, 52
        // zero bytes, then 00 00 00 00 00 00 00 18.
        uint8_t *block = context->Message_Block;
        int16_t &index = context->Message_Block_Index;
        block[index++] = 0x80;
        if (index > kLengthOffset) {
            std::memset(block + index, 0, size_t(kBlock - index));
            process_block(context);
        }
        std::memset(block + index, 0, size_t(kLengthOffset - index));
        for (int i = 0; i < 4; ++i) {
            block[kLengthOffset + i] = uint8_t(context->Length_High >> (24 - 8 * i));
            block[kLengthOffset + 4 + i] = uint8_t(context->Length_Low >> (24 - 8 * i));
        }
        process_block(context);
        // The message may be sensitive: nothing of it stays behind.
        std::memset(block, 0, kBlock);
        context->Length_Low = 0;
        context->Length_High = 0;
        context->Computed = 1;
    }
    for (int i = 0; i < SHA1HashSize; ++i)
        digest[i] = uint8_t(context->Intermediate_Hash[i >> 2] >> (24 - 8 * (i & 3)));
    return shaSuccess;
}
