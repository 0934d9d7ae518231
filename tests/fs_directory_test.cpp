// Directory enumeration: a real tree walked and compared with what the
// system's own search lists, and through the seam the find data and stream
// answers this machine cannot produce. Every test ends with no library
// block left, and no served search open.
#include <gtest/gtest.h>
#include <windows.h>
#include <winioctl.h>
#include <winternl.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "platform/os.h"
#include "support/heap_ledger.h"
#include "support/temp_dir.h"
#include "vxio/fs.h"

using namespace vxio::platform;
using vxio::test::HeapLedger;

namespace {

using Entry = std::tuple<std::string, uint32_t, uint64_t, bool>;  // name, kind, size, streams
using Entries = std::vector<Entry>;

// Every entry of one level, or of one file's streams; none when the open fails.
Entries read_level(const std::string &path, uint8_t markStreams = 0, uint8_t listStreams = 0) {
    Entries out;
    DirHandle *dir = VOXA_IO_OpenDir(path.c_str(), markStreams, listStreams);
    if (!dir) return out;
    char name[1024];
    uint32_t kind = 99;
    uint64_t size = 99;
    uint8_t has = 0;
    while (out.size() < 100 && VOXA_IO_ReadDir(dir, name, sizeof name, &kind, &size, &has))
        out.emplace_back(name, kind, size, has != 0);
    if (!listStreams) { EXPECT_EQ(kind, 0u) << "cleared by the read that ends the walk"; }
    EXPECT_TRUE(VOXA_IO_CloseDir(dir));
    return out;
}

void read_tree(const std::string &path, Entries &out) {
    for (const Entry &e : read_level(path)) {
        out.push_back(e);
        if (std::get<1>(e) == VXIO_ENTRY_DIRECTORY) read_tree(std::get<0>(e), out);
    }
}

// The same tree from the system's own search, the rules written out
// afresh: no one- or two-character name starting with a dot; the short
// name for a name holding "?" (skipped without one); the kind by reparse
// point, then offline, then directory; a size for files only.
void reference_tree(const std::string &path, Entries &out) {
    WIN32_FIND_DATAA f;
    HANDLE find = FindFirstFileA((path + "\\*.*").c_str(), &f);
    for (bool more = find != INVALID_HANDLE_VALUE; more; more = FindNextFileA(find, &f)) {
        std::string name = f.cFileName;
        if (name[0] == '.' && name.size() <= 2) continue;
        if (name.find('?') != std::string::npos && (name = f.cAlternateFileName).empty()) continue;
        const DWORD a = f.dwFileAttributes;
        const uint32_t kind = a & FILE_ATTRIBUTE_REPARSE_POINT ? 4
                              : a & FILE_ATTRIBUTE_OFFLINE     ? 5
                              : a & FILE_ATTRIBUTE_DIRECTORY   ? 3
                                                               : 1;
        out.emplace_back(path + "\\" + name, kind,
                         kind == 1 ? uint64_t{f.nFileSizeHigh} << 32 | f.nFileSizeLow : 0, false);
        if (kind == 3) reference_tree(path + "\\" + name, out);
    }
    if (find != INVALID_HANDLE_VALUE) FindClose(find);
}

struct Directory : ::testing::Test {
    HeapLedger ledger;
    vxio::test::TempDir temp;
    const std::string root = temp.path();

    void TearDown() override { EXPECT_EQ(ledger.live(), 0u) << "library blocks left"; }
    std::string at(const std::string &name) const { return root + "\\" + name; }
    void make(const std::string &name, DWORD attributes = 0) {
        temp.write(name, name);  // a size of its own
        if (attributes) { EXPECT_TRUE(SetFileAttributesA(at(name).c_str(), attributes)) << name; }
    }
};

TEST_F(Directory, ARealTreeIsWalkedAsTheSystemListsIt) {
    ASSERT_EQ(GetACP(), 1252u) << "the names below are chosen for code page 1252";
    for (const char *name : {"a", ".b", "..c", ".bc", "with space.txt", "caf\xe9.txt"}) make(name);
    for (DWORD a : {FILE_ATTRIBUTE_HIDDEN, FILE_ATTRIBUTE_SYSTEM, FILE_ATTRIBUTE_READONLY})
        make("attributes " + std::to_string(a), a);
    // Outside the code page: listed by its short name.
    const std::wstring outside = std::wstring(root.begin(), root.end()) + L"\\\u4e2d\u6587.txt";
    CloseHandle(CreateFileW(outside.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    const std::string longName(258 - root.size(), 'n');  // a path of 259, the most MAX_PATH holds
    make(longName);
    HANDLE h = CreateFileA(at("big.bin").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, 0);
    DWORD ignored = 0;
    DeviceIoControl(h, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &ignored, nullptr);
    LARGE_INTEGER end;
    end.QuadPart = int64_t{5} << 30;
    EXPECT_TRUE(SetFilePointerEx(h, end, nullptr, FILE_BEGIN) && SetEndOfFile(h));
    CloseHandle(h);
    for (const char *dir : {"empty", "sub", "sub\\inner", "linked"})
        ASSERT_TRUE(CreateDirectoryA(at(dir).c_str(), nullptr)) << dir;
    make("sub\\inner\\deep.txt");
    make("linked\\behind.txt");
    const bool linked = temp.link_directory("link", at("linked"));
    if (vxio::test::on_wine()) { ASSERT_TRUE(linked) << "ln -s through Wine"; }

    Entries walked, expected;
    read_tree(root, walked);
    reference_tree(root, expected);
    EXPECT_EQ(walked, expected);

    // What the comparison alone cannot vouch for: nothing lost by both, the
    // size past 4 GiB, the link seen as a link and not entered.
    auto once = [&](const Entry &e) { return std::count(walked.begin(), walked.end(), e) == 1; };
    EXPECT_EQ(walked.size(), 17u + linked);
    EXPECT_TRUE(once({at("big.bin"), 1, uint64_t{5} << 30, false}));
    EXPECT_TRUE(!linked || once({at("link"), VXIO_ENTRY_REPARSE, 0, false}));
}

TEST_F(Directory, ATrailingBackslashDoublesTheSeparator) {
    make("file");
    EXPECT_EQ(read_level(root + "\\"), (Entries{{root + "\\\\file", 1, 4, false}}));
}

// Refused calls lose nothing and search nothing. A buffer shorter than the
// path, or of pathLength + name length + 1 bytes (no room for the
// terminator), loses that entry only. Nothing is written at or past outSize.
TEST_F(Directory, RefusedCallsAndBuffersTooSmall) {
    for (const char *name : {"first.txt", "second.txt", "third.txt"}) make(name);
    const Entries order = read_level(root, 1);
    ASSERT_EQ(order.size(), 3u);
    EXPECT_EQ(VOXA_IO_OpenDir(nullptr, 0, 1), nullptr);
    EXPECT_EQ(VOXA_IO_OpenDir(at("first.txt").c_str(), 0, 0), nullptr) << "not a directory";
    EXPECT_FALSE(VOXA_IO_CloseDir(nullptr));
    DirHandle *dir = VOXA_IO_OpenDir(root.c_str(), 1, 0);
    char name[512];
    std::memset(name, '#', sizeof name);
    uint32_t kind = 0;
    uint8_t has = 0;
    EXPECT_FALSE(VOXA_IO_ReadDir(nullptr, name, sizeof name, &kind, nullptr, &has));
    EXPECT_FALSE(VOXA_IO_ReadDir(dir, nullptr, sizeof name, &kind, nullptr, &has));
    EXPECT_FALSE(VOXA_IO_ReadDir(dir, name, sizeof name, nullptr, nullptr, &has));
    EXPECT_FALSE(VOXA_IO_ReadDir(dir, name, sizeof name, &kind, nullptr, nullptr)) << "marks";
    EXPECT_EQ(dir->findHandle, nullptr) << "refused before any search";
    const size_t sizes[] = {root.size() - 1, std::get<0>(order[1]).size(),
                            std::get<0>(order[2]).size() + 1};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(VOXA_IO_ReadDir(dir, name, uint32_t(sizes[i]), &kind, nullptr, &has), i == 2);
        EXPECT_EQ(name[i == 2 ? sizes[i] : 0], '#') << i;
    }
    EXPECT_EQ(name, std::get<0>(order[2]));
    EXPECT_FALSE(VOXA_IO_ReadDir(dir, name, sizeof name, &kind, nullptr, &has));
    EXPECT_TRUE(VOXA_IO_CloseDir(dir));
}

// ---- Served find data and stream answers ----------------------------------

struct Found {
    const char *name, *shortName;
    DWORD attributes, sizeHigh, sizeLow;
};
std::vector<Found> served;
size_t servedNext;
int openSearches;
const HANDLE kServedFind = reinterpret_cast<HANDLE>(0xF1D);

BOOL WINAPI served_next(HANDLE h, LPWIN32_FIND_DATAA found) {
    EXPECT_EQ(h, kServedFind);
    if (servedNext >= served.size()) return SetLastError(ERROR_NO_MORE_FILES), FALSE;
    const Found &e = served[servedNext++];
    *found = WIN32_FIND_DATAA{};
    found->dwFileAttributes = e.attributes;
    found->nFileSizeHigh = e.sizeHigh, found->nFileSizeLow = e.sizeLow;
    std::strcpy(found->cFileName, e.name);
    std::strcpy(found->cAlternateFileName, e.shortName);
    return TRUE;
}

HANDLE WINAPI served_first(LPCSTR, LPWIN32_FIND_DATAA found) {
    servedNext = 0;
    return served_next(kServedFind, found) ? (++openSearches, kServedFind) : INVALID_HANDLE_VALUE;
}

BOOL WINAPI served_close(HANDLE h) { return openSearches -= h == kServedFind, TRUE; }

// The stream query as NTFS answers it for a file or directory with one
// named stream, ":a:$DATA" of 42 bytes.
int queries;

NTSTATUS NTAPI served_query(HANDLE, PIO_STATUS_BLOCK io, void *buffer, ULONG, ULONG) {
    const struct { uint32_t next, length; int64_t size, allocation; wchar_t name[9]; } record{
        0, 16, 42, 0, L":a:$DATA"};
    std::memcpy(buffer, &record, sizeof record);
    io->Information = 24 + 16;
    return ++queries, io->Status = 0;
}

FARPROC WINAPI serve_query(HMODULE module, LPCSTR name) {
    if (HIWORD(reinterpret_cast<uintptr_t>(name)) && !std::strcmp(name, "NtQueryInformationFile"))
        return reinterpret_cast<FARPROC>(reinterpret_cast<void *>(served_query));
    return real_os.GetProcAddress(module, name);
}

struct ServedDirectory : Directory {
    SeamEntry<decltype(OsTable::FindFirstFileA)> f1{&OsTable::FindFirstFileA, served_first};
    SeamEntry<decltype(OsTable::FindNextFileA)> f2{&OsTable::FindNextFileA, served_next};
    SeamEntry<decltype(OsTable::FindClose)> f3{&OsTable::FindClose, served_close};
    SeamEntry<decltype(OsTable::GetProcAddress)> f4{&OsTable::GetProcAddress, serve_query};
    ~ServedDirectory() { EXPECT_EQ(openSearches, 0) << "served search left open"; }
};

// Replays find data of an NTFS volume with what this machine cannot make
// (offline files and directories left by a storage manager, file and
// directory reparse points, names outside the code page with and without a
// short name) and the stream answer above. Every listed name exists here,
// so that asking about an entry of kind 4 or 5 would show: only files and
// directories are asked.
TEST_F(ServedDirectory, KindsMarksStreamModeAndEachAllocationFailing) {
    const std::pair<Found, uint32_t> cases[] = {  // and the kind; 0: skipped
        {{".", "", 0x10, 0, 0}, 0},            {{"..", "", 0x10, 0, 0}, 0},
        {{".x", "", 0x20, 0, 1}, 0},           {{"..z", "", 0x20, 0, 2}, 1},
        {{"file", "", 0x20, 1, 5}, 1},         {{"dir", "", 0x10, 0, 4096}, 3},
        {{"sysdir", "", 0x16, 0, 0}, 3},       {{"junction", "", 0x410, 0, 0}, 4},
        {{"filelink", "", 0x420, 0, 9}, 4},    {{"offline", "", 0x1020, 0, 7}, 5},
        {{"offlinedir", "", 0x1010, 0, 0}, 5}, {{"offlinelink", "", 0x1410, 0, 0}, 4},
        {{"offlinefilelink", "", 0x1400, 0, 0}, 4},
        {{"na?me.txt", "NAME~1.TXT", 0x20, 0, 3}, 1}, {{"gone?.txt", "", 0x20, 0, 3}, 0},
    };
    Entries expected;
    served.clear();
    for (const auto &[raw, kind] : cases) {
        served.push_back(raw);
        if (!kind) continue;
        const std::string name = *raw.shortName ? raw.shortName : raw.name;
        make(name);
        const uint64_t size = kind == 1 ? uint64_t{raw.sizeHigh} << 32 | raw.sizeLow : 0;
        expected.emplace_back(at(name), kind, size, kind == 1 || kind == 3);
    }
    queries = 0;
    EXPECT_EQ(read_level(root, 1), expected);
    EXPECT_EQ(queries, 5) << "the files and directories only";

    const Entry stream{at("file:a:$DATA"), VXIO_ENTRY_STREAM, 42, false};
    EXPECT_EQ(read_level(at("file"), 0, 1), Entries{stream}) << "stream mode";

    // Each allocation failing in turn may clear a mark or end the walk.
    vxio::test::each_allocation_fails([&](HeapLedger &inner) {
        const Entries got = read_level(root, 1);
        ASSERT_LE(got.size(), expected.size());
        if (!inner.failed()) { EXPECT_EQ(got, expected); }
        for (size_t i = 0; i < got.size(); ++i) {
            EXPECT_EQ(std::get<0>(got[i]), std::get<0>(expected[i]));
            EXPECT_LE(std::get<3>(got[i]), std::get<3>(expected[i]));
        }
    });
}

}  // namespace
