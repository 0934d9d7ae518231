// Path macros of the startup scan ("%windir%", "%sysdir%", ...), the
// process-wide values they expand to, and the small path and platform
// tests the scan uses.
#pragma once

#include <cstddef>

namespace vxio::startup {

// Fills the macro values from the running system (Windows and system
// directories, start-up folders, Program Files, common files). Called by
// every VOXA_IO_OpenStartupScan. Returns 0.
int InitSystemLocations() noexcept;

// A new lower-cased copy of text with the macros replaced (ZELTA_mymalloc,
// owned by the caller); null for a null or empty text or when out of
// memory.
char *ExpandPathMacros(const char *text) noexcept;

// text (textLength bytes) with the first occurrence of macro replaced by
// value, in a new zero-filled block; null when out of memory or when the
// pieces do not fit.
char *ReplaceFirst(const char *text, size_t textLength, const char *macro,
                   const char *value) noexcept;

// True on a 64-bit system (or a 32-bit process on one).
bool IsSixtyFourBitSystem() noexcept;

bool IsPathSeparator(char c) noexcept;
// Removes every trailing "\" or "/" in place.
void StripTrailingSeparators(char *path) noexcept;
// True when every byte is 9..13, 32 or 160 (an empty text is blank).
bool IsBlank(const char *text) noexcept;
bool IsDirectory(const char *path) noexcept;

}  // namespace vxio::startup
