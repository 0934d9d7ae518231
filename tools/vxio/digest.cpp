// Hashing through the File backend and the sha1sum line format.
#include "digest.h"

#include <algorithm>

namespace vxio_tool {

void no_callback() {}

std::string read_failure() {
    const DWORD error = GetLastError();
    return error == ERROR_SUCCESS ? "Input/output error" : reason_text(error);
}

std::string open_failure(const char *name) {
    DWORD error = GetLastError();
    const DWORD attributes = GetFileAttributesA(name);
    // The File backend tries the descriptor commands after a refused open,
    // and they leave their own last error (often none); the attributes
    // query tells why the name cannot be used.
    if (error == ERROR_SUCCESS && attributes == INVALID_FILE_ATTRIBUTES) error = GetLastError();
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        return "Is a directory";
    }
    return reason_text(error);
}

std::string hash_named_object(const IoTable &table, std::vector<uint8_t> &buffer,
                              const char *name, bool knownToBeFile,
                              uint8_t digest[SHA1HashSize], uint64_t *size) {
    // A directory must never reach the File backend: the system refuses to
    // open it as a file, and the backend answers a refusal by clearing the
    // object's DACL to try again.
    if (!knownToBeFile) {
        const DWORD attributes = GetFileAttributesA(name);
        if (attributes == INVALID_FILE_ATTRIBUTES) return reason_text(GetLastError());
        if (attributes & FILE_ATTRIBUTE_DIRECTORY) return "Is a directory";
    }
    static const uint8_t kNoCallerData[16] = {};
    FileObject object(VOXA_FILE_Open(name, 0, 0, kNoCallerData, sizeof kNoCallerData));
    if (!object.valid()) return open_failure(name);
    // The backend's GetSize keeps only the low 32 bits of a size; the
    // object's own handle tells the whole size, streams included.
    LARGE_INTEGER whole{};
    HANDLE handle = reinterpret_cast<IoFileObject *>(object.get())->handle;
    if (!GetFileSizeEx(handle, &whole)) return read_failure();
    const uint64_t end = static_cast<uint64_t>(whole.QuadPart);
    SHA1Context context;
    SHA1Reset(&context);
    for (uint64_t offset = 0; offset < end;) {
        const uint32_t length = static_cast<uint32_t>(std::min<uint64_t>(end - offset, kChunk));
        SetLastError(ERROR_SUCCESS);
        // 207 covers a short read too: the file shrank while being read.
        if (table.Read(object.get(), offset, buffer.data(), length) != VXIO_IO_OK)
            return read_failure();
        if (SHA1Input(&context, buffer.data(), length) != shaSuccess) return "digest failed";
        offset += length;
    }
    if (SHA1Result(&context, digest) != shaSuccess) return "digest failed";
    *size = end;
    return "";
}

std::string hex_digest(const uint8_t digest[SHA1HashSize]) {
    static const char kHex[] = "0123456789abcdef";
    std::string text;
    for (int i = 0; i < SHA1HashSize; ++i) {
        text += kHex[digest[i] >> 4];
        text += kHex[digest[i] & 15];
    }
    return text;
}

std::string digest_line(const uint8_t digest[SHA1HashSize], const char *name) {
    std::string escaped;
    bool isEscaped = false;
    for (const char *p = name; *p; ++p) {
        switch (*p) {
        case '\\': escaped += "\\\\"; isEscaped = true; break;
        case '\n': escaped += "\\n"; isEscaped = true; break;
        case '\r': escaped += "\\r"; isEscaped = true; break;
        default: escaped += *p; break;
        }
    }
    return (isEscaped ? "\\" : "") + hex_digest(digest) + "  " + escaped + "\n";
}

}  // namespace vxio_tool
