// storage_module: a storage module for vxio's custom backend that keeps
// named objects in memory. It is the template for module authors: copy it,
// keep the signatures and the meaning of the results, and replace the
// in-memory store with your own storage (an archive, a database, a remote
// store).
//
// How vxio uses a module
//   The engine loads the module (LoadLibraryA) and passes its handle to
//   VOXA_IO_GetCustomIO, which looks the "SpecialIO_" exports up by name.
//   SpecialIO_Open, SpecialIO_Close, SpecialIO_FileLength and
//   SpecialIO_Read are required: a module without one of them is refused.
//   Every other export is optional; vxio answers 207 (failure) for an
//   operation whose export is missing. The module must stay loaded while
//   vxio uses its table. All calls come on the caller's thread.
//
// Values that cross the interface
//   container     pointer-sized value that names a store. vxio never
//                 interprets it: it passes it to SpecialIO_Open and keeps it
//                 for SpecialIO_EnableWrite. Here it comes from
//                 StorageModule_CreateContainer.
//   module handle pointer-sized, non-zero value returned by SpecialIO_Open
//                 or SpecialIO_EnableWrite; vxio passes it to every other
//                 call for that object and gives it back to SpecialIO_Close.
//   booleans      one byte: 1 success, 0 failure. vxio does not ask why.
//
// Exports (x64: a single calling convention; names undecorated, see the
// .def file)
//   uintptr_t StorageModule_CreateContainer(void)
//       A new, empty store; 0 when memory runs out. Owned by the caller,
//       freed by StorageModule_DestroyContainer.
//   void StorageModule_DestroyContainer(uintptr_t container)
//       Frees the store, its objects and every handle of it not yet closed
//       (vxio does not close a handle replaced by SpecialIO_EnableWrite).
//       Close the vxio objects of the store first. 0 is ignored.
//   uintptr_t SpecialIO_Open(uintptr_t container, const char *name,
//                            uint32_t flags, uint64_t userPointer)      [required]
//       Opens the object called name (a null name is the empty name).
//       flags bit 0: writeable handle; bit 1: create the object, empty,
//       when it does not exist. userPointer is the engine's, unused here.
//       Returns a handle, or 0 when the container is 0, the object does not
//       exist and bit 1 is clear, or memory runs out. The container
//       remembers the name for SpecialIO_EnableWrite.
//   uintptr_t SpecialIO_Create(uintptr_t container, const char *name,
//                              uint32_t flags, uint64_t userPointer)
//       As SpecialIO_Open with bits 0 and 1 set; an existing object is
//       emptied. vxio resolves it but does not call it.
//   void SpecialIO_Close(uintptr_t handle)                              [required]
//       Releases the handle (the object stays in the store). 0 is ignored.
//   uint32_t SpecialIO_FileLength(uintptr_t handle)                     [required]
//       The object's size; 0 for a deleted object. Sizes are 32-bit, so
//       the store refuses to grow an object past 0xFFFFFFFF bytes.
//   uint8_t SpecialIO_Read(uintptr_t handle, uint64_t offset,
//                          void *buffer, uint32_t length)               [required]
//       Copies length bytes from offset into the caller's buffer: all or
//       nothing, 0 when the range runs past the end. A zero length
//       succeeds for any offset up to the size.
//   uint8_t SpecialIO_Write(uintptr_t handle, uint64_t offset,
//                           const void *buffer, uint32_t length)
//       Copies length bytes from the caller's buffer to offset, growing the
//       object (a gap is filled with zeros). 0 on a read-only handle, a
//       deleted object or a size past 0xFFFFFFFF.
//   uint8_t SpecialIO_Write_at(uintptr_t handle, uint64_t offset,
//                              const void *buffer, uint32_t length)
//       The same as SpecialIO_Write; vxio resolves it but does not call it.
//   uint8_t SpecialIO_DeleteFile(uintptr_t handle)
//       Removes the object the handle has open (not a named one); the
//       handle must still be closed. 0 on a read-only handle.
//   uint8_t SpecialIO_ChangeSize(uintptr_t handle, uint64_t newSize)
//       Shrinks or grows (with zeros) the object. 0 on a read-only handle,
//       a deleted object or a size past 0xFFFFFFFF.
//   uintptr_t SpecialIO_EnableWrite(uintptr_t container)
//       A new writeable handle to the object last opened in the container,
//       or 0. vxio puts it in place of the object's handle and does not
//       close the old one; the store frees it with the container.
//   uint8_t SpecialIO_Exists(const char *path)
//       1 when an object of that name is in any live store. vxio calls it
//       only when SpecialIO_ChangeSize is exported as well.
//
// Build switches (vxio's tests use the variants; a real module needs none):
//   STORAGE_MODULE_MINIMAL       only the four required exports remain, so
//                                vxio answers 207 for every optional one;
//   STORAGE_MODULE_NO_READ       SpecialIO_Read is left out, so vxio
//                                refuses the module;
//   STORAGE_MODULE_NO_CHANGESIZE SpecialIO_ChangeSize is left out, so vxio
//                                never calls SpecialIO_Exists either.
// Each variant has its own .def file listing exactly what it exports.
//
// Building a module: any compiler that makes a 64-bit DLL with undecorated
// C exports. With mingw-w64:
//   x86_64-w64-mingw32-g++ -std=c++17 -O2 -shared -static
//       -o storage_module.dll storage_module.cpp storage_module.def
// (one command line). The .def file pins the undecorated export names.
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr uint32_t kFlagWriteable = 1u << 0;
constexpr uint32_t kFlagCreate = 1u << 1;
constexpr uint64_t kLargestObject = 0xFFFFFFFFu;  // what FileLength can report

struct Store;

struct Handle {
    Store *store;
    std::string name;
    bool writeable;
};

struct Store {
    std::map<std::string, std::vector<uint8_t>> objects;
    std::string lastOpened;
};

// One lock for the whole module: SpecialIO_Exists looks into every store,
// and stores may be used from several threads.
std::mutex g_lock;
std::set<Store *> g_stores;
// Every handle not yet closed. A value that is not in here (0, a closed
// handle, garbage) is refused instead of being followed.
std::set<Handle *> g_handles;

Store *live_store(uintptr_t container) {
    auto *store = reinterpret_cast<Store *>(container);
    return g_stores.count(store) ? store : nullptr;
}

// The handle's object, or null once it has been deleted.
std::vector<uint8_t> *object_of(Handle *handle) {
    auto it = handle->store->objects.find(handle->name);
    return it == handle->store->objects.end() ? nullptr : &it->second;
}

Handle *as_handle(uintptr_t value) {
    auto *handle = reinterpret_cast<Handle *>(value);
    return g_handles.count(handle) ? handle : nullptr;
}

uintptr_t open_handle(uintptr_t container, const char *name, uint32_t flags, bool empty) {
    std::lock_guard<std::mutex> guard(g_lock);
    Store *store = live_store(container);
    if (!store) return 0;
    const std::string key = name ? name : "";
    try {
        auto it = store->objects.find(key);
        if (it == store->objects.end()) {
            if (!(flags & kFlagCreate)) return 0;
            it = store->objects.emplace(key, std::vector<uint8_t>()).first;
        } else if (empty) {
            it->second.clear();
        }
        auto handle = std::make_unique<Handle>(Handle{store, key, (flags & kFlagWriteable) != 0});
        g_handles.insert(handle.get());
        store->lastOpened = key;
        return reinterpret_cast<uintptr_t>(handle.release());
    } catch (const std::bad_alloc &) {
        return 0;
    }
}

#if !defined(STORAGE_MODULE_MINIMAL)
// The checks and the growth of every write.
bool write_range(uintptr_t value, uint64_t offset, const void *buffer, uint32_t length) {
    std::lock_guard<std::mutex> guard(g_lock);
    Handle *handle = as_handle(value);
    if (!handle || !handle->writeable || (length && !buffer)) return false;
    std::vector<uint8_t> *data = object_of(handle);
    if (!data || offset > kLargestObject || length > kLargestObject - offset) return false;
    try {
        if (offset + length > data->size()) data->resize(offset + length);
    } catch (const std::bad_alloc &) {
        return false;
    }
    if (length) std::memcpy(data->data() + offset, buffer, length);
    return true;
}
#endif

}  // namespace

extern "C" {

uintptr_t StorageModule_CreateContainer(void) noexcept {
    Store *store = new (std::nothrow) Store;
    if (!store) return 0;
    std::lock_guard<std::mutex> guard(g_lock);
    try {
        g_stores.insert(store);
    } catch (const std::bad_alloc &) {
        delete store;
        return 0;
    }
    return reinterpret_cast<uintptr_t>(store);
}

void StorageModule_DestroyContainer(uintptr_t container) noexcept {
    std::lock_guard<std::mutex> guard(g_lock);
    Store *store = live_store(container);
    if (!store) return;
    for (auto it = g_handles.begin(); it != g_handles.end();) {
        if ((*it)->store != store) {
            ++it;
            continue;
        }
        delete *it;
        it = g_handles.erase(it);
    }
    g_stores.erase(store);
    delete store;
}

uintptr_t SpecialIO_Open(uintptr_t container, const char *name, uint32_t flags,
                         uint64_t /*userPointer*/) noexcept {
    return open_handle(container, name, flags, false);
}

void SpecialIO_Close(uintptr_t value) noexcept {
    std::lock_guard<std::mutex> guard(g_lock);
    Handle *handle = as_handle(value);
    if (!handle) return;
    g_handles.erase(handle);
    delete handle;
}

uint32_t SpecialIO_FileLength(uintptr_t value) noexcept {
    std::lock_guard<std::mutex> guard(g_lock);
    Handle *handle = as_handle(value);
    std::vector<uint8_t> *data = handle ? object_of(handle) : nullptr;
    return data ? static_cast<uint32_t>(data->size()) : 0;
}

#ifndef STORAGE_MODULE_NO_READ
uint8_t SpecialIO_Read(uintptr_t value, uint64_t offset, void *buffer, uint32_t length) noexcept {
    std::lock_guard<std::mutex> guard(g_lock);
    Handle *handle = as_handle(value);
    if (!handle || (length && !buffer)) return 0;
    std::vector<uint8_t> *data = object_of(handle);
    if (!data || offset > data->size() || length > data->size() - offset) return 0;
    if (length) std::memcpy(buffer, data->data() + offset, length);
    return 1;
}
#endif

#if !defined(STORAGE_MODULE_MINIMAL)
uintptr_t SpecialIO_Create(uintptr_t container, const char *name, uint32_t flags,
                           uint64_t /*userPointer*/) noexcept {
    return open_handle(container, name, flags | kFlagWriteable | kFlagCreate, true);
}

uint8_t SpecialIO_Write(uintptr_t value, uint64_t offset, const void *buffer,
                        uint32_t length) noexcept {
    return write_range(value, offset, buffer, length) ? 1 : 0;
}

uint8_t SpecialIO_Write_at(uintptr_t value, uint64_t offset, const void *buffer,
                           uint32_t length) noexcept {
    return write_range(value, offset, buffer, length) ? 1 : 0;
}

uint8_t SpecialIO_DeleteFile(uintptr_t value) noexcept {
    std::lock_guard<std::mutex> guard(g_lock);
    Handle *handle = as_handle(value);
    if (!handle || !handle->writeable) return 0;
    return handle->store->objects.erase(handle->name) ? 1 : 0;
}

#ifndef STORAGE_MODULE_NO_CHANGESIZE
uint8_t SpecialIO_ChangeSize(uintptr_t value, uint64_t newSize) noexcept {
    std::lock_guard<std::mutex> guard(g_lock);
    Handle *handle = as_handle(value);
    if (!handle || !handle->writeable || newSize > kLargestObject) return 0;
    std::vector<uint8_t> *data = object_of(handle);
    if (!data) return 0;
    try {
        data->resize(newSize);
    } catch (const std::bad_alloc &) {
        return 0;
    }
    return 1;
}
#endif

uintptr_t SpecialIO_EnableWrite(uintptr_t container) noexcept {
    std::string name;
    {
        std::lock_guard<std::mutex> guard(g_lock);
        Store *store = live_store(container);
        if (!store) return 0;
        try {
            name = store->lastOpened;
        } catch (const std::bad_alloc &) {
            return 0;
        }
    }
    return open_handle(container, name.c_str(), kFlagWriteable, false);
}

uint8_t SpecialIO_Exists(const char *path) noexcept {
    if (!path) return 0;
    std::lock_guard<std::mutex> guard(g_lock);
    try {
        const std::string key = path;
        for (Store *store : g_stores)
            if (store->objects.count(key)) return 1;
    } catch (const std::bad_alloc &) {
    }
    return 0;
}
#endif

}  // extern "C"

// Where vxio's headers are at hand, the exports are checked against the
// signatures vxio calls them with (a noexcept function converts only to the
// pointer type of exactly its own signature).
#if __has_include(<vxio/io.h>)
#include <type_traits>

#include <vxio/io.h>

#define STORAGE_MODULE_CHECK(fn, type) \
    static_assert(std::is_convertible_v<decltype(&fn), type>, #fn " has the wrong signature")
STORAGE_MODULE_CHECK(SpecialIO_Open, SpecialIoOpenFn);
STORAGE_MODULE_CHECK(SpecialIO_Close, SpecialIoCloseFn);
STORAGE_MODULE_CHECK(SpecialIO_FileLength, SpecialIoFileLengthFn);
#ifndef STORAGE_MODULE_NO_READ
STORAGE_MODULE_CHECK(SpecialIO_Read, SpecialIoReadFn);
#endif
#if !defined(STORAGE_MODULE_MINIMAL)
STORAGE_MODULE_CHECK(SpecialIO_Create, SpecialIoOpenFn);
STORAGE_MODULE_CHECK(SpecialIO_Write, SpecialIoWriteFn);
STORAGE_MODULE_CHECK(SpecialIO_Write_at, SpecialIoWriteFn);
STORAGE_MODULE_CHECK(SpecialIO_DeleteFile, SpecialIoDeleteFileFn);
#ifndef STORAGE_MODULE_NO_CHANGESIZE
STORAGE_MODULE_CHECK(SpecialIO_ChangeSize, SpecialIoChangeSizeFn);
#endif
STORAGE_MODULE_CHECK(SpecialIO_EnableWrite, SpecialIoEnableWriteFn);
STORAGE_MODULE_CHECK(SpecialIO_Exists, SpecialIoExistsFn);
#endif
#endif
