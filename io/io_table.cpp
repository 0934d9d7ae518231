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

// The table builder and the table's free function of one backend. The five
// free functions are the same: a table holds no object state.
#define VXIO_TABLE_EXPORTS(Kind, B)                                                          \
    extern "C" IoTable *VOXA_IO_GetTableFor##Kind##IO(IoCallerEntry e1, IoCallerEntry e2,     \
                                                      IoCallerEntry e3,                       \
                                                      IoCallerEntry e4) noexcept {            \
        return build_table(e1, e2, e3, e4, VXIO_BACKEND_OPERATIONS(B));                      \
    }                                                                                        \
    extern "C" void VOXA_IO_FreeTableFor##Kind##IO(IoTable *table) noexcept {                 \
        if (table) ZELTA_myfree(table);                                                      \
    }

VXIO_TABLE_EXPORTS(Mem, MEM)
VXIO_TABLE_EXPORTS(Handle, HANDLE)
VXIO_TABLE_EXPORTS(File, FILE)
VXIO_TABLE_EXPORTS(Custom, CUSTOM)
VXIO_TABLE_EXPORTS(Physical, PHYSICAL)

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
