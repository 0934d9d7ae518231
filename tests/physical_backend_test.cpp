// Physical-disk backend on disk images built here and served from memory
// through the seam (a boot record with two signed partitions and one
// unsigned, a GPT-protective boot record, a 1.44 MB floppy): device paths,
// the boot-sector walk, sizes per mode, refused geometry and layout, access
// denied and the debug privilege (token functions served as well), other
// platforms, null arguments, fixed results, each allocation of Open failing;
// and one run against the system's own first disk and drive C.
#include <gtest/gtest.h>
#include <windows.h>
#include <winioctl.h>

#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <string>
#include <tuple>
#include <vector>

#include "platform/os.h"
#include "support/heap_ledger.h"
#include "support/served.h"
#include "vxio/io.h"

using vxio::platform::OsTable;
using vxio::platform::SeamEntry;
using vxio::test::HeapLedger;

namespace {

const uint8_t kCallerData[16] = {1, 2, 3};
const HANDLE kDevice = reinterpret_cast<HANDLE>(0xD15C0);
constexpr uint32_t kSentinel = 0xC0FFEE;

constexpr uint32_t kSector = 512;

// A master boot record: four 16-byte entries at byte 446 (boot flag, start
// address, type, end address, first sector, sector count), then 0x55 0xAA.
struct MbrEntry { uint8_t type; uint32_t first, sectors; };
void write_mbr(std::vector<uint8_t> &image, std::initializer_list<MbrEntry> entries) {
    int slot = 0;
    for (const MbrEntry &e : entries) {
        uint8_t *entry = &image[446 + 16 * slot++];
        entry[0] = 0x80, entry[4] = e.type;
        std::memcpy(entry + 8, &e.first, 4), std::memcpy(entry + 12, &e.sectors, 4);
    }
    image[510] = 0x55, image[511] = 0xAA;
}

// What the system answers to the layout request for a disk with that boot
// record: count, signature, then one 32-byte entry per slot of the table
// (unused slots all zero) with the starting offset and length in bytes.
std::vector<uint8_t> layout_of(const std::vector<uint8_t> &image) {
    static_assert(sizeof(PARTITION_INFORMATION) == 32, "layout entry");
    std::vector<uint8_t> layout(offsetof(DRIVE_LAYOUT_INFORMATION, PartitionEntry) + 4 * 32);
    auto *head = reinterpret_cast<DRIVE_LAYOUT_INFORMATION *>(layout.data());
    head->PartitionCount = 4;
    for (int i = 0; i < 4; ++i) {
        const uint8_t *entry = &image[446 + 16 * i];
        uint32_t first, sectors;
        std::memcpy(&first, entry + 8, 4), std::memcpy(&sectors, entry + 12, 4);
        PARTITION_INFORMATION info{};
        if (entry[4] != 0) {
            info.StartingOffset.QuadPart = int64_t{first} * kSector;
            info.PartitionLength.QuadPart = int64_t{sectors} * kSector;
            info.HiddenSectors = first, info.PartitionNumber = i + 1, info.PartitionType = entry[4];
            info.BootIndicator = entry[0] == 0x80, info.RecognizedPartition = TRUE;
        }
        std::memcpy(&layout[8 + 32 * i], &info, sizeof info);
    }
    return layout;
}

// 64 sectors, each starting with its own number. The partitions at 16 and
// 32 begin with a boot sector (0xAA55 at their end), the one at 48 does
// not; the fourth slot is malformed, starting at sector 0, which holds the
// boot record itself and must never be taken for a partition's boot sector.
std::vector<uint8_t> mbr_disk() {
    std::vector<uint8_t> image(64 * kSector);
    for (uint32_t s = 0; s < 64; ++s) image[s * kSector] = static_cast<uint8_t>(s);
    for (uint32_t s : {16u, 32u}) image[s * kSector + 510] = 0x55, image[s * kSector + 511] = 0xAA;
    write_mbr(image, {{0x07, 16, 8}, {0x07, 32, 8}, {0x83, 48, 8}, {0x07, 0, 8}});
    return image;
}

// A GPT disk shows one protective partition of type 0xEE over the whole
// disk from sector 1, where the GPT header lives: it has no boot signature.
std::vector<uint8_t> gpt_protective_disk() {
    std::vector<uint8_t> image(64 * kSector);
    write_mbr(image, {{0xEE, 1, 63}});
    std::memcpy(&image[kSector], "EFI PART", 8);
    return image;
}

// 1.44 MB: 80 cylinders, 2 heads, 18 sectors; a boot sector, no partitions.
std::vector<uint8_t> floppy_disk() {
    std::vector<uint8_t> image(80 * 2 * 18 * kSector);
    for (uint32_t s = 0; s < 2880; ++s) image[s * kSector] = static_cast<uint8_t>(s);
    image[510] = 0x55, image[511] = 0xAA;
    return image;
}

struct Fake {
    std::vector<uint8_t> disk = mbr_disk(), floppyImage = floppy_disk();
    std::vector<uint8_t> layout = layout_of(disk);
    DWORD bytesPerSector = 512, geometryBytes = 24, openError = ERROR_ACCESS_DENIED;
    int64_t cylinders = 60801;
    bool floppy = false, lockRefused = false, seekFails = false;
    uint64_t position = 0;
    std::string path;
    std::tuple<DWORD, DWORD, DWORD> openArgs;
    UINT errorMode = 0, modeAtOpen = 0;
    int denials = 0, openHandles = 0, lockDepth = 0;
    std::vector<uint8_t> &image() { return floppy ? floppyImage : disk; }
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
        geo.Cylinders.QuadPart = g->floppy ? 80 : g->cylinders;
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
    const uint64_t left = g->position < g->image().size() ? g->image().size() - g->position : 0;
    *got = static_cast<DWORD>(std::min<uint64_t>(length, left));
    std::memcpy(buffer, g->image().data() + g->position, *got);
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
    // Each walk reads at offsets from the last boot sector visited: the
    // disk's list holds its two signed partitions, a volume's (a floppy's
    // too) its own first sector, yet a floppy reads plainly; a GPT disk's
    // protective partition starts at the GPT header: nothing to walk to.
    const struct { uint32_t drive; bool gpt; uint32_t offsets; std::vector<std::pair<uint64_t, int>> walk; } cases[] = {
        {128, false, 2, {{512, -1} /* nothing visited yet */, {0, 16}, {512, 17}, {0, 32}, {1024, 34},
                         {0, -1} /* past the last one */, {512, 33}}},
        {2, false, 1, {{0, 0}, {0, -1}}},
        {0, false, 1, {{0, 0}, {0, 0}, {512, 1}}},
        {128, true, 0, {{0, -1}}}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.drive);
        if (c.gpt) fake.disk = gpt_protective_disk(), fake.layout = layout_of(fake.disk);
        IoObject *object = open(c.drive, 1);
        ASSERT_NE(object, nullptr);
        EXPECT_EQ(VOXA_PHYSICAL_GetNumberOfBootOffsets(object), c.offsets);
        for (const auto &[offset, sector] : c.walk) EXPECT_EQ(sector_at(object, offset), sector) << offset;
        VOXA_PHYSICAL_Close(object);
    }
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
        {128, 1, 4000000}, {128, 3, 4000000}, {128, 0, 0}, {128, 4, 0}, {0, 2, 1474560},
        {129, 2, 4000000} /* 2^55 cylinders: a size past 64 bits, not one wrapped to 0 */};
    for (const auto &c : cases) {
        fake.cylinders = c.drive == 129 ? int64_t{1} << 55 : 60801;
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

// AdjustTokenPrivileges can be served here: the first adjustment reports the
// privilege's previous state with another attribute bit set, the second
// must write it back with only the enabled bit added.
struct TokenFake { bool served = false; DWORD firstError = 0, writtenBack = 0; int calls = 0; } token;
BOOL WINAPI adjust_token(HANDLE, BOOL, PTOKEN_PRIVILEGES state, DWORD, PTOKEN_PRIVILEGES previous,
                         PDWORD previousLength) {
    if (token.calls++ == 0) {
        *previous = *state, previous->Privileges[0].Attributes = SE_PRIVILEGE_ENABLED_BY_DEFAULT;
        *previousLength = sizeof *previous;
        return SetLastError(token.firstError), TRUE;
    }
    token.writtenBack = state->Privileges[0].Attributes;
    return SetLastError(ERROR_SUCCESS), TRUE;
}

// Under Wine the account holds the debug privilege, so the real raise
// succeeds; on Windows without it the first two rows end in 999 like the
// third. When the account lacks the privilege (the served refusal) the
// thread keeps impersonating itself afterwards: only a successful raise is
// reverted.
TEST_F(Physical, AccessDeniedRaisesTheDebugPrivilegeAndDropsItAgain) {
    constexpr DWORD kReal = ~DWORD{0};  // the system's own token functions
    const struct { const char *what; int denials; DWORD openError; bool hideAdvapi; DWORD served;
                   uint32_t error;
    } cases[] = {{"opens with the privilege", 1, ERROR_ACCESS_DENIED, false, kReal, kSentinel},
                 {"still refused", 2, ERROR_ACCESS_DENIED, false, kReal, 999},
                 {"no privilege to raise", 1, ERROR_ACCESS_DENIED, true, kReal, 999},
                 {"not an access problem", 1, ERROR_FILE_NOT_FOUND, false, kReal, kSentinel},
                 {"served raise", 1, ERROR_ACCESS_DENIED, false, ERROR_SUCCESS, kSentinel},
                 {"served refusal", 1, ERROR_ACCESS_DENIED, false, ERROR_NOT_ALL_ASSIGNED, 999}};
    vxio::test::Served serve;
    for (const auto &c : cases) {
        fake = Fake{};
        fake.denials = c.denials, fake.openError = c.openError, error = kSentinel;
        token = TokenFake{c.served != kReal, c.served};
        vxio::test::served.clear();
        if (token.served) vxio::test::served["AdjustTokenPrivileges"] = vxio::test::as_proc(&adjust_token);
        auto load = c.hideAdvapi ? [](LPCSTR) -> HMODULE { return nullptr; } : LoadLibraryA;
        SeamEntry<decltype(OsTable::LoadLibraryA)> hide(&OsTable::LoadLibraryA, load);
        IoObject *object = open(128, 1);
        EXPECT_EQ(object != nullptr, c.error == kSentinel && c.openError == ERROR_ACCESS_DENIED) << c.what;
        EXPECT_EQ(error, c.error) << c.what;
        const bool refusedRaise = c.served == ERROR_NOT_ALL_ASSIGNED;
        HANDLE thread = nullptr;
        const bool impersonating = OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &thread);
        if (impersonating) {
            CloseHandle(thread);
            RevertToSelf();
        } else {
            EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_TOKEN}) << c.what;
        }
        EXPECT_EQ(impersonating, refusedRaise) << c.what << ": only a successful raise is reverted";
        if (token.served) {
            const DWORD restored = SE_PRIVILEGE_ENABLED_BY_DEFAULT | SE_PRIVILEGE_ENABLED;
            EXPECT_EQ(token.calls, refusedRaise ? 1 : 2) << c.what << ": nothing written back after a refusal";
            EXPECT_EQ(token.writtenBack, refusedRaise ? 0 : restored) << c.what;
        }
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

// Wine 8 opens \\.\PHYSICALDRIVE0 and \\.\C: and answers the geometry
// request, but refuses the layout request (50), every seek (66) and every
// read (1). So on Wine drive 128 opens in the plain modes only (boot-sector
// mode needs the layout), drive C opens in boot-sector mode with its one
// offset, and every read fails with 207, copying nothing. On Windows, as an
// administrator, the reads succeed and must hand back sectors that end in
// the boot signature (the boot record, a volume's boot sector).
TEST(PhysicalOnThisSystem, ReadsTheFirstDiskAndDriveCAsTheSystemAllows) {
    HeapLedger ledger;
    uint32_t error = kSentinel;
    auto check_read = [](IoObject *object) {
        std::vector<uint8_t> sector(512, 0xCC);
        const uint64_t status = VOXA_PHYSICAL_Read(object, 0, sector.data(), 512);
        if (status == 0)
            EXPECT_TRUE(sector[510] == 0x55 && sector[511] == 0xAA);
        else
            EXPECT_TRUE(status == 207 && sector[0] == 0xCC && sector[511] == 0xCC);
    };
    for (auto [drive, mode] : {std::pair<uint32_t, uint8_t>{128, 2}, {2, 1}}) {
        SCOPED_TRACE(drive);
        IoObject *object = VOXA_PHYSICAL_Open(drive, 0, 0, mode, kCallerData, 16, &error);
        ASSERT_NE(object, nullptr) << GetLastError();
        uint64_t size = 0;
        EXPECT_EQ(VOXA_PHYSICAL_GetSize(object, &size), 0u);
        EXPECT_EQ(size, 4000000u) << "every disk here is larger than the exposed start";
        EXPECT_EQ(VOXA_PHYSICAL_GetNumberOfBootOffsets(object), mode == 1 ? 1u : 0u);
        check_read(object);
        VOXA_PHYSICAL_Close(object);
    }
    // Boot-sector mode on the disk: Wine has no layout and the Open fails
    // without an error code; Windows lists its signed partitions.
    IoObject *object = VOXA_PHYSICAL_Open(128, 0, 0, 1, kCallerData, 16, &error);
    for (uint32_t i = 0; object && i < VOXA_PHYSICAL_GetNumberOfBootOffsets(object); ++i)
        check_read(object);
    VOXA_PHYSICAL_Close(object);
    EXPECT_EQ(error, kSentinel);
    EXPECT_EQ(ledger.live(), 0u);
}
