// Memory backend: an object that lies in a block of the caller's memory.
// It never allocates, moves or grows the block; the logical size lives in
// the caller's own variable, read afresh on every call.
#include <cstring>

#include "io/object_common.h"
#include "util/owner.h"
#include "vxio/io.h"

namespace {

IoMemoryObject *as_memory(IoObject *object) {
    return reinterpret_cast<IoMemoryObject *>(object);
}

uint64_t current_size(const IoMemoryObject *m) { return *m->sizeVariable; }

// The range test shared by Read and Write. The position moves to the
// offset once the offset itself is inside the block, even when the
// transfer then fails for running past the end (the engine relies on
// this).
bool place_transfer(IoMemoryObject *m, uint64_t offset, uint32_t length) {
    const uint64_t size = current_size(m);
    if (offset >= size) return false;
    m->position = offset;
    return length <= size - offset;
}

}  // namespace

extern "C" IoObject *VOXA_MEM_Open(const char *name, uint32_t flags, uint64_t userPointer,
                                   void *data, uint64_t *sizeVariable,
                                   const void *callerData16, uint32_t callerDataLength) noexcept {
    if (!data || !sizeVariable || !callerData16) return nullptr;
    auto object = vxio::zelta_new<IoMemoryObject>();
    if (!object) return nullptr;
    char *nameCopy = nullptr;
    if (name) {
        nameCopy = vxio::zelta_strdup(name);
        if (!nameCopy) return nullptr;
    }
    vxio::io::init_header(&object->header, VXIO_KIND_MEMORY, userPointer, nameCopy, callerData16,
                          callerDataLength);
    object->data = static_cast<uint8_t *>(data);
    object->sizeVariable = sizeVariable;
    object->position = 0;
    object->flags = flags;
    return &object.release()->header;
}

extern "C" void VOXA_MEM_Close(IoObject *object) noexcept {
    if (!object) return;
    if (object->name) ZELTA_myfree(object->name);
    ZELTA_myfree(object);
}

extern "C" int32_t VOXA_MEM_PositionFile(IoObject *object, uint64_t position) noexcept {
    if (!object) return 0;
    IoMemoryObject *m = as_memory(object);
    // The position just past the last byte is refused as well.
    if (position >= current_size(m)) return 0;
    m->position = position;
    return 1;
}

extern "C" uint64_t VOXA_MEM_Read(IoObject *object, uint64_t offset, void *buffer,
                                  uint32_t length) noexcept {
    if (!buffer || length == 0 || !object) return VXIO_IO_FAILED;
    IoMemoryObject *m = as_memory(object);
    if (!place_transfer(m, offset, length)) return VXIO_IO_FAILED;
    std::memcpy(buffer, m->data + offset, length);
    m->position += length;
    return VXIO_IO_OK;
}

extern "C" uint64_t VOXA_MEM_Write(IoObject *object, uint64_t offset, const void *buffer,
                                   uint32_t length) noexcept {
    if (!buffer || length == 0 || !object) return VXIO_IO_FAILED;
    IoMemoryObject *m = as_memory(object);
    if (!place_transfer(m, offset, length)) return VXIO_IO_FAILED;
    std::memcpy(m->data + offset, buffer, length);
    m->position += length;
    object->changed = 1;
    return VXIO_IO_OK;
}

extern "C" uint64_t VOXA_MEM_GetSize(IoObject *object, uint64_t *size) noexcept {
    if (!object || !size) return VXIO_IO_FAILED;
    *size = current_size(as_memory(object));
    return VXIO_IO_OK;
}

extern "C" uint64_t VOXA_MEM_SetEnd(IoObject *object, uint64_t newSize) noexcept {
    if (!object) return VXIO_IO_FAILED;
    IoMemoryObject *m = as_memory(object);
    if (newSize > current_size(m)) return VXIO_IO_FAILED;  // shrink only
    m->position = newSize;
    *m->sizeVariable = newSize;  // the caller sees the shrink at once
    object->changed = 1;
    return VXIO_IO_OK;
}

// Memory is always writeable; a block has no siblings to open, test,
// delete or rename.
extern "C" uint64_t VOXA_MEM_MakeWriteable(IoObject *) noexcept { return VXIO_IO_OK; }

extern "C" uint64_t VOXA_MEM_FileSystemFileExists(IoObject *, const void *, uint32_t) noexcept {
    return VXIO_IO_FAILED;
}

extern "C" IoObject *VOXA_MEM_FileSystemOpen(IoObject *, const void *, uint32_t,
                                             uint32_t) noexcept {
    return nullptr;
}

extern "C" uint64_t VOXA_MEM_FileSystemClose(IoObject *, IoObject *) noexcept {
    return VXIO_IO_FAILED;
}

extern "C" uint64_t VOXA_MEM_FileSystemDelete(IoObject *, const void *, uint32_t) noexcept {
    return VXIO_IO_FAILED;
}

extern "C" uint64_t VOXA_MEM_FileSystemRename(IoObject *, const void *, const void *,
                                              uint32_t) noexcept {
    return VXIO_IO_FAILED;
}
