/* vxio: memory of other processes (reads, module and page dumps), their
 * open handles, the loaded device drivers, and process control
 * (terminate, suspend).
 *
 * Results are the process-inspection codes: 0 success, -1 a system call
 * failed or an entry point is missing, -2 a bad argument, -5 out of
 * memory, 5 not an NT platform; the from-handle queries add -3 (access
 * denied) and -8 (environment block unreadable). Booleans are 8-bit.
 * Buffers returned through out pointers come from ZELTA_mymalloc and are
 * freed by the caller with ZELTA_myfree. Texts are ANSI. */
#ifndef VXIO_PROCESS_MEMORY_H
#define VXIO_PROCESS_MEMORY_H

#include "alloc.h"

VXIO_EXTERN_C_BEGIN

/* One open handle of some process, as VOXA_IO_EnumerateOpenHandles appends
 * it (588 bytes, 4-byte packing). */
#pragma pack(push, 4)
typedef struct HandleEntry {
    uint64_t handleValue;         /* the value in its owner process */
    uint32_t ownerProcessId;
    uint32_t targetProcessId;     /* process objects, else 0 */
    uint32_t targetParentId;      /* process objects, else 0 */
    uint32_t targetThreadId;      /* thread objects, else 0 */
    uint32_t targetThreadProcessId; /* thread objects, else 0 */
    uint32_t targetProcessFlag;   /* process objects: a word of its PEB */
    uint32_t threadStartAddress;  /* thread objects: low 32 bits */
    uint32_t grantedAccess;
    uint32_t objectTypeNumber;    /* the system's object type index */
    uint8_t handleFlags;
    char typeName[20];
    char objectName[260];         /* a name, a composed text or a "__...__" mark */
    char ownerName[260];
} HandleEntry;
#pragma pack(pop)

VXIO_STATIC_ASSERT(offsetof(HandleEntry, handleValue) == 0, HandleEntry_handleValue);
VXIO_STATIC_ASSERT(offsetof(HandleEntry, ownerProcessId) == 8, HandleEntry_owner);
VXIO_STATIC_ASSERT(offsetof(HandleEntry, targetProcessId) == 12, HandleEntry_targetProcess);
VXIO_STATIC_ASSERT(offsetof(HandleEntry, targetParentId) == 16, HandleEntry_targetParent);
VXIO_STATIC_ASSERT(offsetof(HandleEntry, targetThreadId) == 20, HandleEntry_targetThread);
VXIO_STATIC_ASSERT(offsetof(HandleEntry, targetThreadProcessId) == 24, HandleEntry_threadProcess);
VXIO_STATIC_ASSERT(offsetof(HandleEntry, targetProcessFlag) == 28, HandleEntry_processFlag);
VXIO_STATIC_ASSERT(offsetof(HandleEntry, threadStartAddress) == 32, HandleEntry_start);
VXIO_STATIC_ASSERT(offsetof(HandleEntry, grantedAccess) == 36, HandleEntry_access);
VXIO_STATIC_ASSERT(offsetof(HandleEntry, objectTypeNumber) == 40, HandleEntry_type);
VXIO_STATIC_ASSERT(offsetof(HandleEntry, handleFlags) == 44, HandleEntry_flags);
VXIO_STATIC_ASSERT(offsetof(HandleEntry, typeName) == 45, HandleEntry_typeName);
VXIO_STATIC_ASSERT(offsetof(HandleEntry, objectName) == 65, HandleEntry_objectName);
VXIO_STATIC_ASSERT(offsetof(HandleEntry, ownerName) == 325, HandleEntry_ownerName);
VXIO_STATIC_ASSERT(sizeof(HandleEntry) == 588, HandleEntry_is_588_bytes);

/* Query blocks of the from-handle exports: the caller fills handle, the
 * export fills the rest. */
typedef struct ProcessHandleQuery {
    uint64_t handle;
    uint32_t processId;
    uint32_t parentProcessId;
    uint32_t environmentValue;  /* a word of the process environment block */
    char imagePath[260];
} ProcessHandleQuery;

VXIO_STATIC_ASSERT(offsetof(ProcessHandleQuery, processId) == 8, ProcessQuery_pid);
VXIO_STATIC_ASSERT(offsetof(ProcessHandleQuery, parentProcessId) == 12, ProcessQuery_parent);
VXIO_STATIC_ASSERT(offsetof(ProcessHandleQuery, environmentValue) == 16, ProcessQuery_peb);
VXIO_STATIC_ASSERT(offsetof(ProcessHandleQuery, imagePath) == 20, ProcessQuery_path);
VXIO_STATIC_ASSERT(sizeof(ProcessHandleQuery) == 280, ProcessHandleQuery_is_280_bytes);

typedef struct ThreadHandleQuery {
    uint64_t handle;
    uint32_t threadId;
    uint32_t processId;
    uint32_t startAddress;  /* low 32 bits */
} ThreadHandleQuery;

VXIO_STATIC_ASSERT(offsetof(ThreadHandleQuery, threadId) == 8, ThreadQuery_tid);
VXIO_STATIC_ASSERT(offsetof(ThreadHandleQuery, processId) == 12, ThreadQuery_pid);
VXIO_STATIC_ASSERT(offsetof(ThreadHandleQuery, startAddress) == 16, ThreadQuery_start);
VXIO_STATIC_ASSERT(sizeof(ThreadHandleQuery) == 24, ThreadHandleQuery_is_24_bytes);

/* Also the block of VOXA_IO_PSAPIProcessNameFromHandle: a handle followed
 * by the 260-character name field. */
typedef struct FileHandleQuery {
    uint64_t handle;
    char name[260];  /* "*" when the name could not be had */
} FileHandleQuery;

VXIO_STATIC_ASSERT(offsetof(FileHandleQuery, name) == 8, FileQuery_name);
VXIO_STATIC_ASSERT(sizeof(FileHandleQuery) == 272, FileHandleQuery_is_272_bytes);

/* One loaded device driver. */
typedef struct DriverEntry {
    uint32_t reserved;  /* always 0 */
    char path[260];
} DriverEntry;

VXIO_STATIC_ASSERT(offsetof(DriverEntry, path) == 4, DriverEntry_path);
VXIO_STATIC_ASSERT(sizeof(DriverEntry) == 264, DriverEntry_is_264_bytes);

/* Memory reads. ReadWin32ProcessHeaps copies into *buffer, which the
 * caller provides (at least size bytes); the other two allocate *buffer. */
VXIO_API int32_t VOXA_IO_ReadWin32ProcessHeaps(uint32_t processId, uint32_t address,
                                               uint32_t size, void **buffer,
                                               uint32_t *count) VXIO_NOEXCEPT;
VXIO_API int32_t VOXA_IO_ReadWin32ProcessModuleMemory(uint32_t processId, uint32_t moduleBase,
                                                      uint32_t moduleSize, void **outBuffer,
                                                      uint64_t *outCount) VXIO_NOEXCEPT;
VXIO_API int32_t VOXA_IO_ReadWin32ProcessVirtualAllocMemory(void **outBuffer, uint64_t *outCount,
                                                            uint32_t processId) VXIO_NOEXCEPT;

/* Dumps: DumpWin32ModulesList writes the report and "modules.tmp" in the
 * current directory (result: modules written, or -1); then
 * DumpCompleteWin32ProcessMemory, in the same directory and with the same
 * report, appends the page dumps, writes prefix + section + "_memDump"
 * files and deletes "modules.tmp". One dump at a time. */
VXIO_API int32_t VOXA_IO_DumpWin32ModulesList(uint32_t processId,
                                              const char *reportPath) VXIO_NOEXCEPT;
VXIO_API int32_t VOXA_IO_DumpCompleteWin32ProcessMemory(uint32_t processId, const char *prefix,
                                                        const char *reportPath) VXIO_NOEXCEPT;

/* Handles, drivers and single-handle questions. processList is a DynArray
 * of ProcessEntry records (vxio/process.h), used for owner names. */
VXIO_API int32_t VOXA_IO_EnumerateOpenHandles(const char *nameFilter, int32_t typeFilter,
                                              uint32_t ownerFilter, uint32_t noCollect,
                                              DynArray *outList,
                                              DynArray *processList) VXIO_NOEXCEPT;
VXIO_API int32_t VOXA_IO_EnumDeviceDrivers(DynArray *list) VXIO_NOEXCEPT;
VXIO_API int32_t VOXA_IO_NativeAPIProcessInfoFromHandle(ProcessHandleQuery *query) VXIO_NOEXCEPT;
VXIO_API int32_t VOXA_IO_NativeAPIThreadInfoFromHandle(ThreadHandleQuery *query) VXIO_NOEXCEPT;
VXIO_API int32_t VOXA_IO_NativeAPIFilenameFromHandle(FileHandleQuery *query) VXIO_NOEXCEPT;
VXIO_API int32_t VOXA_IO_PSAPIProcessNameFromHandle(FileHandleQuery *query) VXIO_NOEXCEPT;

/* Process control. */
VXIO_API uint8_t VOXA_IO_TerminateWin32Process(uint32_t processId) VXIO_NOEXCEPT;
VXIO_API uint8_t VOXA_IO_SuspendWin32Process(int32_t processId) VXIO_NOEXCEPT;
/* Does nothing; returns 0. */
VXIO_API int32_t VOXA_IO_PatchInMemoryImage(void) VXIO_NOEXCEPT;

VXIO_EXTERN_C_END

#endif /* VXIO_PROCESS_MEMORY_H */
