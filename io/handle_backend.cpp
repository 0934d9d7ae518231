// Handle backend: an object the caller already opened as a Win32 file
// handle. Transfers go through the handle's own file pointer, which the
// caller shares; the handle is never duplicated or closed here.
#include "io/handle_transfer.h"
#include "io/object_common.h"
#include "util/owner.h"
#include "vxio/io.h"


namespace {

HANDLE handle_of(IoObject *object) {
    return static_cast<HANDLE>(reinterpret_cast<IoHandleObject *>(object)->handle);
}

}  // namespace

extern "C" IoObject *VOXA_HANDLE_Open(const char *name, uint32_t flags, uint64_t userPointer,
                                      void *handle, const void *callerData16,
                                      uint32_t callerDataLength) noexcept {
    if (!handle || !callerData16) return nullptr;
    auto object = vxio::zelta_new<IoHandleObject>();
    if (!object) return nullptr;
    // A null name is kept as a null name: the object is still usable, and
    // VOXA_IO_GetNamePointer then reports null.
    char *nameCopy = nullptr;
    if (name) {
        nameCopy = vxio::zelta_strdup(name);
        if (!nameCopy) return nullptr;
    }
    vxio::io::init_header(&object->header, VXIO_KIND_HANDLE, userPointer, nameCopy, callerData16,
                          callerDataLength);
    object->handle = handle;
    object->flags = flags;
    return &object.release()->header;
}

extern "C" void VOXA_HANDLE_Close(IoObject *object) noexcept {
    if (!object) return;
    if (object->name) ZELTA_myfree(object->name);
    ZELTA_myfree(object);
}

extern "C" int32_t VOXA_HANDLE_PositionFile(IoObject *object, uint64_t position) noexcept {
    if (!object) return 0;
    return vxio::io::seek_from_start(handle_of(object), position) ? 1 : 0;
}

extern "C" uint64_t VOXA_HANDLE_Read(IoObject *object, uint64_t offset, void *buffer,
                                     uint32_t length) noexcept {
    if (!object) return VXIO_IO_FAILED;
    return vxio::io::read_at(handle_of(object), offset, buffer, length);
}

extern "C" uint64_t VOXA_HANDLE_Write(IoObject *object, uint64_t offset, const void *buffer,
                                      uint32_t length) noexcept {
    if (!object) return VXIO_IO_FAILED;
    return vxio::io::write_at(object, handle_of(object), offset, buffer, length);
}

extern "C" uint64_t VOXA_HANDLE_GetSize(IoObject *object, uint64_t *size) noexcept {
    if (!object) return VXIO_IO_FAILED;
    return vxio::io::low_size(handle_of(object), size);
}

extern "C" uint64_t VOXA_HANDLE_SetEnd(IoObject *object, uint64_t newSize) noexcept {
    if (!object) return VXIO_IO_FAILED;
    return vxio::io::set_end(object, handle_of(object), newSize);
}

// A handle is written through as the caller opened it, and it has no
// siblings the backend could open, test, delete or rename.
extern "C" uint64_t VOXA_HANDLE_MakeWriteable(IoObject *) noexcept { return VXIO_IO_OK; }

extern "C" uint64_t VOXA_HANDLE_FileSystemFileExists(IoObject *, const void *,
                                                     uint32_t) noexcept {
    return VXIO_IO_FAILED;
}

extern "C" IoObject *VOXA_HANDLE_FileSystemOpen(IoObject *, const void *, uint32_t,
                                                uint32_t) noexcept {
    return nullptr;
}

extern "C" uint64_t VOXA_HANDLE_FileSystemClose(IoObject *, IoObject *) noexcept {
    return VXIO_IO_FAILED;
}

extern "C" uint64_t VOXA_HANDLE_FileSystemDelete(IoObject *, const void *, uint32_t) noexcept {
    return VXIO_IO_FAILED;
}

extern "C" uint64_t VOXA_HANDLE_FileSystemRename(IoObject *, const void *, const void *,
                                                 uint32_t) noexcept {
    return VXIO_IO_FAILED;
}
