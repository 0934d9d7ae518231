// Repairs of startup-scan findings: the registry change that the
// definition line named for the place where a file was found.
//
// Every action works on the location stored in the finding: its root, key
// path, value or subkey name, and the registry view the scan found it in
// (0 on a 32-bit system, KEY_WOW64_32KEY or KEY_WOW64_64KEY on a 64-bit
// one), which goes into every key open and every key deletion. Keys are
// opened with the view and 0x2001F: read, set values, create subkeys.
//
// The results mix three conventions, and the engine reads each of them
// as it is: 0 success with -1 failure (and -5 out of memory), Win32 codes
// from deleting a value, and 1 where the finding or its key could not be
// read. For example, for the definition line
//   7,shell,0,HKLM,Software\Microsoft\Windows NT\CurrentVersion\Winlogon,
//   scansub_false,Shell,disinf_replacevalue,explorer.exe
// (one line) a finding under "Shell" is repaired by writing "explorer.exe"
// back with the value's own type, and the result is 0, -1 or -5.
#include <cstring>

#include "platform/library.h"
#include "platform/os.h"
#include "startup/path_macros.h"
#include "startup/text.h"
#include "util/owner.h"
#include "vxio/startup.h"

using vxio::platform::os;

namespace vxio::startup {
namespace {

constexpr REGSAM kKeyChange = 0x2001F;  // KEY_READ, KEY_SET_VALUE, KEY_CREATE_SUB_KEY
constexpr DWORD kValueBufferSize = 1024;
constexpr DWORD kSubkeyNameSize = 260;
constexpr char kClassesKey[] = "SOFTWARE\\Classes\\CLSID";

constexpr int kOk = 0;
constexpr int kFailed = -1;
constexpr int kNoMemory = -5;
constexpr int kUnreadable = 1;  // the finding or its key could not be read

// No registry nests deeper than 512 levels; a deeper walk can only be a
// registry link leading back up the tree.
constexpr int kMaxTreeDepth = 512;
// Subkeys taken off one key; each round deletes one, so only a key that
// keeps answering with new subkeys could reach it.
constexpr int kMaxSubkeysDeleted = 1 << 20;

// A string field of the finding, copied for the length of the action. A
// null field (the finding's empty texts are null) gives a null copy: a
// null value name is the key's default value, a null key path the root
// itself. 0, or -5 when the copy cannot be made.
int read_field(const char *field, Text &copy) noexcept {
    if (!field) return kOk;
    copy = Text(zelta_strdup(field));
    return copy ? kOk : kNoMemory;
}

// parent + "\" + name; name alone under a null parent (a key directly
// below the root).
Text join_path(const char *parent, const char *name) noexcept {
    const size_t parentLength = parent ? std::strlen(parent) : 0;
    const size_t nameLength = std::strlen(name);
    const size_t separator = parentLength ? 1 : 0;
    Text path = allocate_text(parentLength + separator + nameLength + 1);
    if (!path) return path;
    if (parentLength) std::memcpy(path.get(), parent, parentLength);
    if (separator) path.get()[parentLength] = '\\';
    std::memcpy(path.get() + parentLength + separator, name, nameLength + 1);
    return path;
}

bool open_key(HKEY root, const char *path, uint32_t view, UniqueKey &key,
              LSTATUS *status = nullptr) noexcept {
    HKEY opened = nullptr;
    const LSTATUS result = os.RegOpenKeyExA(root, path, 0, view | kKeyChange, &opened);
    if (status) *status = result;
    if (result != ERROR_SUCCESS) return false;
    key.reset(opened);
    return true;
}

// The finding's own key.
bool open_finding_key(const StartupFinding &f, UniqueKey &key) noexcept {
    Text path;
    if (read_field(f.key, path) != kOk) return false;
    return open_key(static_cast<HKEY>(f.root), path.get(), f.view, key);
}

// Deletes one key without subkeys in the given view: RegDeleteKeyExA,
// looked up at each use, on a 64-bit system (1 when it is missing), plain
// RegDeleteKeyA on a 32-bit one. The Win32 result.
LSTATUS delete_key_in_view(HKEY root, const char *path, uint32_t view) noexcept {
    if (!IsSixtyFourBitSystem()) return os.RegDeleteKeyA(root, path);
    using DeleteKeyEx = LSTATUS(WINAPI *)(HKEY, LPCSTR, REGSAM, DWORD);
    platform::RuntimeLibrary advapi("Advapi32.dll");
    const auto deleteKeyEx = advapi.get<DeleteKeyEx>("RegDeleteKeyExA");
    if (!deleteKeyEx) return 1;
    return deleteKeyEx(root, path, view, 0);
}

// Deletes a key with everything below it: the key alone if it can go,
// else its subkeys one by one (always the first one left), then the key.
// The first subkey that cannot be deleted ends the walk and the key stays,
// with the rest of its tree. A key that is not there counts as deleted
// only in a given view.
bool delete_key_tree(HKEY root, const char *path, uint32_t view, int depth) noexcept {
    if (delete_key_in_view(root, path, view) == ERROR_SUCCESS) return true;
    UniqueKey key;
    LSTATUS status = ERROR_SUCCESS;
    if (!open_key(root, path, view, key, &status))
        return status == ERROR_FILE_NOT_FOUND && view != 0;
    char previous[kSubkeyNameSize] = "";
    for (int round = 0; depth < kMaxTreeDepth && round < kMaxSubkeysDeleted; ++round) {
        char name[kSubkeyNameSize];
        DWORD length = kSubkeyNameSize;
        if (os.RegEnumKeyExA(key.get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr) !=
            ERROR_SUCCESS)
            break;
        name[length < kSubkeyNameSize ? length : kSubkeyNameSize - 1] = '\0';
        // A subkey reported deleted (missing in this view) that is still
        // listed would come back at every round.
        if (round > 0 && std::strcmp(name, previous) == 0) break;
        Text subkey = join_path(path, name);
        if (!subkey || !delete_key_tree(root, subkey.get(), view, depth + 1)) break;
        std::memcpy(previous, name, sizeof name);
    }
    key.reset();
    return delete_key_in_view(root, path, view) == ERROR_SUCCESS;
}

// The old value with the first occurrence of removeText cut out, or an
// unchanged copy when it does not occur. Null when the value was not
// stored as exactly its text and one terminator (storedLength differs from
// its length + 1), or when out of memory.
Text remove_first(const char *removeText, const char *oldValue, DWORD storedLength) noexcept {
    const char *found = std::strstr(oldValue, removeText);
    const size_t oldLength = std::strlen(oldValue);
    if (!found) return Text(zelta_strdup(oldValue));
    if (storedLength != oldLength + 1) return Text();
    const size_t before = static_cast<size_t>(found - oldValue);
    const size_t cut = std::strlen(removeText);
    Text result = allocate_text(oldLength - cut + 1);
    if (!result) return result;
    std::memcpy(result.get(), oldValue, before);
    std::memcpy(result.get() + before, found + cut, oldLength - before - cut + 1);
    return result;
}

// Writes text, without its terminator, with the given type.
int set_text(HKEY key, const char *valueName, DWORD type, const char *text) noexcept {
    const LSTATUS status =
        os.RegSetValueExA(key, valueName, 0, type, reinterpret_cast<const BYTE *>(text),
                          static_cast<DWORD>(std::strlen(text)));
    return status == ERROR_SUCCESS ? kOk : kFailed;
}

// Rewrites a value, keeping its type: with a new text, that text with its
// macros expanded; without one, the old text with removeText cut out; with
// neither, the empty text. When the new text cannot be made, the given
// newText is written as it is (so an old value that was not stored with
// exactly one terminator is emptied). A value that reports no data is left
// alone (0). 0, -1 (not read or not written), -5 (out of memory).
int rewrite_value(HKEY key, const char *valueName, const char *newText,
                  const char *removeText) noexcept {
    // One byte beyond what the system is offered, for a terminator: the
    // data need not end in one.
    DWORD capacity = kValueBufferSize;
    Text old = allocate_text(uint64_t{capacity} + 1);
    if (!old) return kNoMemory;
    DWORD type = 0, size = capacity;
    LSTATUS status = os.RegQueryValueExA(key, valueName, nullptr, &type,
                                         reinterpret_cast<BYTE *>(old.get()), &size);
    if (size != capacity) {
        if (size == 0) return kOk;
        void *resized = ZELTA_myrealloc(old.get(), uint64_t{size} + 1, uint64_t{capacity} + 1);
        if (!resized) return kNoMemory;
        old.release();
        old.reset(static_cast<char *>(resized));
        capacity = size;
        // A value that grows between the two queries fails here (234).
        status = os.RegQueryValueExA(key, valueName, nullptr, &type,
                                     reinterpret_cast<BYTE *>(old.get()), &size);
    }
    if (status != ERROR_SUCCESS) return kFailed;
    old.get()[size < capacity ? size : capacity] = '\0';

    const char *given = newText ? newText : "";
    Text made;
    if (!*given) {
        if (is_empty(removeText)) return set_text(key, valueName, type, "");
        made = remove_first(removeText, old.get(), size);
    } else {
        made = Text(ExpandPathMacros(given));
    }
    return set_text(key, valueName, type, made ? made.get() : given);
}

// disinf_deletevalue: the value stays, emptied, with its type.
int empty_value(const StartupFinding &f) noexcept {
    UniqueKey key;
    if (!open_finding_key(f, key)) return kFailed;
    Text name;
    if (read_field(f.name, name) != kOk) return kFailed;
    return rewrite_value(key.get(), name.get(), "", "");
}

// disinf_deletenamevalue: a value that is already gone counts as deleted;
// any other refusal is the system's code.
int delete_value(const StartupFinding &f) noexcept {
    UniqueKey key;
    if (!open_finding_key(f, key)) return kFailed;
    Text name;
    if (read_field(f.name, name) != kOk) return kFailed;
    const LSTATUS status = os.RegDeleteValueA(key.get(), name.get());
    return status == ERROR_FILE_NOT_FOUND ? kOk : static_cast<int>(status);
}

// disinf_deletekey: the subkey named by the finding, with its tree. A
// finding without a root or a name has nothing to delete (0): without the
// name the path would be the finding's key itself.
int delete_subkey_tree(const StartupFinding &f) noexcept {
    if (!f.root) return kOk;
    Text keyPath;
    const int read = read_field(f.key, keyPath);
    if (read != kOk) return read;
    Text name;
    if (read_field(f.name, name) != kOk || !name) return kOk;
    Text path = join_path(keyPath.get(), name.get());
    if (!path) return kUnreadable;
    return delete_key_tree(static_cast<HKEY>(f.root), path.get(), f.view, 0) ? kOk : kFailed;
}

bool is_class_id(const char *name) noexcept {
    return std::strlen(name) == 38 && name[0] == '{' && name[37] == '}';
}

// disinf_deleteclsid and disinf_bho: the subkey (without subkeys of its
// own) and, for a braced class id, the class registration under
// SOFTWARE\Classes\CLSID of the finding's own root and view, whose result
// then replaces the first. A finding without a name has no subkey to
// delete (1): deleting a null name would delete the key itself.
int delete_class(const StartupFinding &f) noexcept {
    UniqueKey key;
    if (!open_finding_key(f, key)) return kUnreadable;
    Text name;
    if (read_field(f.name, name) != kOk || !name) return kUnreadable;
    int result = os.RegDeleteKeyA(key.get(), name.get()) == ERROR_SUCCESS ? kOk : kFailed;
    if (is_class_id(name.get())) {
        Text path = join_path(kClassesKey, name.get());
        result = path && delete_key_tree(static_cast<HKEY>(f.root), path.get(), f.view, 0)
                     ? kOk
                     : kFailed;
    }
    return result;
}

// disinf_replacevalue: the value rewritten from the definition's data, or
// with the path found cut out of it.
int replace_value(const StartupFinding &f) noexcept {
    UniqueKey key;
    if (!open_finding_key(f, key)) return kUnreadable;
    Text label, data, name;
    if (read_field(f.label, label) != kOk || read_field(f.data, data) != kOk ||
        read_field(f.name, name) != kOk)
        return kUnreadable;
    return rewrite_value(key.get(), name.get(), data.get(), label.get());
}

int clean(const StartupFinding &f) noexcept {
    switch (f.action) {
    case VXIO_REPAIR_EMPTY_VALUE:
        return empty_value(f);
    case VXIO_REPAIR_DELETE_VALUE:
        return delete_value(f);
    case VXIO_REPAIR_DELETE_KEY:
        return delete_subkey_tree(f);
    case VXIO_REPAIR_DELETE_CLSID:
    case VXIO_REPAIR_BHO:
        return delete_class(f);
    case VXIO_REPAIR_REPLACE_VALUE:
        return replace_value(f);
    default:
        // No repair, binary data, and files (the engine deletes files
        // itself, with VOXA_IO_DeleteFile).
        return kOk;
    }
}

}  // namespace
}  // namespace vxio::startup

extern "C" uint64_t VOXA_IO_CleanStartupScan(DynArray *scan, uint64_t index) noexcept {
    if (!scan) return VXIO_STARTUP_FAILED;
    if (index > scan->count) return VXIO_STARTUP_BAD_INDEX;
    if (index == scan->count || !scan->items[index]) return VXIO_STARTUP_FAILED;
    const auto &finding = *static_cast<const StartupFinding *>(scan->items[index]);
    return static_cast<uint64_t>(static_cast<int64_t>(vxio::startup::clean(finding)));
}
