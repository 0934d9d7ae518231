// The debug-privilege bracket shared by every export that works on other
// processes (and by the physical backend when a drive refuses to open):
// the calling thread gets an impersonation token of its own with
// SeDebugPrivilege enabled, and drops it again after the work.
//
// The token functions are looked up in "ADVAPI32.DLL" and GetCurrentThread
// in "KERNEL32.DLL" at each use and released before returning, so a system
// without them only loses the privilege, never the library.
#pragma once

#include <windows.h>

namespace vxio::process {

// Enables (enable != 0) or disables (enable == 0) the named privilege in
// token, which must be open with TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY.
// 1 on success, 0 on failure. Success is judged by the thread's last error,
// so a privilege the account does not hold (ERROR_NOT_ALL_ASSIGNED) is a
// failure.
int SetTokenPrivilege(HANDLE token, const char *name, int enable) noexcept;

// 1 when the calling thread now impersonates with SeDebugPrivilege enabled,
// else 0. Call RevertImpersonation afterwards if and only if this returned
// 1. After a failed adjustment a self-impersonation begun here is left in
// place on purpose (see the definition).
int EnableDebugPrivilege() noexcept;

// Drops the calling thread's impersonation: 1 when RevertToSelf was found
// and succeeded, else 0.
int RevertImpersonation() noexcept;

}  // namespace vxio::process
