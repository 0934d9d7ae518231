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
constexpr DWORD kSubkeyNameSize = 260;
constexpr char kClassesKey[] = "SOFTWARE\\Classes\\CLSID";
constexpr char kLinkValue[] = "SymbolicLinkValue";

constexpr int kOk = 0;
constexpr int kFailed = -1;
constexpr int kNoMemory = -5;
constexpr int kUnreadable = 1;  // the finding or its key could not be read

// No registry nests deeper than 512 levels. The walk never enters a link,
// so only a registry that changes under it could go deeper.
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
              LSTATUS *status = nullptr, DWORD options = 0) noexcept {
    HKEY opened = nullptr;
    const LSTATUS result = os.RegOpenKeyExA(root, path, options, view | kKeyChange, &opened);
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

// What a key path names, seen as itself: a registry link is opened as the
// link (REG_OPTION_OPEN_LINK), never as the key it leads to, and is known
// by its "SymbolicLinkValue" of type REG_LINK. A key that cannot be opened
// or asked (other than one that is not there) is Unknown: nothing tells
// whether deleting it would delete the key it leads to.
enum class KeyKind { Missing, Key, Link, Unknown };

KeyKind key_kind(HKEY root, const char *path, uint32_t view) noexcept {
    HKEY opened = nullptr;
    const LSTATUS status =
        os.RegOpenKeyExA(root, path, REG_OPTION_OPEN_LINK, view | KEY_QUERY_VALUE, &opened);
    if (status == ERROR_FILE_NOT_FOUND) return KeyKind::Missing;
    if (status != ERROR_SUCCESS) return KeyKind::Unknown;
    UniqueKey key(opened);
    DWORD type = REG_NONE;
    const LSTATUS query =
        os.RegQueryValueExA(key.get(), kLinkValue, nullptr, &type, nullptr, nullptr);
    if (query == ERROR_FILE_NOT_FOUND) return KeyKind::Key;
    if (query != ERROR_SUCCESS) return KeyKind::Unknown;
    return type == REG_LINK ? KeyKind::Link : KeyKind::Key;
}

// Deletes a link key itself (or any key without subkeys). The system's key
// deletions open the path they are given, following a link, and delete the
// key it leads to, which can lie anywhere in the registry; so the key is
// opened as itself and deleted by its handle (NtDeleteKey, looked up at each use: ntdll is
// always loaded). False when that cannot be done.
bool delete_link(HKEY root, const char *path, uint32_t view) noexcept {
    HKEY opened = nullptr;
    if (os.RegOpenKeyExA(root, path, REG_OPTION_OPEN_LINK, view | DELETE, &opened) !=
        ERROR_SUCCESS)
        return false;
    UniqueKey link(opened);
    using DeleteKeyFn = LONG(WINAPI *)(HANDLE);
    HMODULE ntdll = os.GetModuleHandleA("ntdll.dll");
    const auto deleteKey = ntdll ? reinterpret_cast<DeleteKeyFn>(reinterpret_cast<void *>(
                                       os.GetProcAddress(ntdll, "NtDeleteKey")))
                                 : nullptr;
    return deleteKey && deleteKey(link.get()) >= 0;
}

// Deletes a key with everything below it: the key alone if it can go,
// else its subkeys one by one (always the first one left), then the key.
// The first subkey that cannot be deleted ends the walk and the key stays,
// with the rest of its tree. A key that is not there counts as deleted
// only in a given view.
//
// A registry link, the tree's own key or one met inside it, is deleted as
// the link and never entered: what it leads to lies outside the tree (a
// link planted in an entry's key could otherwise have the repair delete
// any key the engine's account may delete). Deleting the link, rather
// than stopping, keeps a planted link from saving the entry's tree. A key
// that cannot be told apart from a link (its values may not be read) is
// deleted the same way: by its own handle, which removes exactly the key
// named, link or not, and only when nothing lies below it.
bool delete_key_tree(HKEY root, const char *path, uint32_t view, int depth) noexcept {
    const KeyKind kind = key_kind(root, path, view);
    if (kind == KeyKind::Link || kind == KeyKind::Unknown) return delete_link(root, path, view);
    if (delete_key_in_view(root, path, view) == ERROR_SUCCESS) return true;
    UniqueKey key;
    LSTATUS status = ERROR_SUCCESS;
    if (!open_key(root, path, view, key, &status, REG_OPTION_OPEN_LINK))
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

// The old value with the first occurrence of removeText cut out, or null
// when the value was not stored as exactly its text and one terminator
// (storedLength differs from its length + 1), or when out of memory; the
// rest of the value keeps its own case. removeText, a finding's
// lower-cased path, is looked for without regard to case: the value
// usually names the file in the case it was written in. `found` says
// whether it occurs at all.
Text remove_first(const char *removeText, const char *oldValue, DWORD storedLength,
                  bool &found) noexcept {
    found = true;
    Text lowered(zelta_strdup(oldValue));
    if (!lowered) return lowered;
    os.strlwr(lowered.get());  // lower-casing keeps the length
    const char *at = std::strstr(lowered.get(), removeText);
    found = at != nullptr;
    const size_t oldLength = std::strlen(oldValue);
    if (!found || storedLength != oldLength + 1) return Text();
    const size_t before = static_cast<size_t>(at - lowered.get());
    const size_t cut = std::strlen(removeText);
    Text result = allocate_text(oldLength - cut + 1);
    if (!result) return result;
    std::memcpy(result.get(), oldValue, before);
    std::memcpy(result.get() + before, oldValue + before + cut, oldLength - before - cut + 1);
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
//
// The old value is read whole (data beyond the bound of a whole read is
// held as empty: it can still be emptied or replaced, and nothing is cut
// out of it). A removeText that does not occur in the value gives -1 with
// nothing written: the entry is still there, and the engine must not take
// the repair for done.
int rewrite_value(HKEY key, const char *valueName, const char *newText,
                  const char *removeText) noexcept {
    DWORD type = 0;
    RegistryBuffer old;
    const RegistryRead read = read_whole(
        [&](char *, DWORD *, BYTE *data, DWORD *length) {
            return os.RegQueryValueExA(key, valueName, nullptr, &type, data, length);
        },
        old, nullptr);
    if (read.noMemory) return kNoMemory;
    if (read.status != ERROR_SUCCESS) return kFailed;
    if (read.length == 0) return kOk;

    const char *given = newText ? newText : "";
    Text made;
    if (!*given) {
        if (is_empty(removeText)) return set_text(key, valueName, type, "");
        bool found = true;
        made = remove_first(removeText, old.get(), read.length, found);
        if (!found) return kFailed;
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
    // The subkey is deleted as itself when it is a link (see
    // delete_key_tree).
    const KeyKind kind = key_kind(key.get(), name.get(), f.view);
    const bool deleted = kind == KeyKind::Link || kind == KeyKind::Unknown
                             ? delete_link(key.get(), name.get(), f.view)
                             : os.RegDeleteKeyA(key.get(), name.get()) == ERROR_SUCCESS;
    int result = deleted ? kOk : kFailed;
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
