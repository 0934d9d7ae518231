// What the physical backend takes apart from a disk, as plain records: the
// geometry answer, the drive-layout answer and the boot signature of the
// sectors the layout points at. Nothing here touches a device (no Windows
// headers), so it builds and is fuzzed natively; physical_backend.cpp asks
// the device and hands the answers over.
//
// Geometry answer (24 bytes): cylinders (signed, 8 bytes), media type,
// tracks per cylinder, sectors per track, bytes per sector (4 bytes each).
//
// Layout answer: partition count and disk signature (4 bytes each), then
// 32-byte partition entries that begin with the starting offset and the
// partition length in bytes (8 bytes each, signed). For example an answer
// of 136 bytes holds 4 entries, 8 + 4 * 32; a boot record with two
// partitions at sectors 16 and 32 gives the starts 8192 and 16384, and the
// two unused slots come back all zero.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vxio::io::disk {

constexpr uint32_t kSectorSize = 512;
constexpr uint32_t kGeometrySize = 24;
constexpr uint32_t kLayoutHead = 8;
constexpr uint32_t kPartitionEntry = 32;
// The buffer the layout is asked into, and so the most entries an answer
// that did not fill it can hold.
constexpr uint32_t kLayoutBuffer = 8192;
constexpr uint32_t kMaxPartitions = (kLayoutBuffer - kLayoutHead) / kPartitionEntry;

// Disk size in bytes from a geometry answer of `size` bytes. False unless
// the answer is exactly 24 bytes with 512-byte sectors: every offset of
// the backend assumes that sector size. A product beyond 64 bits (or a
// negative cylinder count) is held at the largest size: such a disk is in
// any case larger than the start the backend exposes.
bool DiskSizeFromGeometry(const uint8_t *answer, size_t size, uint64_t *diskSize);

// True when the sector of `size` bytes is a whole sector ending in the
// boot signature 0x55 0xAA.
bool HasBootSignature(const uint8_t *sector, size_t size);

// Reads the 512-byte sector at a byte offset of the disk into `sector`;
// false when it cannot be read whole.
using SectorReader = bool (*)(void *context, uint64_t offset, uint8_t *sector);

struct BootOffsets {
    uint32_t count = 0;
    uint64_t offsets[kMaxPartitions];
};

// The starting offset of every partition of the layout answer whose first
// sector ends in the boot signature, in the order of the layout. `size` is
// what the device reported returning into a buffer of `capacity` bytes; an
// answer without one whole entry, or one that fills the buffer (it may
// have been cut short), is refused (false). The stated count is trusted
// only as far as the entries held and the list's room (kMaxPartitions,
// which an answer that fits an 8192-byte buffer never passes); unused slots (a start or length below
// 1) are skipped without a read, and each other entry's first sector is
// read once through `read`. Only bytes below `size` are read.
bool CollectBootOffsets(const uint8_t *answer, size_t size, size_t capacity, SectorReader read,
                        void *context, BootOffsets *boots);

}  // namespace vxio::io::disk
