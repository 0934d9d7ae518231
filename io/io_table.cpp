// The I/O table builders and the accessors shared by every backend's
// objects.
#include "vxio/io.h"

namespace {

struct Operations {
    IoReadFn read;
    IoWriteFn write;
    IoGetSizeFn getSize;
    IoSetEndFn setEnd;
    IoMakeWriteableFn makeWriteable;
    IoFileExistsFn fileExists;
    IoFileSystemOpenFn fsOpen;
    IoFileSystemCloseFn fsClose;
    IoFileSystemDeleteFn fsDelete;
    IoFileSystemRenameFn fsRename;
};

IoTable *build_table(IoCallerEntry e1, IoCallerEntry e2, IoCallerEntry e3, IoCallerEntry e4,
                     const Operations &ops) {
    if (!e1 || !e2 || !e3) return nullptr;
    auto *table = static_cast<IoTable *>(ZELTA_mymalloc(sizeof(IoTable)));
    if (!table) return nullptr;
    *table = IoTable{e1,          e2,           e3,          e4,          ops.read,
                     ops.write,   ops.getSize,  ops.setEnd,  ops.makeWriteable,
                     ops.fileExists, ops.fsOpen, ops.fsClose, ops.fsDelete, ops.fsRename};
    return table;
}

#define VXIO_BACKEND_OPERATIONS(B)                                                           \
    Operations {                                                                             \
        VOXA_##B##_Read, VOXA_##B##_Write, VOXA_##B##_GetSize, VOXA_##B##_SetEnd,            \
            VOXA_##B##_MakeWriteable, VOXA_##B##_FileSystemFileExists,                       \
            VOXA_##B##_FileSystemOpen, VOXA_##B##_FileSystemClose,                           \
            VOXA_##B##_FileSystemDelete, VOXA_##B##_FileSystemRename                         \
    }

}  // namespace

extern "C" IoTable *VOXA_IO_GetTableForMemIO(IoCallerEntry e1, IoCallerEntry e2,
                                             IoCallerEntry e3, IoCallerEntry e4) noexcept {
    return build_table(e1, e2, e3, e4, VXIO_BACKEND_OPERATIONS(MEM));
}

extern "C" IoTable *VOXA_IO_GetTableForHandleIO(IoCallerEntry e1, IoCallerEntry e2,
                                                IoCallerEntry e3, IoCallerEntry e4) noexcept {
    return build_table(e1, e2, e3, e4, VXIO_BACKEND_OPERATIONS(HANDLE));
}

extern "C" IoTable *VOXA_IO_GetTableForFileIO(IoCallerEntry e1, IoCallerEntry e2,
                                             IoCallerEntry e3, IoCallerEntry e4) noexcept {
    return build_table(e1, e2, e3, e4, VXIO_BACKEND_OPERATIONS(FILE));
}

extern "C" IoTable *VOXA_IO_GetTableForPhysicalIO(IoCallerEntry e1, IoCallerEntry e2,
                                             IoCallerEntry e3, IoCallerEntry e4) noexcept {
    return build_table(e1, e2, e3, e4, VXIO_BACKEND_OPERATIONS(PHYSICAL));
}

extern "C" IoTable *VOXA_IO_GetTableForCustomIO(IoCallerEntry e1, IoCallerEntry e2,
                                             IoCallerEntry e3, IoCallerEntry e4) noexcept {
    return build_table(e1, e2, e3, e4, VXIO_BACKEND_OPERATIONS(CUSTOM));
}

// The builders of the file, custom and physical tables arrive with their
// backends (a table must never point at an operation that is missing).

extern "C" void VOXA_IO_FreeTableForMemIO(IoTable *table) noexcept {
    if (table) ZELTA_myfree(table);
}

extern "C" void VOXA_IO_FreeTableForHandleIO(IoTable *table) noexcept {
    if (table) ZELTA_myfree(table);
}

extern "C" void VOXA_IO_FreeTableForFileIO(IoTable *table) noexcept {
    if (table) ZELTA_myfree(table);
}

extern "C" void VOXA_IO_FreeTableForPhysicalIO(IoTable *table) noexcept {
    if (table) ZELTA_myfree(table);
}

extern "C" void VOXA_IO_FreeTableForCustomIO(IoTable *table) noexcept {
    if (table) ZELTA_myfree(table);
}

extern "C" uint64_t VOXA_IO_GetUserPointer(const IoObject *object) noexcept {
    return object ? object->userPointer : 0;
}

extern "C" uint64_t VOXA_IO_SetUserPointer(IoObject *object, uint64_t value) noexcept {
    if (!object) return 0;
    const uint64_t previous = object->userPointer;
    object->userPointer = value;
    return previous;
}

extern "C" uint8_t VOXA_IO_Changed(const IoObject *object) noexcept {
    return object ? object->changed : 0;
}

extern "C" char *VOXA_IO_GetNamePointer(const IoObject *object) noexcept {
    return object ? object->name : nullptr;
}
