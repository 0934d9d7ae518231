// File backend: files on disk by name, opened and owned by the object.
//
// A file the backend may not open is not given up on: its security
// descriptor is listed as text, the explicit entries of its DACL are
// cleared, the file is opened again, and the listed text is put back when
// the object is closed, so the file keeps its permissions once the engine
// is done with it. A sharing violation is different: another process holds
// the file, and no change of permissions would help, so it fails at once.
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "acl/command.h"
#include "io/handle_transfer.h"
#include "io/name_descriptor.h"
#include "io/object_common.h"
#include "platform/os.h"
#include "util/owner.h"
#include "vxio/acl.h"
#include "vxio/io.h"

using vxio::platform::os;

namespace {

constexpr uint32_t kFlagWrite = 1u;
constexpr uint32_t kFlagCreate = 2u;

// Commands carry a path, so they get a work buffer's worth of room.
constexpr size_t kCommandSize = vxio::io::kWorkBufferSize;
// The command engine's own limit for a listing or a restore text.
constexpr uint32_t kSecurityTextSize = vxio::acl::kDescriptorTextSize;

// Three commands of the security-descriptor engine, each for one path:
//   List: the DACL and SACL as one SDDL record, e.g.
//         "C:\data\a.txt",1,"D:(A;;FA;;;WD)">>>
//   Clear: drops the explicit DACL entries (the SACL is not matched by
//         "dacl+sacl" and stays);
//   Restore: writes back the record that List produced, given as input.
constexpr const char kListCommand[] =
    "--objectName>>%s>>--objectType>>file>>--action>>List>>sddl>>dacl,sacl>>No>>Yes>>None";
constexpr const char kClearCommand[] =
    "--objectName>>%s>>--objectType>>file>>--action>>Clear>>dacl+sacl";
constexpr const char kRestoreCommand[] =
    "--objectName>>%s>>--objectType>>file>>--action>>Restore>>FromVOXAStruct";

IoFileObject *as_file(IoObject *object) { return reinterpret_cast<IoFileObject *>(object); }

HANDLE handle_of(IoObject *object) { return static_cast<HANDLE>(as_file(object)->handle); }


// Every open of the backend shares its share mode and attributes: others
// may read the file while the engine works on it, never write it.
HANDLE open_path(const char *path, DWORD access, DWORD disposition) {
    return os.CreateFileA(path, access, FILE_SHARE_READ, nullptr, disposition,
                          FILE_FLAG_RANDOM_ACCESS, nullptr);
}

DWORD access_for(uint32_t flags) {
    return (flags & kFlagWrite) ? (GENERIC_READ | GENERIC_WRITE) : GENERIC_READ;
}

DWORD disposition_for(uint32_t flags) {
    return (flags & kFlagCreate) ? CREATE_ALWAYS : OPEN_EXISTING;
}

// True when path can stand in a command as one whole object name. The
// language splits at any run of '>', the listing record quotes the name
// and ends it at the first '",', and the engine keeps names of at most
// kMaxName characters: a path that breaks any of these would make a
// command act on another object (or on none), so no command is issued for
// it. No real file name holds '>' or '"'.
bool commandable(const char *path) {
    const size_t length = strnlen(path, vxio::acl::kMaxName + 1);
    return length > 0 && length <= vxio::acl::kMaxName && !std::strpbrk(path, ">\"");
}

// Runs one of the commands above for path. A path too long for the
// command buffer fails the command: a cut path would name another object.
bool run_command(const char *format, const char *path, char *text, uint32_t textSize) {
    if (!commandable(path)) return false;
    char command[kCommandSize];
    const int length = std::snprintf(command, sizeof command, format, path);
    if (length < 0 || static_cast<size_t>(length) >= sizeof command) return false;
    return VOXA_ACLs_ExecCommand(command, text, textSize) != 0;
}

bool clear_dacl(const char *path) { return run_command(kClearCommand, path, nullptr, 0); }

// True when listing is the whole record List makes for path:
//   "C:\data\a.txt",1,"D:(A;;FA;;;WD)">>>
// with the name as asked, a type, a non-empty SDDL text and the closing
// '">>>'. A record cut short (the engine leaves out a text that does not
// fit, or crowds out the ending) could not put the permissions back, so
// the DACL is not cleared on the strength of it.
bool complete_listing(const char *listing, const char *path) {
    const std::string_view record(listing, strnlen(listing, kSecurityTextSize));
    const std::string head = std::string("\"") + path + "\",";
    constexpr std::string_view kEnd = "\">>>";
    if (record.size() < head.size() + kEnd.size() || record.compare(0, head.size(), head) != 0 ||
        record.substr(record.size() - kEnd.size()) != kEnd)
        return false;
    const std::string_view rest = record.substr(head.size(), record.size() - head.size() - kEnd.size());
    const size_t typeEnd = rest.find(",\"");
    return typeEnd != std::string_view::npos && typeEnd > 0 && typeEnd + 2 < rest.size();
}

// The open shared by VOXA_FILE_Open (a 16-byte block, no parent) and
// VOXA_FILE_FileSystemOpen (a parent, no block).
IoObject *open_file(const char *name, uint32_t flags, uint64_t userPointer, const IoObject *parent,
                    const void *callerData16, uint32_t callerDataLength) {
    if (!name || (!callerData16 && !parent)) return nullptr;
    const DWORD access = access_for(flags);
    const DWORD disposition = disposition_for(flags);

    // The listing stays on the stack until the object exists; it is
    // copied into a block of its own only when there is one to keep.
    char listing[kSecurityTextSize];
    listing[0] = '\0';
    // Once the DACL is being cleared, every way out without an object puts
    // the saved permissions back (after the handle is closed): a failed
    // clearing, a file that still refuses to open, no memory for the
    // object. The file is never left open to everyone with nothing to
    // show for it.
    struct PendingRestore {
        const char *name = nullptr;
        char *text = nullptr;
        ~PendingRestore() {
            if (name)
                run_command(kRestoreCommand, name, text, static_cast<uint32_t>(std::strlen(text)));
        }
    } pendingRestore;
    vxio::UniqueFile file(open_path(name, access, disposition));
    if (!file) {
        if (os.GetLastError() == ERROR_SHARING_VIOLATION) return nullptr;
        if (!run_command(kListCommand, name, listing, sizeof listing)) return nullptr;
        listing[sizeof listing - 1] = '\0';
        if (!complete_listing(listing, name)) return nullptr;
        pendingRestore = {name, listing};
        if (!clear_dacl(name)) return nullptr;
        file.reset(open_path(name, access, disposition));
        if (!file) return nullptr;
    }

    auto object = vxio::zelta_new<IoFileObject>();
    if (!object) return nullptr;
    vxio::ZeltaPtr<char> nameCopy(vxio::zelta_strdup(name));
    if (!nameCopy) return nullptr;
    vxio::ZeltaPtr<char> saved;
    if (listing[0] != '\0') {
        saved.reset(vxio::zelta_strdup(listing));
        if (!saved) return nullptr;
    }
    pendingRestore.name = nullptr;  // Close restores from the object's copy

    if (!userPointer && parent) userPointer = parent->userPointer;
    vxio::io::init_header(&object->header, VXIO_KIND_FILE, userPointer, nameCopy.release(),
                          callerData16, callerDataLength);
    if (!callerData16)
        std::memcpy(object->header.callerData, parent->callerData, sizeof parent->callerData);
    object->handle = file.release();
    object->flags = flags;
    object->savedSecurity = saved.release();
    return &object.release()->header;
}

}  // namespace

// Opens name (an 8-bit path) for reading, or for reading and writing with
// flag bit 0; flag bit 1 creates the file, replacing one that exists. A
// file refused for any reason but a sharing violation gets its DACL
// cleared and is opened again; Close puts the saved descriptor back.
// Returns a new object that VOXA_FILE_Close frees, or null.
extern "C" IoObject *VOXA_FILE_Open(const char *name, uint32_t flags, uint64_t userPointer,
                                    const void *callerData16,
                                    uint32_t callerDataLength) noexcept {
    return open_file(name, flags, userPointer, nullptr, callerData16, callerDataLength);
}

// Puts back a saved descriptor (after every write, so the restored
// permissions are the file's last change; a failed restore goes
// unreported), closes the handle and frees the object.
extern "C" void VOXA_FILE_Close(IoObject *object) noexcept {
    if (!object) return;
    IoFileObject *f = as_file(object);
    if (f->savedSecurity && f->savedSecurity[0] != '\0')
        run_command(kRestoreCommand, object->name, f->savedSecurity,
                    static_cast<uint32_t>(std::strlen(f->savedSecurity)));
    if (f->savedSecurity) ZELTA_myfree(f->savedSecurity);
    if (object->name) ZELTA_myfree(object->name);
    // A failed MakeWriteable may leave the object without a handle.
    vxio::UniqueFile file(static_cast<HANDLE>(f->handle));
    file.reset();
    ZELTA_myfree(object);
}

extern "C" int32_t VOXA_FILE_PositionFile(IoObject *object, uint64_t position) noexcept {
    if (!object) return 0;
    return vxio::io::seek_from_start(handle_of(object), position) ? 1 : 0;
}

// 207 on a failed seek, a failed transfer or a short one.
extern "C" uint64_t VOXA_FILE_Read(IoObject *object, uint64_t offset, void *buffer,
                                   uint32_t length) noexcept {
    if (!object) return VXIO_IO_FAILED;
    return vxio::io::read_at(handle_of(object), offset, buffer, length);
}

extern "C" uint64_t VOXA_FILE_Write(IoObject *object, uint64_t offset, const void *buffer,
                                    uint32_t length) noexcept {
    if (!object) return VXIO_IO_FAILED;
    return vxio::io::write_at(object, handle_of(object), offset, buffer, length);
}

extern "C" uint64_t VOXA_FILE_GetSize(IoObject *object, uint64_t *size) noexcept {
    if (!object) return VXIO_IO_FAILED;
    return vxio::io::low_size(handle_of(object), size);
}

// Shrinks or extends.
extern "C" uint64_t VOXA_FILE_SetEnd(IoObject *object, uint64_t newSize) noexcept {
    if (!object) return VXIO_IO_FAILED;
    return vxio::io::set_end(object, handle_of(object), newSize);
}

// Reopens a read-only object for writing, clearing the DACL when the file
// refuses. Unlike Open it saves nothing first: a descriptor cleared here
// stays cleared after Close unless Open had saved one (the engine relies
// on this). A sharing violation leaves the object without a handle.
extern "C" uint64_t VOXA_FILE_MakeWriteable(IoObject *object) noexcept {
    if (!object) return VXIO_IO_FAILED;
    IoFileObject *f = as_file(object);
    if (f->flags & kFlagWrite) return VXIO_IO_OK;

    vxio::UniqueFile old(static_cast<HANDLE>(f->handle));
    old.reset();
    const DWORD readWrite = GENERIC_READ | GENERIC_WRITE;
    f->handle = open_path(object->name, readWrite, OPEN_EXISTING);
    if (f->handle == INVALID_HANDLE_VALUE) {
        if (os.GetLastError() == ERROR_SHARING_VIOLATION) return VXIO_IO_FAILED;
        if (!clear_dacl(object->name)) return VXIO_IO_FAILED;
        f->handle = open_path(object->name, readWrite, OPEN_EXISTING);
        if (f->handle == INVALID_HANDLE_VALUE) {
            // Keep the object readable as it was.
            f->handle = open_path(object->name, GENERIC_READ, OPEN_EXISTING);
            return VXIO_IO_FAILED;
        }
    }
    f->flags |= kFlagWrite;
    return VXIO_IO_OK;
}

// 0 when the named file or directory exists, 207 when it does not, 200
// without a work buffer, 50 for an unreadable name. object is not used.
extern "C" uint64_t VOXA_FILE_FileSystemFileExists(IoObject *, const void *name,
                                                   uint32_t nameKind) noexcept {
    vxio::ZeltaPtr<char> path(static_cast<char *>(ZELTA_mymalloc(vxio::io::kWorkBufferSize)));
    if (!path) return VXIO_IO_NO_BUFFER;
    const uint64_t status = vxio::io::convert_name(name, nameKind, path.get());
    if (status != VXIO_IO_OK) return status;
    return os.GetFileAttributesA(path.get()) != INVALID_FILE_ATTRIBUTES ? VXIO_IO_OK
                                                                        : VXIO_IO_FAILED;
}

// Opens a sibling of parent: only flag bits 0 and 1 are passed on, and the
// new object takes the parent's userPointer and callerData. Null without a
// parent, when the name cannot be read or when the open fails.
extern "C" IoObject *VOXA_FILE_FileSystemOpen(IoObject *parent, const void *name,
                                              uint32_t nameKind, uint32_t flags) noexcept {
    vxio::ZeltaPtr<char> path(static_cast<char *>(ZELTA_mymalloc(vxio::io::kWorkBufferSize)));
    if (!path) return nullptr;
    if (vxio::io::convert_name(name, nameKind, path.get()) != VXIO_IO_OK) return nullptr;
    return open_file(path.get(), flags & (kFlagWrite | kFlagCreate), 0, parent, nullptr, 0);
}

// Closes object as VOXA_FILE_Close does; always 0.
extern "C" uint64_t VOXA_FILE_FileSystemClose(IoObject *, IoObject *object) noexcept {
    VOXA_FILE_Close(object);
    return VXIO_IO_OK;
}

// 0, 207 when the file cannot be deleted, 200, 50.
extern "C" uint64_t VOXA_FILE_FileSystemDelete(IoObject *, const void *name,
                                               uint32_t nameKind) noexcept {
    vxio::ZeltaPtr<char> path(static_cast<char *>(ZELTA_mymalloc(vxio::io::kWorkBufferSize)));
    if (!path) return VXIO_IO_NO_BUFFER;
    const uint64_t status = vxio::io::convert_name(name, nameKind, path.get());
    if (status != VXIO_IO_OK) return status;
    return os.DeleteFileA(path.get()) ? VXIO_IO_OK : VXIO_IO_FAILED;
}

// Renames (replacing the target, across volumes if need be). A file in use
// is left to be renamed at the next start, which counts as success.
// 0, 207, 200, 50 (the first unreadable name's status).
extern "C" uint64_t VOXA_FILE_FileSystemRename(IoObject *, const void *oldName,
                                               const void *newName, uint32_t nameKind) noexcept {
    vxio::ZeltaPtr<char> from(static_cast<char *>(ZELTA_mymalloc(vxio::io::kWorkBufferSize)));
    if (!from) return VXIO_IO_NO_BUFFER;
    vxio::ZeltaPtr<char> to(static_cast<char *>(ZELTA_mymalloc(vxio::io::kWorkBufferSize)));
    if (!to) return VXIO_IO_NO_BUFFER;
    uint64_t status = vxio::io::convert_name(oldName, nameKind, from.get());
    if (status != VXIO_IO_OK) return status;
    status = vxio::io::convert_name(newName, nameKind, to.get());
    if (status != VXIO_IO_OK) return status;
    if (os.MoveFileExA(from.get(), to.get(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED))
        return VXIO_IO_OK;
    if (os.MoveFileExA(from.get(), to.get(),
                       MOVEFILE_REPLACE_EXISTING | MOVEFILE_DELAY_UNTIL_REBOOT))
        return VXIO_IO_OK;
    return VXIO_IO_FAILED;
}
