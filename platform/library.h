// A system library looked up by name at the moment of use and released
// after it: entry points that may be missing on some systems are a status
// of the call, never a load failure of vxio.dll, and the DLL's import table
// never names these modules.
#pragma once

#include "platform/os.h"

namespace vxio::platform {

class RuntimeLibrary {
public:
    explicit RuntimeLibrary(const char *name) noexcept : module_(os.LoadLibraryA(name)) {}
    ~RuntimeLibrary() {
        if (module_) {
            const DWORD error = os.GetLastError();
            os.FreeLibrary(module_);
            os.SetLastError(error);
        }
    }
    RuntimeLibrary(const RuntimeLibrary &) = delete;
    RuntimeLibrary &operator=(const RuntimeLibrary &) = delete;

    bool loaded() const noexcept { return module_ != nullptr; }

    // The entry point of that name with the type of the function it names
    // (pass decltype(&::Function)), or null when the library or the entry
    // point is missing.
    template <typename Fn>
    Fn get(const char *entry) const noexcept {
        if (!module_) return nullptr;
        return reinterpret_cast<Fn>(reinterpret_cast<void *>(os.GetProcAddress(module_, entry)));
    }

private:
    HMODULE module_;
};

}  // namespace vxio::platform
