// Token helpers of the stream functions. Every entry point is
// looked up by name at each use and the module released afterwards.
#include "fs/token_privilege.h"

#include "platform/library.h"
#include "platform/os.h"
#include "util/owner.h"

namespace vxio::fs {

using platform::os;
using platform::RuntimeLibrary;

namespace {

// TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY.
constexpr DWORD kAdjustAndQuery = 40;
static_assert((TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY) == kAdjustAndQuery, "token access");

// A one-entry privilege record: 4 bytes of count, 4 of padding, then the
// LUID and the attributes. 16 is the buffer length the first adjustment is
// given for the previous state.
constexpr DWORD kOnePrivilegeRecord = 16;
static_assert(sizeof(TOKEN_PRIVILEGES) == kOnePrivilegeRecord, "one-entry privilege record");

}  // namespace

bool EnableTokenPrivilege(const char *privilegeName) noexcept {
    // Declared before the token so that the token is closed first and the
    // module released after it.
    RuntimeLibrary advapi("Advapi32.dll");
    auto openToken = advapi.get<decltype(&::OpenProcessToken)>("OpenProcessToken");
    auto lookup = advapi.get<decltype(&::LookupPrivilegeValueA)>("LookupPrivilegeValueA");
    auto adjust = advapi.get<decltype(&::AdjustTokenPrivileges)>("AdjustTokenPrivileges");
    if (!openToken || !lookup || !adjust) return false;

    UniqueHandle token;
    if (!openToken(os.GetCurrentProcess(), kAdjustAndQuery, token.addressof())) {
        token.release();  // nothing was opened; whatever was written is not ours
        return false;
    }
    LUID luid{};
    if (!lookup(nullptr, privilegeName, &luid)) return false;

    // First call: "change" the privilege to attributes 0 and receive its
    // previous state. The verdict is read from the last error, which a
    // successful call sets to 0 or to ERROR_NOT_ALL_ASSIGNED; it is cleared
    // first so that a stale code from an earlier call never decides it.
    TOKEN_PRIVILEGES newState{};
    newState.PrivilegeCount = 1;
    newState.Privileges[0].Luid = luid;
    newState.Privileges[0].Attributes = 0;
    // Cleared: when the privilege did not change the system reports no
    // entry at all, and the attributes below must then start from 0.
    TOKEN_PRIVILEGES previous{};
    DWORD returnedLength = 0;
    os.SetLastError(ERROR_SUCCESS);
    adjust(token.get(), FALSE, &newState, kOnePrivilegeRecord, &previous, &returnedLength);
    if (os.GetLastError() != ERROR_SUCCESS) return false;

    // Second call: the previous state, for this one privilege, enabled.
    previous.PrivilegeCount = 1;
    previous.Privileges[0].Luid = luid;
    previous.Privileges[0].Attributes |= SE_PRIVILEGE_ENABLED;
    os.SetLastError(ERROR_SUCCESS);
    adjust(token.get(), FALSE, &previous, returnedLength, nullptr, nullptr);
    return os.GetLastError() == ERROR_SUCCESS;
}

}  // namespace vxio::fs
