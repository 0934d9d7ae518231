// Handle backend: an object the caller already opened as a Win32 file
// handle. Transfers go through the handle's own file pointer, which the
// caller shares; the handle is never duplicated or closed here.
#include "io/object_common.h"
#include "platform/os.h"
#include "util/owner.h"
#include "vxio/io.h"

using vxio::platform::os;

namespace {

HANDLE handle_of(IoObject *object) {
    return static_cast<HANDLE>(reinterpret_cast<IoHandleObject *>(object)->handle);
}

bool seek_from_start(HANDLE handle, uint64_t position) {
    LARGE_INTEGER to;
    to.QuadPart = static_cast<LONGLONG>(position);
    return os.SetFilePointerEx(handle, to, nullptr, FILE_BEGIN) != FALSE;
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
    return seek_from_start(handle_of(object), position) ? 1 : 0;
}

extern "C" uint64_t VOXA_HANDLE_Read(IoObject *object, uint64_t offset, void *buffer,
                                     uint32_t length) noexcept {
    if (!object || !buffer) return VXIO_IO_FAILED;
    HANDLE handle = handle_of(object);
    if (!seek_from_start(handle, offset)) return VXIO_IO_FAILED;
    DWORD done = 0;
    // A short read at the end of the file is a failure (the bytes that did
    // arrive stay in the buffer).
    if (!os.ReadFile(handle, buffer, length, &done, nullptr) || done != length)
        return VXIO_IO_FAILED;
    return VXIO_IO_OK;
}

extern "C" uint64_t VOXA_HANDLE_Write(IoObject *object, uint64_t offset, const void *buffer,
                                      uint32_t length) noexcept {
    if (!object || !buffer) return VXIO_IO_FAILED;
    HANDLE handle = handle_of(object);
    if (!seek_from_start(handle, offset)) return VXIO_IO_FAILED;
    DWORD done = 0;
    if (!os.WriteFile(handle, buffer, length, &done, nullptr) || done != length)
        return VXIO_IO_FAILED;
    object->changed = 1;
    return VXIO_IO_OK;
}

extern "C" uint64_t VOXA_HANDLE_GetSize(IoObject *object, uint64_t *size) noexcept {
    if (!object || !size) return VXIO_IO_FAILED;
    // Only the low 32 bits are asked for and the error value is not tested:
    // files of 4 GiB and more report their size modulo 2^32, as the engine
    // expects of this backend.
    *size = os.GetFileSize(handle_of(object), nullptr);
    return VXIO_IO_OK;
}

extern "C" uint64_t VOXA_HANDLE_SetEnd(IoObject *object, uint64_t newSize) noexcept {
    if (!object) return VXIO_IO_FAILED;
    HANDLE handle = handle_of(object);
    if (!seek_from_start(handle, newSize) || !os.SetEndOfFile(handle)) return VXIO_IO_FAILED;
    object->changed = 1;
    return VXIO_IO_OK;
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
