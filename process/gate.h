// What every export of process inspection shares: its result codes, the
// platform test, the debug-privilege bracket around the work, and opening
// a process or thread with every right first and the narrow right after.
#pragma once

#include <windows.h>

#include <cstdint>

#include "process/privileges.h"

namespace vxio::process {

enum Result : int32_t {
    kOk = 0,
    kFailed = -1,       // a system call failed or an entry point is missing
    kBadArgument = -2,  // a null list, a process id of 0 (or 4 where forbidden)
    kNoMemory = -5,
    kNotNt = 5,         // the platform is not of the NT family: nothing done
};

// GetVersionExA on a cleared 148-byte record: kFailed when the query
// fails, kNotNt when the platform id is not 2, else kOk.
int32_t CheckPlatform() noexcept;

// The debug-privilege bracket: the calling thread impersonates itself
// with SeDebugPrivilege enabled while the bracket lives, and the
// impersonation is dropped at its end if and only if it was begun. A
// failed enable is not an error: the work runs with the caller's rights.
class DebugPrivilegeBracket {
public:
    DebugPrivilegeBracket() noexcept : enabled_(EnableDebugPrivilege() != 0) {}
    ~DebugPrivilegeBracket() {
        if (enabled_) RevertImpersonation();
    }
    DebugPrivilegeBracket(const DebugPrivilegeBracket &) = delete;
    DebugPrivilegeBracket &operator=(const DebugPrivilegeBracket &) = delete;
    bool enabled() const noexcept { return enabled_; }

private:
    bool enabled_;
};

// The entry gate of a list export, after its own argument test: the
// platform test, then work() (returning a Result) inside the bracket.
template <typename Work>
int32_t RunGated(Work &&work) noexcept {
    const int32_t platform = CheckPlatform();
    if (platform != kOk) return platform;
    DebugPrivilegeBracket bracket;
    return work();
}

// OpenProcess (not inheritable) with PROCESS_ALL_ACCESS, and when that is
// refused with the narrow right: PROCESS_QUERY_INFORMATION | PROCESS_VM_READ
// for reading, PROCESS_TERMINATE for terminating. Null when both fail.
HANDLE OpenProcessToRead(DWORD processId) noexcept;
HANDLE OpenProcessToTerminate(DWORD processId) noexcept;

// A handle the system gave back, neither null nor INVALID_HANDLE_VALUE.
inline bool usable(HANDLE handle) noexcept {
    return handle != nullptr && handle != INVALID_HANDLE_VALUE;
}

// The low 32 bits of an address, as the engine's 32-bit record fields and
// arguments keep them.
inline uint32_t low32(uint64_t value) noexcept { return static_cast<uint32_t>(value); }
inline uint32_t low32(const void *pointer) noexcept {
    return low32(static_cast<uint64_t>(reinterpret_cast<uintptr_t>(pointer)));
}

}  // namespace vxio::process
