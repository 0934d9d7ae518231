// Owners of system objects and library blocks: one small move-only template
// takes the close function and the invalid value, and each kind of handle
// is an alias of it. Closing keeps the thread's last-error value, so cleanup
// never changes the error a caller is about to read.
#pragma once

#include <cstdint>
#include <utility>

#include "platform/os.h"
#include "vxio/alloc.h"

namespace vxio {

// Invalid is given as an integer because INVALID_HANDLE_VALUE (-1) cannot
// be a pointer template argument.
template <typename T, auto Close, intptr_t InvalidValue>
class UniqueResource {
    static T invalid() noexcept { return reinterpret_cast<T>(InvalidValue); }

public:
    UniqueResource() noexcept : value_(invalid()) {}
    explicit UniqueResource(T value) noexcept : value_(value) {}
    ~UniqueResource() { reset(); }
    UniqueResource(UniqueResource &&other) noexcept : value_(other.release()) {}
    UniqueResource &operator=(UniqueResource &&other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    UniqueResource(const UniqueResource &) = delete;
    UniqueResource &operator=(const UniqueResource &) = delete;

    T get() const noexcept { return value_; }
    explicit operator bool() const noexcept { return value_ != invalid(); }
    T release() noexcept { return std::exchange(value_, invalid()); }
    T *addressof() noexcept { return &value_; }
    void reset() noexcept { reset(invalid()); }
    void reset(T value) noexcept {
        T old = std::exchange(value_, value);
        if (old != invalid()) {
            const DWORD error = platform::os.GetLastError();
            Close(old);
            platform::os.SetLastError(error);
        }
    }

private:
    T value_ = invalid();
};

namespace detail {
inline void close_handle(HANDLE h) noexcept { platform::os.CloseHandle(h); }
inline void free_library(HMODULE m) noexcept { platform::os.FreeLibrary(m); }
inline void close_key(HKEY k) noexcept { platform::os.RegCloseKey(k); }
inline void find_close(HANDLE h) noexcept { platform::os.FindClose(h); }
inline void zelta_free(void *p) noexcept { ZELTA_myfree(p); }
}  // namespace detail

// A handle that is INVALID_HANDLE_VALUE when invalid (files, snapshots).
using UniqueFile = UniqueResource<HANDLE, detail::close_handle, -1>;
// A handle that is null when invalid (processes, threads, events).
using UniqueHandle = UniqueResource<HANDLE, detail::close_handle, 0>;
// A module loaded with LoadLibraryA.
using UniqueModule = UniqueResource<HMODULE, detail::free_library, 0>;
// An open registry key (never a predefined root).
using UniqueKey = UniqueResource<HKEY, detail::close_key, 0>;
// A FindFirstFileA search.
using UniqueFind = UniqueResource<HANDLE, detail::find_close, -1>;

// A block from ZELTA_mymalloc, typed for convenience.
template <typename T>
class ZeltaPtr {
public:
    ZeltaPtr() noexcept = default;
    explicit ZeltaPtr(T *p) noexcept : block_(p) {}
    T *get() const noexcept { return static_cast<T *>(block_.get()); }
    T *operator->() const noexcept { return get(); }
    T &operator*() const noexcept { return *get(); }
    explicit operator bool() const noexcept { return static_cast<bool>(block_); }
    T *release() noexcept { return static_cast<T *>(block_.release()); }
    void reset(T *p = nullptr) noexcept { block_.reset(p); }

private:
    UniqueResource<void *, detail::zelta_free, 0> block_;
};

// Allocates a T-sized block (not cleared) from ZELTA_mymalloc.
template <typename T>
ZeltaPtr<T> zelta_new() noexcept {
    return ZeltaPtr<T>(static_cast<T *>(ZELTA_mymalloc(sizeof(T))));
}

// Copies a NUL-terminated text into a block of its own (length + 1 bytes);
// null when out of memory.
char *zelta_strdup(const char *text) noexcept;

}  // namespace vxio
