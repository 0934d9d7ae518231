/* vxio: file-system services: directory walks, named data streams, file
 * attributes, deletion and link resolution.
 *
 * Booleans are 8-bit (0 false, 1 true). Names are NUL-terminated strings in
 * the ANSI code page. Every result that is not a status is a plain
 * success/failure: the end of a listing and an error look alike. */
#ifndef VXIO_FS_H
#define VXIO_FS_H

#include "alloc.h"

VXIO_EXTERN_C_BEGIN

/* What a returned name denotes. */
#define VXIO_ENTRY_NONE 0u      /* nothing returned yet */
#define VXIO_ENTRY_FILE 1u      /* ordinary file */
#define VXIO_ENTRY_STREAM 2u    /* named data stream: path:name:$DATA */
#define VXIO_ENTRY_DIRECTORY 3u
#define VXIO_ENTRY_REPARSE 4u   /* junction, mount point or symbolic link */
#define VXIO_ENTRY_OFFLINE 5u   /* file with FILE_ATTRIBUTE_OFFLINE */

/* Statuses of VOXA_IO_DeleteFile. */
#define VXIO_DELETE_DONE 0u
#define VXIO_DELETE_AT_RESTART 5u
#define VXIO_DELETE_FAILED 207u

/* The named-stream cursor of one file. Owned by the library from
 * VOXA_Streams_Init to VOXA_Streams_Release. */
typedef struct StreamsContext {
    void *queryInformationFile; /* ntdll's NtQueryInformationFile, or null */
    void *ntdll;                /* module handle, released by Release */
    uint8_t *streamBuffer;      /* FILE_STREAM_INFORMATION records, or null */
    uint8_t *cursor;            /* next record to examine; null when done */
    uint32_t bufferSize;
    char path[260];             /* empty when the given path did not fit */
    uint32_t pathLength;        /* length of the path given to Init */
} StreamsContext;

VXIO_STATIC_ASSERT(offsetof(StreamsContext, queryInformationFile) == 0, Streams_query);
VXIO_STATIC_ASSERT(offsetof(StreamsContext, ntdll) == 8, Streams_ntdll);
VXIO_STATIC_ASSERT(offsetof(StreamsContext, streamBuffer) == 16, Streams_buffer);
VXIO_STATIC_ASSERT(offsetof(StreamsContext, cursor) == 24, Streams_cursor);
VXIO_STATIC_ASSERT(offsetof(StreamsContext, bufferSize) == 32, Streams_bufferSize);
VXIO_STATIC_ASSERT(offsetof(StreamsContext, path) == 36, Streams_path);
VXIO_STATIC_ASSERT(offsetof(StreamsContext, pathLength) == 296, Streams_pathLength);
VXIO_STATIC_ASSERT(sizeof(StreamsContext) == 304, StreamsContext_is_304_bytes);

/* One open directory level (or, in stream mode, one file's streams). */
typedef struct DirHandle {
    char *path;           /* owned copy of the path given to OpenDir */
    uint64_t pathLength;
    uint8_t markStreams;  /* report per entry whether it has streams */
    uint8_t listStreams;  /* walk the named streams of path instead */
    void *findHandle;     /* search handle; null until the first read */
    StreamsContext *streams; /* stream mode only */
} DirHandle;

VXIO_STATIC_ASSERT(offsetof(DirHandle, path) == 0, DirHandle_path);
VXIO_STATIC_ASSERT(offsetof(DirHandle, pathLength) == 8, DirHandle_pathLength);
VXIO_STATIC_ASSERT(offsetof(DirHandle, markStreams) == 16, DirHandle_markStreams);
VXIO_STATIC_ASSERT(offsetof(DirHandle, listStreams) == 17, DirHandle_listStreams);
VXIO_STATIC_ASSERT(offsetof(DirHandle, findHandle) == 24, DirHandle_findHandle);
VXIO_STATIC_ASSERT(offsetof(DirHandle, streams) == 32, DirHandle_streams);
VXIO_STATIC_ASSERT(sizeof(DirHandle) == 40, DirHandle_is_40_bytes);

/* Directory walk: OpenDir once, ReadDir until it returns 0, CloseDir. */
VXIO_API DirHandle *VOXA_IO_OpenDir(const char *path, uint8_t markStreams,
                                    uint8_t listStreams) VXIO_NOEXCEPT;
VXIO_API uint8_t VOXA_IO_ReadDir(DirHandle *dir, char *outName, uint32_t outSize,
                                 uint32_t *outKind, uint64_t *outFileSize,
                                 uint8_t *outHasStreams) VXIO_NOEXCEPT;
VXIO_API uint8_t VOXA_IO_CloseDir(DirHandle *dir) VXIO_NOEXCEPT;

/* Named data streams of one file. */
VXIO_API StreamsContext *VOXA_Streams_Init(const char *path, uint8_t listStreams,
                                           uint8_t existenceOnly) VXIO_NOEXCEPT;
VXIO_API uint8_t VOXA_Streams_Enumerate(StreamsContext *context, uint32_t *outKind,
                                        uint64_t *outStreamSize, char *outName,
                                        uint32_t outSize, uint8_t listStreams,
                                        uint8_t existenceOnly) VXIO_NOEXCEPT;
VXIO_API void VOXA_Streams_Release(StreamsContext *context) VXIO_NOEXCEPT;

/* File times are not kept: Save gives null, Restore and Free give 1. */
VXIO_API void *VOXA_IO_SaveFileTimes(const char *path) VXIO_NOEXCEPT;
VXIO_API uint8_t VOXA_IO_RestoreFileTimes(const char *path, void *saved) VXIO_NOEXCEPT;
VXIO_API uint8_t VOXA_IO_FreeFileTimes(void *saved) VXIO_NOEXCEPT;

/* Attributes: Save -> Clear -> work -> Restore -> Free. A snapshot is one
 * 32-bit attribute word (0xFFFFFFFF when the file was missing). */
typedef uint32_t FileAttributeSnapshot;
VXIO_API FileAttributeSnapshot *VOXA_IO_SaveFileAttributes(const char *path) VXIO_NOEXCEPT;
VXIO_API uint8_t VOXA_IO_ClearFileAttributes(const char *path) VXIO_NOEXCEPT;
VXIO_API uint8_t VOXA_IO_RestoreFileAttributes(const char *path,
                                               FileAttributeSnapshot *saved) VXIO_NOEXCEPT;
VXIO_API uint8_t VOXA_IO_FreeFileAttributes(FileAttributeSnapshot *saved) VXIO_NOEXCEPT;

/* VXIO_DELETE_DONE, VXIO_DELETE_AT_RESTART or VXIO_DELETE_FAILED. */
VXIO_API uint64_t VOXA_IO_DeleteFile(const char *path) VXIO_NOEXCEPT;

/* Target of a junction or symbolic link into outTarget (which the caller
 * clears: no terminator is written) and its kind into *outKind. */
VXIO_API uint8_t VOXA_IO_ResolveLink(const char *path, char *outTarget, uint64_t outSize,
                                     uint32_t *outKind) VXIO_NOEXCEPT;

VXIO_EXTERN_C_END

#endif /* VXIO_FS_H */
