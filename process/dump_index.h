// The module index "modules.tmp" that the module report leaves for the
// complete dump, read back as plain records without touching any system
// object (no Windows headers here), so that it builds and is fuzzed
// natively; process/memory.cpp writes the file and acts on the records.
//
// The report writes one record per module with "%s\n%x\n%x\n" (file name,
// low 32 bits of the base, size) and ends the index with "END\nffff\nffff":
//   ntdll.dll\n7ffe0000\n1f0000\nkernel32.dll\n7ffd0000\nc2000\nEND\nffff\nffff
// The file sits in the current directory between two calls, so it is read
// as any other outside text. It is read the way the engine has always
// read it, with the scan conversions "%25s" and "%08x" twice:
//  - each conversion first skips white space (space, \t \n \v \f \r);
//  - a name is the next at most 25 bytes that are not white space (a NUL
//    byte included); the rest of a longer name is left for the next
//    conversion;
//  - a number is at most 8 characters: an optional sign, an optional
//    "0x" or "0X", then hexadecimal digits; "-" negates modulo 2^32. It
//    needs one digit at least ("0x" alone does not convert);
//  - the reading ends at the name "END", at the end of the text, or at
//    the first conversion that fails, and the record it was in is dropped.
// So a name with a space or of more than 25 characters throws the records
// out of step, and the reading soon ends at a number that does not
// convert: that module and those after it are not found in the index.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vxio::process {

constexpr size_t kDumpIndexNameMax = 25;

struct DumpIndexRecord {
    // The name's bytes, NUL-terminated after them; a NUL the text held
    // itself stays in, and ends the name for whoever takes it as a string.
    char name[kDumpIndexNameMax + 1] = {};
    size_t length = 0;  // bytes converted: 1 to 25
    uint32_t base = 0;
    uint32_t size = 0;
};

// Reads the records of size bytes at text, one at a time, from the start.
class DumpIndexReader {
public:
    DumpIndexReader(const char *text, size_t size) noexcept;
    // The next record; false once the reading has ended (and from then on).
    bool next(DumpIndexRecord &record) noexcept;
    // Bytes taken so far.
    size_t position() const noexcept { return static_cast<size_t>(at_ - text_); }

private:
    bool scan_name(DumpIndexRecord &record) noexcept;
    bool scan_hex(uint32_t &value) noexcept;
    void skip_space() noexcept;

    const char *text_;
    const char *at_;
    const char *end_;
    bool ended_ = false;
};

}  // namespace vxio::process
