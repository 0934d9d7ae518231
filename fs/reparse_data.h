// The reparse data of a junction or a symbolic link, taken apart without
// touching any system object (no Windows headers here), so that it builds
// and is fuzzed natively; fs/links.cpp reads where a link points with it.
//
// Reparse data, for example a junction to D:\data:
//   offset 0  tag                     A0000003
//   offset 4  data length, reserved   (16-bit each)
//   offset 8  substitute name offset  0      \  byte offsets into the path
//   offset 10 substitute name length  24     |  buffer, lengths in bytes
//   offset 12 print name offset       26     |  (UTF-16, no terminator
//   offset 14 print name length       14     /  counted)
//   offset 16 path buffer             "\??\D:\data" NUL "D:\data" NUL
// A symbolic link (tag A000000C) has a 32-bit flags word at offset 16
// (bit 0: the target is relative to the link's folder) and its path buffer
// at offset 20. Only the substitute name is read; the data length, the
// print name and the flags are not.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vxio::fs {

constexpr uint32_t kMountPointTag = 0xA0000003;    // a junction
constexpr uint32_t kSymbolicLinkTag = 0xA000000C;

struct LinkTarget {
    uint32_t tag = 0;
    size_t offset = 0;  // the UTF-16 target: units units from this byte offset,
    size_t units = 0;   // an even one, "\??\" already skipped
};

// The target named by the substitute name of the size bytes of reparse
// data, with a leading "\??\" (the native spelling of a drive path)
// skipped. False, with target untouched, when the data is neither a
// junction nor a symbolic link, or its substitute name does not lie wholly
// within the bytes at an even offset, or is empty once the prefix is
// skipped. The name is never read outside [data, data + size).
bool ParseLinkTarget(const uint8_t *data, size_t size, LinkTarget &target);

}  // namespace vxio::fs
