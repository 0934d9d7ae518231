// File times and attributes around a repair of one file.
//
// The engine saves a file's attributes, clears them (so that a read-only,
// hidden or system file can be opened for writing and trimmed), repairs the
// file and puts the saved word back. File times are part of the same
// calling pattern, but no time is kept: the three time functions only
// answer the way the engine expects.
#include "platform/os.h"
#include "util/owner.h"
#include "vxio/fs.h"

using vxio::platform::os;

namespace {

// Setting attributes can touch removable media; with SEM_FAILCRITICALERRORS
// an empty drive fails the call instead of asking the user to insert a
// disk. The previous mode is put back on the way out. The mode is
// process-wide: two threads bracketing at once may each restore the
// other's mode.
class CriticalErrorsFail {
public:
    CriticalErrorsFail() noexcept : previous_(os.SetErrorMode(SEM_FAILCRITICALERRORS)) {}
    ~CriticalErrorsFail() { os.SetErrorMode(previous_); }
    CriticalErrorsFail(const CriticalErrorsFail &) = delete;
    CriticalErrorsFail &operator=(const CriticalErrorsFail &) = delete;

private:
    UINT previous_;
};

bool set_attributes(const char *path, DWORD attributes) {
    CriticalErrorsFail quiet;
    return os.SetFileAttributesA(path, attributes) != FALSE;
}

}  // namespace

// The time functions take whatever the engine passes (a path, and for
// Restore and Free the value Save returned, always null) and never look at
// it, so null arguments are as good as any.
extern "C" void *VOXA_IO_SaveFileTimes(const char *) noexcept { return nullptr; }

extern "C" uint8_t VOXA_IO_RestoreFileTimes(const char *, void *) noexcept { return 1; }

extern "C" uint8_t VOXA_IO_FreeFileTimes(void *) noexcept { return 1; }

// A new four-byte snapshot holding what GetFileAttributesA answered, not
// checked: a missing file is saved as INVALID_FILE_ATTRIBUTES. Freed with
// VOXA_IO_FreeFileAttributes. Null when out of memory, and for a null path
// (there is no file to ask about).
extern "C" FileAttributeSnapshot *VOXA_IO_SaveFileAttributes(const char *path) noexcept {
    if (!path) return nullptr;
    auto snapshot = vxio::zelta_new<FileAttributeSnapshot>();
    if (!snapshot) return nullptr;
    *snapshot = os.GetFileAttributesA(path);
    return snapshot.release();
}

// Sets the attributes to none at all; 1 when the system accepted it.
extern "C" uint8_t VOXA_IO_ClearFileAttributes(const char *path) noexcept {
    if (!path) return 0;
    return set_attributes(path, 0) ? 1 : 0;
}

// Puts the saved word back; 1 when the file already has it (nothing is
// written then) or when the system accepted it, 0 for a null argument or a
// refused write.
extern "C" uint8_t VOXA_IO_RestoreFileAttributes(const char *path,
                                                 FileAttributeSnapshot *saved) noexcept {
    if (!path || !saved) return 0;
    if (os.GetFileAttributesA(path) == *saved) return 1;
    // A file that was missing when saved (and is still missing) matched
    // above. One that has appeared since has no attributes to go back to:
    // the word is not a set of attributes, and writing it would set every
    // bit (Windows refuses it, other systems may take it and make the file
    // read-only, hidden and system). It fails without a write.
    if (*saved == INVALID_FILE_ATTRIBUTES) return 0;
    return set_attributes(path, *saved) ? 1 : 0;
}

// 0 for null, else frees the snapshot and gives 1.
extern "C" uint8_t VOXA_IO_FreeFileAttributes(FileAttributeSnapshot *saved) noexcept {
    if (!saved) return 0;
    ZELTA_myfree(saved);
    return 1;
}
