// Reading a signature list from a file through the File backend. Kept
// apart from signatures.cpp, whose parser builds without Windows headers.
#include <algorithm>
#include <string>
#include <vector>

#include "digest.h"
#include "signatures.h"
#include "tool.h"

namespace vxio_tool {

constexpr uint64_t kReserveMax = 2000000;

bool load_signatures(const std::string &path, SignatureTable &out, std::string &error,
                     const std::string &shown) {
    const std::string &named = shown.empty() ? path : shown;
    out = SignatureTable();
    // A directory never reaches the File backend, which would answer the
    // system's refusal by clearing its DACL.
    const DWORD attributes = GetFileAttributesA(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        error = named + ": " +
                (attributes == INVALID_FILE_ATTRIBUTES ? reason_text(GetLastError()) : "Is a directory");
        return false;
    }
    static const uint8_t kNoCallerData[16] = {};
    FileObject file(VOXA_FILE_Open(path.c_str(), 0, 0, kNoCallerData, sizeof kNoCallerData));
    if (!file.valid()) {
        error = named + ": " + open_failure(path.c_str());
        return false;
    }
    // The backend's GetSize keeps only the low 32 bits; the handle tells
    // the whole size.
    LARGE_INTEGER whole{};
    if (!GetFileSizeEx(reinterpret_cast<IoFileObject *>(file.get())->handle, &whole)) {
        error = named + ": " + read_failure();
        return false;
    }
    const uint64_t end = static_cast<uint64_t>(whole.QuadPart);
    std::vector<uint8_t> buffer(static_cast<size_t>(std::min<uint64_t>(end, kChunk)) + 1);
    // Lines of a list are some 70 bytes; room for that many saves copying
    // the table as it grows. Only a hint: held to twice the largest list
    // we expect, whatever the file claims to be.
    out.reserve(static_cast<size_t>(std::min<uint64_t>(end / 64, kReserveMax)));
    SignatureParser parser(out);
    bool parsed = true;
    for (uint64_t offset = 0; parsed && offset < end;) {
        const uint32_t length = static_cast<uint32_t>(std::min<uint64_t>(end - offset, kChunk));
        SetLastError(ERROR_SUCCESS);
        if (VOXA_FILE_Read(file.get(), offset, buffer.data(), length) != VXIO_IO_OK) {
            error = named + ": " + read_failure();
            return false;
        }
        parsed = parser.feed(reinterpret_cast<const char *>(buffer.data()), length);
        offset += length;
    }
    if (!parsed || !parser.finish()) {
        error = named + ":" + std::to_string(parser.line()) + ": bad signature line (" +
                parser.reason() + ")";
        out = SignatureTable();
        return false;
    }
    return true;
}

}  // namespace vxio_tool
