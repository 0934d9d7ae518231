/* vxio: the startup scan: the places from which programs start by
 * themselves (registry keys and start-up folders), walked from a
 * definition text, with repair actions for registry entries.
 *
 * Calling order: VOXA_IO_OpenStartupScan (reads and parses the definition
 * text, walks everything, returns the findings) -> VOXA_IO_ReadStartupScan
 * and VOXA_IO_CleanStartupScan by index, in any order ->
 * VOXA_IO_CloseStartupScan. Scans must not be opened on two threads at
 * once: the path-macro values are process-wide and rewritten by every
 * Open.
 *
 * Statuses are signed 32-bit numbers carried sign-extended in an unsigned
 * 64-bit result: 0 success, -1 failure or no such finding, -5 out of
 * memory, -6 index past the end, -10 a damaged finding. Clean also passes
 * on Win32 error codes and 1 (see VOXA_IO_CleanStartupScan). */
#ifndef VXIO_STARTUP_H
#define VXIO_STARTUP_H

#include "io.h"

VXIO_EXTERN_C_BEGIN

#define VXIO_STARTUP_OK 0u
#define VXIO_STARTUP_FAILED ((uint64_t)(int64_t)-1)
#define VXIO_STARTUP_NO_MEMORY ((uint64_t)(int64_t)-5)
#define VXIO_STARTUP_BAD_INDEX ((uint64_t)(int64_t)-6)
#define VXIO_STARTUP_DAMAGED ((uint64_t)(int64_t)-10)

/* Scan modes (field 6 of a definition line). */
#define VXIO_SCAN_SINGLE_VALUE 0u   /* "scansub_false"; files: key + name */
#define VXIO_SCAN_VALUES_BY_DATA 1u /* "scansub_value" */
#define VXIO_SCAN_VALUES_BY_NAME 2u /* "scansub_name"; files: folder walk */
#define VXIO_SCAN_SUBKEYS 3u        /* "scansub_key" */

/* Repair actions (field 8). */
#define VXIO_REPAIR_NONE 0u
#define VXIO_REPAIR_EMPTY_VALUE 1u     /* "disinf_deletevalue" */
#define VXIO_REPAIR_DELETE_VALUE 2u    /* "disinf_deletenamevalue" */
#define VXIO_REPAIR_DELETE_KEY 3u      /* "disinf_deletekey" */
#define VXIO_REPAIR_DELETE_CLSID 4u    /* "disinf_deleteclsid" */
#define VXIO_REPAIR_REPLACE_VALUE 5u   /* "disinf_replacevalue" */
#define VXIO_REPAIR_BHO 6u             /* "disinf_bho" */
#define VXIO_REPAIR_BINARY 7u          /* "disinf_binary": nothing */
#define VXIO_REPAIR_DELETE_FILE 8u     /* "disinf_deletefile": nothing */

/* One definition line, and one finding (the same ten fields). Strings are
 * owned (ZELTA_mymalloc) and null when empty. In a finding, label is the
 * lower-cased path found and number its length + 1; view is the registry
 * view the key was opened in (0, 0x200 or 0x100). */
typedef struct StartupDefinition {
    uint32_t id;
    char *label;
    int32_t number;
    void *root;      /* HKEY, or null */
    uint32_t view;
    char *key;
    uint32_t mode;   /* VXIO_SCAN_* */
    char *name;
    uint32_t action; /* VXIO_REPAIR_* */
    char *data;
} StartupDefinition;

typedef StartupDefinition StartupFinding;

VXIO_STATIC_ASSERT(offsetof(StartupDefinition, id) == 0, Startup_id);
VXIO_STATIC_ASSERT(offsetof(StartupDefinition, label) == 8, Startup_label);
VXIO_STATIC_ASSERT(offsetof(StartupDefinition, number) == 16, Startup_number);
VXIO_STATIC_ASSERT(offsetof(StartupDefinition, root) == 24, Startup_root);
VXIO_STATIC_ASSERT(offsetof(StartupDefinition, view) == 32, Startup_view);
VXIO_STATIC_ASSERT(offsetof(StartupDefinition, key) == 40, Startup_key);
VXIO_STATIC_ASSERT(offsetof(StartupDefinition, mode) == 48, Startup_mode);
VXIO_STATIC_ASSERT(offsetof(StartupDefinition, name) == 56, Startup_name);
VXIO_STATIC_ASSERT(offsetof(StartupDefinition, action) == 64, Startup_action);
VXIO_STATIC_ASSERT(offsetof(StartupDefinition, data) == 72, Startup_data);
VXIO_STATIC_ASSERT(sizeof(StartupDefinition) == 80, StartupDefinition_is_80_bytes);

/* Reads the whole definition object (its GetSize, then Read from 0, through
 * its backend), parses it, walks every definition and returns the findings
 * (a DynArray of StartupFinding), or null: also when no walk succeeded.
 * nameList: optional DynArray of 8-bit strings for name matching. */
VXIO_API DynArray *VOXA_IO_OpenStartupScan(IoObject *definition,
                                           DynArray *nameList) VXIO_NOEXCEPT;

/* *outPath and *outPathLength must hold 0: they receive a copy of the
 * finding's path (free with ZELTA_myfree) and its length + 1. The location
 * (key, plus "\name" for single-value definitions) goes to *outLocation
 * when that holds null (free with ZELTA_myfree). */
VXIO_API uint64_t VOXA_IO_ReadStartupScan(DynArray *scan, uint64_t index, char **outPath,
                                          uint64_t *outPathLength, char **outLocation,
                                          uint64_t *outLocationLength) VXIO_NOEXCEPT;

/* Applies the finding's repair action to the registry. */
VXIO_API uint64_t VOXA_IO_CleanStartupScan(DynArray *scan, uint64_t index) VXIO_NOEXCEPT;

/* Frees every finding and the scan; 0. */
VXIO_API uint64_t VOXA_IO_CloseStartupScan(DynArray *scan) VXIO_NOEXCEPT;

VXIO_EXTERN_C_END

#endif /* VXIO_STARTUP_H */
