/* vxio: lists of processes, threads, modules, heap blocks, kernel modules
 * and services, each gathered through one independent system interface.
 *
 * Every export appends separately allocated records (ZELTA_mymalloc) to
 * DynArrays that the caller created with VOXA_arrNew; lists are never
 * cleared first. The caller frees the records with VOXA_arrClear or
 * VOXA_arrFree with the free-items flag set. Texts are NUL-terminated ANSI
 * strings in fixed fields; a text that does not fit is stored empty, never
 * cut. Paths are normalised into lower-case Win32 form.
 *
 * Results: VXIO_PROC_OK (0), VXIO_PROC_FAILED (-1: a system call failed or an
 * entry point is missing), VXIO_PROC_BAD_ARGUMENT (-2), VXIO_PROC_NO_MEMORY
 * (-5) and VXIO_PROC_NOT_NT (5: the platform is not of the NT family). A
 * failure part-way leaves the records appended so far in the lists. */
#ifndef VXIO_PROCESS_H
#define VXIO_PROCESS_H

#include "alloc.h"

VXIO_EXTERN_C_BEGIN

#define VXIO_PROC_OK 0
#define VXIO_PROC_FAILED (-1)
#define VXIO_PROC_BAD_ARGUMENT (-2)
#define VXIO_PROC_NO_MEMORY (-5)
#define VXIO_PROC_NOT_NT 5

/* Records are laid out with 4-byte packing: the 64-bit fields of
 * SystemModuleEntry and ProcessDetails sit on 4-byte boundaries. */
#pragma pack(push, 4)

/* One process. parentOrAux: the parent process id (native and tool-help
 * methods), 0 otherwise. name: full image path, counter instance name or
 * image file name, depending on the method. */
typedef struct ProcessEntry {
    uint32_t processId;
    uint32_t parentOrAux;
    char name[260];
} ProcessEntry;

VXIO_STATIC_ASSERT(offsetof(ProcessEntry, processId) == 0, ProcessEntry_processId);
VXIO_STATIC_ASSERT(offsetof(ProcessEntry, parentOrAux) == 4, ProcessEntry_parentOrAux);
VXIO_STATIC_ASSERT(offsetof(ProcessEntry, name) == 8, ProcessEntry_name);
VXIO_STATIC_ASSERT(sizeof(ProcessEntry) == 268, ProcessEntry_is_268_bytes);

/* One user-mode module of a process. extra: low 32 bits of the entry point
 * (process-status method) or of the module handle (tool-help method). A
 * record with every field 0 and an empty path separates the modules of two
 * processes in the combined tool-help enumeration. */
typedef struct ModuleEntry {
    uint32_t processId;
    uint32_t baseAddress; /* low 32 bits of the load address */
    uint32_t size;
    uint32_t extra;
    uint16_t reserved;    /* always 0 */
    char path[262];       /* at most 259 characters and the terminator */
} ModuleEntry;

VXIO_STATIC_ASSERT(offsetof(ModuleEntry, processId) == 0, ModuleEntry_processId);
VXIO_STATIC_ASSERT(offsetof(ModuleEntry, baseAddress) == 4, ModuleEntry_baseAddress);
VXIO_STATIC_ASSERT(offsetof(ModuleEntry, size) == 8, ModuleEntry_size);
VXIO_STATIC_ASSERT(offsetof(ModuleEntry, extra) == 12, ModuleEntry_extra);
VXIO_STATIC_ASSERT(offsetof(ModuleEntry, reserved) == 16, ModuleEntry_reserved);
VXIO_STATIC_ASSERT(offsetof(ModuleEntry, path) == 18, ModuleEntry_path);
VXIO_STATIC_ASSERT(sizeof(ModuleEntry) == 280, ModuleEntry_is_280_bytes);

typedef struct ThreadEntry {
    uint32_t threadId;
    uint32_t ownerProcessId;
} ThreadEntry;

VXIO_STATIC_ASSERT(offsetof(ThreadEntry, threadId) == 0, ThreadEntry_threadId);
VXIO_STATIC_ASSERT(offsetof(ThreadEntry, ownerProcessId) == 4, ThreadEntry_owner);
VXIO_STATIC_ASSERT(sizeof(ThreadEntry) == 8, ThreadEntry_is_8_bytes);

typedef struct HeapBlockEntry {
    uint32_t listProcessId;  /* as the heap list gives it */
    uint32_t blockProcessId; /* as the block entry gives it */
    uint32_t address;        /* low 32 bits */
    uint32_t blockSize;      /* low 32 bits */
} HeapBlockEntry;

VXIO_STATIC_ASSERT(offsetof(HeapBlockEntry, listProcessId) == 0, HeapBlock_listPid);
VXIO_STATIC_ASSERT(offsetof(HeapBlockEntry, blockProcessId) == 4, HeapBlock_blockPid);
VXIO_STATIC_ASSERT(offsetof(HeapBlockEntry, address) == 8, HeapBlock_address);
VXIO_STATIC_ASSERT(offsetof(HeapBlockEntry, blockSize) == 12, HeapBlock_blockSize);
VXIO_STATIC_ASSERT(sizeof(HeapBlockEntry) == 16, HeapBlockEntry_is_16_bytes);

/* A performance-counter process instance name. */
typedef struct PdhProcessName {
    char name[260];
} PdhProcessName;

VXIO_STATIC_ASSERT(sizeof(PdhProcessName) == 260, PdhProcessName_is_260_bytes);

typedef struct PdhThreadEntry {
    uint32_t processId; /* the owning process */
    char name[260];     /* the thread's counter instance name */
} PdhThreadEntry;

VXIO_STATIC_ASSERT(offsetof(PdhThreadEntry, processId) == 0, PdhThread_processId);
VXIO_STATIC_ASSERT(offsetof(PdhThreadEntry, name) == 4, PdhThread_name);
VXIO_STATIC_ASSERT(sizeof(PdhThreadEntry) == 264, PdhThreadEntry_is_264_bytes);

/* A kernel module, or a module from the native debug buffer (name empty). */
typedef struct SystemModuleEntry {
    uint64_t baseAddress;
    uint32_t size;
    char name[260]; /* file name */
    char path[260];
} SystemModuleEntry;

VXIO_STATIC_ASSERT(offsetof(SystemModuleEntry, baseAddress) == 0, SystemModule_base);
VXIO_STATIC_ASSERT(offsetof(SystemModuleEntry, size) == 8, SystemModule_size);
VXIO_STATIC_ASSERT(offsetof(SystemModuleEntry, name) == 12, SystemModule_name);
VXIO_STATIC_ASSERT(offsetof(SystemModuleEntry, path) == 272, SystemModule_path);
VXIO_STATIC_ASSERT(sizeof(SystemModuleEntry) == 532, SystemModuleEntry_is_532_bytes);

/* An installed service; the numbers are the service manager's own. */
typedef struct ServiceEntry {
    uint32_t processId; /* 0 for a stopped service */
    uint32_t serviceType;
    uint32_t currentState;
    uint32_t controlsAccepted;
    uint32_t serviceFlags;
    char serviceName[260];
    char displayName[260];
} ServiceEntry;

VXIO_STATIC_ASSERT(offsetof(ServiceEntry, processId) == 0, Service_processId);
VXIO_STATIC_ASSERT(offsetof(ServiceEntry, serviceType) == 4, Service_type);
VXIO_STATIC_ASSERT(offsetof(ServiceEntry, currentState) == 8, Service_state);
VXIO_STATIC_ASSERT(offsetof(ServiceEntry, controlsAccepted) == 12, Service_controls);
VXIO_STATIC_ASSERT(offsetof(ServiceEntry, serviceFlags) == 16, Service_flags);
VXIO_STATIC_ASSERT(offsetof(ServiceEntry, serviceName) == 20, Service_serviceName);
VXIO_STATIC_ASSERT(offsetof(ServiceEntry, displayName) == 280, Service_displayName);
VXIO_STATIC_ASSERT(sizeof(ServiceEntry) == 540, ServiceEntry_is_540_bytes);

/* What the native module walk learns about one process. The texts are
 * NUL-terminated and normalised. */
typedef struct ProcessDetails {
    uint32_t beingDebugged;           /* byte 2 of the environment block */
    uint32_t exitStatus;              /* basic information: exit status */
    uint32_t parentProcessId;         /* basic information: creator's id */
    uint32_t ntGlobalFlag;            /* environment block: global flags */
    uint32_t numberOfProcessors;      /* environment block */
    uint64_t environmentBlockAddress; /* in the target */
    uint64_t imageBaseAddress;        /* environment block: main image */
    uint64_t processParameters;       /* environment block: parameters */
    char dllPath[8192];               /* DLL search path */
    char imagePath[260];
    char commandLine[4096];
} ProcessDetails;

VXIO_STATIC_ASSERT(offsetof(ProcessDetails, beingDebugged) == 0, Details_beingDebugged);
VXIO_STATIC_ASSERT(offsetof(ProcessDetails, exitStatus) == 4, Details_exitStatus);
VXIO_STATIC_ASSERT(offsetof(ProcessDetails, parentProcessId) == 8, Details_parent);
VXIO_STATIC_ASSERT(offsetof(ProcessDetails, ntGlobalFlag) == 12, Details_ntGlobalFlag);
VXIO_STATIC_ASSERT(offsetof(ProcessDetails, numberOfProcessors) == 16, Details_processors);
VXIO_STATIC_ASSERT(offsetof(ProcessDetails, environmentBlockAddress) == 20, Details_peb);
VXIO_STATIC_ASSERT(offsetof(ProcessDetails, imageBaseAddress) == 28, Details_imageBase);
VXIO_STATIC_ASSERT(offsetof(ProcessDetails, processParameters) == 36, Details_parameters);
VXIO_STATIC_ASSERT(offsetof(ProcessDetails, dllPath) == 44, Details_dllPath);
VXIO_STATIC_ASSERT(offsetof(ProcessDetails, imagePath) == 8236, Details_imagePath);
VXIO_STATIC_ASSERT(offsetof(ProcessDetails, commandLine) == 8496, Details_commandLine);
VXIO_STATIC_ASSERT(sizeof(ProcessDetails) == 12592, ProcessDetails_is_12592_bytes);

#pragma pack(pop)

/* Process-status library: every process with its full image path. */
VXIO_API int32_t VOXA_IO_CreateWin32PSAPIProcessList(DynArray *processes) VXIO_NOEXCEPT;
/* Process-status library: the first 128 modules of one process. */
VXIO_API int32_t VOXA_IO_CreateWin32PSAPIModulesList(DynArray *modules,
                                                     uint32_t processId) VXIO_NOEXCEPT;
/* Tool-help snapshots: processes (path of their first module), the modules
 * of each process closed by a separator record, and every thread. */
VXIO_API int32_t VOXA_IO_CreateWin32ToolHelpEnumerations(DynArray *processes,
                                                         DynArray *modules,
                                                         DynArray *threads) VXIO_NOEXCEPT;
VXIO_API int32_t VOXA_IO_CreateWin32ToolHelpHeapsList(DynArray *blocks,
                                                      uint32_t processId) VXIO_NOEXCEPT;
/* Performance counters. */
VXIO_API int32_t VOXA_IO_CreateWin32PDHProcessNamesList(DynArray *names) VXIO_NOEXCEPT;
VXIO_API int32_t VOXA_IO_CreateWin32PDHProcessList(DynArray *processes) VXIO_NOEXCEPT;
VXIO_API int32_t VOXA_IO_CreateWin32PDHThreadList(DynArray *threads) VXIO_NOEXCEPT;
/* Native system information: processes (image file name, parent) and their
 * threads. */
VXIO_API int32_t VOXA_IO_NativeAPIEnumProcessesThreads(DynArray *processes,
                                                       DynArray *threads) VXIO_NOEXCEPT;
/* Native process information: the loader's modules of one process and its
 * details. */
VXIO_API int32_t VOXA_IO_NativeAPIEnumProcesseModules(DynArray *modules, int32_t processId,
                                                      ProcessDetails *details) VXIO_NOEXCEPT;
/* Native system information: loaded kernel modules. */
VXIO_API int32_t VOXA_IO_NativeAPIEnumModules(DynArray *modules) VXIO_NOEXCEPT;
/* Native debug buffer: modules of one process. Leaves the calling thread
 * impersonating itself with the debug privilege enabled. */
VXIO_API int32_t VOXA_IO_NativeDebugAPIEnumProcesseModules(DynArray *modules,
                                                           uint32_t processId) VXIO_NOEXCEPT;
/* Service control manager: drivers and Win32 services in every state. */
VXIO_API int32_t VOXA_IO_CreateWin32ServiceList(DynArray *services) VXIO_NOEXCEPT;
/* Every id 8, 12, ... 19996 that can be opened. */
VXIO_API int32_t VOXA_IO_CreateWin32BruteForcePIDList(DynArray *processes) VXIO_NOEXCEPT;

VXIO_EXTERN_C_END

#endif /* VXIO_PROCESS_H */
