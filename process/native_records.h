// Parsers of the records that the system and other processes hand back to
// process inspection: bytes in, checked records out, no system calls and
// no Windows header (so that they can be fuzzed natively). Every count,
// offset, pointer and length is checked against the bytes held before it
// is used; what does not lie inside is left out, never read.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vxio::process {

// ---------------------------------------------------------------------------
// System process information (class 5), 64-bit layout: a chain of records
// linked by the byte offset of the next one (0 ends the chain). Each record
// is a fixed part of 0x100 bytes followed by its threads, 0x50 bytes each:
//
//   +0x00 next-entry offset (32-bit)    +0x04 thread count (32-bit)
//   +0x38 image name (counted UTF-16 text: length in bytes, then at +0x40
//         the address of its characters, normally later in the same answer)
//   +0x50 process id                    +0x58 parent process id
//   +0x100 threads: client id (process at +0x28, thread at +0x30)
//
// The image name and the threads belong to the record only while they lie
// inside the answer, and the threads only up to where the next record
// begins.
constexpr size_t kProcessFixedPart = 0x100;
constexpr size_t kThreadRecordSize = 0x50;

struct ProcessRecord {
    uint64_t processId = 0;
    uint64_t parentId = 0;
    const uint8_t *name = nullptr;  // UTF-16 characters, null: no usable name
    size_t nameBytes = 0;           // even, without terminator
    uint32_t threadCount = 0;       // the threads that lie inside the record
    size_t threads = 0;             // offset of the first thread in the answer
    size_t next = 0;                // offset of the next record, 0: the last
};

// Reads the record at offset of an answer of size bytes; false when its
// fixed part does not lie inside. A next-entry offset that leaves no room
// for the next fixed part ends the chain after this record.
bool read_process_record(const uint8_t *answer, size_t size, size_t offset,
                         ProcessRecord &out) noexcept;

struct ThreadIds {
    uint64_t processId;
    uint64_t threadId;
};
// Thread index (below the record's threadCount) of a record read above.
ThreadIds read_thread(const uint8_t *answer, const ProcessRecord &record, uint32_t index) noexcept;

// ---------------------------------------------------------------------------
// Basic process information (class 0 of the process query), 64-bit layout
// of 48 bytes:
//   +0x00 exit status (32-bit)   +0x08 environment block address
//   +0x20 process id             +0x28 parent process id
constexpr size_t kBasicProcessInfoSize = 48;

struct BasicProcessInfo {
    int32_t exitStatus = 0;
    uint64_t environmentBlock = 0;
    uint64_t processId = 0;
    uint64_t parentId = 0;
};

// False (out cleared) when fewer than kBasicProcessInfoSize bytes are held.
bool read_basic_process_info(const uint8_t *answer, size_t size, BasicProcessInfo &out) noexcept;

// ---------------------------------------------------------------------------
// Module blocks (RTL_PROCESS_MODULES) of the kernel-module query (class 11)
// and of the debug buffer: a 32-bit count, then from offset 8 records of
// 296 bytes:
//
//   +0x10 image base (64-bit)   +0x18 image size (32-bit)
//   +0x26 offset of the file name in the path (16-bit)
//   +0x28 full path, 256 bytes of ANSI text, NUL-terminated when shorter
constexpr size_t kModuleRecordsAt = 8;
constexpr size_t kModuleRecordSize = 296;

struct ModuleRecord {
    uint64_t imageBase = 0;
    uint32_t imageSize = 0;
    char fullPath[260] = {};  // at most 256 bytes of path, always terminated
    size_t fileNameAt = 0;    // inside fullPath: at most its length
};

// The number of records of a block of size bytes that lie inside it: the
// stated count, cut to the room there is.
uint32_t module_count(const uint8_t *block, size_t size) noexcept;
// Record index (below module_count) of a block.
ModuleRecord read_module(const uint8_t *block, uint32_t index) noexcept;

// The debug buffer (RTL_DEBUG_INFORMATION, 64-bit) lives in this process,
// but the module block it points to is written by the queried process. The
// buffer says how much of it is in use (+0x48) and committed (+0x50); the
// module block pointer (+0x60) and its records must lie inside the smaller
// of the two and of held (the bytes known to be there). Null when there is
// no module block or it lies outside; else size is the bytes from the
// block to the end of the used part.
constexpr size_t kDebugHeaderSize = 0x68;
const uint8_t *debug_module_block(const uint8_t *debug, size_t held, size_t &size) noexcept;

// ---------------------------------------------------------------------------
// Linked lists in another process (the loader's module list) are walked
// at most once: the walk remembers each entry's address and stops at the
// first it has seen. The set lives in storage the caller provides: a power
// of two of slots, cleared to 0, twice as many as the entries it is to
// hold; address 0 is never an entry.
class VisitedSet {
public:
    VisitedSet(uint64_t *slots, uint32_t slotCount) noexcept;
    // True when address is new and now held; false when it was seen before,
    // is 0, or the set holds as many as it may.
    bool add(uint64_t address) noexcept;

private:
    uint64_t *slots_;
    uint32_t mask_;
    uint32_t held_ = 0;
};

}  // namespace vxio::process
