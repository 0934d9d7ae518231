// Where Wine, like Windows, records renames and deletions scheduled for the
// next start. Tests that schedule one read it here, and keep what was there
// before with PendingRenamesKept, which writes it back when it goes.
#pragma once

#include <windows.h>

#include <string>

namespace vxio::test {

constexpr char kSessionManager[] = "System\\CurrentControlSet\\Control\\Session Manager";
constexpr char kPendingRenames[] = "PendingFileRenameOperations";

inline std::string pending_renames() {
    std::string data(65536, '\0');
    DWORD size = 65536;
    return RegGetValueA(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames, RRF_RT_REG_MULTI_SZ,
                        nullptr, &data[0], &size)
               ? ""
               : data.substr(0, size);
}

class PendingRenamesKept {
public:
    PendingRenamesKept() : before_(pending_renames()) {}
    ~PendingRenamesKept() {
        if (before_.empty())
            RegDeleteKeyValueA(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames);
        else
            RegSetKeyValueA(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames, REG_MULTI_SZ,
                            before_.data(), static_cast<DWORD>(before_.size()));
    }
    PendingRenamesKept(const PendingRenamesKept &) = delete;
    PendingRenamesKept &operator=(const PendingRenamesKept &) = delete;

private:
    std::string before_;
};

}  // namespace vxio::test
