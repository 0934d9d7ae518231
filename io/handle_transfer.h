// Transfers through a Win32 file handle, shared by the backends whose
// objects are handles (the Handle backend's caller handle, the File
// backend's own). Every transfer first moves the handle's file pointer to
// the offset from the beginning: a failed move is a failed transfer, and
// the pointer ends behind the bytes moved, where the caller sees it.
#pragma once

#include "platform/os.h"
#include "vxio/io.h"

namespace vxio::io {

bool seek_from_start(HANDLE handle, uint64_t position);

// 207 on a null buffer, a failed seek, a failed transfer or a short one (a
// short read leaves the bytes that did arrive in the buffer).
uint64_t read_at(HANDLE handle, uint64_t offset, void *buffer, uint32_t length);
// As read_at; a successful write marks object changed.
uint64_t write_at(IoObject *object, HANDLE handle, uint64_t offset, const void *buffer,
                  uint32_t length);
// Only the low 32 bits of the size, the error value not tested: files of
// 4 GiB and more report their size modulo 2^32, as the engine expects.
uint64_t low_size(HANDLE handle, uint64_t *size);
// Shrinks or extends; marks object changed.
uint64_t set_end(IoObject *object, HANDLE handle, uint64_t newSize);

}  // namespace vxio::io
