// Removing detected files through vxio.dll: attributes cleared first, the
// File backend's protected path for a file whose permissions refuse it,
// and the library's deletion, which falls back to a deletion at restart.
#include "remove.h"

#include <string.h>

#include "digest.h"
#include "tool.h"
#include "vxio/fs.h"

namespace vxio_tool {
namespace {

constexpr DWORD kBlockingAttributes =
    FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

// Whether the system would let path be deleted now; when not, the last
// error says why (ERROR_SHARING_VIOLATION: in use; ERROR_ACCESS_DENIED:
// the permissions refuse it).
bool deletable(const char *path) {
    FileHandle probe(CreateFileA(path, DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                 nullptr, OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    return probe.valid();
}

}  // namespace

RemoveOutcome remove_detected(const std::string &path) {
    const char *name = path.c_str();
    const DWORD attributes = GetFileAttributesA(name);
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return {RemoveOutcome::kFailed, "not removed (" + reason_text(GetLastError()) + ")"};

    // The system refuses to delete a read-only file, and the library
    // would then only schedule it for the restart, as if it were in use.
    FileAttributeSnapshot *saved = nullptr;
    if (attributes & kBlockingAttributes) {
        saved = VOXA_IO_SaveFileAttributes(name);
        VOXA_IO_ClearFileAttributes(name);
    }
    bool inUse = false;
    if (!deletable(name)) {
        inUse = GetLastError() == ERROR_SHARING_VIOLATION;
        if (GetLastError() == ERROR_ACCESS_DENIED) {
            // A file opened for reading without trouble and then made
            // writeable has its DACL cleared for good (no copy was saved
            // at the open), which lets the deletion through.
            static const uint8_t kNoCallerData[16] = {};
            FileObject object(VOXA_FILE_Open(name, 0, 0, kNoCallerData, sizeof kNoCallerData));
            if (object.valid()) VOXA_FILE_MakeWriteable(object.get());
        }
    }

    const uint64_t status = VOXA_IO_DeleteFile(name);
    const DWORD error = GetLastError();
    RemoveOutcome outcome{RemoveOutcome::kRemoved, "removed"};
    if (status == VXIO_DELETE_AT_RESTART) {
        outcome = {RemoveOutcome::kAtRestart, inUse ? "in use, will be removed at the next restart"
                                                    : "will be removed at the next restart"};
    } else if (status != VXIO_DELETE_DONE) {
        // The file stays: so do its attributes.
        if (saved) VOXA_IO_RestoreFileAttributes(name, saved);
        outcome = {RemoveOutcome::kFailed, "not removed (" + reason_text(error) + ")"};
    }
    if (saved) VOXA_IO_FreeFileAttributes(saved);
    return outcome;
}

bool confirm_once(size_t detected, bool yes, FILE *in, FILE *err) {
    if (yes) return true;
    fprintf(err, "remove %zu detected file%s? [y/N] ", detected, detected == 1 ? "" : "s");
    fflush(err);
    char answer[16] = {};
    if (!fgets(answer, sizeof answer, in)) return false;
    answer[strcspn(answer, "\r\n")] = '\0';
    return _stricmp(answer, "y") == 0 || _stricmp(answer, "yes") == 0;
}

}  // namespace vxio_tool
