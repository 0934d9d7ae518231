#include "fs/reparse_data.h"
#include "util/bytes.h"

#include <cstring>

namespace vxio::fs {

namespace {

constexpr size_t kSubstituteOffsetAt = 8;
constexpr size_t kSubstituteLengthAt = 10;
constexpr size_t kMountPointPathsAt = 16;
constexpr size_t kSymbolicLinkPathsAt = 20;
constexpr size_t kUnit = 2;  // bytes of one UTF-16 unit

// "\??\C:\data" is the native spelling of C:\data.
bool has_dos_devices_prefix(const uint8_t *name, size_t units) {
    static const char kPrefix[] = "\\??\\";
    if (units < 4) return false;
    for (size_t i = 0; i < 4; ++i)
        if (load_at<uint16_t>(name, i * kUnit) != static_cast<uint16_t>(kPrefix[i])) return false;
    return true;
}

}  // namespace

bool ParseLinkTarget(const uint8_t *data, size_t size, LinkTarget &target) {
    // Either header must be there; the name's bounds are checked below.
    if (!data || size < kMountPointPathsAt) return false;
    // Only two of Microsoft's tags (those with the top bit set) are
    // understood; every other tag, another vendor's included, is not.
    const uint32_t tag = load_at<uint32_t>(data, 0);
    size_t paths;
    if (tag == kMountPointTag) {
        paths = kMountPointPathsAt;
    } else if (tag == kSymbolicLinkTag) {
        paths = kSymbolicLinkPathsAt;
    } else {
        return false;
    }
    // Both fields are 16-bit, so the sum below stays far from wrapping. An
    // odd byte length loses its last byte.
    const size_t offset = load_at<uint16_t>(data, kSubstituteOffsetAt);
    size_t units = load_at<uint16_t>(data, kSubstituteLengthAt) / kUnit;
    if (offset % kUnit != 0) return false;
    if (paths + offset + units * kUnit > size) return false;
    size_t at = paths + offset;
    if (has_dos_devices_prefix(data + at, units)) at += 4 * kUnit, units -= 4;
    if (units == 0) return false;
    target.tag = tag;
    target.offset = at;
    target.units = units;
    return true;
}

}  // namespace vxio::fs
