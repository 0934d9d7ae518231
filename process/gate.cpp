// The entry gate of process inspection (see gate.h).
#include "process/gate.h"

#include "platform/os.h"

namespace vxio::process {

using platform::os;

namespace {

constexpr DWORD kAllAccess = 0x1F0FFF;  // PROCESS_ALL_ACCESS as the engine knows it
constexpr DWORD kQueryAndRead = PROCESS_QUERY_INFORMATION | PROCESS_VM_READ;

HANDLE open_process(DWORD processId, DWORD narrow) noexcept {
    HANDLE process = os.OpenProcess(kAllAccess, FALSE, processId);
    if (!process) process = os.OpenProcess(narrow, FALSE, processId);
    return process;
}

}  // namespace

int32_t CheckPlatform() noexcept {
    OSVERSIONINFOA version{};
    static_assert(sizeof version == 148, "the platform-version record is 148 bytes");
    version.dwOSVersionInfoSize = sizeof version;
    if (!os.GetVersionExA(&version)) return kFailed;
    return version.dwPlatformId == VER_PLATFORM_WIN32_NT ? kOk : kNotNt;
}

HANDLE OpenProcessToRead(DWORD processId) noexcept { return open_process(processId, kQueryAndRead); }

HANDLE OpenProcessToTerminate(DWORD processId) noexcept {
    return open_process(processId, PROCESS_TERMINATE);
}

}  // namespace vxio::process
