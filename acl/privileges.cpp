// Token privileges switched on and off around descriptor work. The token
// functions are looked up in "Advapi32.dll" at each use.
#include "acl/engine.h"
#include "platform/library.h"

namespace vxio::acl {

using platform::os;
using platform::RuntimeLibrary;

uint32_t switch_privilege(const char *name, bool on) {
    if (!name || !*name) return kBadArgument;
    RuntimeLibrary advapi("Advapi32.dll");
    auto openToken = advapi.get<decltype(&::OpenProcessToken)>("OpenProcessToken");
    auto lookup = advapi.get<decltype(&::LookupPrivilegeValueA)>("LookupPrivilegeValueA");
    auto adjust = advapi.get<decltype(&::AdjustTokenPrivileges)>("AdjustTokenPrivileges");
    if (!openToken || !lookup || !adjust) return kNoMemory;

    UniqueHandle token;
    if (!openToken(os.GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY,
                   token.addressof()))
        return kPrivilegeFailed;
    TOKEN_PRIVILEGES privileges{};
    privileges.PrivilegeCount = 1;
    if (!lookup(nullptr, name, &privileges.Privileges[0].Luid)) return kPrivilegeFailed;
    privileges.Privileges[0].Attributes = on ? SE_PRIVILEGE_ENABLED : 0;
    // A privilege the token does not hold is "adjusted" with the error
    // ERROR_NOT_ALL_ASSIGNED: that counts as a failure.
    os.SetLastError(ERROR_SUCCESS);
    if (!adjust(token.get(), FALSE, &privileges, 0, nullptr, nullptr)) return kPrivilegeFailed;
    if (os.GetLastError() != ERROR_SUCCESS) return kPrivilegeFailed;
    return kOk;
}

void switch_engine_privileges_off() {
    for (const char *name : {"SeBackupPrivilege", "SeRestorePrivilege", "SeSecurityPrivilege",
                             "SeTakeOwnershipPrivilege"})
        switch_privilege(name, false);
}

}  // namespace vxio::acl
