// Hashing named files through the File backend of vxio.dll, the names the
// library is given for them and the line format of sha1sum: shared by
// "vxio sha1" and "vxio scan".
#ifndef VXIO_TOOL_DIGEST_H
#define VXIO_TOOL_DIGEST_H

#include <stdint.h>

#include <string>
#include <vector>

#include "tool.h"
#include "vxio/io.h"
#include "vxio/lock_sha1.h"

namespace vxio_tool {

// Transfer size: large enough that the per-call cost of the backend does
// not show, small enough to stay far below the 32-bit length of Read.
constexpr uint32_t kChunk = 1u << 20;

struct FileTableTraits {
    using Value = IoTable *;
    static IoTable *invalid() { return nullptr; }
    static void close(IoTable *table) { VOXA_IO_FreeTableForFileIO(table); }
};
struct FileObjectTraits {
    using Value = IoObject *;
    static IoObject *invalid() { return nullptr; }
    static void close(IoObject *object) { VOXA_FILE_Close(object); }
};
struct FindTraits {
    using Value = HANDLE;
    static HANDLE invalid() { return INVALID_HANDLE_VALUE; }
    static void close(HANDLE find) { FindClose(find); }
};
using FileTable = Owned<FileTableTraits>;
using FindHandle = Owned<FindTraits>;  // a directory search
using FileObject = Owned<FileObjectTraits>;

// The table builder demands three entry points of its caller and keeps
// them beside the backend's operations; the tool's backends never call
// back, so it hands over one that does nothing.
void no_callback();
#define VXIO_TOOL_TABLE(builder)                                             \
    builder(reinterpret_cast<IoCallerEntry>(::vxio_tool::no_callback),     \
            reinterpret_cast<IoCallerEntry>(::vxio_tool::no_callback),     \
            reinterpret_cast<IoCallerEntry>(::vxio_tool::no_callback), nullptr)

// The reason of a failed transfer: the system's error when one was left,
// else a plain read error (the backend reports only its status).
std::string read_failure();

// The reason a named object cannot be opened. Opening a directory as a
// file fails with "access denied", which would send the user looking at
// permissions.
std::string open_failure(const char *name);

// Hashes the whole object called name (a file, or a file's named stream
// "file:name:$DATA") through the File backend, reading with buffer (of
// kChunk bytes). Unless the caller already knows name to be a file (a
// directory walk said so), it is checked first: a directory is refused
// before the backend sees it. Sets *size to the bytes hashed. Returns ""
// or the reason of failure.
std::string hash_named_object(const IoTable &table, std::vector<uint8_t> &buffer,
                              const char *name, bool knownToBeFile,
                              uint8_t digest[SHA1HashSize], uint64_t *size);

// Names. The library takes names in the ANSI code page and its calls stop
// at MAX_PATH, while the user sees and types Unicode names of any length.
// So every object has two names: its wide "\\?\" full path, which the
// tool's own system calls use and which is shown in UTF-8, and the ANSI
// name the library reads it by (the same path, or a shorter form of it
// built from short names).

// UTF-16 -> UTF-8; ANSI code page -> UTF-16; UTF-8 -> UTF-16 (empty when
// text is not UTF-8).
std::string utf8_of(const std::wstring &text);
std::wstring wide_of_ansi(const std::string &text);
std::wstring wide_of_utf8(const std::string &text);

// The ANSI form of text when every character has one (no best-fit
// look-alikes, no '?'), else false.
bool exact_ansi(const std::wstring &text, std::string *ansi);

// The command's arguments as the user typed them: argv[i] is the 8-bit
// form of result[i]. The 8-bit argument list has lost the characters the
// ANSI code page cannot show; the wide command line still has them. When
// the two lists do not pair up, the 8-bit ones are used.
std::vector<std::wstring> wide_arguments(int argc, char **argv);
// The same after the command's name, in UTF-8: what the commands that take
// names parse.
std::vector<std::string> utf8_arguments(int argc, char **argv);

// The "\\?\" full path of given (relative, absolute, UNC or already
// "\\?\"), without trailing separators except a drive's root. Only the
// directory part goes through the system's path rules: the last component
// is kept as it is, so "nul.txt", "con" or "com1.exe" stay files and never
// turn into devices. Empty when the system cannot make the path full.
std::wstring full_path(const std::wstring &given);

// The longest name the library's 8-bit calls accept: a file's path, and a
// directory's path with the "\*.*" its listing appends.
constexpr size_t kLibraryFileLimit = MAX_PATH - 1;
constexpr size_t kLibraryDirectoryLimit = MAX_PATH - 5;

// The ANSI name through which the library reaches the object at path (a
// full path from full_path): the path itself, or its short form when the
// path is too long or holds characters outside the ANSI code page. Empty
// and *failure set when neither fits.
std::string library_name(const std::wstring &path, bool directory, std::string *failure);

// The same for a file named in UTF-8 (as the tool prints names and takes
// its arguments), or in ANSI bytes when name is not UTF-8 (as a list
// written by hand on this system may be).
std::string library_name_of(const std::string &name, std::string *failure);

// Why an opened object is not hashed: "" for a disk file, else what it is
// (a pipe or FIFO, a device). Such objects have no end, or one that says
// nothing about the file that was meant; their bytes are never hashed.
std::string not_regular_reason(HANDLE handle);

// 40 lower-case hex digits.
std::string hex_digest(const uint8_t digest[SHA1HashSize]);

// One output line, byte for byte as sha1sum writes it. A name holding a
// backslash, a line feed or a carriage return is escaped and the line gets
// a leading backslash to say so; others are written verbatim:
//   da39a3ee5e6b4b0d3255bfef95601890afd80709  empty.bin
//   \da39a3ee5e6b4b0d3255bfef95601890afd80709  dir\\empty.bin
std::string digest_line(const uint8_t digest[SHA1HashSize], const char *name);

}  // namespace vxio_tool

#endif  // VXIO_TOOL_DIGEST_H
