// Fuzz target of the walk through another process's environment block,
// loader list and process parameters. The input is
//
//   byte 0      bit 0: the address space repeats (below): lists without
//               end; bits 1-7: after how many modules the visitor stops
//               the walk (0: never)
//   bytes 1-2   where the environment block is, from the space's base
//               (taken modulo the space's size + 16: a few lie outside)
//   the rest    the target's memory, at FuzzedAddressSpace::kBase
//
// Repeating, the bytes answer at every multiple of their size up to
// 4 GiB from the base, and in copy k every 8-aligned word that points
// into those 4 GiB points k copies further on: an entry that links to
// itself one copy on starts a list without end, where the entry and byte
// bounds are reached. For any target:
//  - the environment block is read exactly when its bytes are there, and
//    gives the words they hold;
//  - the loader walk takes the entries in link order from the list's
//    head, each at most once, never the head or 0, at most 8192, and asks
//    at most 2 MiB of the target; it ends only at the head, a null,
//    unreadable or already-taken link, or a spent bound; a stopping
//    visitor ends it at once;
//  - each module's fields are its entry's, its path the stated text's
//    head, even and at most 258 bytes; the three texts of the parameters
//    likewise within 8190, 258 and 4094 bytes;
//  - walking again gives the same.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "process/loader_walk.h"
#include "tests/fuzz/fuzz_support.h"

using namespace vxio::process;
using vxio::fuzz::FuzzedAddressSpace;

namespace {

constexpr const char *kTarget = "loader";
size_t size = 0;  // the input's, for VXIO_REQUIRE in the helpers
constexpr uint64_t kBase = FuzzedAddressSpace::kBase;
constexpr uint64_t kRepeatSpan = 1ull << 32;

template <typename T>
T at(const uint8_t *base, size_t offset) {
    T value;
    std::memcpy(&value, base + offset, sizeof value);
    return value;
}

// The target's memory as the walk sees it; counts the bytes asked for.
struct Target {
    FuzzedAddressSpace &space;
    bool repeats;
    size_t asked = 0;

    bool read(uint64_t address, void *out, size_t n) {
        asked += n;
        return peek(address, out, n);
    }
    // The same answer, uncounted: what the checks compare with.
    bool peek(uint64_t address, void *out, size_t n) {
        if (!repeats) return space.read(address, out, n);
        const size_t s = space.size();
        if (s == 0 || address < kBase || address - kBase >= kRepeatSpan ||
            n > kRepeatSpan - (address - kBase))
            return false;
        auto *to = static_cast<uint8_t *>(out);
        for (uint64_t from = address - kBase; n > 0;) {
            const uint64_t copy = from / s, offset = from % s;
            const size_t chunk = std::min<size_t>(n, s - offset);
            if (!space.read(kBase + offset, to, chunk)) return false;
            // Words of copy k that point into the span point k copies on.
            for (uint64_t word = (offset + 7) & ~uint64_t{7}; copy && word + 8 <= offset + chunk;
                 word += 8) {
                uint64_t value;
                std::memcpy(&value, to + (word - offset), 8);
                if (value < kBase || value - kBase >= kRepeatSpan) continue;
                value += copy * s;
                std::memcpy(to + (word - offset), &value, 8);
            }
            to += chunk, n -= chunk, from += chunk;
        }
        return true;
    }
};

// The head of the counted text at record + offset, as it should be read.
size_t expected_text(Target &target, const uint8_t *record, size_t offset, size_t maxBytes,
                     std::vector<uint8_t> &bytes) {
    const size_t stated = at<uint16_t>(record, offset);
    const uint64_t buffer = at<uint64_t>(record, offset + 8);
    const size_t length = std::min(stated, maxBytes) & ~size_t{1};
    bytes.resize(length);
    if (length == 0 || buffer == 0 || !target.peek(buffer, bytes.data(), length)) return 0;
    return length;
}

struct Checker final : LoaderVisitor {
    Target &target;
    uint64_t head;
    uint64_t expectedLink;
    uint32_t stopAfter;
    std::vector<uint64_t> entries;
    std::vector<uint8_t> path;
    Checker(Target &t, uint64_t h, uint64_t first, uint32_t stop)
        : target(t), head(h), expectedLink(first), stopAfter(stop) {}

    bool module(const LoaderModule &module) noexcept override {
        VXIO_REQUIRE(stopAfter == 0 || entries.size() < stopAfter);
        VXIO_REQUIRE(module.entry == expectedLink && module.entry != head && module.entry != 0);
        entries.push_back(module.entry);
        VXIO_REQUIRE(entries.size() <= kLoaderModuleLimit);
        uint8_t record[156];
        VXIO_REQUIRE(target.peek(module.entry, record, sizeof record));
        VXIO_REQUIRE(module.imageBase == at<uint64_t>(record, 0x30));
        VXIO_REQUIRE(module.entryPoint == at<uint64_t>(record, 0x38));
        VXIO_REQUIRE(module.imageSize == at<uint32_t>(record, 0x40));
        VXIO_REQUIRE(module.pathBytes % 2 == 0 && module.pathBytes <= kModulePathBytes);
        // A path is left out only when it is not there or would pass the
        // byte budget; it is never cut.
        const size_t wanted = expected_text(target, record, 0x48, kModulePathBytes, path);
        if (module.pathBytes != 0) {
            VXIO_REQUIRE(wanted == module.pathBytes);
            VXIO_REQUIRE(std::memcmp(module.path, path.data(), module.pathBytes) == 0);
        } else {
            VXIO_REQUIRE(wanted == 0 || target.asked + wanted > kLoaderReadBudget);
        }
        expectedLink = at<uint64_t>(record, 0);
        return stopAfter == 0 || entries.size() < stopAfter;
    }
};

std::vector<uint64_t> walk(Target &target, uint64_t loaderData, uint32_t stopAfter) {
    uint8_t loader[72] = {};
    const bool listed = target.peek(loaderData, loader, sizeof loader);
    const uint64_t head = loaderData + 0x10;
    Checker checker(target, head, at<uint64_t>(loader, 0x10), stopAfter);
    std::vector<uint64_t> slots(kLoaderVisitedSlots);
    target.asked = 0;
    const bool finished = walk_loader_modules(RemoteRead(target), loaderData, slots.data(), checker);
    VXIO_REQUIRE(target.asked <= kLoaderReadBudget);
    VXIO_REQUIRE(listed || checker.entries.empty());
    VXIO_REQUIRE(finished == (stopAfter == 0 || checker.entries.size() < stopAfter));

    std::vector<uint64_t> sorted = checker.entries;
    std::sort(sorted.begin(), sorted.end());
    VXIO_REQUIRE(std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end());

    // Nothing but a reason ends the walk: with entries and bytes to spare
    // (room for one more entry and its path), the next link was the head,
    // null, taken or unreadable.
    if (listed && finished && checker.entries.size() < kLoaderModuleLimit &&
        target.asked + 156 + kModulePathBytes <= kLoaderReadBudget) {
        const uint64_t next = checker.expectedLink;
        uint8_t record[156];
        VXIO_REQUIRE(next == head || next == 0 ||
                     std::binary_search(sorted.begin(), sorted.end(), next) ||
                     !target.peek(next, record, sizeof record));
    }
    return checker.entries;
}

void check_text(Target &target, const uint8_t *block, size_t offset, size_t maxBytes,
                const vxio::Utf16Unit *text, size_t bytes) {
    std::vector<uint8_t> expected;
    VXIO_REQUIRE(bytes % 2 == 0 && bytes <= maxBytes);
    VXIO_REQUIRE(expected_text(target, block, offset, maxBytes, expected) == bytes);
    VXIO_REQUIRE(bytes == 0 || std::memcmp(text, expected.data(), bytes) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t inputSize) {
    size = inputSize;
    vxio::fuzz::Cursor cursor(data, inputSize);
    const uint8_t mode = cursor.take<uint8_t>();
    const uint16_t environmentAt = cursor.take<uint16_t>();
    FuzzedAddressSpace space(cursor.rest(), cursor.left());
    Target target{space, (mode & 1) != 0};
    const uint32_t stopAfter = mode >> 1;

    const uint64_t address = kBase + environmentAt % (space.size() + 16);
    EnvironmentBlock environment;
    uint8_t block[kEnvironmentBlockRead];
    const bool there = target.peek(address, block, sizeof block);
    VXIO_REQUIRE(read_environment_block(RemoteRead(target), address, environment) == there);
    if (!there) {
        VXIO_REQUIRE(environment.loaderData == 0 && environment.parameters == 0);
        return 0;
    }
    VXIO_REQUIRE(environment.beingDebugged == block[2]);
    VXIO_REQUIRE(environment.imageBase == at<uint64_t>(block, 0x10));
    VXIO_REQUIRE(environment.loaderData == at<uint64_t>(block, 0x18));
    VXIO_REQUIRE(environment.parameters == at<uint64_t>(block, 0x20));
    VXIO_REQUIRE(environment.processors == at<uint32_t>(block, 0xB8));
    VXIO_REQUIRE(environment.globalFlag == at<uint32_t>(block, 0xBC));

    const std::vector<uint64_t> first = walk(target, environment.loaderData, stopAfter);
    VXIO_REQUIRE(walk(target, environment.loaderData, stopAfter) == first);

    static ProcessTexts texts;  // 12 KiB: kept off the stack
    uint8_t parameters[kParametersRead];
    const bool read = target.peek(environment.parameters, parameters, sizeof parameters);
    target.asked = 0;
    VXIO_REQUIRE(read_process_texts(RemoteRead(target), environment.parameters, texts) == read);
    VXIO_REQUIRE(target.asked <= kParametersRead + kDllPathBytes + kImagePathBytes + kCommandLineBytes);
    if (!read) {
        VXIO_REQUIRE(texts.dllPathBytes == 0 && texts.imagePathBytes == 0 && texts.commandLineBytes == 0);
        return 0;
    }
    check_text(target, parameters, 0x50, kDllPathBytes, texts.dllPath, texts.dllPathBytes);
    check_text(target, parameters, 0x60, kImagePathBytes, texts.imagePath, texts.imagePathBytes);
    check_text(target, parameters, 0x70, kCommandLineBytes, texts.commandLine,
               texts.commandLineBytes);
    return 0;
}
