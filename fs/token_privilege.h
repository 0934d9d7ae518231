// The process-wide privilege switch of the stream functions, its entry
// points looked up by name in Advapi32 at each use (a missing one is a
// failed step, never a load failure of the DLL). The RevertToSelf call
// they also make is process::RevertImpersonation.
#pragma once

namespace vxio::fs {

// Enables one named privilege ("SeBackupPrivilege") in the token of the
// current process, with the classic two-call adjustment: the first call
// sets the privilege's attributes to 0 and reads its previous state, the
// second writes that state back with SE_PRIVILEGE_ENABLED added. True only
// when the last error is 0 after both calls, so a privilege the account
// does not hold (ERROR_NOT_ALL_ASSIGNED) is a failure. The privilege stays
// enabled afterwards; nothing switches it off again.
bool EnableTokenPrivilege(const char *privilegeName) noexcept;

}  // namespace vxio::fs
