// Hashing named files through the File backend of vxio.dll, and the line
// format of sha1sum: shared by "vxio sha1" and "vxio scan".
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
using FileTable = Owned<FileTableTraits>;
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
