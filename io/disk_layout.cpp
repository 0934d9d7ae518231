#include "io/disk_layout.h"
#include "util/bytes.h"

#include <cstring>
#include <limits>

namespace vxio::io::disk {

namespace {

constexpr uint64_t kLargest = std::numeric_limits<uint64_t>::max();

uint64_t times(uint64_t a, uint64_t b) {
    if (a != 0 && b > kLargest / a) return kLargest;
    return a * b;
}

}  // namespace

bool DiskSizeFromGeometry(const uint8_t *answer, size_t size, uint64_t *diskSize) {
    if (!answer || !diskSize || size != kGeometrySize) return false;
    if (load_at<uint32_t>(answer, 20) != kSectorSize) return false;
    const int64_t cylinders = load_at<int64_t>(answer, 0);
    const uint64_t tracks = load_at<uint32_t>(answer, 12), sectors = load_at<uint32_t>(answer, 16);
    const uint64_t count = cylinders < 0 ? kLargest : static_cast<uint64_t>(cylinders);
    *diskSize = times(times(times(count, tracks), sectors), kSectorSize);
    return true;
}

bool HasBootSignature(const uint8_t *sector, size_t size) {
    return sector && size == kSectorSize && sector[510] == 0x55 && sector[511] == 0xAA;
}

bool CollectBootOffsets(const uint8_t *answer, size_t size, size_t capacity, SectorReader read,
                        void *context, BootOffsets *boots) {
    if (!answer || !read || !boots) return false;
    boots->count = 0;
    if (size < kLayoutHead + kPartitionEntry || size >= capacity) return false;

    // Never trust the count beyond the bytes that actually came back, nor
    // beyond the list this answer can fill.
    uint64_t count = load_at<uint32_t>(answer, 0);
    const uint64_t present = (size - kLayoutHead) / kPartitionEntry;
    if (count > present) count = present;
    if (count > kMaxPartitions) count = kMaxPartitions;

    uint8_t sector[kSectorSize];
    for (uint64_t i = 0; i < count; ++i) {
        const uint8_t *entry = answer + kLayoutHead + i * kPartitionEntry;
        const int64_t start = load_at<int64_t>(entry, 0), length = load_at<int64_t>(entry, 8);
        // Unused slots of the partition table come back with zeros.
        if (length < 1 || start < 1) continue;
        std::memset(sector, 0, sizeof sector);
        if (!read(context, static_cast<uint64_t>(start), sector)) continue;
        if (!HasBootSignature(sector, sizeof sector)) continue;
        boots->offsets[boots->count++] = static_cast<uint64_t>(start);
    }
    return true;
}

}  // namespace vxio::io::disk
