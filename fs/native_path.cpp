// Native paths into Win32 paths (see native_path.h).
//
// Module and driver lists name files the way the kernel sees them: "\??\"
// ahead of a drive path, or the Windows directory spelled "\SystemRoot" or
// "\WINDOWS". The engine wants one spelling per file (its name cache keys
// on it), so every path also comes out in lower case.
#include "fs/native_path.h"

#include <cstring>

#include "platform/os.h"

namespace vxio::fs {

using platform::os;

namespace {

// The Windows directory buffer and the longest joined path, terminator
// included.
constexpr size_t kPathSize = 260;

// "\SystemRoot\" may also follow a two-character prefix ("C:" or "\\"); the
// path must then hold at least one byte past "\SystemRoot\".
constexpr size_t kPrefixedSystemRootAt = 2;
constexpr size_t kPrefixedSystemRootMinimum = 15;

// ASCII-only case folding: the prefixes are ASCII, and a byte of a
// double-byte character (0x80 and up as a lead byte) never matches one.
char fold(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool starts_with(const char *text, const char *prefix) {
    for (; *prefix; ++text, ++prefix)
        if (fold(*text) != fold(*prefix)) return false;
    return true;
}

void lower_case(char *path) {
    // The runtime's lower-casing follows the multibyte code page, so the
    // trail bytes of double-byte characters are left alone. It fails only
    // for a null text.
    os.mbslwr(reinterpret_cast<unsigned char *>(path));
}

// The Windows directory followed by tail, over path. Nothing changes when
// the directory cannot be had or the joined text is too long for the
// 260-byte buffer or not shorter than path.
bool join_windows_directory(char *path, size_t pathLength, const char *tail) {
    char joined[kPathSize];
    const UINT directoryLength = os.GetWindowsDirectoryA(joined, kPathSize);
    // A directory too long for the buffer comes back as the size it needs.
    if (directoryLength == 0 || directoryLength >= kPathSize) return false;
    const size_t tailLength = std::strlen(tail);
    if (directoryLength + tailLength + 1 > kPathSize) return false;
    const size_t joinedLength = directoryLength + tailLength;
    if (joinedLength >= pathLength) return false;
    std::memcpy(joined + directoryLength, tail, tailLength + 1);
    // tail lies inside path, so it is copied out before path is written.
    std::memcpy(path, joined, joinedLength + 1);
    return true;
}

}  // namespace

bool NormalizeNativePath(char *path) noexcept {
    if (!path) return true;
    const size_t length = std::strlen(path);

    // Checked in this order; each tail keeps its leading backslash, e.g.
    // "\SystemRoot\System32" keeps "\System32".
    static const char kDosDevices[] = "\\??\\";
    static const char kSystemRoot[] = "\\SystemRoot\\";
    static const char kWindows[] = "\\WINDOWS\\";
    constexpr size_t kDosDevicesLength = sizeof kDosDevices - 1;
    constexpr size_t kSystemRootName = sizeof kSystemRoot - 2;  // up to the last backslash
    constexpr size_t kWindowsName = sizeof kWindows - 2;

    if (starts_with(path, kDosDevices)) {
        std::memmove(path, path + kDosDevicesLength, length - kDosDevicesLength + 1);
    } else if (starts_with(path, kSystemRoot)) {
        if (!join_windows_directory(path, length, path + kSystemRootName)) return false;
    } else if (starts_with(path, kWindows)) {
        if (!join_windows_directory(path, length, path + kWindowsName)) return false;
    } else if (length >= kPrefixedSystemRootMinimum &&
               starts_with(path + kPrefixedSystemRootAt, kSystemRoot)) {
        if (!join_windows_directory(path, length,
                                    path + kPrefixedSystemRootAt + kSystemRootName))
            return false;
    }
    lower_case(path);
    return true;
}

}  // namespace vxio::fs
