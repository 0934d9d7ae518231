// Name descriptors of the file-system operations: how a name pointer and a
// name kind become an 8-bit path in a work buffer of 10240 bytes.
//   kind 0: an 8-bit string, copied as it is;
//   kind 1: a UTF-16 string, converted to the ANSI code page;
//   kind 2: a counted record: 16-bit length, two bytes, 8-bit text from
//           byte 4 (e.g. 05 00 00 00 'a' '.' 't' 'x' 't' 00);
//   kind 3: the same head with UTF-16 text from byte 4, the length in
//           bytes (e.g. 0A 00 00 00 'a' 0 '.' 0 't' 0 'x' 0 't' 0 0 0).
// A counted text must end within its stated length and one terminator.
#pragma once

#include <cstdint>

namespace vxio::io {

constexpr uint32_t kWorkBufferSize = 10240;

// Converts name into buffer (kWorkBufferSize bytes). Returns 0, or 50 when
// the descriptor cannot be read: a null name or buffer, an unknown kind, a
// failed conversion, or a name that does not fit.
uint64_t convert_name(const void *name, uint32_t kind, char *buffer);

}  // namespace vxio::io
