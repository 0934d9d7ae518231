// Fuzz target of the reparse-data parser. The input is the reparse data as
// the device control leaves it (held in a block of exactly its size, so a
// read past the end is caught), and the target that comes back must keep
// what link resolution relies on:
//  - only a junction or a symbolic link gives a target, and its tag is the
//    one the data starts with;
//  - the target lies wholly inside the input, after that kind's header, at
//    an even offset, and is not empty;
//  - it is the substitute name the header places, with a leading "\??\"
//    skipped, and a well-placed non-empty name is always found;
//  - a refusal leaves the target as it was;
//  - the bytes after the target change nothing, one byte fewer refuses,
//    and parsing again gives the same.
#include <cstdint>
#include <cstring>
#include <vector>

#include "fs/reparse_data.h"
#include "fuzz_support.h"

using vxio::fs::LinkTarget;

namespace {

constexpr const char *kTarget = "reparse_fuzz";

uint32_t value(const std::vector<uint8_t> &bytes, size_t at, size_t width) {
    uint32_t v = 0;
    std::memcpy(&v, bytes.data() + at, width);
    return v;
}

bool same(const LinkTarget &a, const LinkTarget &b) {
    return a.tag == b.tag && a.offset == b.offset && a.units == b.units;
}

bool parse(const std::vector<uint8_t> &bytes, size_t size, LinkTarget &target) {
    return vxio::fs::ParseLinkTarget(size ? bytes.data() : nullptr, size, target);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::vector<uint8_t> bytes(data, data + size);
    LinkTarget target;
    target.tag = 1, target.offset = 2, target.units = 3;  // stale values
    const bool found = parse(bytes, size, target);

    LinkTarget again;
    VXIO_REQUIRE(parse(bytes, size, again) == found);
    if (!found) {
        VXIO_REQUIRE(target.tag == 1 && target.offset == 2 && target.units == 3);
    } else {
        VXIO_REQUIRE(same(target, again));
    }

    // Where the header puts the substitute name, worked out independently.
    const uint32_t tag = size >= 4 ? value(bytes, 0, 4) : 0;
    const bool junction = tag == vxio::fs::kMountPointTag;
    const bool known = junction || tag == vxio::fs::kSymbolicLinkTag;
    const size_t paths = junction ? 16 : 20;
    const size_t start = size >= 16 ? paths + value(bytes, 8, 2) : 0;
    const size_t units = size >= 16 ? value(bytes, 10, 2) / 2 : 0;
    const bool placed = known && size >= 16 && start % 2 == 0 && start + 2 * units <= size;
    const char16_t prefix[] = u"\\??\\";
    const bool prefixed = placed && units >= 4 && std::memcmp(&bytes[start], prefix, 8) == 0;
    const size_t left = prefixed ? units - 4 : units;
    VXIO_REQUIRE(found == (placed && left > 0));
    if (!found) return 0;

    VXIO_REQUIRE(target.tag == tag);
    VXIO_REQUIRE(target.offset >= paths && target.offset % 2 == 0 && target.units > 0);
    VXIO_REQUIRE(target.offset + 2 * target.units <= size);
    VXIO_REQUIRE(target.offset == start + (prefixed ? 8 : 0) && target.units == left);
    std::vector<char16_t> name(target.units);  // every unit readable
    std::memcpy(name.data(), &bytes[target.offset], 2 * target.units);

    const size_t end = target.offset + 2 * target.units;
    LinkTarget cut;
    VXIO_REQUIRE(parse(bytes, end, cut) && same(cut, target));
    VXIO_REQUIRE(!parse(bytes, end - 1, cut));
    return 0;
}
