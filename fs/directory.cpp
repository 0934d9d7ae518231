// Directory enumeration: one level of a directory, one entry per
// call, with each entry's kind and size and, on request, whether it has data
// streams; or, in stream mode, the named streams of one file.
//
// Kept as the engine knows it:
// - Every name that starts with a dot and is one or two characters long is
//   skipped (".", "..", and also ".a"); "..c" is returned.
// - A name the ANSI code page cannot show (it holds "?") is returned by its
//   short name, and skipped when there is none.
// - The separator is always inserted: "C:\dir\" gives "C:\dir\\file".
// - A buffer too small for an entry loses that entry; the next call goes on
//   with the following one. End of listing and errors both give false.
// - A failed first search keeps INVALID_HANDLE_VALUE as the search handle,
//   so later reads fail and CloseDir hands it to FindClose.
// - A reparse point is kind 4 even when offline; an offline entry that is
//   not a reparse point is kind 5 even when it is a directory. Only files
//   report a size.
#include <cstring>

#include "platform/os.h"
#include "util/owner.h"
#include "vxio/fs.h"

using vxio::platform::os;

namespace {

constexpr DWORD kDirectory = 0x10;      // FILE_ATTRIBUTE_DIRECTORY
constexpr DWORD kReparsePoint = 0x400;  // FILE_ATTRIBUTE_REPARSE_POINT
constexpr DWORD kOffline = 0x1000;      // FILE_ATTRIBUTE_OFFLINE

uint32_t kind_of(DWORD attributes) {
    uint32_t kind = VXIO_ENTRY_FILE;
    if (attributes & kDirectory)
        kind = (attributes & kReparsePoint) ? VXIO_ENTRY_REPARSE : VXIO_ENTRY_DIRECTORY;
    if (attributes & kOffline) kind = VXIO_ENTRY_OFFLINE;
    if (attributes & kReparsePoint) kind = VXIO_ENTRY_REPARSE;
    return kind;
}

// "." and "..", and by the same test every other one- or two-character
// name that starts with a dot.
bool is_dot_name(const char *name) {
    return name[0] == '.' && (name[1] == '\0' || name[2] == '\0');
}

// The next raw entry of the search: the first one starts it (the path and
// "\*.*", the separator appended whatever the path ends in), later ones
// continue it.
bool next_raw_entry(DirHandle *dir, WIN32_FIND_DATAA *found) {
    if (!dir->findHandle) {
        if (dir->pathLength > UINT64_MAX - 5) return false;  // the size would wrap
        vxio::ZeltaPtr<char> pattern(static_cast<char *>(ZELTA_mymalloc(dir->pathLength + 5)));
        if (!pattern) return false;
        std::memcpy(pattern.get(), dir->path, dir->pathLength);
        std::memcpy(pattern.get() + dir->pathLength, "\\*.*", 5);
        dir->findHandle = os.FindFirstFileA(pattern.get(), found);
        return dir->findHandle != INVALID_HANDLE_VALUE;
    }
    return os.FindNextFileA(dir->findHandle, found) != FALSE;
}

}  // namespace

extern "C" DirHandle *VOXA_IO_OpenDir(const char *path, uint8_t markStreams,
                                      uint8_t listStreams) noexcept {
    if (!path) return nullptr;
    if (!listStreams) {
        const DWORD attributes = os.GetFileAttributesA(path);
        if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & kDirectory)) return nullptr;
    }
    vxio::ZeltaPtr<DirHandle> dir = vxio::zelta_new<DirHandle>();
    if (!dir) return nullptr;
    dir->path = nullptr;
    dir->markStreams = markStreams;
    dir->listStreams = listStreams;
    dir->findHandle = nullptr;
    dir->streams = nullptr;
    dir->pathLength = std::strlen(path);
    dir->path = vxio::zelta_strdup(path);
    if (!dir->path) return nullptr;
    // A failed Init leaves streams null: the handle is still returned and
    // each of its reads fails.
    if (listStreams) dir->streams = VOXA_Streams_Init(path, 1, markStreams);
    return dir.release();
}

extern "C" uint8_t VOXA_IO_ReadDir(DirHandle *dir, char *outName, uint32_t outSize,
                                   uint32_t *outKind, uint64_t *outFileSize,
                                   uint8_t *outHasStreams) noexcept {
    if (!dir || !outName || !outKind) return 0;
    if (dir->listStreams)
        return VOXA_Streams_Enumerate(dir->streams, outKind, outFileSize, outName, outSize, 1, 0);
    if (dir->markStreams && !outHasStreams) return 0;

    *outKind = VXIO_ENTRY_NONE;
    if (outFileSize) *outFileSize = 0;

    WIN32_FIND_DATAA found;
    const char *name = nullptr;
    for (;;) {
        if (!next_raw_entry(dir, &found)) return 0;
        if (is_dot_name(found.cFileName)) continue;
        if (std::strchr(found.cFileName, '?')) {
            if (found.cAlternateFileName[0] == '\0') continue;
            name = found.cAlternateFileName;
        } else {
            name = found.cFileName;
        }
        break;
    }

    // The composed name needs pathLength + 1 + name length bytes and a
    // terminator. The engine's own length test (pathLength + name length + 1
    // > outSize) admits a buffer one byte short of that; here that boundary
    // buffer is too small as well, and the name is never written past
    // outSize.
    const uint64_t nameLength = std::strlen(name);
    if (dir->pathLength >= outSize || nameLength + 2 > outSize - dir->pathLength) return 0;
    std::memcpy(outName, dir->path, dir->pathLength);
    outName[dir->pathLength] = '\\';
    std::memcpy(outName + dir->pathLength + 1, name, nameLength + 1);

    const uint32_t kind = kind_of(found.dwFileAttributes);
    *outKind = kind;
    if (dir->markStreams) {
        *outHasStreams = 0;
        if (kind == VXIO_ENTRY_FILE || kind == VXIO_ENTRY_DIRECTORY) {
            StreamsContext *context = VOXA_Streams_Init(outName, 0, 1);
            if (context) {
                // The existence query writes none of the outputs.
                *outHasStreams =
                    VOXA_Streams_Enumerate(context, outKind, outFileSize, outName, outSize, 0, 1);
                VOXA_Streams_Release(context);
            }
        }
    }
    if (kind == VXIO_ENTRY_FILE && outFileSize)
        *outFileSize = uint64_t{found.nFileSizeHigh} << 32 | found.nFileSizeLow;
    return 1;
}

extern "C" uint8_t VOXA_IO_CloseDir(DirHandle *dir) noexcept {
    if (!dir) return 0;
    // Also INVALID_HANDLE_VALUE, which a failed first search leaves here.
    if (dir->findHandle) os.FindClose(dir->findHandle);
    if (dir->streams) VOXA_Streams_Release(dir->streams);
    ZELTA_myfree(dir->path);
    ZELTA_myfree(dir);
    return 1;
}
