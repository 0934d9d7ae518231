// What every backend's Open does to the common header of its object.
#pragma once

#include <cstring>

#include "vxio/io.h"

namespace vxio::io {

// Fills the header of a fresh object. callerData is copied only when the
// stated length is exactly 16; otherwise it is cleared (the library never
// reads it, and a cleared field is kinder to the caller than heap garbage).
inline void init_header(IoObject *object, uint32_t kind, uint64_t userPointer, char *name,
                        const void *callerData16, uint32_t callerDataLength) {
    object->userPointer = userPointer;
    object->kind = kind;
    object->changed = 0;
    object->name = name;
    if (callerData16 && callerDataLength == sizeof object->callerData)
        std::memcpy(object->callerData, callerData16, sizeof object->callerData);
    else
        std::memset(object->callerData, 0, sizeof object->callerData);
}

}  // namespace vxio::io
