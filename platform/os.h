// The platform seam: every operating-system call the library makes goes
// through this one table of function pointers, which defaults to the real
// functions. Tests replace entries (to fail a call with a chosen error, hide
// an entry point, count allocations or serve recorded answers) and put
// them back with SeamEntry. No logic lives here: each entry is the system
// function itself, with its own signature.
#pragma once

#include <windows.h>

#include <tlhelp32.h>

#include <io.h>
#include <mbstring.h>
#include <string.h>

namespace vxio::platform {

struct OsTable {
    // Process heap (allocation family).
    HANDLE(WINAPI *GetProcessHeap)();
    LPVOID(WINAPI *HeapAlloc)(HANDLE, DWORD, SIZE_T);
    LPVOID(WINAPI *HeapReAlloc)(HANDLE, DWORD, LPVOID, SIZE_T);
    BOOL(WINAPI *HeapFree)(HANDLE, DWORD, LPVOID);
    SIZE_T(WINAPI *HeapCompact)(HANDLE, DWORD);

    // Critical sections and threads.
    BOOL(WINAPI *InitializeCriticalSectionAndSpinCount)(LPCRITICAL_SECTION, DWORD);
    void(WINAPI *DeleteCriticalSection)(LPCRITICAL_SECTION);
    void(WINAPI *EnterCriticalSection)(LPCRITICAL_SECTION);
    BOOL(WINAPI *TryEnterCriticalSection)(LPCRITICAL_SECTION);
    void(WINAPI *LeaveCriticalSection)(LPCRITICAL_SECTION);
    DWORD(WINAPI *GetCurrentThreadId)();
    HANDLE(WINAPI *GetCurrentProcess)();

    // Errors.
    DWORD(WINAPI *GetLastError)();
    void(WINAPI *SetLastError)(DWORD);

    // Files.
    HANDLE(WINAPI *CreateFileA)(LPCSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE);
    BOOL(WINAPI *ReadFile)(HANDLE, LPVOID, DWORD, LPDWORD, LPOVERLAPPED);
    BOOL(WINAPI *WriteFile)(HANDLE, LPCVOID, DWORD, LPDWORD, LPOVERLAPPED);
    BOOL(WINAPI *SetFilePointerEx)(HANDLE, LARGE_INTEGER, PLARGE_INTEGER, DWORD);
    DWORD(WINAPI *GetFileSize)(HANDLE, LPDWORD);
    BOOL(WINAPI *SetEndOfFile)(HANDLE);
    BOOL(WINAPI *CloseHandle)(HANDLE);
    DWORD(WINAPI *GetFileAttributesA)(LPCSTR);
    BOOL(WINAPI *DeleteFileA)(LPCSTR);
    BOOL(WINAPI *MoveFileExA)(LPCSTR, LPCSTR, DWORD);
    BOOL(WINAPI *SetFileAttributesA)(LPCSTR, DWORD);
    UINT(WINAPI *GetWindowsDirectoryA)(LPSTR, UINT);

    // Devices and raw disks.
    BOOL(WINAPI *DeviceIoControl)(HANDLE, DWORD, LPVOID, DWORD, LPVOID, DWORD, LPDWORD,
                                  LPOVERLAPPED);
    DWORD(WINAPI *SetFilePointer)(HANDLE, LONG, PLONG, DWORD);
    UINT(WINAPI *SetErrorMode)(UINT);
    LPVOID(WINAPI *VirtualAlloc)(LPVOID, SIZE_T, DWORD, DWORD);
    BOOL(WINAPI *VirtualFree)(LPVOID, SIZE_T, DWORD);

    // Modules: system entry points that may be missing are looked up by
    // name at each use and released after.
    HMODULE(WINAPI *LoadLibraryA)(LPCSTR);
    HMODULE(WINAPI *GetModuleHandleA)(LPCSTR);
    FARPROC(WINAPI *GetProcAddress)(HMODULE, LPCSTR);
    BOOL(WINAPI *FreeLibrary)(HMODULE);

    // Files and directories of the security-descriptor walks.
    HANDLE(WINAPI *FindFirstFileA)(LPCSTR, LPWIN32_FIND_DATAA);
    BOOL(WINAPI *FindNextFileA)(HANDLE, LPWIN32_FIND_DATAA);
    BOOL(WINAPI *FindClose)(HANDLE);
    BOOL(WINAPI *GetVersionExA)(LPOSVERSIONINFOA);

    // Security descriptors, access lists and SIDs.
    BOOL(WINAPI *MakeAbsoluteSD)(PSECURITY_DESCRIPTOR, PSECURITY_DESCRIPTOR, LPDWORD, PACL,
                                 LPDWORD, PACL, LPDWORD, PSID, LPDWORD, PSID, LPDWORD);
    BOOL(WINAPI *GetSecurityDescriptorControl)(PSECURITY_DESCRIPTOR,
                                               PSECURITY_DESCRIPTOR_CONTROL, LPDWORD);
    BOOL(WINAPI *IsValidAcl)(PACL);
    BOOL(WINAPI *IsValidSid)(PSID);
    BOOL(WINAPI *GetAclInformation)(PACL, LPVOID, DWORD, ACL_INFORMATION_CLASS);
    BOOL(WINAPI *GetAce)(PACL, DWORD, LPVOID *);
    BOOL(WINAPI *DeleteAce)(PACL, DWORD);
    BOOL(WINAPI *EqualSid)(PSID, PSID);
    DWORD(WINAPI *GetLengthSid)(PSID);
    BOOL(WINAPI *InitializeAcl)(PACL, DWORD, DWORD);
    BOOL(WINAPI *AddAce)(PACL, DWORD, DWORD, LPVOID, DWORD);
    BOOL(WINAPI *LookupAccountSidA)(LPCSTR, PSID, LPSTR, LPDWORD, LPSTR, LPDWORD, PSID_NAME_USE);
    BOOL(WINAPI *LookupAccountNameA)(LPCSTR, LPCSTR, PSID, LPDWORD, LPSTR, LPDWORD,
                                     PSID_NAME_USE);
    HLOCAL(WINAPI *LocalAlloc)(UINT, SIZE_T);
    HLOCAL(WINAPI *LocalFree)(HLOCAL);

    // Registry.
    LSTATUS(WINAPI *RegOpenKeyExA)(HKEY, LPCSTR, DWORD, REGSAM, PHKEY);
    LSTATUS(WINAPI *RegConnectRegistryA)(LPCSTR, HKEY, PHKEY);
    LSTATUS(WINAPI *RegEnumKeyExA)(HKEY, DWORD, LPSTR, LPDWORD, LPDWORD, LPSTR, LPDWORD,
                                   PFILETIME);
    LSTATUS(WINAPI *RegCloseKey)(HKEY);
    LSTATUS(WINAPI *RegQueryValueExA)(HKEY, LPCSTR, LPDWORD, LPDWORD, LPBYTE, LPDWORD);
    LSTATUS(WINAPI *RegEnumValueA)(HKEY, DWORD, LPSTR, LPDWORD, LPDWORD, LPDWORD, LPBYTE,
                                   LPDWORD);
    LSTATUS(WINAPI *RegSetValueExA)(HKEY, LPCSTR, DWORD, DWORD, const BYTE *, DWORD);
    LSTATUS(WINAPI *RegDeleteValueA)(HKEY, LPCSTR);
    LSTATUS(WINAPI *RegDeleteKeyA)(HKEY, LPCSTR);

    // System locations and paths.
    UINT(WINAPI *GetSystemDirectoryA)(LPSTR, UINT);
    void(WINAPI *GetSystemInfo)(LPSYSTEM_INFO);
    DWORD(WINAPI *GetLongPathNameA)(LPCSTR, LPSTR, DWORD);
    DWORD(WINAPI *GetShortPathNameA)(LPCSTR, LPSTR, DWORD);

    // Processes, threads and their memory.
    HANDLE(WINAPI *OpenProcess)(DWORD, BOOL, DWORD);
    BOOL(WINAPI *ReadProcessMemory)(HANDLE, LPCVOID, LPVOID, SIZE_T, SIZE_T *);
    BOOL(WINAPI *WriteProcessMemory)(HANDLE, LPVOID, LPCVOID, SIZE_T, SIZE_T *);
    SIZE_T(WINAPI *VirtualQueryEx)(HANDLE, LPCVOID, PMEMORY_BASIC_INFORMATION, SIZE_T);
    BOOL(WINAPI *TerminateProcess)(HANDLE, UINT);
    DWORD(WINAPI *SuspendThread)(HANDLE);
    DWORD(WINAPI *ResumeThread)(HANDLE);
    HANDLE(WINAPI *CreateThread)(LPSECURITY_ATTRIBUTES, SIZE_T, LPTHREAD_START_ROUTINE, LPVOID,
                                 DWORD, LPDWORD);
    DWORD(WINAPI *WaitForSingleObjectEx)(HANDLE, DWORD, BOOL);
    BOOL(WINAPI *TerminateThread)(HANDLE, DWORD);
    ULONGLONG(WINAPI *GetTickCount64)();
    BOOL(WINAPI *DuplicateHandle)(HANDLE, HANDLE, HANDLE, LPHANDLE, DWORD, BOOL, DWORD);
    DWORD(WINAPI *GetCurrentProcessId)();
    HANDLE(WINAPI *CreateToolhelp32Snapshot)(DWORD, DWORD);
    BOOL(WINAPI *Process32First)(HANDLE, LPPROCESSENTRY32);
    BOOL(WINAPI *Process32Next)(HANDLE, LPPROCESSENTRY32);
    int(WINAPI *lstrlenA)(LPCSTR);

    // Text conversion with the ANSI code page.
    int(WINAPI *WideCharToMultiByte)(UINT, DWORD, LPCWCH, int, LPSTR, int, LPCCH, LPBOOL);

    // Multibyte text of the C runtime (code-page dependent).
    unsigned char *(__cdecl *mbslwr)(unsigned char *);
    int(__cdecl *mbscmp)(const unsigned char *, const unsigned char *);
    unsigned char *(__cdecl *mbsstr)(const unsigned char *, const unsigned char *);
    char *(__cdecl *strlwr)(char *);
    int(__cdecl *access)(const char *, int);
};

// The live table. Defaults to the real functions.
extern OsTable os;

// The real functions, for putting entries back.
extern const OsTable real_os;

// Replaces one entry of the table for the lifetime of the guard:
//   SeamEntry guard(&OsTable::HeapAlloc, &failing_heap_alloc);
template <typename Fn>
class SeamEntry {
public:
    SeamEntry(Fn OsTable::*entry, Fn replacement) : entry_(entry), saved_(os.*entry) {
        os.*entry_ = replacement;
    }
    ~SeamEntry() { os.*entry_ = saved_; }
    SeamEntry(const SeamEntry &) = delete;
    SeamEntry &operator=(const SeamEntry &) = delete;

private:
    Fn OsTable::*entry_;
    Fn saved_;
};

}  // namespace vxio::platform
