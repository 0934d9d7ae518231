// Deleting a file now or at the next start, and reading where a junction
// or symbolic link points.
#include <climits>

#include "fs/reparse_data.h"
#include "platform/os.h"
#include "util/owner.h"
#include "vxio/fs.h"

using vxio::platform::os;

namespace {

// The device control code, spelled out so that this file does not depend
// on which of the device headers the toolchain ships.
constexpr DWORD kGetReparsePoint = 0x000900A8;  // FSCTL_GET_REPARSE_POINT

// The link itself, not what it points to: FILE_READ_EA is the least
// access that lets the reparse data be read, backup semantics admits
// directories, and every kind of sharing leaves the link usable to others.
constexpr DWORD kLinkAccess = FILE_READ_EA;
constexpr DWORD kLinkSharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kLinkFlags = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT;

// The largest reparse data the system hands out.
constexpr DWORD kReparseBufferSize = 16384;

// A link whose target is itself a reparse point is read again, at most
// this many times after the first attempt.
constexpr int kMaxRepeats = 10;

uint32_t kind_of(DWORD attributes) {
    // Each later rule wins: an offline reparse point is offline, unlike in
    // the directory walk, where the reparse point wins.
    uint32_t kind = VXIO_ENTRY_FILE;
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) kind = VXIO_ENTRY_DIRECTORY;
    if (attributes & FILE_ATTRIBUTE_REPARSE_POINT) kind = VXIO_ENTRY_REPARSE;
    if (attributes & FILE_ATTRIBUTE_OFFLINE) kind = VXIO_ENTRY_OFFLINE;
    return kind;
}

enum class Reading { NotOpened, Unresolved, Resolved };

// One reading of the link: its target into outTarget and the target's kind
// into *outKind. outTarget gets the converted bytes only, no terminator;
// its last byte is never written, so a buffer the caller cleared stays
// terminated.
Reading read_link(const char *path, char *outTarget, uint64_t outSize, uint32_t *outKind) {
    vxio::UniqueFile link(os.CreateFileA(path, kLinkAccess, kLinkSharing, nullptr, OPEN_EXISTING,
                                         kLinkFlags, nullptr));
    if (!link) return Reading::NotOpened;

    alignas(8) uint8_t data[kReparseBufferSize];
    DWORD returned = 0;
    if (!os.DeviceIoControl(link.get(), kGetReparsePoint, nullptr, 0, data, sizeof data,
                            &returned, nullptr))
        return Reading::Unresolved;
    // The system never reports more than the buffer holds; a count that
    // does anyway is held to the buffer, never read past it.
    vxio::fs::LinkTarget target;
    if (!vxio::fs::ParseLinkTarget(data, returned < sizeof data ? returned : sizeof data, target))
        return Reading::Unresolved;
    // The offset is even and the buffer 8-byte aligned: the units are aligned.
    const wchar_t *name = reinterpret_cast<const wchar_t *>(data + target.offset);

    // A relative target ("b.txt") is handed back as it stands, not joined
    // with the link's folder: its attributes below are those of that name
    // in the current directory.
    const uint64_t room = outSize - 1;
    const int outLimit = room > INT_MAX ? INT_MAX : static_cast<int>(room);
    // A limit of 0 would ask for the size the text needs instead.
    if (outLimit == 0) return Reading::Unresolved;
    if (os.WideCharToMultiByte(CP_ACP, 0, name, static_cast<int>(target.units), outTarget,
                               outLimit, nullptr, nullptr) == 0)
        return Reading::Unresolved;
    const DWORD attributes = os.GetFileAttributesA(outTarget);
    if (attributes == INVALID_FILE_ATTRIBUTES) return Reading::Unresolved;
    *outKind = kind_of(attributes);
    return Reading::Resolved;
}

}  // namespace

// DeleteFileA, and when the file cannot go now (it is in use, for
// instance) the system is asked to delete it at the next start.
// VXIO_DELETE_DONE, VXIO_DELETE_AT_RESTART, or VXIO_DELETE_FAILED (also
// for a null path). Never retried.
extern "C" uint64_t VOXA_IO_DeleteFile(const char *path) noexcept {
    if (!path) return VXIO_DELETE_FAILED;
    if (os.DeleteFileA(path)) return VXIO_DELETE_DONE;
    if (os.MoveFileExA(path, nullptr, MOVEFILE_DELAY_UNTIL_REBOOT)) return VXIO_DELETE_AT_RESTART;
    return VXIO_DELETE_FAILED;
}

// Reads the reparse data of path (a junction or a symbolic link) and
// writes the target into outTarget, which the caller clears beforehand:
// only the converted bytes are written, never the last byte of the buffer.
// *outKind gets the target's kind. 0 for a null argument, a zero-size
// buffer, a path that cannot be opened, data that is not a junction or a
// symbolic link, a target that does not fit, or one that does not exist.
//
// Whenever *outKind is VXIO_ENTRY_REPARSE after a reading (the target is
// itself a link, or the caller passed that value in), the same link is
// read again, up to eleven readings in all, and the last reading gives the
// result. Chains of links are therefore never followed: a link to a link
// ends with 0, *outKind still VXIO_ENTRY_REPARSE and outTarget holding the
// first target. A path that cannot be opened ends at once.
extern "C" uint8_t VOXA_IO_ResolveLink(const char *path, char *outTarget, uint64_t outSize,
                                       uint32_t *outKind) noexcept {
    // A buffer of no bytes has no room for a target, nor for the
    // terminator the caller put there.
    if (!path || !outTarget || outSize == 0 || !outKind) return 0;
    // The readings run one after another, so only one reparse buffer is
    // on the stack at a time.
    for (int repeat = 0; repeat <= kMaxRepeats; ++repeat) {
        const Reading reading = read_link(path, outTarget, outSize, outKind);
        if (reading == Reading::NotOpened) return 0;
        if (*outKind != VXIO_ENTRY_REPARSE) return reading == Reading::Resolved ? 1 : 0;
    }
    return 0;
}
