// Fuzz target of what the physical backend takes apart from a disk: the
// geometry answer, the drive-layout answer and the boot sectors the layout
// points at, read from a disk made of the fuzzer's bytes. Input:
//   geometry size (1 byte, taken modulo 32), that many geometry bytes,
//   buffer capacity (2 bytes), layout size (2 bytes), that many layout
//   bytes, and the rest: the disk, sector n at byte 512 * n.
// Each answer is held in a block of exactly its size, so a read past it is
// caught. Promises:
//  - the geometry is taken only at 24 bytes with 512-byte sectors, and the
//    size is the exact product, or the largest size when that overflows;
//  - the layout is refused exactly when it holds no whole entry or fills
//    its buffer, and then nothing is read from the disk;
//  - every entry held (up to the stated count and the list's room) with a
//    start and length of at least 1 is read once, in order, and no other
//    sector is read;
//  - the offsets that come back are exactly the starts of those entries
//    whose sector was read whole and ends in 0x55 0xAA, in layout order;
//  - the same answers give the same offsets again.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "io/disk_layout.h"
#include "tests/fuzz/fuzz_support.h"

using namespace vxio::io::disk;

namespace {

constexpr const char *kTarget = "disk_fuzz";

struct Disk {
    const std::vector<uint8_t> *bytes;
    std::vector<uint64_t> reads;
};

bool read_sector(void *context, uint64_t offset, uint8_t *sector) {
    Disk *disk = static_cast<Disk *>(context);
    disk->reads.push_back(offset);
    const std::vector<uint8_t> &bytes = *disk->bytes;
    if (offset > bytes.size() || bytes.size() - offset < kSectorSize) return false;
    std::memcpy(sector, bytes.data() + offset, kSectorSize);
    return true;
}

template <typename T>
T load(const uint8_t *p) {
    T value;
    std::memcpy(&value, p, sizeof value);
    return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    vxio::fuzz::Cursor in(data, size);

    const size_t geometrySize = in.take<uint8_t>() % 32;
    std::vector<uint8_t> geometry(geometrySize);
    for (uint8_t &b : geometry) b = in.take<uint8_t>();
    uint64_t diskSize = 0x5EED;
    const bool sized = DiskSizeFromGeometry(geometry.data(), geometry.size(), &diskSize);
    VXIO_REQUIRE(sized == (geometrySize == kGeometrySize &&
                           load<uint32_t>(geometry.data() + 20) == kSectorSize));
    if (!sized) {
        VXIO_REQUIRE(diskSize == 0x5EED);
    } else {
        // Each step in 128 bits, where the product of two 64-bit values
        // always fits. A negative cylinder count stands for the largest;
        // a zero factor makes the exact size 0 all the same.
        const int64_t cylinders = load<int64_t>(geometry.data());
        const uint64_t factors[] = {cylinders < 0 ? ~uint64_t{0} : uint64_t(cylinders),
                                    load<uint32_t>(geometry.data() + 12),
                                    load<uint32_t>(geometry.data() + 16), kSectorSize};
        bool fits = true;
        unsigned __int128 product = 1;
        for (uint64_t factor : factors) {
            if (factor == 0) product = 0, fits = true;
            if (product == 0) break;
            product *= factor;
            if (product >> 64) fits = false, product = ~uint64_t{0};
        }
        VXIO_REQUIRE(diskSize == (fits ? uint64_t(product) : ~uint64_t{0}));
    }

    const size_t capacity = in.take<uint16_t>();
    size_t layoutSize = in.take<uint16_t>();
    if (layoutSize > in.left()) layoutSize = in.left();
    const std::vector<uint8_t> layout(in.rest(), in.rest() + layoutSize);
    const std::vector<uint8_t> image(in.rest() + layoutSize, in.rest() + in.left());

    Disk disk{&image, {}};
    BootOffsets boots;
    boots.count = 77;
    const uint8_t *answer = layoutSize ? layout.data() : data;  // never null
    const bool taken = CollectBootOffsets(answer, layoutSize, capacity, read_sector, &disk, &boots);
    VXIO_REQUIRE(taken == (layoutSize >= kLayoutHead + kPartitionEntry && layoutSize < capacity));
    if (!taken) {
        VXIO_REQUIRE(boots.count == 0 && disk.reads.empty());
        return 0;
    }

    // The walk as the backend promises it, entry by entry.
    uint64_t entries = load<uint32_t>(layout.data());
    if (entries > (layoutSize - kLayoutHead) / kPartitionEntry)
        entries = (layoutSize - kLayoutHead) / kPartitionEntry;
    if (entries > kMaxPartitions) entries = kMaxPartitions;
    std::vector<uint64_t> reads, signed_;
    for (uint64_t i = 0; i < entries; ++i) {
        const uint8_t *entry = layout.data() + kLayoutHead + i * kPartitionEntry;
        const int64_t start = load<int64_t>(entry), length = load<int64_t>(entry + 8);
        if (start < 1 || length < 1) continue;
        const uint64_t offset = uint64_t(start);
        reads.push_back(offset);
        if (offset <= image.size() && image.size() - offset >= kSectorSize &&
            image[offset + 510] == 0x55 && image[offset + 511] == 0xAA)
            signed_.push_back(offset);
    }
    VXIO_REQUIRE(disk.reads == reads);
    VXIO_REQUIRE(boots.count == signed_.size());
    VXIO_REQUIRE(std::equal(signed_.begin(), signed_.end(), boots.offsets));

    Disk again{&image, {}};
    BootOffsets second;
    VXIO_REQUIRE(CollectBootOffsets(answer, layoutSize, capacity, read_sector, &again, &second));
    VXIO_REQUIRE(second.count == boots.count &&
                 std::equal(boots.offsets, boots.offsets + boots.count, second.offsets));
    return 0;
}
