// Physical-disk backend: the raw start of a physical drive or of a drive
// letter's volume, read-only, for scanning boot sectors. In boot-sector
// mode (1) a read at offset 0 steps to the next sector that carries the
// 0xAA55 boot signature, and reads at other offsets are relative to the
// boot sector last visited; in every other mode offsets are plain.
#include <cstdio>
#include <cstring>

#include <windows.h>
#include <winioctl.h>

#include "io/disk_layout.h"
#include "io/object_common.h"
#include "platform/os.h"
#include "process/privileges.h"
#include "util/owner.h"
#include "vxio/io.h"

using vxio::platform::os;
namespace disk = vxio::io::disk;

namespace {

// Device control codes, spelled out so that this file does not depend on
// which of the device headers the toolchain ships.
constexpr DWORD kLockVolume = 0x90018;      // FSCTL_LOCK_VOLUME
constexpr DWORD kUnlockVolume = 0x9001C;    // FSCTL_UNLOCK_VOLUME
constexpr DWORD kDriveGeometry = 0x70000;   // IOCTL_DISK_GET_DRIVE_GEOMETRY
constexpr DWORD kDriveLayout = 0x7400C;     // IOCTL_DISK_GET_DRIVE_LAYOUT

constexpr uint8_t kBootSectorMode = 1;
constexpr uint32_t kFirstPhysicalDrive = 128;
// Only the start of a disk is exposed: boot code and partition boot
// sectors live there, and a scanner must not walk a whole disk.
constexpr uint64_t kExposedSize = 4000000;

// The device path lives in a 19-byte block, so it may be at most 18
// characters: "\\.\PHYSICALDRIVE" plus one digit. Physical drive 10 and up
// cannot be named.
constexpr size_t kPathBlock = 19;

static_assert(sizeof(DISK_GEOMETRY) == disk::kGeometrySize, "geometry record");
static_assert(sizeof(PARTITION_INFORMATION) == disk::kPartitionEntry, "layout entry");

IoPhysicalObject *physical(IoObject *object) {
    return reinterpret_cast<IoPhysicalObject *>(object);
}

bool usable(HANDLE handle) { return handle != nullptr && handle != INVALID_HANDLE_VALUE; }

void free_offsets(DynArray *list) noexcept { VOXA_arrFree(list, 1); }
using UniqueOffsets = vxio::UniqueResource<DynArray *, free_offsets, 0>;

// "\\.\C:" for drive 2, "\\.\PHYSICALDRIVE0" for drive 128. The drive
// number is upper-cased as a character code before 'A' is added, which
// changes only numbers 97 to 122. False when the path would not fit.
bool build_device_path(uint32_t driveNumber, char *block) {
    if (driveNumber < kFirstPhysicalDrive) {
        uint32_t code = driveNumber;
        if (code >= 'a' && code <= 'z') code -= 'a' - 'A';
        std::memcpy(block, "\\\\.\\", 4);
        block[4] = static_cast<char>(code + 'A');
        block[5] = ':';
        return true;
    }
    char path[32];
    const int length =
        std::snprintf(path, sizeof path, "\\\\.\\PHYSICALDRIVE%u", driveNumber - kFirstPhysicalDrive);
    if (length < 0 || static_cast<size_t>(length) > kPathBlock - 1) return false;
    std::memcpy(block, path, static_cast<size_t>(length));
    return true;
}

// Floppies have no partitions: boot-sector mode reads them plainly.
bool is_floppy(const char *path) {
    return std::strncmp(path, "\\\\.\\A:", 6) == 0 || std::strncmp(path, "\\\\.\\B:", 6) == 0;
}

// Holds the volume lock for a scope, keeping other writers out while the
// disk is read. A refused lock is not fatal (a physical drive with mounted
// volumes refuses it); it is simply not released.
class VolumeLock {
public:
    explicit VolumeLock(HANDLE device) : device_(device) {
        DWORD returned = 0;
        locked_ = os.DeviceIoControl(device_, kLockVolume, nullptr, 0, nullptr, 0, &returned,
                                     nullptr) != FALSE;
    }
    ~VolumeLock() {
        if (!locked_) return;
        const DWORD error = os.GetLastError();
        DWORD returned = 0;
        os.DeviceIoControl(device_, kUnlockVolume, nullptr, 0, nullptr, 0, &returned, nullptr);
        os.SetLastError(error);
    }
    VolumeLock(const VolumeLock &) = delete;
    VolumeLock &operator=(const VolumeLock &) = delete;

private:
    HANDLE device_;
    bool locked_ = false;
};

// Disk size in bytes from the geometry (disk_layout.h says which answers
// are taken).
bool query_disk_size(HANDLE device, uint64_t *size) {
    uint8_t geometry[disk::kGeometrySize] = {};
    DWORD returned = 0;
    if (!os.DeviceIoControl(device, kDriveGeometry, nullptr, 0, geometry, sizeof geometry,
                            &returned, nullptr))
        return false;
    return disk::DiskSizeFromGeometry(geometry, returned, size);
}

// SetFilePointer with the high part always passed. With a zero high part
// the low part alone decides, so INVALID_SET_FILE_POINTER is always a
// failure; with a non-zero one it is a failure only when an error is set.
bool seek_to(HANDLE device, uint32_t low, uint32_t high) {
    LONG highPart = static_cast<LONG>(high);
    os.SetLastError(ERROR_SUCCESS);
    const DWORD result = os.SetFilePointer(device, static_cast<LONG>(low), &highPart, FILE_BEGIN);
    if (result == INVALID_SET_FILE_POINTER && (high == 0 || os.GetLastError() != ERROR_SUCCESS))
        return false;
    return result == low;
}

bool seek_to(HANDLE device, uint64_t position) {
    return seek_to(device, static_cast<uint32_t>(position), static_cast<uint32_t>(position >> 32));
}

bool add_offset(DynArray *list, uint64_t offset) {
    auto block = vxio::zelta_new<uint64_t>();
    if (!block) return false;
    *block = offset;
    if (!VOXA_arrAdd(list, block.get())) return false;
    block.release();
    return true;
}

// One sector of the device at a byte offset, for the layout walk.
bool read_sector(void *device, uint64_t offset, uint8_t *sector) {
    DWORD read = 0;
    return seek_to(static_cast<HANDLE>(device), offset) &&
           os.ReadFile(static_cast<HANDLE>(device), sector, disk::kSectorSize, &read, nullptr) &&
           read == disk::kSectorSize;
}

// Adds the starting offset of every partition whose first sector ends in
// the boot signature, in the order of the layout.
bool collect_boot_offsets(HANDLE device, DynArray *list) {
    VolumeLock lock(device);
    uint64_t size = 0;
    if (!query_disk_size(device, &size)) return false;

    vxio::ZeltaPtr<uint8_t> layout(static_cast<uint8_t *>(ZELTA_mymalloc(disk::kLayoutBuffer)));
    if (!layout) return false;
    DWORD returned = 0;
    if (!os.DeviceIoControl(device, kDriveLayout, nullptr, 0, layout.get(), disk::kLayoutBuffer,
                            &returned, nullptr))
        return false;
    disk::BootOffsets boots;
    if (!disk::CollectBootOffsets(layout.get(), returned, disk::kLayoutBuffer, read_sector, device,
                                  &boots))
        return false;
    for (uint32_t i = 0; i < boots.count; ++i)
        if (!add_offset(list, boots.offsets[i])) return false;
    return true;
}

// Opens the device read-only. For a drive letter, an empty floppy drive
// must fail quietly instead of raising the system's "insert a disk" dialog
// in the engine's host process.
HANDLE open_device(const char *path, bool driveLetter) {
    UINT previousMode = 0;
    if (driveLetter) previousMode = os.SetErrorMode(SEM_FAILCRITICALERRORS);
    HANDLE device = os.CreateFileA(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                   OPEN_EXISTING, 0, nullptr);
    if (driveLetter) {
        const DWORD error = os.GetLastError();
        os.SetErrorMode(previousMode);
        os.SetLastError(error);
    }
    return usable(device) ? device : INVALID_HANDLE_VALUE;
}

// Drops the debug privilege on every way out of Open once it was raised.
struct PrivilegeBracket {
    bool raised = false;
    ~PrivilegeBracket() {
        if (raised) vxio::process::RevertImpersonation();
    }
};

}  // namespace

extern "C" IoObject *VOXA_PHYSICAL_Open(uint32_t driveNumber, uint32_t flags, uint64_t userPointer,
                                        uint8_t mode, const void *callerData16,
                                        uint32_t callerDataLength, uint32_t *error) noexcept {
    if (!callerData16) return nullptr;
    OSVERSIONINFOA version{};
    version.dwOSVersionInfoSize = sizeof version;
    if (!os.GetVersionExA(&version)) return nullptr;
    if (version.dwPlatformId != VER_PLATFORM_WIN32_NT) {
        if (error) *error = 209;
        return nullptr;
    }

    auto object = vxio::zelta_new<IoPhysicalObject>();
    if (!object) return nullptr;
    std::memset(object.get(), 0, sizeof *object);
    vxio::io::init_header(&object->header, VXIO_KIND_PHYSICAL, userPointer, nullptr, callerData16,
                          callerDataLength);
    object->flags = flags;
    object->mode = mode;
    object->driveNumber = driveNumber;

    vxio::ZeltaPtr<char> path(static_cast<char *>(ZELTA_mymalloc(kPathBlock)));
    if (!path) return nullptr;
    std::memset(path.get(), 0, kPathBlock);
    if (!build_device_path(driveNumber, path.get())) return nullptr;

    const bool driveLetter = driveNumber < kFirstPhysicalDrive;
    PrivilegeBracket privilege;
    vxio::UniqueFile device(open_device(path.get(), driveLetter));
    if (!device) {
        if (os.GetLastError() != ERROR_ACCESS_DENIED) return nullptr;
        // Raw disks are often reserved to administrators; the debug
        // privilege of the calling thread may get past that.
        privilege.raised = vxio::process::EnableDebugPrivilege() != 0;
        if (!privilege.raised) {
            if (error) *error = 999;
            return nullptr;
        }
        device.reset(open_device(path.get(), driveLetter));
        if (!device) {
            if (error) *error = 999;
            return nullptr;
        }
    }

    {
        VolumeLock lock(device.get());
        if (!query_disk_size(device.get(), &object->diskSize)) return nullptr;
    }

    UniqueOffsets offsets;
    if (mode == kBootSectorMode) {
        offsets.reset(VOXA_arrNew());
        if (!offsets) return nullptr;
        // A volume's own first sector is its boot sector.
        const bool collected = driveLetter ? add_offset(offsets.get(), 0)
                                           : collect_boot_offsets(device.get(), offsets.get());
        if (!collected) return nullptr;
    }

    object->nextBoot = 0;
    object->bootOffsets = offsets.release();
    object->handle = device.release();
    object->header.name = path.release();
    return &object.release()->header;
}

extern "C" void VOXA_PHYSICAL_Close(IoObject *object) noexcept {
    if (!object) return;
    IoPhysicalObject *disk = physical(object);
    if (object->name) ZELTA_myfree(object->name);
    if (usable(disk->handle)) os.CloseHandle(disk->handle);
    if (disk->bootOffsets) VOXA_arrFree(disk->bootOffsets, 1);
    ZELTA_myfree(disk);
}

extern "C" int32_t VOXA_PHYSICAL_PositionFile(IoObject *object, uint64_t lowPart,
                                              uint32_t highPart) noexcept {
    if (!object || !usable(physical(object)->handle)) return 0;
    return seek_to(physical(object)->handle, static_cast<uint32_t>(lowPart), highPart) ? 1 : 0;
}

extern "C" uint32_t VOXA_PHYSICAL_GetNumberOfBootOffsets(IoObject *object) noexcept {
    if (!object || !physical(object)->bootOffsets) return 0;
    return physical(object)->bootOffsets->count;
}

extern "C" const char *VOXA_PHYSICAL_GetDriveName(int8_t index) noexcept {
    static const char *const kNames[] = {
        "\\\\.\\PHYSICALDRIVE0", "\\\\.\\PHYSICALDRIVE1", "\\\\.\\PHYSICALDRIVE2",
        "\\\\.\\PHYSICALDRIVE3", "\\\\.\\A:",             "\\\\.\\B:",
    };
    if (index < 0 || static_cast<size_t>(index) >= sizeof kNames / sizeof kNames[0])
        return nullptr;
    return kNames[index];
}

extern "C" uint64_t VOXA_PHYSICAL_Read(IoObject *object, uint64_t offset, void *buffer,
                                       uint32_t length) noexcept {
    if (!object || !buffer) return VXIO_IO_FAILED;
    IoPhysicalObject *disk = physical(object);

    uint64_t position = offset;
    if (disk->mode == kBootSectorMode && disk->bootOffsets && object->name &&
        !is_floppy(object->name)) {
        const DynArray *boots = disk->bootOffsets;
        if (offset == 0) {
            if (disk->nextBoot >= boots->count) return VXIO_IO_FAILED;
            position = *static_cast<const uint64_t *>(boots->items[disk->nextBoot]);
            ++disk->nextBoot;
        } else {
            // Relative to the boot sector last visited; before the first
            // step there is none.
            if (disk->nextBoot == 0) return VXIO_IO_FAILED;
            const uint8_t last = static_cast<uint8_t>(disk->nextBoot - 1);
            position = *static_cast<const uint64_t *>(boots->items[last]) + offset;
        }
    }
    if (!seek_to(disk->handle, position)) return VXIO_IO_FAILED;

    VolumeLock lock(disk->handle);
    // Raw device reads want a page-aligned buffer, which the caller's may
    // not be; lengths and offsets must already be whole sectors.
    void *staging = os.VirtualAlloc(nullptr, length, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    if (!staging) return VXIO_IO_FAILED;
    uint64_t status = VXIO_IO_FAILED;
    DWORD read = 0;
    if (os.ReadFile(disk->handle, staging, length, &read, nullptr) && read == length) {
        std::memcpy(buffer, staging, length);
        status = VXIO_IO_OK;
    }
    os.VirtualFree(staging, 0, MEM_RELEASE);
    return status;
}

extern "C" uint64_t VOXA_PHYSICAL_GetSize(IoObject *object, uint64_t *size) noexcept {
    if (!object || !size || !usable(physical(object)->handle)) return VXIO_IO_FAILED;
    const IoPhysicalObject *disk = physical(object);
    if (disk->mode >= 1 && disk->mode <= 3)
        *size = disk->diskSize < kExposedSize ? disk->diskSize : kExposedSize;
    else
        *size = 0;
    return VXIO_IO_OK;
}

// Read-only: nothing is ever written, resized or reached by name.
extern "C" uint64_t VOXA_PHYSICAL_Write(IoObject *, uint64_t, const void *, uint32_t) noexcept {
    return VXIO_IO_FAILED;
}

extern "C" uint64_t VOXA_PHYSICAL_SetEnd(IoObject *, uint64_t) noexcept { return VXIO_IO_FAILED; }

extern "C" uint64_t VOXA_PHYSICAL_MakeWriteable(IoObject *) noexcept { return VXIO_IO_FAILED; }

extern "C" uint64_t VOXA_PHYSICAL_FileSystemFileExists(IoObject *, const void *,
                                                       uint32_t) noexcept {
    return VXIO_IO_FAILED;
}

extern "C" IoObject *VOXA_PHYSICAL_FileSystemOpen(IoObject *, const void *, uint32_t,
                                                  uint32_t) noexcept {
    return nullptr;
}

extern "C" uint64_t VOXA_PHYSICAL_FileSystemClose(IoObject *, IoObject *) noexcept {
    return VXIO_IO_FAILED;
}

extern "C" uint64_t VOXA_PHYSICAL_FileSystemDelete(IoObject *, const void *, uint32_t) noexcept {
    return VXIO_IO_FAILED;
}

extern "C" uint64_t VOXA_PHYSICAL_FileSystemRename(IoObject *, const void *, const void *,
                                                   uint32_t) noexcept {
    return VXIO_IO_FAILED;
}
