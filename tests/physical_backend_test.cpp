// Physical-disk backend on a disk image served from memory through the seam:
// device paths, the boot-sector walk, sizes per mode, refused geometry and
// layout, access denied, other platforms, null arguments, fixed results,
// and each allocation of Open failing.
#include <gtest/gtest.h>
#include <windows.h>
#include <winioctl.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "platform/os.h"
#include "support/heap_ledger.h"
#include "vxio/io.h"

using vxio::platform::OsTable;
using vxio::platform::SeamEntry;
using vxio::test::HeapLedger;

namespace {

const uint8_t kCallerData[16] = {1, 2, 3};
const HANDLE kDevice = reinterpret_cast<HANDLE>(0xD15C0);
constexpr uint32_t kSentinel = 0xC0FFEE;

// 64 sectors, each starting with its own number. Sectors 0, 16 and 32 end
// in the boot signature, 48 does not. The layout lists partitions at 16, 32
// and 48, then a slot starting at 0 and an unused one: neither may turn the
// partition table itself into a boot sector.
struct Fake {
    std::vector<uint8_t> image = std::vector<uint8_t>(64 * 512);
    std::vector<uint8_t> layout = std::vector<uint8_t>(8 + 5 * 32);
    DWORD bytesPerSector = 512, geometryBytes = 24, openError = ERROR_ACCESS_DENIED;
    bool floppy = false, lockRefused = false, seekFails = false;
    uint64_t position = 0;
    std::string path;
    std::tuple<DWORD, DWORD, DWORD> openArgs;
    UINT errorMode = 0, modeAtOpen = 0;
    int denials = 0, openHandles = 0, lockDepth = 0;
    Fake() {
        for (int s = 0; s < 64; ++s) image[s * 512] = static_cast<uint8_t>(s);
        for (int s : {0, 16, 32}) image[s * 512 + 510] = 0x55, image[s * 512 + 511] = 0xAA;
        const int64_t entries[5][2] = {{16 * 512, 4096}, {32 * 512, 4096}, {48 * 512, 4096},
                                       {0, 4096}, {0, 0}};
        layout[0] = 5;
        for (int i = 0; i < 5; ++i) std::memcpy(&layout[8 + i * 32], entries[i], 16);
    }
} *g;

HANDLE WINAPI create_file(LPCSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES,
                          DWORD disposition, DWORD, HANDLE) {
    g->path = path, g->openArgs = {access, share, disposition}, g->modeAtOpen = g->errorMode;
    if (g->denials > 0 && g->denials--) return SetLastError(g->openError), INVALID_HANDLE_VALUE;
    g->floppy = g->path == "\\\\.\\A:";
    return ++g->openHandles, kDevice;
}

BOOL WINAPI device_io(HANDLE, DWORD code, LPVOID, DWORD, LPVOID out, DWORD size, LPDWORD got,
                      LPOVERLAPPED) {
    *got = 0;
    if (code == FSCTL_LOCK_VOLUME) return g->lockRefused ? FALSE : (++g->lockDepth, TRUE);
    if (code == FSCTL_UNLOCK_VOLUME) return --g->lockDepth, TRUE;
    if (code == IOCTL_DISK_GET_DRIVE_GEOMETRY) {  // a 1.44 MB floppy or a 500 GB disk
        DISK_GEOMETRY geo = g->floppy ? DISK_GEOMETRY{{}, F3_1Pt44_512, 2, 18, g->bytesPerSector}
                                      : DISK_GEOMETRY{{}, FixedMedia, 255, 63, g->bytesPerSector};
        geo.Cylinders.QuadPart = g->floppy ? 80 : 60801;
        return std::memcpy(out, &geo, 24), *got = g->geometryBytes, TRUE;
    }
    if (code != IOCTL_DISK_GET_DRIVE_LAYOUT || g->layout.empty() || g->layout.size() > size)
        return SetLastError(ERROR_INVALID_FUNCTION), FALSE;
    std::memcpy(out, g->layout.data(), g->layout.size());
    return *got = static_cast<DWORD>(g->layout.size()), TRUE;
}

DWORD WINAPI set_file_pointer(HANDLE, LONG low, PLONG high, DWORD) {
    if (g->seekFails) return SetLastError(ERROR_NEGATIVE_SEEK), INVALID_SET_FILE_POINTER;
    g->position = uint64_t{static_cast<DWORD>(*high)} << 32 | static_cast<DWORD>(low);
    return static_cast<DWORD>(low);
}

BOOL WINAPI read_file(HANDLE, LPVOID buffer, DWORD length, LPDWORD got, LPOVERLAPPED) {
    // A raw device refuses transfers that are not whole sectors.
    if (length % 512) return SetLastError(ERROR_INVALID_PARAMETER), FALSE;
    const uint64_t left = g->position < g->image.size() ? g->image.size() - g->position : 0;
    *got = static_cast<DWORD>(std::min<uint64_t>(length, left));
    std::memcpy(buffer, g->image.data() + g->position, *got);
    return g->position += *got, TRUE;
}

struct Physical : ::testing::Test {
    Fake fake;
    HeapLedger ledger;
    SeamEntry<decltype(OsTable::CreateFileA)> s1{&OsTable::CreateFileA, create_file};
    SeamEntry<decltype(OsTable::DeviceIoControl)> s2{&OsTable::DeviceIoControl, device_io};
    SeamEntry<decltype(OsTable::SetFilePointer)> s3{&OsTable::SetFilePointer, set_file_pointer};
    SeamEntry<decltype(OsTable::ReadFile)> s4{&OsTable::ReadFile, read_file};
    SeamEntry<decltype(OsTable::CloseHandle)> s5{
        &OsTable::CloseHandle, [](HANDLE h) -> BOOL { return g->openHandles -= h == kDevice, TRUE; }};
    SeamEntry<decltype(OsTable::SetErrorMode)> s6{
        &OsTable::SetErrorMode, [](UINT mode) -> UINT { return std::exchange(g->errorMode, mode); }};
    uint32_t error = kSentinel;

    Physical() { g = &fake; }
    IoObject *open(uint32_t drive, uint8_t mode) {
        return VOXA_PHYSICAL_Open(drive, 9, 77, mode, kCallerData, 16, &error);
    }
    // First byte of the sector a 1024-byte read lands on; -1 for 207.
    int sector_at(IoObject *object, uint64_t offset) {
        uint8_t buffer[1024];
        return VOXA_PHYSICAL_Read(object, offset, buffer, 1024) == 0 ? buffer[0] : -1;
    }
    void TearDown() override {
        EXPECT_EQ(fake.openHandles, 0) << "device handle left open";
        EXPECT_EQ(fake.lockDepth, 0) << "volume left locked, or unlocked without a lock";
        EXPECT_EQ(ledger.live(), 0u);
    }
};

TEST_F(Physical, BuildsDevicePathsFromDriveNumbers) {
    const std::tuple<DWORD, DWORD, DWORD> readOnly{GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                                   OPEN_EXISTING};
    const struct { uint32_t drive; const char *path; } cases[] = {
        {0, "\\\\.\\A:"}, {2, "\\\\.\\C:"},
        {97, "\\\\.\\\x82:"},  // 'a' as a character code, upper-cased to 65, plus 'A'
        {128, "\\\\.\\PHYSICALDRIVE0"}, {137, "\\\\.\\PHYSICALDRIVE9"}, {138, nullptr}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.drive);
        fake.path.clear();
        IoObject *object = open(c.drive, 2);
        EXPECT_EQ(object != nullptr, c.path != nullptr);
        EXPECT_EQ(fake.path, c.path ? c.path : "") << "a path that does not fit is never opened";
        if (!object) continue;
        EXPECT_STREQ(VOXA_IO_GetNamePointer(object), c.path);
        EXPECT_EQ(fake.openArgs, readOnly);
        EXPECT_EQ(fake.modeAtOpen, c.drive < 128 ? UINT{SEM_FAILCRITICALERRORS} : 0u);
        EXPECT_EQ(fake.errorMode, 0u) << "previous error mode restored";
        VOXA_PHYSICAL_Close(object);
    }
    EXPECT_EQ(error, kSentinel);
}

TEST_F(Physical, BootSectorModeWalksSignedPartitionsAndReadsRelativeToTheLastOne) {
    IoObject *object = open(128, 1);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(VOXA_PHYSICAL_GetNumberOfBootOffsets(object), 2u);
    const std::pair<uint64_t, int> walk[] = {
        {512, -1} /* nothing visited yet */, {0, 16}, {512, 17}, {0, 32}, {1024, 34},
        {0, -1} /* past the last one */,     {512, 33}};
    for (const auto &[offset, sector] : walk) EXPECT_EQ(sector_at(object, offset), sector) << offset;
    VOXA_PHYSICAL_Close(object);

    // A volume's list holds its own first sector; floppies read plainly.
    ASSERT_NE(object = open(2, 1), nullptr);
    EXPECT_EQ(VOXA_PHYSICAL_GetNumberOfBootOffsets(object), 1u);
    EXPECT_EQ(sector_at(object, 0), 0);
    EXPECT_EQ(sector_at(object, 0), -1);
    VOXA_PHYSICAL_Close(object);
    ASSERT_NE(object = open(0, 1), nullptr);
    EXPECT_EQ(sector_at(object, 0), 0);
    EXPECT_EQ(sector_at(object, 0), 0);
    EXPECT_EQ(sector_at(object, 512), 1);
    VOXA_PHYSICAL_Close(object);
}

TEST_F(Physical, ReadsFailOnPartialSectorsSeeksAndStagingBuffers) {
    IoObject *object = open(128, 2);
    ASSERT_NE(object, nullptr);
    uint8_t buffer[512];
    std::memset(buffer, 0xCC, sizeof buffer);
    EXPECT_EQ(VOXA_PHYSICAL_Read(object, 512, buffer, 100), 207u) << "the device refuses it";
    EXPECT_EQ(VOXA_PHYSICAL_Read(object, 63 * 512, buffer, 1024), 207u) << "short read";
    EXPECT_EQ(buffer[0], 0xCC) << "nothing copied on failure";
    EXPECT_EQ(VOXA_PHYSICAL_PositionFile(object, 0xFFFF'0000'0000'0200, 1), 1);
    EXPECT_EQ(fake.position, 0x1'0000'0200u) << "low 32 bits of the second argument only";
    {
        SeamEntry<decltype(OsTable::VirtualAlloc)> noMemory(
            &OsTable::VirtualAlloc, [](LPVOID, SIZE_T, DWORD, DWORD) -> LPVOID { return nullptr; });
        EXPECT_EQ(VOXA_PHYSICAL_Read(object, 0, buffer, 512), 207u);
    }
    fake.seekFails = true;
    EXPECT_EQ(VOXA_PHYSICAL_PositionFile(object, 512, 0), 0);
    EXPECT_EQ(VOXA_PHYSICAL_Read(object, 512, buffer, 512), 207u);
    VOXA_PHYSICAL_Close(object);
}

TEST_F(Physical, SizeIsTheStartOfTheDiskInModesOneToThree) {
    const struct { uint32_t drive; uint8_t mode; uint64_t size; } cases[] = {
        {128, 1, 4000000}, {128, 3, 4000000}, {128, 0, 0}, {128, 4, 0}, {0, 2, 1474560}};
    for (const auto &c : cases) {
        IoObject *object = open(c.drive, c.mode);
        uint64_t size = 1;
        EXPECT_EQ(VOXA_PHYSICAL_GetSize(object, &size), 0u);
        EXPECT_EQ(size, c.size) << c.drive << " mode " << int{c.mode};
        VOXA_PHYSICAL_Close(object);
    }
}

TEST_F(Physical, RefusedGeometryOrLayoutFailsOpenAndReleasesEverything) {
    const struct { const char *what; uint8_t mode; void (*spoil)(Fake &); bool opens; } cases[] = {
        {"2048-byte sectors", 2, [](Fake &f) { f.bytesPerSector = 2048; }, false},
        {"short geometry", 2, [](Fake &f) { f.geometryBytes = 20; }, false},
        {"layout without an entry", 1, [](Fake &f) { f.layout.resize(8); }, false},
        {"layout filling the buffer", 1, [](Fake &f) { f.layout.resize(8192); }, false},
        {"no layout needed outside mode 1", 2, [](Fake &f) { f.layout.clear(); }, true},
        {"lock refused", 1, [](Fake &f) { f.lockRefused = true; }, true}};
    for (const auto &c : cases) {
        fake = Fake{};
        c.spoil(fake);
        IoObject *object = open(128, c.mode);
        EXPECT_EQ(object != nullptr, c.opens) << c.what;
        EXPECT_EQ(fake.lockDepth, 0) << c.what;
        VOXA_PHYSICAL_Close(object);
    }
    EXPECT_EQ(error, kSentinel);
}

// Under Wine the account holds the debug privilege, so the raise succeeds;
// on Windows without it the first two rows end in 999 like the third.
TEST_F(Physical, AccessDeniedRaisesTheDebugPrivilegeAndDropsItAgain) {
    const struct { const char *what; int denials; DWORD openError; bool hideAdvapi; uint32_t error;
    } cases[] = {{"opens with the privilege", 1, ERROR_ACCESS_DENIED, false, kSentinel},
                 {"still refused", 2, ERROR_ACCESS_DENIED, false, 999},
                 {"no privilege to raise", 1, ERROR_ACCESS_DENIED, true, 999},
                 {"not an access problem", 1, ERROR_FILE_NOT_FOUND, false, kSentinel}};
    for (const auto &c : cases) {
        fake = Fake{};
        fake.denials = c.denials, fake.openError = c.openError, error = kSentinel;
        auto load = c.hideAdvapi ? [](LPCSTR) -> HMODULE { return nullptr; } : LoadLibraryA;
        SeamEntry<decltype(OsTable::LoadLibraryA)> hide(&OsTable::LoadLibraryA, load);
        IoObject *object = open(128, 1);
        EXPECT_EQ(object != nullptr, c.error == kSentinel && c.openError == ERROR_ACCESS_DENIED) << c.what;
        EXPECT_EQ(error, c.error) << c.what;
        HANDLE token = nullptr;
        EXPECT_FALSE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token)) << c.what;
        EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_TOKEN}) << c.what << ": impersonation dropped";
        VOXA_PHYSICAL_Close(object);
    }
}

TEST_F(Physical, OtherPlatformsNullArgumentsAndFixedResults) {
    {
        SeamEntry<decltype(OsTable::GetVersionExA)> notNt(
            &OsTable::GetVersionExA, [](LPOSVERSIONINFOA v) -> BOOL { return v->dwPlatformId = 1, TRUE; });
        EXPECT_EQ(open(128, 2), nullptr);
        EXPECT_EQ(error, 209u);
        EXPECT_EQ(VOXA_PHYSICAL_Open(128, 0, 0, 2, kCallerData, 16, nullptr), nullptr);
    }
    EXPECT_EQ(VOXA_PHYSICAL_Open(128, 0, 0, 2, nullptr, 16, &error), nullptr);
    EXPECT_TRUE(fake.path.empty());
    IoObject *object = VOXA_PHYSICAL_Open(128, 0, 0, 2, kCallerData, 16, nullptr);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->userPointer, 0u);
    uint64_t size = 0;
    uint8_t b[512];
    for (uint64_t status :
         {VOXA_PHYSICAL_Read(nullptr, 0, b, 512), VOXA_PHYSICAL_Read(object, 0, nullptr, 512),
          VOXA_PHYSICAL_GetSize(nullptr, &size), VOXA_PHYSICAL_GetSize(object, nullptr),
          VOXA_PHYSICAL_Write(object, 0, b, 512), VOXA_PHYSICAL_SetEnd(object, 0),
          VOXA_PHYSICAL_MakeWriteable(object), VOXA_PHYSICAL_FileSystemFileExists(object, "x", 0),
          VOXA_PHYSICAL_FileSystemClose(nullptr, object), VOXA_PHYSICAL_FileSystemDelete(object, "x", 0),
          VOXA_PHYSICAL_FileSystemRename(object, "x", "y", 0)})
        EXPECT_EQ(status, 207u);
    EXPECT_EQ(VOXA_PHYSICAL_FileSystemOpen(object, "x", 0, 0), nullptr);
    EXPECT_EQ(VOXA_PHYSICAL_PositionFile(nullptr, 0, 0), 0);
    EXPECT_EQ(VOXA_PHYSICAL_GetNumberOfBootOffsets(nullptr) + VOXA_PHYSICAL_GetNumberOfBootOffsets(object), 0u);
    VOXA_PHYSICAL_Close(object);
    VOXA_PHYSICAL_Close(nullptr);
    EXPECT_STREQ(VOXA_PHYSICAL_GetDriveName(0), "\\\\.\\PHYSICALDRIVE0");
    EXPECT_STREQ(VOXA_PHYSICAL_GetDriveName(5), "\\\\.\\B:");
    EXPECT_TRUE(!VOXA_PHYSICAL_GetDriveName(6) && !VOXA_PHYSICAL_GetDriveName(-1));
    EXPECT_EQ(error, 209u) << "left alone by the later failures";
}

TEST_F(Physical, EachAllocationOfOpenFailingLeavesNothingBehind) {
    for (uint32_t drive : {128u, 2u}) {
        vxio::test::each_allocation_fails([&](HeapLedger &inner) {
            IoObject *object = open(drive, 1);
            EXPECT_EQ(object == nullptr, inner.failed()) << drive;
            EXPECT_EQ(fake.openHandles, object ? 1 : 0);
            VOXA_PHYSICAL_Close(object);
        });
    }
}

}  // namespace
