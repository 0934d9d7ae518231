// Hashing through the File backend and the sha1sum line format.
#include "digest.h"

#include <shellapi.h>

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
        DWORD attributes = GetFileAttributesA(name);
        if (attributes == INVALID_FILE_ATTRIBUTES) {
            // The attributes query fails on some objects that still are
            // entries of their directory (a FIFO under Wine); the listing
            // tells what they are, and the open below what they hold.
            const DWORD error = GetLastError();
            WIN32_FIND_DATAA found;
            FindHandle find(FindFirstFileA(name, &found));
            if (!find.valid() || error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)
                return reason_text(error);
            attributes = found.dwFileAttributes;
        }
        if (attributes & FILE_ATTRIBUTE_DIRECTORY) return "Is a directory";
    }
    static const uint8_t kNoCallerData[16] = {};
    FileObject object(VOXA_FILE_Open(name, 0, 0, kNoCallerData, sizeof kNoCallerData));
    if (!object.valid()) return open_failure(name);
    HANDLE handle = reinterpret_cast<IoFileObject *>(object.get())->handle;
    const std::string notRegular = not_regular_reason(handle);
    if (!notRegular.empty()) return notRegular;
    // The backend's GetSize keeps only the low 32 bits of a size; the
    // object's own handle tells the whole size, streams included.
    LARGE_INTEGER whole{};
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

std::string utf8_of(const std::wstring &text) {
    if (text.empty()) return "";
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                          nullptr, 0, nullptr, nullptr);
    if (bytes <= 0) return std::string(text.size(), '?');
    std::string utf8(static_cast<size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &utf8[0], bytes,
                        nullptr, nullptr);
    return utf8;
}

std::wstring wide_of_ansi(const std::string &text) {
    if (text.empty()) return L"";
    const int units =
        MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    if (units <= 0) return std::wstring(text.size(), L'?');
    std::wstring wide(static_cast<size_t>(units), L'\0');
    MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), &wide[0], units);
    return wide;
}

std::wstring wide_of_utf8(const std::string &text) {
    // Longer than any path the system takes: not a name.
    if (text.empty() || text.size() > 4 * 32767) return L"";
    const int size = static_cast<int>(text.size());
    const int units =
        MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, nullptr, 0);
    if (units <= 0) return L"";
    std::wstring wide(static_cast<size_t>(units), L'\0');
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, &wide[0], units);
    return wide;
}

std::string library_name_of(const std::string &name, std::string *failure) {
    std::wstring wide = wide_of_utf8(name);
    if (wide.empty()) wide = wide_of_ansi(name);
    const std::wstring full = wide.empty() ? wide : full_path(wide);
    if (full.empty()) {
        *failure = reason_text(ERROR_FILE_NOT_FOUND);
        return "";
    }
    return library_name(full, false, failure);
}

bool exact_ansi(const std::wstring &text, std::string *ansi) {
    ansi->clear();
    if (text.empty()) return true;
    BOOL lossy = FALSE;
    const int bytes = WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, text.data(),
                                          static_cast<int>(text.size()), nullptr, 0, nullptr,
                                          &lossy);
    if (bytes <= 0 || lossy) return false;
    ansi->assign(static_cast<size_t>(bytes), '\0');
    WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, text.data(), static_cast<int>(text.size()),
                        &(*ansi)[0], bytes, nullptr, &lossy);
    // A name that comes back different would open another file.
    return !lossy && wide_of_ansi(*ansi) == text;
}

std::vector<std::wstring> wide_arguments(int argc, char **argv) {
    std::vector<std::wstring> wide;
    for (int i = 0; i < argc; ++i) wide.push_back(wide_of_ansi(argv[i]));
    int count = 0;
    LPWSTR *line = CommandLineToArgvW(GetCommandLineW(), &count);
    if (!line) return wide;
    // The handler's argv starts at the command's name, the line's at the
    // program: argv[i] is line[count - argc + i] when both lists agree.
    const int skip = count - argc;
    bool paired = skip >= 0;
    std::vector<std::wstring> typed;
    for (int i = 0; paired && i < argc; ++i) {
        typed.emplace_back(line[skip + i]);
        std::string ansi;
        const int bytes = WideCharToMultiByte(CP_ACP, 0, typed.back().data(),
                                              static_cast<int>(typed.back().size()), nullptr, 0,
                                              nullptr, nullptr);
        if (bytes > 0) {
            ansi.assign(static_cast<size_t>(bytes), '\0');
            WideCharToMultiByte(CP_ACP, 0, typed.back().data(),
                                static_cast<int>(typed.back().size()), &ansi[0], bytes, nullptr,
                                nullptr);
        }
        paired = ansi == argv[i];
    }
    LocalFree(line);
    return paired ? typed : wide;
}

std::vector<std::string> utf8_arguments(int argc, char **argv) {
    const std::vector<std::wstring> typed = wide_arguments(argc, argv);
    std::vector<std::string> utf8;
    for (size_t i = 1; i < typed.size(); ++i) utf8.push_back(utf8_of(typed[i]));
    return utf8;
}

namespace {

bool is_separator(wchar_t c) { return c == L'\\' || c == L'/'; }

std::wstring system_full_path(const std::wstring &path) {
    DWORD size = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    // The path may change between the two calls: a few tries, then none.
    for (int attempt = 0; attempt < 3 && size > 0; ++attempt) {
        std::wstring full(size, L'\0');
        const DWORD written = GetFullPathNameW(path.c_str(), size, &full[0], nullptr);
        if (written == 0) break;
        if (written < size) {
            full.resize(written);
            return full;
        }
        size = written;
    }
    return L"";
}

}  // namespace

std::wstring full_path(const std::wstring &given) {
    static const std::wstring kLong = L"\\\\?\\", kDevice = L"\\\\.\\";
    std::wstring full;
    if (given.compare(0, 4, kLong) == 0 || given.compare(0, 4, kDevice) == 0) {
        full = given;  // the user named the object exactly
    } else {
        // "C:name" is relative to drive C's current folder.
        size_t cut = given.find_last_of(L"\\/");
        cut = cut != std::wstring::npos ? cut + 1 : (given.size() >= 2 && given[1] == L':' ? 2 : 0);
        const std::wstring last = given.substr(cut);
        if (last.empty() || last == L"." || last == L"..") {
            full = system_full_path(given);
        } else {
            full = system_full_path(cut ? given.substr(0, cut) : std::wstring(L"."));
            if (full.empty()) return full;
            if (!is_separator(full.back())) full += L'\\';
            full += last;
        }
        if (full.empty()) return full;
        if (full.compare(0, 2, L"\\\\") == 0) {
            full = full.compare(0, 4, kDevice) == 0 ? full : L"\\\\?\\UNC\\" + full.substr(2);
        } else {
            full = kLong + full;
        }
    }
    // "\\?\C:\" keeps its separator: without it the name is the drive's
    // device, not its root folder.
    while (full.size() > 7 && is_separator(full.back())) full.pop_back();
    return full;
}

std::string library_name(const std::wstring &path, bool directory, std::string *failure) {
    const size_t limit = directory ? kLibraryDirectoryLimit : kLibraryFileLimit;
    std::string ansi;
    const bool exact = exact_ansi(path, &ansi);
    if (exact && ansi.size() <= limit) return ansi;
    std::wstring shortPath(32768, L'\0');
    const DWORD length =
        GetShortPathNameW(path.c_str(), &shortPath[0], static_cast<DWORD>(shortPath.size()));
    if (length == 0 || length >= shortPath.size()) {
        const DWORD error = GetLastError();
        *failure = length == 0 && error != ERROR_SUCCESS ? reason_text(error)
                   : exact ? reason_text(ERROR_FILENAME_EXCED_RANGE)
                           : "the name has no form in the ANSI code page";
        return "";
    }
    shortPath.resize(length);
    if (exact_ansi(shortPath, &ansi) && ansi.size() <= limit) return ansi;
    *failure = exact ? reason_text(ERROR_FILENAME_EXCED_RANGE)
                     : "the name has no form in the ANSI code page, nor a short name";
    return "";
}

std::string not_regular_reason(HANDLE handle) {
    switch (GetFileType(handle)) {
    case FILE_TYPE_DISK: return "";
    case FILE_TYPE_PIPE: return "not a regular file (a pipe or FIFO)";
    case FILE_TYPE_CHAR: return "not a regular file (a character device)";
    default: return "not a regular file";
    }
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
