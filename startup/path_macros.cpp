// Path macros of the startup scan (see path_macros.h).
//
// Definitions and repair texts name well-known folders by macro, e.g.
//   %sysdir%\drivers\x.sys   ->  C:\windows\system32\drivers\x.sys
//   \systemroot\x.dll        ->  C:\windows\x.dll
// Expansion lowers the whole text first and then searches the macros
// case-sensitively, so macros match in any case ("%SYSDIR%" too), the rest
// of the text comes out in lower case and the values keep the case the
// system reported. The one macro written in mixed case,
// "%CommonProgramFiles%", can therefore never match and is left in the
// text (lowered). These are the engine's rules and are kept.
//
// The values live in process-wide buffers, rewritten by every
// InitSystemLocations (each VOXA_IO_OpenStartupScan) without a lock: two
// scans must not be opened at once.
#include "startup/path_macros.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "platform/library.h"
#include "platform/os.h"
#include "util/owner.h"

namespace vxio::startup {

using platform::os;

namespace {

constexpr size_t kPathSize = 260;          // MAX_PATH, terminator included
constexpr size_t kDirectorySize = 256;     // the Windows and system directory values
constexpr size_t kDriveSize = 3;           // "C:" and its terminator
constexpr DWORD kRegistryDataSize = 1024;  // registry data buffers
constexpr int kPasses = 4;                 // expansion passes over a text

// Shell folder numbers (CSIDL_*).
constexpr int kCommonStartupFolder = 24;
constexpr int kStartupFolder = 7;
constexpr int kCommonFilesFolder = 43;

// The value buffers. Several macros share one.
char g_drive[kDriveSize];
char g_windows[kDirectorySize];
char g_system[kDirectorySize];
char g_userStartup[kPathSize];
char g_commonStartup[kPathSize];
char g_programFiles[kPathSize];
char g_temp[kPathSize];  // never filled: "%tempdir%" expands to nothing
// Not cleared by InitSystemLocations and written only when the shell
// answers, so it keeps the last folder the shell reported (empty until
// then). No macro can reach it (see above); it is kept as the engine has it.
char g_commonFiles[kPathSize];

struct PathMacro {
    const char *macro;
    const char *value;
};

// Searched in this order in every pass.
const PathMacro kMacros[] = {
    {"%windrive%", g_drive},
    {"%windir%", g_windows},
    {"%sysdir%", g_system},
    {"%curuserstartdir%", g_userStartup},
    {"%alluserstartdir%", g_commonStartup},
    {"%progdir%", g_programFiles},
    {"%tempdir%", g_temp},
    {"%programfiles%", g_programFiles},
    {"%systemroot%", g_windows},
    {"\\systemroot", g_windows},
    {"%CommonProgramFiles%", g_commonFiles},
};


using FolderPathFn = HRESULT(WINAPI *)(HWND, int, HANDLE, DWORD, LPSTR);
using IsWow64ProcessFn = BOOL(WINAPI *)(HANDLE, PBOOL);

// Copies text into buffer when it fits; a value that does not fit is left
// out rather than cut into a wrong path.
bool copy_value(char *buffer, size_t size, const char *text, size_t length) {
    if (length >= size) return false;
    std::memcpy(buffer, text, length);
    buffer[length] = '\0';
    return true;
}

// The drive part of a path as the runtime's path split gives it: the first
// two bytes when the second is a colon ("C:"), else nothing (a UNC path has
// no drive).
void take_drive(const char *path, char (&drive)[kDriveSize]) {
    drive[0] = '\0';
    if (path[0] != '\0' && path[1] == ':') copy_value(drive, sizeof drive, path, 2);
}

// "ProgramFilesDir" in the process's own registry view (a 32-bit process
// on a 64-bit system reads the 32-bit folder). False when the key or the
// value cannot be read, or the value is longer than a path.
bool read_program_files(const UniqueKey &key) {
    char data[kRegistryDataSize];
    DWORD type = 0;
    DWORD size = sizeof data;
    if (os.RegQueryValueExA(key.get(), "ProgramFilesDir", nullptr, &type,
                            reinterpret_cast<BYTE *>(data), &size) != ERROR_SUCCESS) {
        return false;
    }
    // The stored text need not carry its terminator.
    const size_t length = strnlen(data, size < sizeof data ? size : sizeof data);
    return copy_value(g_programFiles, sizeof g_programFiles, data, length);
}

// One shell folder into buffer, only when the shell succeeds with a
// non-empty answer; otherwise the buffer keeps what it holds.
void take_shell_folder(FolderPathFn folderPath, int folder, char *buffer) {
    char answer[kPathSize] = {};
    if (folderPath(nullptr, folder, nullptr, 0, answer) < 0) return;
    answer[kPathSize - 1] = '\0';
    if (answer[0] != '\0') copy_value(buffer, kPathSize, answer, std::strlen(answer));
}

}  // namespace

int InitSystemLocations() noexcept {
    for (char *value : {g_drive, g_windows, g_system, g_userStartup, g_commonStartup,
                        g_programFiles, g_temp}) {
        value[0] = '\0';
    }

    char windows[kPathSize];
    const UINT windowsLength = os.GetWindowsDirectoryA(windows, kPathSize);
    if (windowsLength != 0 && windowsLength < kPathSize) {
        copy_value(g_windows, sizeof g_windows, windows, windowsLength);
        take_drive(windows, g_drive);
        StripTrailingSeparators(g_windows);
        StripTrailingSeparators(g_drive);
    }

    const UINT systemLength = os.GetSystemDirectoryA(g_system, sizeof g_system);
    if (systemLength == 0 || systemLength >= sizeof g_system) g_system[0] = '\0';
    StripTrailingSeparators(g_system);

    UniqueKey key;
    const bool opened = os.RegOpenKeyExA(HKEY_LOCAL_MACHINE,
                                         "Software\\Microsoft\\Windows\\CurrentVersion", 0,
                                         KEY_READ, key.addressof()) == ERROR_SUCCESS;
    if (!opened) key.release();  // whatever the failed call left there is no key
    if (!opened || !read_program_files(key)) {
        std::snprintf(g_programFiles, sizeof g_programFiles, "%s\\Program Files", g_drive);
    }

    // The shell is released again in every case, also when it lacks the
    // entry point (leaving it loaded would only pin it for nothing).
    platform::RuntimeLibrary shell("shell32.dll");
    auto folderPath = shell.get<FolderPathFn>("SHGetFolderPath");
    if (!folderPath) folderPath = shell.get<FolderPathFn>("SHGetFolderPathA");
    if (!folderPath) return 0;
    take_shell_folder(folderPath, kCommonStartupFolder, g_commonStartup);
    take_shell_folder(folderPath, kStartupFolder, g_userStartup);
    // When the shell cannot name the common files folder, the engine builds
    // "<Program Files>\Common Files" and throws it away: the buffer keeps its
    // previous folder. Nothing can read the built text, so it is not built.
    take_shell_folder(folderPath, kCommonFilesFolder, g_commonFiles);
    return 0;
}

char *ReplaceFirst(const char *text, size_t textLength, const char *macro,
                   const char *value) noexcept {
    if (!text || !macro || !value) return nullptr;
    // Nothing to replace: the pieces cannot be put together either.
    const char *at = std::strstr(text, macro);
    if (!at) return nullptr;
    const size_t macroLength = std::strlen(macro);
    const size_t valueLength = std::strlen(value);
    if (textLength < macroLength || valueLength >= SIZE_MAX - (textLength - macroLength)) {
        return nullptr;
    }
    const size_t size = textLength - macroLength + valueLength + 1;
    const size_t head = static_cast<size_t>(at - text);
    const char *tail = at + macroLength;
    const size_t tailLength = std::strlen(tail);
    // textLength is the caller's word for the text's length; a text longer
    // than that does not fit the block.
    if (head + valueLength + tailLength >= size) return nullptr;
    auto *joined = static_cast<char *>(ZELTA_mymalloc(size));
    if (!joined) return nullptr;
    std::memset(joined, 0, size);
    std::memcpy(joined, text, head);
    std::memcpy(joined + head, value, valueLength);
    std::memcpy(joined + head + valueLength, tail, tailLength);
    return joined;
}

char *ExpandPathMacros(const char *text) noexcept {
    if (!text || !*text) return nullptr;
    char *expanded = zelta_strdup(text);
    if (!expanded) return nullptr;
    os.strlwr(expanded);
    // Each pass replaces the first occurrence of each macro, so a macro
    // written five times keeps its fifth; an unknown "%name%" costs all
    // four passes and stays.
    for (int pass = 0; pass < kPasses; ++pass) {
        for (const PathMacro &row : kMacros) {
            if (!std::strstr(expanded, row.macro)) continue;
            char *next = ReplaceFirst(expanded, std::strlen(expanded), row.macro, row.value);
            ZELTA_myfree(expanded);
            if (!next) return nullptr;
            expanded = next;
        }
        if (!std::strchr(expanded, '%')) break;
    }
    return expanded;
}

bool IsSixtyFourBitSystem() noexcept {
    SYSTEM_INFO info{};
    os.GetSystemInfo(&info);
    if (info.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64) return true;
    // A 32-bit process on a 64-bit system: kernel32 is always loaded, so it
    // is looked up without taking a reference.
    HMODULE kernel = os.GetModuleHandleA("kernel32");
    if (!kernel) return false;
    auto isWow64 = reinterpret_cast<IsWow64ProcessFn>(
        reinterpret_cast<void *>(os.GetProcAddress(kernel, "IsWow64Process")));
    if (!isWow64) return false;
    BOOL wow64 = FALSE;
    return isWow64(os.GetCurrentProcess(), &wow64) && wow64 == 1;
}

bool IsPathSeparator(char c) noexcept { return c == '\\' || c == '/'; }

void StripTrailingSeparators(char *path) noexcept {
    if (!path) return;
    size_t length = std::strlen(path);
    while (length > 0 && IsPathSeparator(path[length - 1])) path[--length] = '\0';
}

bool IsBlank(const char *text) noexcept {
    // A missing text has nothing to scan either.
    if (!text) return true;
    for (; *text; ++text) {
        const auto c = static_cast<unsigned char>(*text);
        if (!((c >= 9 && c <= 13) || c == ' ' || c == 160)) return false;
    }
    return true;
}

bool IsDirectory(const char *path) noexcept {
    if (!path) return false;
    const DWORD attributes = os.GetFileAttributesA(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

}  // namespace vxio::startup
