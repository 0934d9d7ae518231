// Test support: entry points the library looks up at run time, served by
// name through the seam's GetProcAddress from a table the test fills. A
// name mapped to null is missing; a name not in the table is the system's.
#pragma once

#include <map>
#include <string>
#include <utility>

#include "platform/os.h"

namespace vxio::test {

inline std::map<std::string, FARPROC> served;

inline FARPROC WINAPI serving_lookup(HMODULE module, LPCSTR name) {
    auto it = HIWORD(reinterpret_cast<uintptr_t>(name)) ? served.find(name) : served.end();
    return it != served.end() ? it->second : vxio::platform::real_os.GetProcAddress(module, name);
}

template <typename Fn>
FARPROC as_proc(Fn fn) {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void *>(fn));
}

// Serves the table (these entries, and whatever is added later) for its
// lifetime, and empties it at the end.
struct Served {
    vxio::platform::SeamEntry<FARPROC(WINAPI *)(HMODULE, LPCSTR)> seam{&vxio::platform::OsTable::GetProcAddress,
                                                                       &serving_lookup};
    explicit Served(std::map<std::string, FARPROC> entries = {}) { served = std::move(entries); }
    ~Served() { served.clear(); }
    Served(const Served &) = delete;
    Served &operator=(const Served &) = delete;
};

}  // namespace vxio::test
