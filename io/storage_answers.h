// What a caller's storage module answers, and how the Custom backend takes
// each answer, as plain functions (no Windows headers here) so that the
// checks build and are fuzzed natively. custom_backend.cpp calls the
// module and passes every value that comes back through one of these
// before it uses it:
//   the resolved entries   only a table with Open, Close, FileLength and
//                          Read serves objects; Exists is asked only when
//                          ChangeSize is there as well (modules in use
//                          offer both or neither);
//   Open, EnableWrite      a handle, zero meaning refused;
//   FileLength             a 32-bit size, every value one (0xFFFFFFFF too);
//   Read, Write, ChangeSize, DeleteFile, Exists
//                          one byte, non-zero meaning done.
// The module gets no length back from us to overrun: Read and Write hand
// it the caller's buffer and length unchanged, and it answers yes or no.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vxio::io::storage {

// The statuses an answer becomes (the table operations' own numbers).
constexpr uint64_t kDone = 0;
constexpr uint64_t kFailed = 207;

// Slots of the module table, in the order of the export names.
enum Entry : size_t {
    kOpen, kCreate, kClose, kFileLength, kRead, kWrite, kWriteAt, kDelete, kChangeSize,
    kEnableWrite, kExists, kEntryCount
};
extern const char *const kEntryNames[kEntryCount];

// True when the `count` resolved slots (null for a missing export) form a
// table that can serve an object; false for any other count.
bool ServesObjects(const void *const *slots, size_t count);

// True when FileExists may ask the module: it needs both ChangeSize (the
// presence test modules in use rely on) and Exists.
bool MayAskExists(const void *const *slots, size_t count);

// A yes/no answer as a status.
inline uint64_t StatusOf(uint8_t answer) { return answer ? kDone : kFailed; }

// A FileLength answer as a size.
inline uint64_t SizeOf(uint32_t answer) { return answer; }

// An Open or EnableWrite answer: true with *handle set when the module
// gave one, false (and *handle untouched) when it refused.
bool TakeHandle(uintptr_t answer, uintptr_t *handle);

}  // namespace vxio::io::storage
