// Custom backend: an object that lives inside a storage module of the
// caller's own, reached through the module's "SpecialIO_" exports. The
// backend only forwards: the module keeps the data, the position of every
// transfer and its own record of changes, and its errors end up as 207.
#include <cstring>

#include "io/name_descriptor.h"
#include "io/object_common.h"
#include "io/storage_answers.h"
#include "platform/os.h"
#include "util/owner.h"
#include "vxio/io.h"

using vxio::platform::os;
namespace storage = vxio::io::storage;

namespace {

static_assert(storage::kEntryCount == sizeof(SpecialIoModule) / sizeof(void *),
              "one name per entry");
static_assert(storage::kDone == VXIO_IO_OK && storage::kFailed == VXIO_IO_FAILED,
              "answers become the table's statuses");

IoCustomObject *as_custom(IoObject *object) {
    return reinterpret_cast<IoCustomObject *>(object);
}

SpecialIoModule *module_of(IoObject *object) {
    return object ? static_cast<SpecialIoModule *>(as_custom(object)->module) : nullptr;
}

// The entry as a function of its own type; null when the object, its table
// or the entry is missing.
template <typename Fn>
Fn entry(IoObject *object, void *SpecialIoModule::*which) {
    SpecialIoModule *module = module_of(object);
    if (!module) return nullptr;
    return reinterpret_cast<Fn>(module->*which);
}

template <typename Fn>
Fn entry(const SpecialIoModule *module, void *SpecialIoModule::*which) {
    return module ? reinterpret_cast<Fn>(module->*which) : nullptr;
}

void close_module_handle(const SpecialIoModule *module, uintptr_t moduleHandle) {
    if (auto close = entry<SpecialIoCloseFn>(module, &SpecialIoModule::Close)) close(moduleHandle);
}

}  // namespace

// Resolves every entry of the loaded module; a module lacking Open, Close,
// FileLength or Read cannot serve a single object and is refused.
extern "C" SpecialIoModule *VOXA_IO_GetCustomIO(void *module) noexcept {
    // A null module would make the lookups search the host program.
    if (!module) return nullptr;
    auto table = vxio::zelta_new<SpecialIoModule>();
    if (!table) return nullptr;
    void **slots = reinterpret_cast<void **>(table.get());
    for (size_t i = 0; i < storage::kEntryCount; ++i)
        slots[i] = reinterpret_cast<void *>(
            os.GetProcAddress(static_cast<HMODULE>(module), storage::kEntryNames[i]));
    if (!storage::ServesObjects(slots, storage::kEntryCount)) return nullptr;
    return table.release();
}

extern "C" void VOXA_IO_FreeCustomIO(SpecialIoModule *table) noexcept {
    if (table) ZELTA_myfree(table);
}

// The module opens first: its handle is what the object is for, and a
// module that refuses the name costs no allocation. Once it has answered,
// every failure of ours hands the handle back to it.
extern "C" IoObject *VOXA_CUSTOM_Open(uintptr_t container, const char *name, uint32_t flags,
                                      uint64_t userPointer, SpecialIoModule *moduleTable,
                                      const void *callerData16,
                                      uint32_t callerDataLength) noexcept {
    if (!container || !moduleTable || !moduleTable->Open || !callerData16) return nullptr;
    const auto open = reinterpret_cast<SpecialIoOpenFn>(moduleTable->Open);
    uintptr_t moduleHandle = 0;
    if (!storage::TakeHandle(open(container, name, flags, userPointer), &moduleHandle))
        return nullptr;

    auto object = vxio::zelta_new<IoCustomObject>();
    if (!object) {
        close_module_handle(moduleTable, moduleHandle);
        return nullptr;
    }
    object->moduleHandle = moduleHandle;
    object->container = container;
    // A nameless object still gets a name block (an empty string), so the
    // engine may read the name of every custom object.
    char *nameCopy = vxio::zelta_strdup(name ? name : "");
    if (!nameCopy) {
        object.reset();
        close_module_handle(moduleTable, moduleHandle);
        return nullptr;
    }
    object->module = moduleTable;
    vxio::io::init_header(&object->header, VXIO_KIND_CUSTOM, userPointer, nameCopy, callerData16,
                          callerDataLength);
    return &object.release()->header;
}

extern "C" void VOXA_CUSTOM_Close(IoObject *object) noexcept {
    if (!object) return;
    close_module_handle(module_of(object), as_custom(object)->moduleHandle);
    if (object->name) ZELTA_myfree(object->name);
    ZELTA_myfree(object);
}

// Every Read and Write carries its own offset to the module, so there is
// no position to set.
extern "C" int32_t VOXA_CUSTOM_PositionFile(IoObject *, uint64_t) noexcept { return 0; }

extern "C" uint64_t VOXA_CUSTOM_Read(IoObject *object, uint64_t offset, void *buffer,
                                     uint32_t length) noexcept {
    const auto read = entry<SpecialIoReadFn>(object, &SpecialIoModule::Read);
    if (!read) return VXIO_IO_FAILED;
    return storage::StatusOf(read(as_custom(object)->moduleHandle, offset, buffer, length));
}

// changed stays as it is: the module tracks its own changes.
extern "C" uint64_t VOXA_CUSTOM_Write(IoObject *object, uint64_t offset, const void *buffer,
                                      uint32_t length) noexcept {
    const auto write = entry<SpecialIoWriteFn>(object, &SpecialIoModule::Write);
    if (!write) return VXIO_IO_FAILED;
    return storage::StatusOf(write(as_custom(object)->moduleHandle, offset, buffer, length));
}

// The module reports sizes in 32 bits; every value, 0xFFFFFFFF included,
// is a size and never an error.
extern "C" uint64_t VOXA_CUSTOM_GetSize(IoObject *object, uint64_t *size) noexcept {
    const auto fileLength = entry<SpecialIoFileLengthFn>(object, &SpecialIoModule::FileLength);
    if (!fileLength || !size) return VXIO_IO_FAILED;
    *size = storage::SizeOf(fileLength(as_custom(object)->moduleHandle));
    return VXIO_IO_OK;
}

extern "C" uint64_t VOXA_CUSTOM_SetEnd(IoObject *object, uint64_t newSize) noexcept {
    const auto changeSize = entry<SpecialIoChangeSizeFn>(object, &SpecialIoModule::ChangeSize);
    if (!changeSize) return VXIO_IO_FAILED;
    return storage::StatusOf(changeSize(as_custom(object)->moduleHandle, newSize));
}

// The module reopens the object for writing from the container and gives a
// handle. The old handle is not closed here: a module may answer with the
// same handle, and what becomes of a replaced one is the module's affair.
extern "C" uint64_t VOXA_CUSTOM_MakeWriteable(IoObject *object) noexcept {
    const auto enableWrite = entry<SpecialIoEnableWriteFn>(object, &SpecialIoModule::EnableWrite);
    if (!enableWrite) return VXIO_IO_FAILED;
    IoCustomObject *c = as_custom(object);
    return storage::TakeHandle(enableWrite(c->container), &c->moduleHandle) ? VXIO_IO_OK
                                                                            : VXIO_IO_FAILED;
}

// The presence test looks at the ChangeSize entry while the call goes to
// Exists. Modules already in use rely on this pairing (they offer both or
// neither), so it stays: a module with Exists but no ChangeSize gets 207.
extern "C" uint64_t VOXA_CUSTOM_FileSystemFileExists(IoObject *object, const void *name,
                                                     uint32_t nameKind) noexcept {
    SpecialIoModule *module = module_of(object);
    if (!module || !storage::MayAskExists(reinterpret_cast<void *const *>(module),
                                          storage::kEntryCount))
        return VXIO_IO_FAILED;
    const auto exists = reinterpret_cast<SpecialIoExistsFn>(module->Exists);
    vxio::ZeltaPtr<char> path(static_cast<char *>(ZELTA_mymalloc(vxio::io::kWorkBufferSize)));
    if (!path) return VXIO_IO_NO_BUFFER;
    const uint64_t status = vxio::io::convert_name(name, nameKind, path.get());
    if (status != VXIO_IO_OK) return status;
    return storage::StatusOf(exists(path.get()));
}

// A module object has no siblings that the backend could open by name.
extern "C" IoObject *VOXA_CUSTOM_FileSystemOpen(IoObject *, const void *, uint32_t,
                                                uint32_t) noexcept {
    return nullptr;
}

extern "C" uint64_t VOXA_CUSTOM_FileSystemClose(IoObject *, IoObject *object) noexcept {
    VOXA_CUSTOM_Close(object);
    return VXIO_IO_OK;
}

// Deletes the object this IoObject has open; the name arguments are not
// used.
extern "C" uint64_t VOXA_CUSTOM_FileSystemDelete(IoObject *object, const void *,
                                                 uint32_t) noexcept {
    const auto deleteFile = entry<SpecialIoDeleteFileFn>(object, &SpecialIoModule::Delete);
    if (!deleteFile) return VXIO_IO_FAILED;
    return storage::StatusOf(deleteFile(as_custom(object)->moduleHandle));
}

// Modules have no rename entry.
extern "C" uint64_t VOXA_CUSTOM_FileSystemRename(IoObject *, const void *, const void *,
                                                 uint32_t) noexcept {
    return VXIO_IO_FAILED;
}
