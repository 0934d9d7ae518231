// Reading fixed-width values out of bytes someone else laid out (system
// answers, another process's memory, disk sectors): at any alignment, in
// the machine's (little-endian) order. The caller has checked that the
// value lies inside the bytes held. No Windows header: parsers that build
// natively use it too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vxio {

template <typename T>
T load_at(const void *bytes, size_t offset) noexcept {
    T value;
    std::memcpy(&value, static_cast<const uint8_t *>(bytes) + offset, sizeof value);
    return value;
}

}  // namespace vxio
