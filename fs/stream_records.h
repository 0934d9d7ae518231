// The stream list the native file query writes (class 22), taken apart
// without touching any system object (no Windows headers here), so that it
// builds and is fuzzed natively; fs/streams.cpp walks it one named stream
// per call.
//
// The list is a chain of records, each 8-byte aligned as the system writes
// them; a list of the unnamed stream and a stream named a:
//   offset 0   next-entry offset   40        (0 in the last record)
//   offset 4   name length         14        bytes of UTF-16, no terminator
//   offset 8   stream size         5         (signed 64-bit)
//   offset 16  allocation size     8         (signed 64-bit)
//   offset 24  name                "::$DATA"
//   offset 40  next-entry offset   0
//   offset 44  name length         16
//   ...        sizes, then ":a:$DATA"
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vxio::fs {

// Bytes of a record ahead of its name.
constexpr size_t kStreamRecordHeader = 24;

struct StreamRecord {
    size_t offset = 0;      // where the record starts in the list
    size_t next = 0;        // where the next record starts; 0 when this is the last
    size_t nameOffset = 0;  // the UTF-16 name: nameBytes bytes from here
    uint32_t nameBytes = 0;
    uint64_t streamSize = 0;      // as the signed field holds it
    uint64_t allocationSize = 0;
};

// The record at offset when the whole of it (header and name) lies within
// the size bytes of list; false otherwise. Its next-entry offset counts as
// 0 (the last record) when the record it leads to is not whole within the
// bytes: the system never writes one, and a damaged list then ends there
// instead of being read outside its buffer. A next record always lies
// after this one, so a walk along next visits each record at most once.
bool StreamRecordAt(const uint8_t *list, size_t size, size_t offset, StreamRecord &record);

// Every record of the chain, from the first at offset 0 in order; empty
// when the first is not whole.
std::vector<StreamRecord> StreamRecords(const uint8_t *list, size_t size);

}  // namespace vxio::fs
