// Definition records of the startup scan: the parsed text turned into
// StartupDefinition records (owned strings from ZELTA_mymalloc) in a
// DynArray, and their release.
#pragma once

#include <windows.h>

#include "startup/definition_text.h"
#include "vxio/startup.h"

namespace vxio::startup {

// The registry root handle of a parsed root; null for Root::None.
HKEY RootKey(Root root);

// Parses text (length bytes) and appends one zero-filled StartupDefinition
// per line to list. 0, -1 (format), -5 (out of memory). On failure the
// records already appended stay in list; FreeStartupDefinitions frees them.
int ParseStartupDefinitions(DynArray *list, const char *text, size_t length) noexcept;

// Frees label, key, name and data of every record, the records and the
// array; 1 (also for null).
int FreeStartupDefinitions(DynArray *list) noexcept;

// A new record holding copies of the given strings (empty or null -> null
// field); null when out of memory. Shared by the parser and the scan.
StartupDefinition *NewStartupRecord(uint32_t id, const char *label, int32_t number, HKEY root,
                                    uint32_t view, const char *key, uint32_t mode,
                                    const char *name, uint32_t action, const char *data) noexcept;

// Frees one record and its strings (null is ignored).
void FreeStartupRecord(StartupDefinition *record) noexcept;

}  // namespace vxio::startup
