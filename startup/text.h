// Small text helpers shared by the startup scan and its repairs.
#pragma once

#include <cstdint>

#include "util/owner.h"

namespace vxio::startup {

using Text = ZeltaPtr<char>;

// An uninitialised block of size bytes (ZELTA_mymalloc), or an empty Text.
inline Text allocate_text(uint64_t size) noexcept {
    return Text(static_cast<char *>(ZELTA_mymalloc(size)));
}

// Null and "" alike: the records keep empty texts as null fields.
inline bool is_empty(const char *text) noexcept { return !text || !*text; }

}  // namespace vxio::startup
