// The system's answers about open handles, taken apart without touching
// any system object (no Windows headers here), so that they build and are
// fuzzed natively; process/handles.cpp asks the questions and acts on the
// records.
//
// The handle table (system information class 16), 64-bit layout: a count,
// padded to 8 bytes, then entries of 24 bytes. A table of one entry, a
// File handle 0x44 of process 1234:
//   offset 0   count              1
//   offset 8   owner process id   1234      (16 bits)
//   offset 10  back-trace index   0         (16 bits, not kept)
//   offset 12  type index         28        (8 bits)
//   offset 13  flags              0         (8 bits)
//   offset 14  handle value       0x44      (16 bits)
//   offset 16  object address     ...       (64 bits)
//   offset 24  granted access     0x12019F
//   offset 28  padding
//
// The object-name answer (object information class 1): a counted UTF-16
// text, its length in bytes at 0 (16 bits), its capacity at 2, a pointer
// to the text at 8; the system puts the text itself after these 16 bytes.
//
// The file-name answer (file information class 9): the name's length in
// bytes at 0 (32 bits), the UTF-16 name from 4.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vxio::process {

constexpr size_t kHandleTableHeader = 8, kHandleTableEntry = 24;
constexpr size_t kObjectNameHeader = 16, kFileNameHeader = 4;

struct HandleTableEntry {
    uint32_t ownerProcessId = 0;
    uint32_t typeIndex = 0;
    uint8_t flags = 0;
    uint16_t handleValue = 0;
    uint64_t object = 0;
    uint32_t grantedAccess = 0;
};

// The entries of a handle table held in bufferSize bytes at answer, of
// which the system said it returned `returned` (0: it stated no length;
// the buffer alone then bounds the table, rather than taking it as empty).
// The count is trusted only as far as the whole entries in the bytes
// returned, and never past the buffer.
class HandleTable {
public:
    HandleTable(const uint8_t *answer, size_t bufferSize, uint64_t returned) noexcept;
    size_t size() const noexcept { return count_; }
    uint32_t stated() const noexcept { return stated_; }  // the count as the answer gives it
    HandleTableEntry operator[](size_t index) const noexcept;  // index < size()

private:
    const uint8_t *answer_;
    uint32_t stated_ = 0;
    size_t count_ = 0;
};

// A UTF-16 text inside an answer: `units` code units from byte `offset`.
struct AnswerText {
    size_t offset = 0;
    size_t units = 0;
};

// The text of an object-name answer held in bufferSize bytes at answer,
// of which `returned` were reported; answerAddress is where the answer
// lies in this process. The text pointer is the system's word: the text
// is taken only when it lies wholly inside the bytes returned, so that a
// wrong pointer never sends a conversion through whatever memory it
// names. False when there is no such text of at least one unit.
bool ObjectNameText(const uint8_t *answer, size_t bufferSize, uint64_t returned,
                    uint64_t answerAddress, AnswerText &text) noexcept;

// The name of a file-name answer held in bufferSize bytes at answer, of
// which the query said it wrote `written`. The length is trusted only as
// far as the bytes written. False when there is no name of at least one
// unit.
bool FileNameText(const uint8_t *answer, size_t bufferSize, uint64_t written,
                  AnswerText &text) noexcept;

}  // namespace vxio::process
