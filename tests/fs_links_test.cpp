// Deletion of real files under Wine: now, and at the next start while the
// file is held (Wine's registry record of it is put back); scheduling
// refused through the seam. Wine has no reparse points, so links are
// recorded reparse answers served through the seam; paths that are not
// links take the real Wine path.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/os.h"
#include "support/heap_ledger.h"
#include "support/temp_dir.h"
#include "vxio/fs.h"
#include "support/pending_renames.h"

using vxio::platform::OsTable;
using vxio::platform::real_os;
using vxio::platform::SeamEntry;

namespace {

std::string g_move;

TEST(DeleteFile, NowAtRestartOrNot) {
    vxio::test::TempDir dir;
    vxio::test::HeapLedger ledger;
    const std::string path = dir.write("d", "x");
    EXPECT_EQ(VOXA_IO_DeleteFile(path.c_str()), VXIO_DELETE_DONE);
    EXPECT_EQ(GetFileAttributesA(path.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(VOXA_IO_DeleteFile(nullptr), VXIO_DELETE_FAILED);

    dir.write("d", "x");
    HANDLE held = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              0, nullptr);
    // Wine refuses the delete with 32 and records the schedule.
    const vxio::test::PendingRenamesKept kept;
    EXPECT_EQ(VOXA_IO_DeleteFile(path.c_str()), VXIO_DELETE_AT_RESTART);
    EXPECT_NE(vxio::test::pending_renames().find("\\??\\" + path), std::string::npos);
    {  // Replays Windows refusing the schedule to a caller that may not
       // write the session manager's key: ERROR_ACCESS_DENIED.
        SeamEntry<decltype(OsTable::MoveFileExA)> move{
            &OsTable::MoveFileExA, [](LPCSTR from, LPCSTR to, DWORD flags) -> BOOL {
                g_move = from + std::string(to ? to : "|null|") + std::to_string(flags);
                return SetLastError(ERROR_ACCESS_DENIED), FALSE;
            }};
        EXPECT_EQ(VOXA_IO_DeleteFile(path.c_str()), VXIO_DELETE_FAILED);
        EXPECT_EQ(g_move, path + "|null|4");
    }
    CloseHandle(held);
    EXPECT_EQ(ledger.live(), 0u);
}

// One served link, whose reparse data and target attributes are recorded
// answers; every other path is Wine's. Counts openings, readings and
// closes of the link.
const char kLinkPath[] = "C:\\link";
const HANDLE kLink = reinterpret_cast<HANDLE>(0x7000);
std::vector<uint8_t> g_reparse;
std::string g_target;
DWORD g_targetAttributes;
DWORD g_claimed;  // bytes the reading reports when not 0
int g_opens, g_readings, g_linkOpens, g_closes;

HANDLE WINAPI open_link(LPCSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES sa,
                        DWORD disposition, DWORD flags, HANDLE templ) {
    ++g_opens;
    EXPECT_EQ(std::vector<DWORD>({access, share, disposition, flags}),
              std::vector<DWORD>({8, 7, OPEN_EXISTING, 0x2200000}));
    if (std::strcmp(path, kLinkPath))
        return real_os.CreateFileA(path, access, share, sa, disposition, flags, templ);
    return ++g_linkOpens, kLink;
}
BOOL WINAPI read_reparse(HANDLE h, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD size,
                         LPDWORD got, LPOVERLAPPED o) {
    ++g_readings;
    EXPECT_EQ(std::make_pair(code, size), std::make_pair(DWORD{0x900A8}, DWORD{16384}));
    if (h != kLink) return real_os.DeviceIoControl(h, code, in, inSize, out, size, got, o);
    std::memcpy(out, g_reparse.data(), g_reparse.size());
    return *got = g_claimed ? g_claimed : static_cast<DWORD>(g_reparse.size()), TRUE;
}
BOOL WINAPI close_link(HANDLE h) { return h == kLink ? ++g_closes, TRUE : real_os.CloseHandle(h); }
DWORD WINAPI target_attributes(LPCSTR path) {
    return path == g_target ? g_targetAttributes : real_os.GetFileAttributesA(path);
}

// Reparse data as the system returns it: the header, for a symbolic link
// its flags word, then the substitute name and the same text as print name.
std::vector<uint8_t> reparse(DWORD tag, const std::wstring &name, int symlinkFlags = -1) {
    const size_t paths = symlinkFlags < 0 ? 16 : 20, bytes = name.size() * 2;
    std::vector<uint8_t> data(paths + 2 * bytes + 4);
    const DWORD fields[][3] = {{0, tag, 4}, {4, DWORD(data.size() - 8), 2}, {10, DWORD(bytes), 2},
                               {12, DWORD(bytes + 2), 2}, {14, DWORD(bytes), 2},
                               {16, DWORD(symlinkFlags), DWORD(paths - 16)}};
    for (auto &f : fields) std::memcpy(&data[f[0]], &f[1], f[2]);
    std::memcpy(&data[paths], name.data(), bytes);
    std::memcpy(&data[paths + bytes + 2], name.data(), bytes);
    return data;
}

struct ResolveLink : ::testing::Test {
    vxio::test::HeapLedger ledger;
    SeamEntry<decltype(OsTable::CreateFileA)> s1{&OsTable::CreateFileA, open_link};
    SeamEntry<decltype(OsTable::DeviceIoControl)> s2{&OsTable::DeviceIoControl, read_reparse};
    SeamEntry<decltype(OsTable::CloseHandle)> s3{&OsTable::CloseHandle, close_link};
    SeamEntry<decltype(OsTable::GetFileAttributesA)> s4{&OsTable::GetFileAttributesA,
                                                        target_attributes};
    // "target:kind" after resolving path entered with kind into a cleared
    // buffer; the openings are counted in g_opens, the readings in g_readings.
    std::string resolve(const char *path, uint8_t result, uint32_t kind) {
        g_opens = g_readings = g_linkOpens = g_closes = 0;
        char out[64] = {};
        EXPECT_EQ(VOXA_IO_ResolveLink(path, out, sizeof out, &kind), result);
        EXPECT_EQ(g_closes, g_linkOpens) << "every reading closes the link";
        return out + (":" + std::to_string(kind));
    }
    void TearDown() override { EXPECT_EQ(ledger.live(), 0u); }
};

// Replays Windows' reparse data for "mklink /J C:\link C:\data" (a
// junction), "mklink C:\link C:\data" and "mklink C:\link b.txt" (symbolic
// links, the second relative: flags 1), a deduplicated file (tag
// 0x80000013) and an empty substitute name; the target is a directory, a
// file, an offline reparse point, missing, or itself a link (read eleven
// times). Then a reading that reports 100 bytes more than the buffer holds,
// with a name that starts 4 bytes before its end: it is not read.
TEST_F(ResolveLink, RecordedReparseAnswers) {
    constexpr DWORD kJunction = 0xA0000003, kSymlink = 0xA000000C;
    constexpr DWORD kFile = FILE_ATTRIBUTE_ARCHIVE, kReparse = FILE_ATTRIBUTE_REPARSE_POINT;
    std::vector<uint8_t> past = reparse(kJunction, L"C:");
    const DWORD outside = 16364 | 24u << 16;  // substitute name offset, length
    past.resize(16384), std::memcpy(&past[8], &outside, 4), std::memcpy(&past[16380], L"C:", 4);
    struct Case { std::vector<uint8_t> data; DWORD attributes; uint8_t result; std::string out;
                  int readings; DWORD claimed = 0; } cases[] = {
        {reparse(kJunction, L"\\??\\C:\\data"), FILE_ATTRIBUTE_DIRECTORY, 1, "C:\\data:3", 1},
        {reparse(kSymlink, L"\\??\\C:\\data", 0), kFile, 1, "C:\\data:1", 1},
        {reparse(kSymlink, L"b.txt", 1), kFile, 1, "b.txt:1", 1},  // as it stands
        {reparse(kSymlink, L"\\??\\C:\\data", 0), FILE_ATTRIBUTE_OFFLINE | kReparse, 1,
         "C:\\data:5", 1},
        {reparse(kJunction, L"\\??\\C:\\data"), INVALID_FILE_ATTRIBUTES, 0, "C:\\data:0", 1},
        {reparse(0x80000013, L"\\??\\C:\\data"), kFile, 0, ":0", 1},
        {reparse(kJunction, L""), kFile, 0, ":0", 1},
        {past, kFile, 0, ":0", 1, 16484},
        {reparse(kSymlink, L"\\??\\C:\\data", 0), kReparse, 0, "C:\\data:4", 11},
    };
    for (const Case &c : cases) {
        g_reparse = c.data, g_targetAttributes = c.attributes, g_claimed = c.claimed;
        g_target = c.out.substr(0, c.out.rfind(':'));
        EXPECT_EQ(resolve(kLinkPath, c.result, 0), c.out);
        EXPECT_EQ(std::make_pair(g_opens, g_readings), std::make_pair(c.readings, c.readings))
            << c.out;
    }
}

TEST_F(ResolveLink, TargetLeavesTheLastByteAndNullArguments) {
    g_reparse = reparse(0xA0000003, L"\\??\\C:\\data");
    g_target = "C:\\data", g_targetAttributes = FILE_ATTRIBUTE_DIRECTORY;
    for (size_t size : {1, 7, 8}) {  // "C:\data" is 7 bytes
        std::string out(size + 1, '#');
        out[size - 1] = '\0';
        uint32_t kind = 0;
        EXPECT_EQ(VOXA_IO_ResolveLink(kLinkPath, &out[0], size, &kind), size == 8) << size;
        EXPECT_EQ(out.substr(size - 1), std::string(1, '\0') + "#") << size;
    }
    char one[1] = {};
    uint32_t kind = 0;
    g_opens = 0;
    EXPECT_EQ(VOXA_IO_ResolveLink(kLinkPath, one, 0, &kind), 0);
    EXPECT_EQ(VOXA_IO_ResolveLink(nullptr, one, 1, &kind), 0);
    EXPECT_EQ(VOXA_IO_ResolveLink(kLinkPath, nullptr, 1, &kind), 0);
    EXPECT_EQ(VOXA_IO_ResolveLink(kLinkPath, one, 1, nullptr), 0);
    EXPECT_EQ(g_opens, 0);
}

// Wine's own answers: a file and a directory open, and reading their
// reparse data fails with 4390 (not a reparse point).
TEST_F(ResolveLink, PathsThatAreNotLinks) {
    vxio::test::TempDir dir;
    for (const std::string &path : {dir.write("plain", "x"), dir.path()}) {
        for (uint32_t kind : {0u, 1u, 4u}) {
            EXPECT_EQ(resolve(path.c_str(), 0, kind), ":" + std::to_string(kind));
            const int readings = kind == 4 ? 11 : 1;
            EXPECT_EQ(std::make_pair(g_opens, g_readings), std::make_pair(readings, readings))
                << path << " entered as " << kind;
        }
    }
    resolve(dir.file("none").c_str(), 0, 4);
    EXPECT_EQ(std::make_pair(g_opens, g_readings), std::make_pair(1, 0)) << "does not open";
}

}  // namespace
