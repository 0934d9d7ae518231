#include "io/handle_transfer.h"

namespace vxio::io {

using platform::os;

bool seek_from_start(HANDLE handle, uint64_t position) {
    LARGE_INTEGER to;
    to.QuadPart = static_cast<LONGLONG>(position);
    return os.SetFilePointerEx(handle, to, nullptr, FILE_BEGIN) != FALSE;
}

uint64_t read_at(HANDLE handle, uint64_t offset, void *buffer, uint32_t length) {
    if (!buffer || !seek_from_start(handle, offset)) return VXIO_IO_FAILED;
    DWORD done = 0;
    if (!os.ReadFile(handle, buffer, length, &done, nullptr) || done != length)
        return VXIO_IO_FAILED;
    return VXIO_IO_OK;
}

uint64_t write_at(IoObject *object, HANDLE handle, uint64_t offset, const void *buffer,
                  uint32_t length) {
    if (!buffer || !seek_from_start(handle, offset)) return VXIO_IO_FAILED;
    DWORD done = 0;
    if (!os.WriteFile(handle, buffer, length, &done, nullptr) || done != length)
        return VXIO_IO_FAILED;
    object->changed = 1;
    return VXIO_IO_OK;
}

uint64_t low_size(HANDLE handle, uint64_t *size) {
    if (!size) return VXIO_IO_FAILED;
    *size = os.GetFileSize(handle, nullptr);
    return VXIO_IO_OK;
}

uint64_t set_end(IoObject *object, HANDLE handle, uint64_t newSize) {
    if (!seek_from_start(handle, newSize) || !os.SetEndOfFile(handle)) return VXIO_IO_FAILED;
    object->changed = 1;
    return VXIO_IO_OK;
}

}  // namespace vxio::io
