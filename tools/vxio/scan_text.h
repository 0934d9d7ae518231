// The texts of "vxio scan": paths as printed, name patterns, numbers and
// JSON lines. No file-system access here.
#ifndef VXIO_TOOL_SCAN_TEXT_H
#define VXIO_TOOL_SCAN_TEXT_H

#include <windows.h>

#include <stdint.h>

#include <string>

namespace vxio_tool {

// '/' when the path was given with forward slashes only (as a Unix shell
// passes it), else '\\'. Printed paths keep the user's separator, so that
// a checker on the same system finds the files again.
char preferred_separator(const std::string &given);

// The path without trailing separators, except where that would change
// what it names: "/" and "C:\" stay as they are.
std::string trim_separators(const std::string &path);

// dir + separator + name, without doubling a separator dir already ends in.
std::string join(const std::string &dir, char separator, const std::string &name);

// ":name:$DATA" -> "name" (the part of a stream name a user types).
std::string stream_name(const std::string &suffix);

// Wildcard match: '*' any run of characters (none too), '?' exactly one;
// letters match either case, '/' and '\\' match each other.
bool glob_matches(const std::string &pattern, const std::string &text);

// ANSI code page -> UTF-8, the encoding of the checkers and JSON readers
// the output is meant for; bytes that do not convert become '?'.
std::string to_utf8(const std::string &text);

// A JSON string literal (quotes included) of text, converted to UTF-8.
std::string json_string(const std::string &text);

// The same for text that already is UTF-8 (the names the scan prints).
std::string json_utf8_string(const std::string &text);

// One JSON object and its line feed; path and error are UTF-8. A null
// size is written as null, an empty sha1 as null,
// INVALID_FILE_ATTRIBUTES leaves out the attributes, a non-empty error adds
// an "error" member.
std::string json_line(const std::string &path, const char *kind, const uint64_t *size,
                      const std::string &sha1, DWORD attributes, const std::string &error);

}  // namespace vxio_tool

#endif  // VXIO_TOOL_SCAN_TEXT_H
