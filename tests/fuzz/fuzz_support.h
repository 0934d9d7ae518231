// What the fuzz targets share: a check that stops the run with the input's
// size when a parser breaks one of its promises, a cursor that takes
// values out of the fuzzer's bytes, and an address space made of those
// bytes for parsers that follow pointers through another process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "util/bytes.h"

namespace vxio::fuzz {

[[noreturn]] inline void broken(const char *target, const char *what, size_t size) {
    std::fprintf(stderr, "%s: broken promise: %s (input of %zu bytes)\n", target, what, size);
    std::abort();
}

// REQUIRE(condition): the parser's promise; names the target in kTarget.
#define VXIO_REQUIRE(condition)                                              \
    do {                                                                     \
        if (!(condition)) ::vxio::fuzz::broken(kTarget, #condition, size);   \
    } while (0)

// Takes little-endian values from the front of the fuzzer's bytes; zeros
// once they run out.
class Cursor {
public:
    Cursor(const uint8_t *data, size_t size) : data_(data), size_(size) {}
    template <typename T>
    T take() {
        T value{};
        const size_t n = size_ < sizeof value ? size_ : sizeof value;
        std::memcpy(&value, data_, n);
        data_ += n;
        size_ -= n;
        return value;
    }
    const uint8_t *rest() const { return data_; }
    size_t left() const { return size_; }

private:
    const uint8_t *data_;
    size_t size_;
};

// The fuzzer's bytes in a block of exactly their size (never null), as a
// system answer is held: ASan then sees every read past its end.
inline std::unique_ptr<uint8_t[]> held_copy(const uint8_t *data, size_t size) {
    std::unique_ptr<uint8_t[]> held(new uint8_t[size ? size : 1]);
    if (size) std::memcpy(held.get(), data, size);
    return held;
}

// Answers that hold pointers into themselves (a text's address inside the
// same answer): any 8 bytes whose high half is kInsideTag are rewritten to
// the block's address + the low half, so that a pointer can be made to
// point inside, across the end of or outside the answer.
constexpr uint64_t kInsideTag = 0x5A5A5A5Aull;
inline void point_tagged_words(uint8_t *block, size_t size) {
    const auto base = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(block));
    for (size_t i = 0; i + 8 <= size; ++i) {
        const uint64_t word = load_at<uint64_t>(block, i);
        if (word >> 32 == kInsideTag) {
            const uint64_t inside = base + (word & 0xFFFFFFFFu);
            std::memcpy(block + i, &inside, 8);
            i += 7;
        }
    }
}

// Another process's memory, made of the fuzzer's bytes: the bytes are
// mapped at a fixed base address, and a read is answered only where it
// lies wholly inside them, as a read of a real process fails at an
// unmapped page. Pointers the bytes hold may point anywhere (inside,
// outside, back to an entry already read), so loops, cycles and
// out-of-range pointers are all explored. Counts the reads and bytes.
class FuzzedAddressSpace {
public:
    static constexpr uint64_t kBase = 0x7ff600000000ull;
    FuzzedAddressSpace(const uint8_t *data, size_t size) : bytes_(data, data + size) {}

    bool read(uint64_t address, void *out, size_t size) {
        ++reads;
        if (address < kBase || address - kBase > bytes_.size() ||
            size > bytes_.size() - (address - kBase))
            return false;
        std::memcpy(out, bytes_.data() + (address - kBase), size);
        bytesRead += size;
        return true;
    }
    size_t size() const { return bytes_.size(); }

    size_t reads = 0;
    size_t bytesRead = 0;

private:
    std::vector<uint8_t> bytes_;
};

}  // namespace vxio::fuzz
