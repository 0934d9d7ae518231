// vxio sha1: the SHA-1 digest of files, read through the File backend of
// vxio.dll (or its Handle backend) and printed in the line format of
// sha1sum, so that "sha1sum -c" on any system can check the output.
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "check.h"
#include "digest.h"
#include "scan_text.h"
#include "tool.h"

namespace vxio_tool {
namespace {

const char kUsage[] =
    "Usage: vxio sha1 [--backend file|handle] [--json] [FILE]...\n"
    "       vxio sha1 -c|--check [LIST]...\n"
    "Print the SHA-1 digest of each FILE: 40 lower-case hex digits, two spaces,\n"
    "the name as given. With no FILE, or when FILE is -, read standard input.\n"
    "A name holding a backslash or a line break is escaped (\\\\, \\n, \\r) and\n"
    "its line starts with a backslash, so that 'sha1sum -c' accepts the output.\n"
    "Names are printed in UTF-8; a FILE named like a device (nul.txt, con) is\n"
    "read as the file, and a pipe or a device is refused, never hashed.\n"
    "\n"
    "Options:\n"
    "  --backend file|handle  read named files through the File backend (the\n"
    "              default: protected files are opened too, their protection\n"
    "              put back afterwards) or through the Handle backend\n"
    "  --json      one JSON object per line instead: path, kind, size, sha1, and\n"
    "              error (sha1 null) for a file that could not be read\n"
    "  -c, --check read SHA-1 lines (as this command or sha1sum prints them)\n"
    "              from the FILEs, or standard input, and hash each file\n"
    "              named again: NAME: OK, NAME: FAILED, or NAME: FAILED open\n"
    "              or read; the counts of failures follow on stderr\n"
    "  -h, --help  show this help and exit\n"
    "  --          end of options: what follows is a file name\n"
    "\n"
    "Exit codes: 0 every file hashed (with --check: every line matched), 1 some\n"
    "file could not be read (the others are still hashed) or, with --check,\n"
    "some line did not match or could not be read, 2 bad usage.\n";

struct HandleTableTraits {
    using Value = IoTable *;
    static IoTable *invalid() { return nullptr; }
    static void close(IoTable *table) { VOXA_IO_FreeTableForHandleIO(table); }
};
struct HandleObjectTraits {
    using Value = IoObject *;
    static IoObject *invalid() { return nullptr; }
    static void close(IoObject *object) { VOXA_HANDLE_Close(object); }
};
using HandleTable = Owned<HandleTableTraits>;
using HandleObject = Owned<HandleObjectTraits>;

// What one run of the command shares between its files: one table per
// backend serves every object, and one buffer every read. Named files go
// through the File backend unless --backend handle is given (it opens
// protected files too, putting their protection back afterwards);
// standard input always goes through the Handle backend.
struct Hasher {
    HandleTable table;
    FileTable fileTable;
    bool useFileBackend = true;
    std::vector<uint8_t> buffer;
};

// Bytes [start, end) of a seekable file, through the handle backend. The
// end comes from the caller's GetFileSizeEx: the backend's GetSize keeps
// only the low 32 bits of a size, which would cut a file of 4 GiB or more.
std::string hash_seekable(Hasher &hasher, HANDLE handle, const char *name, uint64_t start,
                          uint64_t end, SHA1Context &context) {
    static const uint8_t kNoCallerData[16] = {};
    HandleObject object(VOXA_HANDLE_Open(name, 0, 0, handle, kNoCallerData, sizeof kNoCallerData));
    if (!object.valid()) return "cannot open an I/O object";
    const IoTable &table = *hasher.table.get();
    for (uint64_t offset = start; offset < end;) {
        const uint32_t length = static_cast<uint32_t>(std::min<uint64_t>(end - offset, kChunk));
        SetLastError(ERROR_SUCCESS);
        // 207 covers a short read too: the file shrank while being read.
        if (table.Read(object.get(), offset, hasher.buffer.data(), length) != VXIO_IO_OK) {
            return read_failure();
        }
        if (SHA1Input(&context, hasher.buffer.data(), length) != shaSuccess) return "digest failed";
        offset += length;
    }
    return "";
}

// A pipe or a console, read with ReadFile up to its end. The handle
// backend cannot serve it: every Read seeks first, which a pipe cannot do
// (or pretends to), and it needs the length in advance, while a pipe's size
// is unknown until it ends; a short Read would consume bytes from the pipe
// and report only its failure, not how many it took.
std::string hash_stream(Hasher &hasher, HANDLE handle, SHA1Context &context) {
    for (;;) {
        DWORD done = 0;
        if (!ReadFile(handle, hasher.buffer.data(), kChunk, &done, nullptr)) {
            // The writer closing its end is how a pipe ends.
            if (GetLastError() == ERROR_BROKEN_PIPE) return "";
            return read_failure();
        }
        if (done == 0) return "";
        if (SHA1Input(&context, hasher.buffer.data(), done) != shaSuccess) return "digest failed";
    }
}

// Hashes what is left of an open handle, from its file pointer on (0 for a
// file just opened; for standard input redirected from a file, the part
// that earlier readers of the shared file left), setting *hashed to the
// bytes taken. Returns "" or the reason of failure.
std::string hash_handle(Hasher &hasher, HANDLE handle, const char *name,
                        uint8_t digest[SHA1HashSize], uint64_t *hashed) {
    SHA1Context context;
    SHA1Reset(&context);
    LARGE_INTEGER size{}, here{}, zero{};
    std::string failure;
    if (GetFileType(handle) == FILE_TYPE_DISK && GetFileSizeEx(handle, &size) &&
        SetFilePointerEx(handle, zero, &here, FILE_CURRENT)) {
        failure = hash_seekable(hasher, handle, name, static_cast<uint64_t>(here.QuadPart),
                                static_cast<uint64_t>(size.QuadPart), context);
    } else {
        failure = hash_stream(hasher, handle, context);
    }
    // The digest's own count of bits, read before the result clears it.
    *hashed = (uint64_t{context.Length_High} << 32 | context.Length_Low) / 8;
    if (failure.empty() && SHA1Result(&context, digest) != shaSuccess) failure = "digest failed";
    return failure;
}

// Hashes one operand ("-" is standard input) and prints its line, or its
// reason on stderr, under the name as typed (in UTF-8); with json, its
// object instead (the reason in it too). True when the digest was printed.
// A named file is reached by its full "\\?\" path, so that a file called
// like a device ("nul.txt", "con") is read as the file it is.
bool hash_operand(Hasher &hasher, const std::wstring &typed, bool json) {
    const std::string shown = utf8_of(typed);
    const char *name = shown.c_str();
    uint8_t digest[SHA1HashSize];
    uint64_t size = 0;
    std::string failure;
    const std::wstring full = typed == L"-" ? typed : full_path(typed);
    if (full.empty()) {
        failure = reason_text(GetLastError());
    } else if (typed == L"-") {
        // Standard input is the caller's handle: not ours to close.
        HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
        if (input == nullptr || input == INVALID_HANDLE_VALUE) {
            failure = "no standard input";
        } else {
            failure = hash_handle(hasher, input, name, digest, &size);
        }
    } else if (hasher.useFileBackend) {
        const std::string path = library_name(full, false, &failure);
        if (!path.empty())
            failure = hash_named_object(*hasher.fileTable.get(), hasher.buffer, path.c_str(),
                                        false, digest, &size);
    } else {
        // Writers and deleters may keep the file open: a scanner hashes
        // files in use.
        FileHandle file(CreateFileW(full.c_str(), GENERIC_READ,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
        std::string path;
        if (!file.valid() && exact_ansi(full, &path)) {
            failure = open_failure(path.c_str());
        } else if (!file.valid()) {
            failure = reason_text(GetLastError());
        } else if (!(failure = not_regular_reason(file.get())).empty()) {
            // A pipe's or a device's bytes are not the file's.
        } else {
            BY_HANDLE_FILE_INFORMATION info{};
            if (GetFileInformationByHandle(file.get(), &info) &&
                (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
                failure = "Is a directory";
            } else {
                failure = hash_handle(hasher, file.get(), name, digest, &size);
            }
        }
    }
    if (!failure.empty()) {
        fflush(stdout); // keep the lines and the messages in order on a shared terminal
        fprintf(stderr, "vxio: %s: %s\n", name, failure.c_str());
    }
    const std::string line =
        json ? json_line(shown, "file", failure.empty() ? &size : nullptr,
                         failure.empty() ? hex_digest(digest) : std::string(),
                         INVALID_FILE_ATTRIBUTES, failure)
        : failure.empty() ? digest_line(digest, name)
                          : std::string();
    fwrite(line.data(), 1, line.size(), stdout);
    return failure.empty();
}

}  // namespace

int run_sha1(int argc, char **argv) {
    // Options first, wherever they stand, so that a bad one stops the
    // command before anything is printed.
    ParsedArgs args;
    const int parsed = run_options("sha1", kUsage, utf8_arguments(argc, argv),
                                   {{"--backend", OptionKind::kText},
                                    {"--check", OptionKind::kFlag, 0, 0, "-c"},
                                    {"--json", OptionKind::kFlag}},
                                   "FILE", 0, SIZE_MAX, &args);
    if (parsed >= 0) return parsed;
    const std::string *backend = args.value("--backend");
    if (backend && *backend != "file" && *backend != "handle")
        return usage_error("sha1", "--backend takes 'file' or 'handle', not '" + *backend + "'");
    if (args.has("--check")) {
        if (backend || args.has("--json"))
            return usage_error("sha1", "--check takes neither --backend nor --json");
        // The FILEs are lists; none, or "-", is standard input.
        return run_check(args.operands, false);
    }
    std::vector<std::wstring> names;
    for (const std::string &name : args.operands) names.push_back(wide_of_utf8(name));
    if (names.empty()) names.push_back(L"-");
    const bool useFileBackend = !backend || *backend == "file";

    Hasher hasher;
    hasher.table.reset(VXIO_TOOL_TABLE(VOXA_IO_GetTableForHandleIO));
    hasher.useFileBackend = useFileBackend;
    hasher.fileTable.reset(VXIO_TOOL_TABLE(VOXA_IO_GetTableForFileIO));
    if (!hasher.table.valid() || !hasher.fileTable.valid()) {
        fputs("vxio: cannot build the I/O table\n", stderr);
        return kExitUnreadable;
    }
    hasher.buffer.resize(kChunk);

    int status = kExitOk;
    for (const std::wstring &name : names) {
        if (!hash_operand(hasher, name, args.has("--json"))) status = kExitUnreadable;
        end_if_output_closed();
    }
    return status;
}

}  // namespace vxio_tool
