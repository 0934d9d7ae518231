// Win32 error codes in the words a shell user expects next to a file name.
#include "tool.h"

namespace vxio_tool {

std::string reason_text(DWORD error) {
    switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
        return "No such file or directory";
    case ERROR_ACCESS_DENIED:
        return "Permission denied";
    default:
        return "error " + std::to_string(error);
    }
}

}  // namespace vxio_tool
