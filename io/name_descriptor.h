// Name descriptors of the file-system operations: how a name pointer and a
// name kind (name_text.h) become an 8-bit path in a work buffer of
// kWorkBufferSize bytes. Kind 0 is copied as it is, kinds 2 and 3 must end
// within their stated length and one terminator, and UTF-16 text (kinds 1
// and 3) is converted to the ANSI code page.
#pragma once

#include <cstdint>

#include "io/name_text.h"

namespace vxio::io {

// Converts name into buffer (kWorkBufferSize bytes). Returns 0, or 50 when
// the descriptor cannot be read: a null name or buffer, an unknown kind, a
// failed conversion, or a name that does not fit.
uint64_t convert_name(const void *name, uint32_t kind, char *buffer);

}  // namespace vxio::io
