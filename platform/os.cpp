// The default entries of the platform seam: the real system functions.
#include "platform/os.h"

namespace vxio::platform {

const OsTable real_os = {
    ::GetProcessHeap,
    ::HeapAlloc,
    ::HeapReAlloc,
    ::HeapFree,
    ::HeapCompact,

    ::InitializeCriticalSectionAndSpinCount,
    ::DeleteCriticalSection,
    ::EnterCriticalSection,
    ::TryEnterCriticalSection,
    ::LeaveCriticalSection,
    ::GetCurrentThreadId,
    ::GetCurrentProcess,

    ::GetLastError,
    ::SetLastError,

    ::CreateFileA,
    ::ReadFile,
    ::WriteFile,
    ::SetFilePointerEx,
    ::GetFileSize,
    ::SetEndOfFile,
    ::CloseHandle,
    ::GetFileAttributesA,
    ::DeleteFileA,
    ::MoveFileExA,
    ::SetFileAttributesA,
    ::GetWindowsDirectoryA,

    ::DeviceIoControl,
    ::SetFilePointer,
    ::SetErrorMode,
    ::VirtualAlloc,
    ::VirtualFree,

    ::LoadLibraryA,
    ::GetModuleHandleA,
    ::GetProcAddress,
    ::FreeLibrary,

    ::FindFirstFileA,
    ::FindNextFileA,
    ::FindClose,
    ::GetVersionExA,

    ::MakeAbsoluteSD,
    ::GetSecurityDescriptorControl,
    ::IsValidAcl,
    ::IsValidSid,
    ::GetAclInformation,
    ::GetAce,
    ::DeleteAce,
    ::EqualSid,
    ::GetLengthSid,
    ::InitializeAcl,
    ::AddAce,
    ::LookupAccountSidA,
    ::LookupAccountNameA,
    ::LocalAlloc,
    ::LocalFree,

    ::RegOpenKeyExA,
    ::RegConnectRegistryA,
    ::RegEnumKeyExA,
    ::RegCloseKey,
    ::RegQueryValueExA,
    ::RegEnumValueA,
    ::RegSetValueExA,
    ::RegDeleteValueA,
    ::RegDeleteKeyA,

    ::GetSystemDirectoryA,
    ::GetSystemInfo,
    ::GetLongPathNameA,
    ::GetShortPathNameA,

    ::OpenProcess,
    ::ReadProcessMemory,
    ::WriteProcessMemory,
    ::VirtualQueryEx,
    ::TerminateProcess,
    ::SuspendThread,
    ::ResumeThread,
    ::CreateThread,
    ::WaitForSingleObjectEx,
    ::TerminateThread,
    ::GetTickCount64,
    ::DuplicateHandle,
    ::GetCurrentProcessId,
    ::CreateToolhelp32Snapshot,
    ::Process32First,
    ::Process32Next,
    ::lstrlenA,

    ::WideCharToMultiByte,

    ::_mbslwr,
    ::_mbscmp,
    ::_mbsstr,
    ::_strlwr,
    ::_access,
};

OsTable os = real_os;

}  // namespace vxio::platform
