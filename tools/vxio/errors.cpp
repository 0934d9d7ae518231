// Win32 error codes in the words a shell user expects next to a file name.
#include "tool.h"


namespace vxio_tool {

namespace {

// The system's own sentence for error, in UTF-8 without its final period
// and line break; empty when the system has none.
std::string system_message(DWORD error) {
    wchar_t text[512];
    const DWORD length =
        FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error,
                       0, text, sizeof text / sizeof text[0], nullptr);
    if (length == 0 || length >= sizeof text / sizeof text[0]) return "";
    std::wstring wide(text, length);
    while (!wide.empty() && (wide.back() == L'\n' || wide.back() == L'\r' || wide.back() == L' ' ||
                             wide.back() == L'.'))
        wide.pop_back();
    if (wide.empty()) return "";
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()),
                                          nullptr, 0, nullptr, nullptr);
    if (bytes <= 0) return "";
    std::string utf8(static_cast<size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), &utf8[0], bytes,
                        nullptr, nullptr);
    return utf8;
}

}  // namespace

std::string reason_text(DWORD error) {
    switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
        return "No such file or directory";
    case ERROR_ACCESS_DENIED:
        return "Permission denied";
    default: {
        const std::string message = system_message(error);
        const std::string code = "error " + std::to_string(error);
        return message.empty() ? code : message + " (" + code + ")";
    }
    }
}

}  // namespace vxio_tool
