/* vxio: the I/O table, the I/O object and the object backends.
 *
 * Calling order: VOXA_IO_GetTableFor<Kind>IO -> the backend's Open (by its
 * exported name) -> table operations and PositionFile -> the backend's
 * Close -> VOXA_IO_FreeTableFor<Kind>IO. An IoObject belongs to the library
 * from Open to Close; its userPointer belongs to the caller.
 *
 * Statuses of the table operations (unsigned 64-bit): 0 success, 207 the
 * operation failed (bad argument, short transfer, system failure,
 * unsupported). Operations that turn a name into a path also give 200 (no
 * work buffer) and 50 (unreadable name). Anything below 200 counts as
 * success for callers inside the library. */
#ifndef VXIO_IO_H
#define VXIO_IO_H

#include "alloc.h"

VXIO_EXTERN_C_BEGIN

#define VXIO_IO_OK 0u
#define VXIO_IO_BAD_NAME 50u
#define VXIO_IO_NO_BUFFER 200u
#define VXIO_IO_FAILED 207u

#define VXIO_KIND_FILE 1u
#define VXIO_KIND_MEMORY 2u
#define VXIO_KIND_HANDLE 3u
#define VXIO_KIND_CUSTOM 4u
#define VXIO_KIND_PHYSICAL 5u

/* Header shared by every backend's object. */
typedef struct IoObject {
    uint64_t userPointer;   /* the caller's; never interpreted */
    uint32_t kind;          /* VXIO_KIND_* */
    uint8_t changed;        /* 1 after a successful Write or SetEnd */
    char *name;             /* copy made at Open (may be null), freed by Close */
    uint8_t callerData[16]; /* copied at Open when the stated length is 16 */
} IoObject;

VXIO_STATIC_ASSERT(sizeof(IoObject) == 40, IoObject_header_is_40_bytes);
VXIO_STATIC_ASSERT(offsetof(IoObject, userPointer) == 0, IoObject_userPointer);
VXIO_STATIC_ASSERT(offsetof(IoObject, kind) == 8, IoObject_kind);
VXIO_STATIC_ASSERT(offsetof(IoObject, changed) == 12, IoObject_changed);
VXIO_STATIC_ASSERT(offsetof(IoObject, name) == 16, IoObject_name);
VXIO_STATIC_ASSERT(offsetof(IoObject, callerData) == 24, IoObject_callerData);

/* kind 1: a file on disk, opened and owned by the backend. */
typedef struct IoFileObject {
    IoObject header;
    void *handle;        /* Win32 file handle, owned */
    uint32_t flags;      /* bit 0: open for writing; bit 1: create */
    char *savedSecurity; /* descriptor text to put back at Close, or null */
} IoFileObject;

VXIO_STATIC_ASSERT(sizeof(IoFileObject) == 64, IoFileObject_is_64_bytes);
VXIO_STATIC_ASSERT(offsetof(IoFileObject, handle) == 40, IoFileObject_handle);
VXIO_STATIC_ASSERT(offsetof(IoFileObject, flags) == 48, IoFileObject_flags);
VXIO_STATIC_ASSERT(offsetof(IoFileObject, savedSecurity) == 56, IoFileObject_savedSecurity);

/* kind 2: a block of the caller's memory. */
typedef struct IoMemoryObject {
    IoObject header;
    uint8_t *data;          /* the caller's block, not owned */
    uint64_t *sizeVariable; /* the caller's size variable, read on every call */
    uint64_t position;
    uint32_t flags;         /* stored, not interpreted */
} IoMemoryObject;

VXIO_STATIC_ASSERT(sizeof(IoMemoryObject) == 72, IoMemoryObject_is_72_bytes);
VXIO_STATIC_ASSERT(offsetof(IoMemoryObject, data) == 40, IoMemoryObject_data);
VXIO_STATIC_ASSERT(offsetof(IoMemoryObject, sizeVariable) == 48, IoMemoryObject_sizeVariable);
VXIO_STATIC_ASSERT(offsetof(IoMemoryObject, position) == 56, IoMemoryObject_position);
VXIO_STATIC_ASSERT(offsetof(IoMemoryObject, flags) == 64, IoMemoryObject_flags);

/* kind 3: a Win32 file handle the caller opened and keeps. */
typedef struct IoHandleObject {
    IoObject header;
    void *handle;   /* the caller's, never closed here */
    uint32_t flags; /* stored, not interpreted */
} IoHandleObject;

VXIO_STATIC_ASSERT(sizeof(IoHandleObject) == 56, IoHandleObject_is_56_bytes);
VXIO_STATIC_ASSERT(offsetof(IoHandleObject, handle) == 40, IoHandleObject_handle);
VXIO_STATIC_ASSERT(offsetof(IoHandleObject, flags) == 48, IoHandleObject_flags);

/* kind 4: an object inside a caller-supplied storage module. */
typedef struct IoCustomObject {
    IoObject header;
    void *module;          /* the caller's SpecialIoModule table, not owned */
    uintptr_t moduleHandle; /* the module's own handle of the object */
    uintptr_t container;   /* given to Open, kept for the write reopen */
} IoCustomObject;

VXIO_STATIC_ASSERT(sizeof(IoCustomObject) == 64, IoCustomObject_is_64_bytes);
VXIO_STATIC_ASSERT(offsetof(IoCustomObject, module) == 40, IoCustomObject_module);
VXIO_STATIC_ASSERT(offsetof(IoCustomObject, moduleHandle) == 48, IoCustomObject_moduleHandle);
VXIO_STATIC_ASSERT(offsetof(IoCustomObject, container) == 56, IoCustomObject_container);

/* kind 5: the raw start of a physical drive or a drive letter's volume. */
typedef struct IoPhysicalObject {
    IoObject header;
    void *handle;          /* device handle, read-only */
    uint32_t flags;
    uint8_t mode;          /* 1 boot-sector mode, 2 and 3 plain */
    uint32_t driveNumber;  /* 0..127 drive letters, 128.. physical drives */
    DynArray *bootOffsets; /* of uint64_t* byte offsets, mode 1 only */
    uint8_t nextBoot;      /* index of the next boot offset to visit */
    uint64_t diskSize;     /* bytes, from the drive geometry */
} IoPhysicalObject;

VXIO_STATIC_ASSERT(sizeof(IoPhysicalObject) == 88, IoPhysicalObject_is_88_bytes);
VXIO_STATIC_ASSERT(offsetof(IoPhysicalObject, handle) == 40, IoPhysicalObject_handle);
VXIO_STATIC_ASSERT(offsetof(IoPhysicalObject, flags) == 48, IoPhysicalObject_flags);
VXIO_STATIC_ASSERT(offsetof(IoPhysicalObject, mode) == 52, IoPhysicalObject_mode);
VXIO_STATIC_ASSERT(offsetof(IoPhysicalObject, driveNumber) == 56, IoPhysicalObject_driveNumber);
VXIO_STATIC_ASSERT(offsetof(IoPhysicalObject, bootOffsets) == 64, IoPhysicalObject_bootOffsets);
VXIO_STATIC_ASSERT(offsetof(IoPhysicalObject, nextBoot) == 72, IoPhysicalObject_nextBoot);
VXIO_STATIC_ASSERT(offsetof(IoPhysicalObject, diskSize) == 80, IoPhysicalObject_diskSize);

/* The ten operations every backend puts into its table. */
typedef uint64_t (*IoReadFn)(IoObject *object, uint64_t offset, void *buffer, uint32_t length);
typedef uint64_t (*IoWriteFn)(IoObject *object, uint64_t offset, const void *buffer,
                              uint32_t length);
typedef uint64_t (*IoGetSizeFn)(IoObject *object, uint64_t *size);
typedef uint64_t (*IoSetEndFn)(IoObject *object, uint64_t newSize);
typedef uint64_t (*IoMakeWriteableFn)(IoObject *object);
typedef uint64_t (*IoFileExistsFn)(IoObject *object, const void *name, uint32_t nameKind);
typedef IoObject *(*IoFileSystemOpenFn)(IoObject *parent, const void *name, uint32_t nameKind,
                                        uint32_t flags);
typedef uint64_t (*IoFileSystemCloseFn)(IoObject *ignored, IoObject *object);
typedef uint64_t (*IoFileSystemDeleteFn)(IoObject *object, const void *name, uint32_t nameKind);
typedef uint64_t (*IoFileSystemRenameFn)(IoObject *object, const void *oldName,
                                         const void *newName, uint32_t nameKind);

/* The engine's own entry points, kept verbatim beside the operations. */
typedef void *IoCallerEntry;

/* Fourteen pointer-sized slots: four caller entries, then the operations. */
typedef struct IoTable {
    IoCallerEntry entry1;
    IoCallerEntry entry2;
    IoCallerEntry entry3;
    IoCallerEntry entry4; /* may be null */
    IoReadFn Read;
    IoWriteFn Write;
    IoGetSizeFn GetSize;
    IoSetEndFn SetEnd;
    IoMakeWriteableFn MakeWriteable;
    IoFileExistsFn FileSystemFileExists;
    IoFileSystemOpenFn FileSystemOpen;
    IoFileSystemCloseFn FileSystemClose;
    IoFileSystemDeleteFn FileSystemDelete;
    IoFileSystemRenameFn FileSystemRename;
} IoTable;

VXIO_STATIC_ASSERT(sizeof(IoTable) == 14 * 8, IoTable_has_fourteen_slots);
VXIO_STATIC_ASSERT(offsetof(IoTable, entry4) == 3 * 8, IoTable_entry4);
VXIO_STATIC_ASSERT(offsetof(IoTable, Read) == 4 * 8, IoTable_Read);
VXIO_STATIC_ASSERT(offsetof(IoTable, MakeWriteable) == 8 * 8, IoTable_MakeWriteable);
VXIO_STATIC_ASSERT(offsetof(IoTable, FileSystemRename) == 13 * 8, IoTable_FileSystemRename);

/* Table builders: a new table (free with the matching Free), or null when
 * entry1, entry2 or entry3 is null or memory runs out. The five Free
 * functions are identical; a null table is ignored. */
VXIO_API IoTable *VOXA_IO_GetTableForFileIO(IoCallerEntry entry1, IoCallerEntry entry2,
                                            IoCallerEntry entry3, IoCallerEntry entry4) VXIO_NOEXCEPT;
VXIO_API IoTable *VOXA_IO_GetTableForMemIO(IoCallerEntry entry1, IoCallerEntry entry2,
                                           IoCallerEntry entry3, IoCallerEntry entry4) VXIO_NOEXCEPT;
VXIO_API IoTable *VOXA_IO_GetTableForHandleIO(IoCallerEntry entry1, IoCallerEntry entry2,
                                              IoCallerEntry entry3, IoCallerEntry entry4) VXIO_NOEXCEPT;
VXIO_API IoTable *VOXA_IO_GetTableForCustomIO(IoCallerEntry entry1, IoCallerEntry entry2,
                                              IoCallerEntry entry3, IoCallerEntry entry4) VXIO_NOEXCEPT;
VXIO_API IoTable *VOXA_IO_GetTableForPhysicalIO(IoCallerEntry entry1, IoCallerEntry entry2,
                                                IoCallerEntry entry3, IoCallerEntry entry4) VXIO_NOEXCEPT;
VXIO_API void VOXA_IO_FreeTableForFileIO(IoTable *table) VXIO_NOEXCEPT;
VXIO_API void VOXA_IO_FreeTableForMemIO(IoTable *table) VXIO_NOEXCEPT;
VXIO_API void VOXA_IO_FreeTableForHandleIO(IoTable *table) VXIO_NOEXCEPT;
VXIO_API void VOXA_IO_FreeTableForCustomIO(IoTable *table) VXIO_NOEXCEPT;
VXIO_API void VOXA_IO_FreeTableForPhysicalIO(IoTable *table) VXIO_NOEXCEPT;

/* Accessors of every object: 0 / null for a null object. SetUserPointer
 * returns the previous value. The name stays owned by the object. */
VXIO_API uint64_t VOXA_IO_GetUserPointer(const IoObject *object) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_IO_SetUserPointer(IoObject *object, uint64_t value) VXIO_NOEXCEPT;
VXIO_API uint8_t VOXA_IO_Changed(const IoObject *object) VXIO_NOEXCEPT;
VXIO_API char *VOXA_IO_GetNamePointer(const IoObject *object) VXIO_NOEXCEPT;

/* Boolean results of PositionFile are 32-bit (0 or 1), so a caller that
 * reads only the low byte sees the same answer. */

/* Memory backend: reads and writes inside the caller's block, never past
 * *sizeVariable, and shrinks by writing *sizeVariable. Open: null when
 * data, sizeVariable or callerData16 is null, or memory runs out; name may
 * be null. Close frees the object (the block is untouched). */
VXIO_API IoObject *VOXA_MEM_Open(const char *name, uint32_t flags, uint64_t userPointer,
                                 void *data, uint64_t *sizeVariable,
                                 const void *callerData16, uint32_t callerDataLength) VXIO_NOEXCEPT;
VXIO_API void VOXA_MEM_Close(IoObject *object) VXIO_NOEXCEPT;
/* 1 when position < current size, else 0. */
VXIO_API int32_t VOXA_MEM_PositionFile(IoObject *object, uint64_t position) VXIO_NOEXCEPT;
/* All-or-nothing: 207 for a zero length, an offset at or past the end, or
 * a transfer ending past the end (the position still moves to offset). */
VXIO_API uint64_t VOXA_MEM_Read(IoObject *object, uint64_t offset, void *buffer,
                                uint32_t length) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_MEM_Write(IoObject *object, uint64_t offset, const void *buffer,
                                 uint32_t length) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_MEM_GetSize(IoObject *object, uint64_t *size) VXIO_NOEXCEPT;
/* Shrink only: 207 when newSize is larger than the current size. */
VXIO_API uint64_t VOXA_MEM_SetEnd(IoObject *object, uint64_t newSize) VXIO_NOEXCEPT;
/* Fixed results: MakeWriteable 0; the file-system operations 207 (Open
 * null). */
VXIO_API uint64_t VOXA_MEM_MakeWriteable(IoObject *object) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_MEM_FileSystemFileExists(IoObject *object, const void *name,
                                                uint32_t nameKind) VXIO_NOEXCEPT;
VXIO_API IoObject *VOXA_MEM_FileSystemOpen(IoObject *parent, const void *name, uint32_t nameKind,
                                           uint32_t flags) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_MEM_FileSystemClose(IoObject *ignored, IoObject *object) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_MEM_FileSystemDelete(IoObject *object, const void *name,
                                            uint32_t nameKind) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_MEM_FileSystemRename(IoObject *object, const void *oldName,
                                            const void *newName, uint32_t nameKind) VXIO_NOEXCEPT;

/* Handle backend: transfers through the caller's handle and its file
 * pointer, which it never closes. Open: null when handle is 0, callerData16
 * is null or memory runs out; a null name is stored as a null name.
 * GetSize reports only the low 32 bits of the size (kept on purpose). */
VXIO_API IoObject *VOXA_HANDLE_Open(const char *name, uint32_t flags, uint64_t userPointer,
                                    void *handle, const void *callerData16,
                                    uint32_t callerDataLength) VXIO_NOEXCEPT;
VXIO_API void VOXA_HANDLE_Close(IoObject *object) VXIO_NOEXCEPT;
VXIO_API int32_t VOXA_HANDLE_PositionFile(IoObject *object, uint64_t position) VXIO_NOEXCEPT;
/* 207 on a failed seek, a failed transfer or a short one. */
VXIO_API uint64_t VOXA_HANDLE_Read(IoObject *object, uint64_t offset, void *buffer,
                                   uint32_t length) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_HANDLE_Write(IoObject *object, uint64_t offset, const void *buffer,
                                    uint32_t length) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_HANDLE_GetSize(IoObject *object, uint64_t *size) VXIO_NOEXCEPT;
/* Shrinks or extends. */
VXIO_API uint64_t VOXA_HANDLE_SetEnd(IoObject *object, uint64_t newSize) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_HANDLE_MakeWriteable(IoObject *object) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_HANDLE_FileSystemFileExists(IoObject *object, const void *name,
                                                   uint32_t nameKind) VXIO_NOEXCEPT;
VXIO_API IoObject *VOXA_HANDLE_FileSystemOpen(IoObject *parent, const void *name,
                                              uint32_t nameKind, uint32_t flags) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_HANDLE_FileSystemClose(IoObject *ignored, IoObject *object) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_HANDLE_FileSystemDelete(IoObject *object, const void *name,
                                               uint32_t nameKind) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_HANDLE_FileSystemRename(IoObject *object, const void *oldName,
                                               const void *newName, uint32_t nameKind) VXIO_NOEXCEPT;

/* Name descriptors of the file-system operations (nameKind): 0 an 8-bit
 * string; 1 a UTF-16 string; 2 a counted record (16-bit length, two bytes,
 * then the 8-bit text from byte 4); 3 the same head with UTF-16 text, its
 * length in bytes. A counted text must end (NUL) within its stated length
 * and one terminator, else the status is 50. */
#define VXIO_NAME_ANSI 0u
#define VXIO_NAME_WIDE 1u
#define VXIO_NAME_COUNTED_ANSI 2u
#define VXIO_NAME_COUNTED_WIDE 3u

/* File backend: files on disk by name. Open flags: bit 0 open for writing,
 * bit 1 create (replacing an existing file). A file that cannot be opened
 * for writing (for any reason but a sharing violation) gets its descriptor
 * saved as SDDL and its explicit DACL entries cleared; Close puts the
 * descriptor back. The DACL is cleared only after a complete listing was
 * saved, and put back at once when the file still cannot be opened. A name
 * holding '>' or '"', or longer than 259 characters, never reaches a
 * descriptor command: such a file that cannot be opened stays unopened.
 * Statuses 0, 207, 200 (no work buffer), 50 (unreadable name). */
VXIO_API IoObject *VOXA_FILE_Open(const char *name, uint32_t flags, uint64_t userPointer,
                                  const void *callerData16, uint32_t callerDataLength) VXIO_NOEXCEPT;
VXIO_API void VOXA_FILE_Close(IoObject *object) VXIO_NOEXCEPT;
VXIO_API int32_t VOXA_FILE_PositionFile(IoObject *object, uint64_t position) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_FILE_Read(IoObject *object, uint64_t offset, void *buffer,
                                 uint32_t length) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_FILE_Write(IoObject *object, uint64_t offset, const void *buffer,
                                  uint32_t length) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_FILE_GetSize(IoObject *object, uint64_t *size) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_FILE_SetEnd(IoObject *object, uint64_t newSize) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_FILE_MakeWriteable(IoObject *object) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_FILE_FileSystemFileExists(IoObject *object, const void *name,
                                                 uint32_t nameKind) VXIO_NOEXCEPT;
VXIO_API IoObject *VOXA_FILE_FileSystemOpen(IoObject *parent, const void *name, uint32_t nameKind,
                                            uint32_t flags) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_FILE_FileSystemClose(IoObject *ignored, IoObject *object) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_FILE_FileSystemDelete(IoObject *object, const void *name,
                                             uint32_t nameKind) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_FILE_FileSystemRename(IoObject *object, const void *oldName,
                                             const void *newName, uint32_t nameKind) VXIO_NOEXCEPT;

/* Custom backend: objects inside a storage module that exports the
 * "SpecialIO_" functions. The table holds the module's entry points (null
 * when the module lacks one), in this order. */
typedef struct SpecialIoModule {
    void *Open;        /* "SpecialIO_Open" (required) */
    void *Create;      /* "SpecialIO_Create" */
    void *Close;       /* "SpecialIO_Close" (required) */
    void *FileLength;  /* "SpecialIO_FileLength" (required) */
    void *Read;        /* "SpecialIO_Read" (required) */
    void *Write;       /* "SpecialIO_Write" */
    void *WriteAt;     /* "SpecialIO_Write_at" */
    void *Delete;      /* "SpecialIO_DeleteFile" (not named DeleteFile: a Windows macro) */
    void *ChangeSize;  /* "SpecialIO_ChangeSize" */
    void *EnableWrite; /* "SpecialIO_EnableWrite" */
    void *Exists;      /* "SpecialIO_Exists" */
} SpecialIoModule;

VXIO_STATIC_ASSERT(sizeof(SpecialIoModule) == 11 * 8, SpecialIoModule_has_eleven_entries);

/* Signatures a storage module's exports must have. */
typedef uintptr_t (*SpecialIoOpenFn)(uintptr_t container, const char *name, uint32_t flags,
                                     uint64_t userPointer);
typedef void (*SpecialIoCloseFn)(uintptr_t moduleHandle);
typedef uint32_t (*SpecialIoFileLengthFn)(uintptr_t moduleHandle);
typedef uint8_t (*SpecialIoReadFn)(uintptr_t moduleHandle, uint64_t offset, void *buffer,
                                   uint32_t length);
typedef uint8_t (*SpecialIoWriteFn)(uintptr_t moduleHandle, uint64_t offset, const void *buffer,
                                    uint32_t length);
typedef uint8_t (*SpecialIoDeleteFileFn)(uintptr_t moduleHandle);
typedef uint8_t (*SpecialIoChangeSizeFn)(uintptr_t moduleHandle, uint64_t newSize);
typedef uintptr_t (*SpecialIoEnableWriteFn)(uintptr_t container);
typedef uint8_t (*SpecialIoExistsFn)(const char *path);

/* Resolves the entries of a loaded module (free with VOXA_IO_FreeCustomIO);
 * null when one of the four required ones is missing or memory runs out. */
VXIO_API SpecialIoModule *VOXA_IO_GetCustomIO(void *module) VXIO_NOEXCEPT;
VXIO_API void VOXA_IO_FreeCustomIO(SpecialIoModule *table) VXIO_NOEXCEPT;
VXIO_API IoObject *VOXA_CUSTOM_Open(uintptr_t container, const char *name, uint32_t flags,
                                    uint64_t userPointer, SpecialIoModule *moduleTable,
                                    const void *callerData16, uint32_t callerDataLength) VXIO_NOEXCEPT;
VXIO_API void VOXA_CUSTOM_Close(IoObject *object) VXIO_NOEXCEPT;
VXIO_API int32_t VOXA_CUSTOM_PositionFile(IoObject *object, uint64_t position) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_CUSTOM_Read(IoObject *object, uint64_t offset, void *buffer,
                                   uint32_t length) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_CUSTOM_Write(IoObject *object, uint64_t offset, const void *buffer,
                                    uint32_t length) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_CUSTOM_GetSize(IoObject *object, uint64_t *size) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_CUSTOM_SetEnd(IoObject *object, uint64_t newSize) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_CUSTOM_MakeWriteable(IoObject *object) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_CUSTOM_FileSystemFileExists(IoObject *object, const void *name,
                                                   uint32_t nameKind) VXIO_NOEXCEPT;
VXIO_API IoObject *VOXA_CUSTOM_FileSystemOpen(IoObject *parent, const void *name,
                                              uint32_t nameKind, uint32_t flags) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_CUSTOM_FileSystemClose(IoObject *ignored, IoObject *object) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_CUSTOM_FileSystemDelete(IoObject *object, const void *name,
                                               uint32_t nameKind) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_CUSTOM_FileSystemRename(IoObject *object, const void *oldName,
                                               const void *newName, uint32_t nameKind) VXIO_NOEXCEPT;

/* Physical-disk backend: the raw start of a drive, read-only. Drive
 * numbers 0..127 are drive letters (2 is C:), 128 and above physical
 * drives (128 is \\.\PHYSICALDRIVE0). Mode 1 walks the boot sectors, 2
 * and 3 are plain. error receives 209 (not NT) or 999 (access denied even
 * with privileges) on those failures. */
VXIO_API IoObject *VOXA_PHYSICAL_Open(uint32_t driveNumber, uint32_t flags, uint64_t userPointer,
                                      uint8_t mode, const void *callerData16,
                                      uint32_t callerDataLength, uint32_t *error) VXIO_NOEXCEPT;
VXIO_API void VOXA_PHYSICAL_Close(IoObject *object) VXIO_NOEXCEPT;
VXIO_API int32_t VOXA_PHYSICAL_PositionFile(IoObject *object, uint64_t lowPart,
                                            uint32_t highPart) VXIO_NOEXCEPT;
VXIO_API uint32_t VOXA_PHYSICAL_GetNumberOfBootOffsets(IoObject *object) VXIO_NOEXCEPT;
VXIO_API const char *VOXA_PHYSICAL_GetDriveName(int8_t index) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_PHYSICAL_Read(IoObject *object, uint64_t offset, void *buffer,
                                     uint32_t length) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_PHYSICAL_Write(IoObject *object, uint64_t offset, const void *buffer,
                                      uint32_t length) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_PHYSICAL_GetSize(IoObject *object, uint64_t *size) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_PHYSICAL_SetEnd(IoObject *object, uint64_t newSize) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_PHYSICAL_MakeWriteable(IoObject *object) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_PHYSICAL_FileSystemFileExists(IoObject *object, const void *name,
                                                     uint32_t nameKind) VXIO_NOEXCEPT;
VXIO_API IoObject *VOXA_PHYSICAL_FileSystemOpen(IoObject *parent, const void *name,
                                                uint32_t nameKind, uint32_t flags) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_PHYSICAL_FileSystemClose(IoObject *ignored, IoObject *object) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_PHYSICAL_FileSystemDelete(IoObject *object, const void *name,
                                                 uint32_t nameKind) VXIO_NOEXCEPT;
VXIO_API uint64_t VOXA_PHYSICAL_FileSystemRename(IoObject *object, const void *oldName,
                                                 const void *newName, uint32_t nameKind) VXIO_NOEXCEPT;

VXIO_EXTERN_C_END

#endif /* VXIO_IO_H */
