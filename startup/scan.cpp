// The startup scan: every place named by the engine's definition text is
// walked at Open, and each existing file met there becomes a finding.
//
// A definition with a registry root names a key, read in both registry
// views on a 64-bit system (32-bit view first); its mode says what to read
// there: 0 one value, 1 every value by its data, 2 every value by its
// name, 3 every subkey. A definition without a root names the file system:
// mode 0 joins key and name into one command text, mode 2 lists a folder
// pattern such as "%curuserstartdir%\*".
//
// Every text met (a value's data, a value or subkey name) is a command
// text: a program path, perhaps with arguments, perhaps several of them.
// It is lower-cased and cut into tokens twice (command_text.h), once at
// ";,/-", double quote and line feed, and, when it holds a space, once
// more at space ";,", double quote and line feed; the second pass then
// decides whether the text yielded anything. In each pass the whole text is tried as a
// path first, then every token. A token is an absolute path after macro
// expansion ("%sysdir%\x.exe") or a bare program name found where the
// system looks for one, without trailing blanks, or, when the engine gave
// a list of names it knows (the modules of running processes), the name of
// that list that an absolute token matches. For example the value
//   "C:\Tools\Agent.exe" /run
// is cut at the quotes and the "/" by the first pass and at the quotes and
// the space by the second, whose token c:\tools\agent.exe is a finding and
// whose result says that the value named a program.
//
// Kept as the engine knows it:
// - Nothing checks for duplicates: a plain path is both the whole text and
//   its only token, so it gives two findings in one pass.
// - A finding's label is the lower-cased path and its number the length of
//   the path + 1; a directory is never a finding, a missing file only when
//   it came from the name list.
// - A scan in which no walk succeeded is no scan at all (null), while a
//   readable key without any program in it is a successful walk.
#include <cstring>

#include "platform/os.h"
#include "startup/command_text.h"
#include "startup/definitions.h"
#include "startup/path_macros.h"
#include "startup/text.h"
#include "util/owner.h"
#include "vxio/startup.h"

using vxio::platform::os;

namespace vxio::startup {
namespace {

constexpr REGSAM kKeyRead = 0x20019;  // KEY_READ
// Both views of a 64-bit system, in the order they are searched.
constexpr REGSAM kViews[] = {KEY_WOW64_32KEY, KEY_WOW64_64KEY};
constexpr DWORD kSubkeyNameSize = 1024;  // key names are at most 255 characters
constexpr DWORD kPathBufferSize = 260;

// A key that vanishes while its values are listed answers every index with
// an error (ERROR_KEY_DELETED), never with "no more items": after this many
// failed indexes in a row the listing ends.
constexpr int kEnumErrorsInARow = 16;

// A walk's result: 0 success, anything else failure.
constexpr int kWalkOk = 0;
constexpr int kWalkFailed = -1;
constexpr int kWalkNoBuffers = 1;

Text lowered_copy(const char *text) noexcept {
    Text copy(zelta_strdup(text));
    if (copy) os.strlwr(copy.get());
    return copy;
}

bool file_exists(const char *path) noexcept { return os.access(path, 0) == 0; }

// True for a path that names its file without the current directory: a
// drive and its root ("c:\x.exe"), or a network or device name
// ("\\server\share\x.exe"). The system takes "/" for "\" in both.
bool is_absolute(const char *path) noexcept {
    const int letter = static_cast<unsigned char>(path[0]) | 0x20;
    if (letter >= 'a' && letter <= 'z' && path[1] == ':' && IsPathSeparator(path[2])) return true;
    return IsPathSeparator(path[0]) && IsPathSeparator(path[1]);
}

// A program named without any folder or drive, by a file name with an
// extension ("notepad.exe"). A word without a dot is an argument
// ("netsvcs") or a program the system would start as the word + ".exe",
// never a file of that very name; not looking such words up also keeps
// the scan from asking two folders about every argument.
bool is_bare_name(const char *text) noexcept {
    return std::strchr(text, '.') && !std::strpbrk(text, "\\/:");
}

// A candidate comes without trailing blanks, and so does its expansion: a
// finding must name the file as the engine will open it.
void trim_trailing_blanks(char *text) noexcept {
    text[WithoutTrailingBlanks(text, std::strlen(text))] = '\0';
}

// The folders in which the system looks for a program named without one,
// in its order.
constexpr const char *kProgramFolders[] = {"%sysdir%\\", "%windir%\\"};

// The existing file that a text (a whole command text or a token) names,
// with its macros expanded and without trailing blanks; null when there is
// none.
//
// Only an absolute path is tested: a relative one would be looked up in
// the scanner's current directory, which has nothing to do with the place
// the entry starts from ("/v" would name a file "v" lying there). A bare
// program name is looked up where the system looks for it, the system
// directory and then the Windows directory: that is the file the entry
// starts, and the one a scan running as a service (whose current directory
// is the system directory) has always met. Other relative texts
// ("sub\x.exe", "c:x.exe") name nothing.
Text existing_path(const char *text) noexcept {
    Text path(ExpandPathMacros(text));
    if (!path) path = Text(zelta_strdup(text));
    if (!path) return path;
    trim_trailing_blanks(path.get());
    if (is_absolute(path.get())) return file_exists(path.get()) ? std::move(path) : Text();
    if (!is_bare_name(path.get())) return Text();
    const size_t nameLength = std::strlen(path.get());
    for (const char *folder : kProgramFolders) {
        const size_t folderLength = std::strlen(folder);
        Text joined = allocate_text(folderLength + nameLength + 1);
        if (!joined) return joined;
        std::memcpy(joined.get(), folder, folderLength);
        std::memcpy(joined.get() + folderLength, path.get(), nameLength + 1);
        // An unknown folder expands to nothing, leaving "\name": not absolute.
        Text found(ExpandPathMacros(joined.get()));
        if (found && is_absolute(found.get()) && file_exists(found.get())) return found;
    }
    return Text();
}

// Reads one value (null name: the key's default value) whole.
RegistryRead query_value(HKEY key, const char *name, RegistryBuffer &buffer) noexcept {
    return read_whole(
        [&](char *, DWORD *, BYTE *data, DWORD *length) {
            return os.RegQueryValueExA(key, name, nullptr, nullptr, data, length);
        },
        buffer, nullptr);
}

// One Open: the engine's name list, the findings so far, and the
// definition being walked (findings copy its fields).
struct Scan {
    DynArray *findings;
    const DynArray *names;
    const StartupDefinition *definition;
};

// Appends a finding for path, met under valueName (empty: under the
// definition's own name). An empty path and a directory are refused.
bool add_finding(Scan &scan, const char *path, const char *valueName) noexcept {
    if (is_empty(path) || IsDirectory(path)) return false;
    const StartupDefinition &d = *scan.definition;
    const size_t length = std::strlen(path);
    if (length >= INT32_MAX) return false;
    StartupDefinition *finding = NewStartupRecord(
        d.id, path, static_cast<int32_t>(length + 1), static_cast<HKEY>(d.root), d.view, d.key,
        d.mode, is_empty(valueName) ? d.name : valueName, d.action, d.data);
    if (!finding) return false;
    os.strlwr(finding->label);  // lower-casing keeps the length
    if (!VOXA_arrAdd(scan.findings, finding)) {
        FreeStartupRecord(finding);
        return false;
    }
    return true;
}

// The token's long form: asked into 260 bytes, and once more into a buffer
// of the size the system asks for. Empty when there is none.
Text long_form(const char *token) noexcept {
    Text form = allocate_text(kPathBufferSize);
    if (!form) return form;
    form.get()[0] = '\0';
    const DWORD answer = os.GetLongPathNameA(token, form.get(), kPathBufferSize);
    if (answer >= kPathBufferSize) {
        form = allocate_text(answer);
        if (!form) return form;
        form.get()[0] = '\0';
        if (os.GetLongPathNameA(token, form.get(), answer) >= answer) form.get()[0] = '\0';
    } else if (answer == 0) {
        form.get()[0] = '\0';
    }
    return form;
}

// The part of a path behind its last backslash. A name without one (a
// bare file name in the engine's list) is all such a part.
const char *last_part(const char *path) noexcept {
    const char *slash = std::strrchr(path, '\\');
    return slash ? slash + 1 : path;
}

bool contains(const char *text, const char *part) noexcept {
    return os.mbsstr(reinterpret_cast<const unsigned char *>(text),
                     reinterpret_cast<const unsigned char *>(part)) != nullptr;
}

// The entry of the engine's name list that the token stands for, as a
// lower-cased path: the token's long form or short form when an entry holds
// it, else the whole entry when the entry's file name holds the token's.
//
// A token the system cannot shorten (a missing file) has an empty short
// form, which every entry holds: such a token matches the first entry with
// an empty path, which no finding accepts. This is kept as the engine
// knows it: only existing files are matched by name.
//
// The long and short forms are asked once per token rather than once per
// entry: they do not depend on the entry.
Text match_name(const char *token, const DynArray &names) noexcept {
    Text longForm = long_form(token);
    if (!longForm) return longForm;
    char shortForm[kPathBufferSize] = "";
    const DWORD shortAnswer = os.GetShortPathNameA(token, shortForm, kPathBufferSize);
    if (shortAnswer == 0) shortForm[0] = '\0';
    const char *tokenSlash = std::strrchr(token, '\\');

    for (uint32_t i = 0; i < names.count; ++i) {
        const char *entry = static_cast<const char *>(names.items[i]);
        if (!entry) continue;
        if (longForm.get()[0] && contains(entry, longForm.get()))
            return lowered_copy(longForm.get());
        if (shortAnswer >= kPathBufferSize) return Text();
        if (contains(entry, shortForm)) return lowered_copy(shortForm);
        if (tokenSlash && contains(last_part(entry), tokenSlash + 1))
            return lowered_copy(entry);
    }
    return Text();
}

// One candidate of a command text (see command_text.h): the existing file
// it names, or, for an absolute token when the engine gave a name list,
// the entry of the list it stands for. True when a finding was added. The
// whole text is never matched against the list, and a relative token
// neither: the system would look it up in the current directory.
bool check_candidate(Scan &scan, const char *candidate, bool whole,
                     const char *valueName) noexcept {
    if (!whole && scan.names && scan.names->count > 0 && is_absolute(candidate)) {
        Text named = match_name(candidate, *scan.names);
        if (named && add_finding(scan, named.get(), valueName)) return true;
    }
    Text path = existing_path(candidate);
    return path && add_finding(scan, path.get(), valueName);
}

// True when the command text yielded at least one finding. With a space
// in it, only the space-separated pass counts (the first one still adds
// what it finds). Each candidate is copied, terminated, into one block of
// the text's size.
bool check_command_text(Scan &scan, const char *text, const char *valueName) noexcept {
    if (is_empty(text)) return false;
    Text lowered = lowered_copy(text);
    if (!lowered) return false;
    const size_t length = std::strlen(lowered.get());
    Text candidate = allocate_text(uint64_t{length} + 1);
    if (!candidate) return false;
    CommandCuts cuts(lowered.get(), length);
    bool found[2] = {false, false};
    for (CommandCandidate c; cuts.next(c);) {
        std::memcpy(candidate.get(), lowered.get() + c.offset, c.length);
        candidate.get()[c.length] = '\0';
        if (check_candidate(scan, candidate.get(), c.whole, valueName)) found[c.pass] = true;
    }
    return found[cuts.has_second_pass() ? kSecondPass : kFirstPass];
}

// Mode 0: one value; the walk's result is the query's status.
int walk_single_value(Scan &scan, HKEY key) noexcept {
    RegistryBuffer data;
    const RegistryRead query = query_value(key, scan.definition->name, data);
    if (query.status == ERROR_SUCCESS) check_command_text(scan, data.get(), "");
    return static_cast<int>(query.status);
}

// Modes 1 and 2: every value of the key. By data (mode 1) the data is
// checked first, under the value's name, and the name only when the data
// gave nothing; by name (mode 2) the other way round. Each value is read
// whole, however long its name or data (data beyond the bound is held as
// empty, so its name is still checked); an index the system cannot read
// is passed over.
int walk_values(Scan &scan, HKEY key, bool byName) noexcept {
    int errorsInARow = 0;
    for (DWORD index = 0; errorsInARow < kEnumErrorsInARow; ++index) {
        RegistryBuffer name, data;
        const RegistryRead read = read_whole(
            [&](char *nameOut, DWORD *nameLength, BYTE *dataOut, DWORD *dataLength) {
                return os.RegEnumValueA(key, index, nameOut, nameLength, nullptr, nullptr,
                                        dataOut, dataLength);
            },
            data, &name);
        // Without buffers the walk fails rather than pass values over unread.
        if (read.noMemory) return kWalkNoBuffers;
        if (read.status == ERROR_NO_MORE_ITEMS) break;
        if (read.status != ERROR_SUCCESS) {
            // A value that grew while it was read is still a value: the key
            // is alive.
            errorsInARow = read.status == ERROR_MORE_DATA ? 0 : errorsInARow + 1;
            continue;
        }
        errorsInARow = 0;
        if (byName) {
            if (!check_command_text(scan, name.get(), name.get()))
                check_command_text(scan, data.get(), "");
        } else {
            if (!check_command_text(scan, data.get(), name.get()))
                check_command_text(scan, name.get(), "");
        }
    }
    return kWalkOk;
}

// Mode 3: every subkey. With a value name in the definition, that value
// of each subkey is checked under the subkey's name, and the subkey's name
// itself only when the value was read but gave nothing; a subkey without
// the value is passed over. Without a value name the subkey's name is the
// command text.
int walk_subkeys(Scan &scan, HKEY key) noexcept {
    const StartupDefinition &d = *scan.definition;
    char subkeyName[kSubkeyNameSize + 1];
    int errorsInARow = 0;
    for (DWORD index = 0; errorsInARow < kEnumErrorsInARow; ++index) {
        DWORD nameLength = kSubkeyNameSize;
        const LSTATUS status = os.RegEnumKeyExA(key, index, subkeyName, &nameLength, nullptr,
                                                nullptr, nullptr, nullptr);
        if (status == ERROR_NO_MORE_ITEMS) break;
        if (status != ERROR_SUCCESS) {
            errorsInARow = status == ERROR_MORE_DATA ? 0 : errorsInARow + 1;
            continue;
        }
        errorsInARow = 0;
        subkeyName[nameLength < kSubkeyNameSize ? nameLength : kSubkeyNameSize] = '\0';
        HKEY opened = nullptr;
        if (os.RegOpenKeyExA(key, subkeyName, 0, d.view | kKeyRead, &opened) != ERROR_SUCCESS)
            continue;
        UniqueKey subkey(opened);
        if (is_empty(d.name)) {
            check_command_text(scan, subkeyName, subkeyName);
            continue;
        }
        RegistryBuffer data;
        const RegistryRead query = query_value(subkey.get(), d.name, data);
        if (query.noMemory) return static_cast<int>(query.status);
        if (query.status == ERROR_SUCCESS && !check_command_text(scan, data.get(), subkeyName))
            check_command_text(scan, subkeyName, "");
    }
    return kWalkOk;
}

// The walk of the definition's mode over one opened key.
int walk_key(Scan &scan, HKEY key) noexcept {
    switch (scan.definition->mode) {
    case VXIO_SCAN_SINGLE_VALUE:
        return walk_single_value(scan, key);
    case VXIO_SCAN_VALUES_BY_DATA:
        return walk_values(scan, key, false);
    case VXIO_SCAN_VALUES_BY_NAME:
        return walk_values(scan, key, true);
    case VXIO_SCAN_SUBKEYS:
        return walk_subkeys(scan, key);
    default:
        return kWalkFailed;
    }
}

// A definition with a root: its key in each view (once, without a view
// flag, on a 32-bit system). The view goes into the definition before the
// walk, so that its findings carry it. A key that cannot be opened adds
// nothing.
int walk_registry(Scan &scan, StartupDefinition &d) noexcept {
    if (d.mode > VXIO_SCAN_SUBKEYS) return kWalkFailed;
    const bool bothViews = IsSixtyFourBitSystem();
    const size_t views = bothViews ? 2 : 1;
    int result = kWalkFailed;
    for (size_t i = 0; i < views; ++i) {
        d.view = bothViews ? static_cast<uint32_t>(kViews[i]) : 0;
        HKEY opened = nullptr;
        if (os.RegOpenKeyExA(static_cast<HKEY>(d.root), d.key, 0, d.view | kKeyRead, &opened) !=
            ERROR_SUCCESS)
            continue;
        UniqueKey key(opened);
        if (walk_key(scan, key.get()) == kWalkOk) result = kWalkOk;
    }
    return result;
}

// Mode 2 without a root: the files of a folder pattern. Only a pattern
// ending in "*" names its entries; any other pattern names one path, found
// when it exists and is no directory (a pattern such as "*.lnk" never
// exists as a path). Entries of size 0 whose name starts with "." (".",
// "..", empty hidden files) are skipped.
//
// Each path is built in a buffer sized for the entry's name, so every file
// of the folder is reported, however small: a buffer sized by the file's
// size (the entry's size + the pattern's length + 1) cannot take a name
// longer than the file's size + 1, and such a file would be lost, or
// reported under a cut name.
//
// The walk succeeds only when the listing reaches its end. The search
// handle is closed on every way out, a failed walk included: nothing can
// use it afterwards.
int walk_folder(Scan &scan, const char *key) noexcept {
    if (is_empty(key)) return kWalkFailed;
    Text pattern(ExpandPathMacros(key));
    if (!pattern) pattern = Text(zelta_strdup(key));
    if (!pattern) return kWalkFailed;
    os.strlwr(pattern.get());
    const size_t patternLength = std::strlen(pattern.get());
    const bool namesEntries = patternLength > 0 && pattern.get()[patternLength - 1] == '*';
    const size_t prefixLength = namesEntries ? patternLength - 1 : patternLength;

    WIN32_FIND_DATAA found;
    UniqueFind search(os.FindFirstFileA(pattern.get(), &found));
    if (!search) return kWalkFailed;

    do {
        if (found.nFileSizeLow == 0 && found.cFileName[0] == '.') continue;
        const size_t nameLength = namesEntries ? std::strlen(found.cFileName) : 0;
        Text path = allocate_text(prefixLength + nameLength + 1);
        if (!path) return kWalkFailed;
        std::memcpy(path.get(), pattern.get(), prefixLength);
        std::memcpy(path.get() + prefixLength, found.cFileName, nameLength);
        path.get()[prefixLength + nameLength] = '\0';
        if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) && file_exists(path.get()))
            add_finding(scan, path.get(), "");
    } while (os.FindNextFileA(search.get(), &found));
    return os.GetLastError() == ERROR_NO_MORE_FILES ? kWalkOk : kWalkFailed;
}

// A definition without a root: mode 0 joins key and name (no separator)
// into one command text and always counts as walked; mode 2 is a folder
// walk; other modes name nothing.
int walk_files(Scan &scan, const StartupDefinition &d) noexcept {
    if (d.mode == VXIO_SCAN_SINGLE_VALUE) {
        const size_t keyLength = d.key ? std::strlen(d.key) : 0;
        const size_t nameLength = d.name ? std::strlen(d.name) : 0;
        Text joined = allocate_text(keyLength + nameLength + 1);
        if (joined) {
            if (keyLength) std::memcpy(joined.get(), d.key, keyLength);
            if (nameLength) std::memcpy(joined.get() + keyLength, d.name, nameLength);
            joined.get()[keyLength + nameLength] = '\0';
            check_command_text(scan, joined.get(), "");
        }
        return kWalkOk;
    }
    if (d.mode == VXIO_SCAN_VALUES_BY_NAME) return walk_folder(scan, d.key);
    return kWalkFailed;
}

// Walks every definition in order; 0 as soon as one walk succeeded.
int run_scan(Scan &scan, const DynArray &definitions) noexcept {
    int result = kWalkFailed;
    for (uint32_t i = 0; i < definitions.count; ++i) {
        auto *d = static_cast<StartupDefinition *>(definitions.items[i]);
        if (!d) continue;
        scan.definition = d;
        const int walked = d->root ? walk_registry(scan, *d) : walk_files(scan, *d);
        if (walked == kWalkOk) result = kWalkOk;
    }
    return result;
}

// The definition object's size and read operations, by its backend.
struct Backend {
    uint64_t (*getSize)(IoObject *, uint64_t *) noexcept;
    uint64_t (*read)(IoObject *, uint64_t, void *, uint32_t) noexcept;
};

bool backend_of(const IoObject &object, Backend &backend) noexcept {
    switch (object.kind) {
    case VXIO_KIND_FILE:
        backend = {VOXA_FILE_GetSize, VOXA_FILE_Read};
        return true;
    case VXIO_KIND_MEMORY:
        backend = {VOXA_MEM_GetSize, VOXA_MEM_Read};
        return true;
    case VXIO_KIND_HANDLE:
        backend = {VOXA_HANDLE_GetSize, VOXA_HANDLE_Read};
        return true;
    case VXIO_KIND_CUSTOM:
        backend = {VOXA_CUSTOM_GetSize, VOXA_CUSTOM_Read};
        return true;
    case VXIO_KIND_PHYSICAL:
        backend = {VOXA_PHYSICAL_GetSize, VOXA_PHYSICAL_Read};
        return true;
    default:
        return false;
    }
}

// The whole definition text: its size, then that many bytes from 0. A
// text of 4 GiB or more is no definition text (a read is 32-bit).
bool read_definition_text(IoObject *object, Text &text, uint64_t &length) noexcept {
    Backend backend;
    if (!backend_of(*object, backend)) return false;
    uint64_t size = 0;
    if (backend.getSize(object, &size) != VXIO_IO_OK || size > UINT32_MAX) return false;
    text = allocate_text(size);
    if (!text) return false;
    if (backend.read(object, 0, text.get(), static_cast<uint32_t>(size)) != VXIO_IO_OK)
        return false;
    length = size;
    return true;
}

// A definition array, freed with its records by its owner.
void free_definitions(DynArray *list) noexcept { FreeStartupDefinitions(list); }
using DefinitionList = UniqueResource<DynArray *, free_definitions, 0>;

// The location of a finding: its key, and "\name" for a single-value
// definition.
Text location_text(const StartupFinding &f, size_t &length) noexcept {
    const size_t keyLength = f.key ? std::strlen(f.key) : 0;
    const bool withName = !is_empty(f.name) && f.mode == VXIO_SCAN_SINGLE_VALUE;
    const size_t nameLength = withName ? std::strlen(f.name) : 0;
    length = keyLength + (withName ? 1 + nameLength : 0);
    Text text = allocate_text(length + 1);
    if (!text) return text;
    if (keyLength) std::memcpy(text.get(), f.key, keyLength);
    if (withName) {
        text.get()[keyLength] = '\\';
        std::memcpy(text.get() + keyLength + 1, f.name, nameLength);
    }
    text.get()[length] = '\0';
    return text;
}

// Fills the location outputs. A null *outLocation gets a new block of
// text length + 3 bytes (its size goes to *outLocationLength), unless
// *outLocationLength already holds text length + 2: that pair is left
// alone. A block the caller passes back is reused only when the length
// beside it says that the text and its terminator fit; otherwise it is
// left as it is, never written past.
void fill_location(const StartupFinding &f, char **outLocation,
                   uint64_t *outLocationLength) noexcept {
    if (!outLocation || !outLocationLength) return;
    size_t length = 0;
    Text text = location_text(f, length);
    if (!text) return;
    if (!*outLocation) {
        if (*outLocationLength == length + 2) return;
        *outLocation = static_cast<char *>(ZELTA_mymalloc(length + 3));
        if (!*outLocation) return;
        *outLocationLength = length + 3;
    } else if (*outLocationLength < length + 1) {
        return;
    }
    std::memcpy(*outLocation, text.get(), length + 1);
}

}  // namespace
}  // namespace vxio::startup

using namespace vxio::startup;

extern "C" DynArray *VOXA_IO_OpenStartupScan(IoObject *definition, DynArray *nameList) noexcept {
    if (!definition) return nullptr;
    if (InitSystemLocations() != 0) return nullptr;
    DefinitionList definitions(VOXA_arrNew());
    if (!definitions) return nullptr;
    Text text;
    uint64_t length = 0;
    if (!read_definition_text(definition, text, length)) return nullptr;
    if (ParseStartupDefinitions(definitions.get(), text.get(), length) != 0) return nullptr;

    DefinitionList findings(VOXA_arrNew());
    if (!findings) return nullptr;
    Scan scan{findings.get(), nameList, nullptr};
    if (run_scan(scan, *definitions.get()) != kWalkOk) return nullptr;
    return findings.release();
}

extern "C" uint64_t VOXA_IO_ReadStartupScan(DynArray *scan, uint64_t index, char **outPath,
                                            uint64_t *outPathLength, char **outLocation,
                                            uint64_t *outLocationLength) noexcept {
    if (!scan) return VXIO_STARTUP_FAILED;
    if (index > scan->count) return VXIO_STARTUP_BAD_INDEX;
    if (index == scan->count || !scan->items[index]) return VXIO_STARTUP_FAILED;
    const auto &finding = *static_cast<const StartupFinding *>(scan->items[index]);
    fill_location(finding, outLocation, outLocationLength);

    if (!outPath || !outPathLength || *outPath || *outPathLength) return VXIO_STARTUP_FAILED;
    const char *label = finding.label ? finding.label : "";
    if (static_cast<int64_t>(finding.number) != static_cast<int64_t>(std::strlen(label)) + 1)
        return VXIO_STARTUP_DAMAGED;
    char *copy = vxio::zelta_strdup(label);
    if (!copy) return VXIO_STARTUP_FAILED;
    *outPath = copy;
    *outPathLength = static_cast<uint64_t>(finding.number);
    return VXIO_STARTUP_OK;
}

// Null is nothing to free: 0, as for any scan.
extern "C" uint64_t VOXA_IO_CloseStartupScan(DynArray *scan) noexcept {
    FreeStartupDefinitions(scan);
    return VXIO_STARTUP_OK;
}
