// Debug privilege for the calling thread. Entry points are late-bound by
// name at each use: the DLL's import table never names them, and a missing
// one is a failed privilege step, which callers ignore.
#include "process/privileges.h"

#include "process/gate.h"

#include <cstring>

#include "platform/library.h"
#include "platform/os.h"

namespace vxio::process {

using platform::os;
using platform::RuntimeLibrary;

namespace {

// A one-entry privilege record is 4 bytes of count, 4 of padding before the
// 8-byte aligned entry (LUID, attributes): 16 bytes in all, the length the
// token functions are given.
constexpr DWORD kOnePrivilegeRecord = 16;
static_assert(sizeof(TOKEN_PRIVILEGES) == kOnePrivilegeRecord, "one-entry privilege record");


}  // namespace

int SetTokenPrivilege(HANDLE token, const char *name, int enable) noexcept {
    RuntimeLibrary advapi("ADVAPI32.DLL");
    if (!advapi.loaded()) return 0;
    auto adjust = advapi.get<decltype(&::AdjustTokenPrivileges)>("AdjustTokenPrivileges");
    auto lookup = advapi.get<decltype(&::LookupPrivilegeValueA)>("LookupPrivilegeValueA");
    if (!adjust || !lookup) return 0;

    LUID id{};
    if (!lookup(nullptr, name, &id)) return 0;

    // First pass: ask for the privilege's current state (by "changing" it to
    // attributes 0), then write that state back with only the enabled bit
    // changed, so that any other attribute bits the token had survive.
    TOKEN_PRIVILEGES request{};
    request.PrivilegeCount = 1;
    request.Privileges[0].Luid = id;
    request.Privileges[0].Attributes = 0;
    TOKEN_PRIVILEGES previous{};
    DWORD previousLength = kOnePrivilegeRecord;
    // The outcome is read from the last error, not from the result: the call
    // "succeeds" with ERROR_NOT_ALL_ASSIGNED when the account lacks the
    // privilege, and that must count as failure. Clearing first keeps a
    // stale code from an earlier call out of the verdict.
    os.SetLastError(ERROR_SUCCESS);
    adjust(token, FALSE, &request, kOnePrivilegeRecord, &previous, &previousLength);
    if (os.GetLastError() != ERROR_SUCCESS) return 0;

    previous.PrivilegeCount = 1;
    previous.Privileges[0].Luid = id;
    if (enable)
        previous.Privileges[0].Attributes |= SE_PRIVILEGE_ENABLED;
    else
        previous.Privileges[0].Attributes &= ~static_cast<DWORD>(SE_PRIVILEGE_ENABLED);
    os.SetLastError(ERROR_SUCCESS);
    adjust(token, FALSE, &previous, previousLength, nullptr, nullptr);
    return os.GetLastError() == ERROR_SUCCESS ? 1 : 0;
}

int EnableDebugPrivilege() noexcept {
    // Declared in this order so that, on the way out, handles are closed
    // before the modules that produced them are released.
    RuntimeLibrary advapi("ADVAPI32.DLL");
    if (!advapi.loaded()) return 0;
    auto openThreadToken = advapi.get<decltype(&::OpenThreadToken)>("OpenThreadToken");
    auto impersonateSelf = advapi.get<decltype(&::ImpersonateSelf)>("ImpersonateSelf");
    if (!openThreadToken || !impersonateSelf) return 0;
    RuntimeLibrary kernel("KERNEL32.DLL");
    if (!kernel.loaded()) return 0;
    auto currentThread = kernel.get<decltype(&::GetCurrentThread)>("GetCurrentThread");
    if (!currentThread) return 0;

    HANDLE thread = currentThread();
    if (!usable(thread)) return 0;

    constexpr DWORD kAdjustAndQuery = TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY;
    HANDLE token = nullptr;
    bool opened = openThreadToken(thread, kAdjustAndQuery, FALSE, &token) != FALSE;
    // A thread that is not impersonating has no token of its own: give it a
    // copy of the process token to adjust, so the privilege never leaks
    // into the process token and other threads.
    if (!opened && os.GetLastError() == ERROR_NO_TOKEN &&
        impersonateSelf(SecurityImpersonation))
        opened = openThreadToken(thread, kAdjustAndQuery, FALSE, &token) != FALSE;

    int result = 0;
    if (opened && usable(token)) result = SetTokenPrivilege(token, "SeDebugPrivilege", 1);
    // On failure the self-impersonation begun above stays in place: callers
    // revert only after a success, so the thread keeps impersonating itself
    // with the rights it already had, which changes nothing it can reach.
    if (usable(token)) os.CloseHandle(token);
    os.CloseHandle(thread);
    return result;
}

int RevertImpersonation() noexcept {
    RuntimeLibrary advapi("ADVAPI32.DLL");
    auto revert = advapi.get<decltype(&::RevertToSelf)>("RevertToSelf");
    return revert && revert() ? 1 : 0;
}

}  // namespace vxio::process
