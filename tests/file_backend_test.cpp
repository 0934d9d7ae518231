// File backend on real files: transfers of many sizes and past 4 GiB, the
// open flags, sharing violations, the clear-and-restore path for a refused
// file, name kinds, siblings, delete and rename (with the delayed fallback
// served through the seam), null arguments and running out of memory.
#include <gtest/gtest.h>

#include <aclapi.h>
#include <sddl.h>

#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "platform/os.h"
#include "support/heap_ledger.h"
#include "support/served.h"
#include "support/temp_dir.h"
#include "vxio/acl.h"
#include "vxio/io.h"

using vxio::platform::OsTable;
using vxio::platform::real_os;
using vxio::platform::SeamEntry;
using vxio::test::HeapLedger;
using vxio::test::TempDir;

namespace {

const uint8_t kCallerData[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
constexpr uint64_t kGiB = uint64_t{1} << 30;

std::string pattern(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>(i * 31 % 251);
    return s;
}

// The descriptor of path as the command engine lists it ("dacl" or
// "dacl,sacl").
std::string listing(const std::string &path, const char *parts) {
    char out[8320] = {};
    const std::string command = "--objectName>>" + path +
                                ">>--objectType>>file>>--action>>List>>sddl>>" + parts +
                                ">>No>>Yes>>None";
    EXPECT_EQ(VOXA_ACLs_ExecCommand(command.c_str(), out, sizeof out), 1) << command;
    return out;
}

// Every test's CreateFileA: refuses the next g_refusals opens (of g_refused
// only, when set) as a protected file would, and opens g_standIn, when set,
// whatever path is asked (so that names no file system takes can be opened).
std::string g_refused, g_standIn;
int g_refusals = 0;
HANDLE WINAPI refusing_open(LPCSTR p, DWORD a, DWORD s, LPSECURITY_ATTRIBUTES sa, DWORD d, DWORD f,
                            HANDLE t) {
    if (g_refusals > 0 && (g_refused.empty() || g_refused == p)) {
        --g_refusals;
        SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    }
    return real_os.CreateFileA(g_standIn.empty() ? p : g_standIn.c_str(), a, s, sa, d, f, t);
}

// Wine derives a file's DACL from its mode bits and a cleared DACL reads
// back unchanged, so descriptors are kept here as SDDL, behind the
// system's named-security functions, where clearing and restoring show.
std::map<std::string, std::string> g_store;
int g_gets = 0, g_sets = 0;

DWORD WINAPI store_get(LPSTR name, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID *, PSID *, PACL *,
                       PACL *, PSECURITY_DESCRIPTOR *sd) {
    ++g_gets;
    auto found = g_store.find(name);
    if (found == g_store.end()) return ERROR_FILE_NOT_FOUND;
    return ConvertStringSecurityDescriptorToSecurityDescriptorA(found->second.c_str(),
                                                                SDDL_REVISION_1, sd, nullptr)
               ? ERROR_SUCCESS
               : GetLastError();
}

// Keeps only what the file commands write: the DACL.
DWORD WINAPI store_set(LPSTR name, SE_OBJECT_TYPE, SECURITY_INFORMATION bits, PSID, PSID,
                       PACL dacl, PACL) {
    if (!g_store.count(name)) return ERROR_FILE_NOT_FOUND;
    ++g_sets;
    if (!(bits & DACL_SECURITY_INFORMATION)) return ERROR_SUCCESS;
    SECURITY_DESCRIPTOR sd;
    InitializeSecurityDescriptor(&sd, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(&sd, TRUE, dacl, FALSE);
    char *text = nullptr;
    ConvertSecurityDescriptorToStringSecurityDescriptorA(&sd, SDDL_REVISION_1,
                                                         DACL_SECURITY_INFORMATION, &text, nullptr);
    g_store[name] = text ? text : "";
    LocalFree(text);
    return ERROR_SUCCESS;
}

constexpr const char *kStoredDacl = "D:(A;;FA;;;SY)(A;;0x1200a9;;;BU)";

struct DescriptorStore : vxio::test::Served {
    explicit DescriptorStore(std::initializer_list<std::string> paths)
        : Served({{"GetNamedSecurityInfoA", vxio::test::as_proc(&store_get)},
                  {"SetNamedSecurityInfoA", vxio::test::as_proc(&store_set)}}) {
        g_store.clear();
        for (const std::string &path : paths) g_store[path] = kStoredDacl;
        g_gets = g_sets = 0;
    }
};

struct FileBackend : ::testing::Test {
    TempDir dir;
    HeapLedger ledger;
    SeamEntry<decltype(OsTable::CreateFileA)> create{&OsTable::CreateFileA, &refusing_open};
    void SetUp() override { g_refused.clear(), g_standIn.clear(), g_refusals = 0; }
    void TearDown() override { EXPECT_EQ(ledger.live(), 0u); }
};

TEST_F(FileBackend, WritesAndReadsBackEverySize) {
    for (size_t n : {size_t{0}, size_t{1}, size_t{4095}, size_t{4096}, size_t{4097},
                     size_t{5} << 20}) {
        SCOPED_TRACE(n);
        const std::string path = dir.file("f" + std::to_string(n)), content = pattern(n);
        IoObject *o = VOXA_FILE_Open(path.c_str(), 3, 0, kCallerData, 16);
        ASSERT_NE(o, nullptr);
        EXPECT_EQ(VOXA_FILE_Write(o, 0, content.data(), static_cast<uint32_t>(n)), 0u);
        VOXA_FILE_Close(o);

        o = VOXA_FILE_Open(path.c_str(), 0, 0, kCallerData, 16);
        ASSERT_NE(o, nullptr);
        uint64_t size = 99;
        EXPECT_EQ(VOXA_FILE_GetSize(o, &size), 0u);
        EXPECT_EQ(size, n);
        std::string back(n + 1, '#');
        EXPECT_EQ(VOXA_FILE_Read(o, 0, &back[0], static_cast<uint32_t>(n)), 0u);
        EXPECT_TRUE(back == content + "#") << "contents differ";
        EXPECT_EQ(VOXA_FILE_Read(o, 0, &back[0], static_cast<uint32_t>(n + 1)), 207u) << "short";
        EXPECT_EQ(VOXA_FILE_Write(o, 0, "x", 1), 207u) << "opened for reading only";
        EXPECT_EQ(VOXA_IO_Changed(o), 0);
        EXPECT_EQ(VOXA_FILE_GetSize(o, nullptr), 207u);
        VOXA_FILE_Close(o);
    }
}

TEST_F(FileBackend, SparseFileBeyond4GiB) {
    IoObject *o = VOXA_FILE_Open(dir.file("big").c_str(), 3, 0, kCallerData, 16);
    ASSERT_NE(o, nullptr);
    ASSERT_EQ(VOXA_FILE_SetEnd(o, 5 * kGiB), 0u);  // instant and sparse under Wine
    uint64_t size = 0;
    EXPECT_EQ(VOXA_FILE_GetSize(o, &size), 0u);
    EXPECT_EQ(size, 1 * kGiB) << "reported modulo 2^32";
    EXPECT_EQ(VOXA_FILE_Write(o, 4 * kGiB + 1, "hi", 2), 0u);
    char back[2] = {};
    EXPECT_EQ(VOXA_FILE_Read(o, 4 * kGiB + 1, back, 2), 0u);
    EXPECT_EQ(std::string(back, 2), "hi");
    EXPECT_EQ(VOXA_FILE_PositionFile(o, 4 * kGiB + 7), 1);
    EXPECT_EQ(VOXA_FILE_SetEnd(o, 3), 0u);
    EXPECT_EQ(VOXA_FILE_GetSize(o, &size), 0u);
    EXPECT_EQ(size, 3u);
    VOXA_FILE_Close(o);
}

TEST_F(FileBackend, CreateFlagAndMakeWriteable) {
    const std::string path = dir.write("a", "old contents");
    EXPECT_EQ(VOXA_FILE_Open(dir.file("missing").c_str(), 1, 0, kCallerData, 16), nullptr);
    IoObject *o = VOXA_FILE_Open(path.c_str(), 2, 0, kCallerData, 16);  // replaces, read-only
    ASSERT_NE(o, nullptr);
    uint64_t size = 99;
    EXPECT_EQ(VOXA_FILE_GetSize(o, &size), 0u);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(VOXA_FILE_Write(o, 0, "x", 1), 207u);
    EXPECT_EQ(VOXA_FILE_MakeWriteable(o), 0u);
    EXPECT_EQ(reinterpret_cast<IoFileObject *>(o)->flags, 3u);
    void *const reopened = reinterpret_cast<IoFileObject *>(o)->handle;
    EXPECT_EQ(VOXA_FILE_MakeWriteable(o), 0u);
    EXPECT_EQ(reinterpret_cast<IoFileObject *>(o)->handle, reopened) << "not opened again";
    EXPECT_EQ(VOXA_FILE_Write(o, 0, "x", 1), 0u);
    EXPECT_EQ(VOXA_IO_Changed(o), 1);
    VOXA_FILE_Close(o);
}

TEST_F(FileBackend, RefusedFileIsClearedOpenedAndRestoredButAHeldOneIsLeftAlone) {
    const std::string path = dir.write("protected", "x"), heldPath = dir.write("held", "x");
    DescriptorStore store{path, heldPath};
    // A file held without read sharing is no descriptor problem: the open
    // fails and no command may change its descriptor.
    const std::string heldDacl = listing(heldPath, "dacl");
    HANDLE held = CreateFileA(heldPath.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    EXPECT_EQ(VOXA_FILE_Open(heldPath.c_str(), 1, 0, kCallerData, 16), nullptr);
    CloseHandle(held);
    EXPECT_EQ(g_sets, 0);
    EXPECT_EQ(listing(heldPath, "dacl"), heldDacl);

    const std::string dacl = listing(path, "dacl"), record = listing(path, "dacl,sacl");
    ASSERT_EQ(record.rfind("\"" + path + "\",1,\"", 0), 0u) << record;
    ASSERT_EQ(record.substr(record.size() - 4), "\">>>") << record;
    g_refused = path;
    g_refusals = 1;
    IoObject *o = VOXA_FILE_Open(path.c_str(), 1, 0, kCallerData, 16);
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(g_refusals, 0);
    const char *saved = reinterpret_cast<IoFileObject *>(o)->savedSecurity;
    ASSERT_NE(saved, nullptr);
    EXPECT_EQ(std::string(saved), record);
    EXPECT_NE(listing(path, "dacl"), dacl) << "cleared while the object is open";
    EXPECT_EQ(VOXA_FILE_Write(o, 0, "y", 1), 0u);
    VOXA_FILE_Close(o);
    EXPECT_EQ(listing(path, "dacl"), dacl);
}

// Clearing is the one step that can lose a file's permissions, so it is
// taken only with a listing that can put them back, and a refused file
// that still cannot be opened gets them back at once. Each row's
// descriptor is served by the store; "refusals" opens of the file fail.
TEST_F(FileBackend, PermissionsAreClearedOnlyWithACompleteListingAndNeverLost) {
    const std::string path = dir.write("guarded", "x");
    std::string huge = "D:";  // an SDDL text longer than any listing holds
    while (huge.size() < 9000) huge += "(A;;FA;;;S-1-5-21-1-2-3-1000)";
    struct Row { const char *what; std::string stored; int refusals; int sets; } rows[] = {
        {"SDDL left out of the record", huge, 1, 0},
        {"empty descriptor", "", 1, 0},
        {"still refused after clearing: cleared, then restored", kStoredDacl, 2, 2},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        DescriptorStore store{path};
        g_store[path] = row.stored;
        const std::string before = g_store[path];
        g_refused = path;
        g_refusals = row.refusals;
        EXPECT_EQ(VOXA_FILE_Open(path.c_str(), 1, 0, kCallerData, 16), nullptr);
        EXPECT_EQ(g_refusals, 0);
        EXPECT_EQ(g_sets, row.sets);
        EXPECT_TRUE(g_store[path] == before) << "the descriptor changed";
    }
}

// A name the command language would split, or whose listing record would
// end early, must never reach a command: it could name another object.
// Such names are opened through a stand-in file, since no file system
// takes them.
TEST_F(FileBackend, NamesACommandWouldSplitNeverReachOne) {
    const std::string good = dir.write("good", "x"), standIn = dir.write("stand-in", "x");
    IoObject *parent = VOXA_FILE_Open(good.c_str(), 0, 0, kCallerData, 16);
    ASSERT_NE(parent, nullptr);
    g_standIn = standIn;
    for (const std::string &name : {good, dir.file("a>b"), dir.file("a>>b"), dir.file("a\",1,\"b")}) {
        SCOPED_TRACE(name);
        DescriptorStore store{good};
        const bool commandable = name == good;
        g_refusals = 1;
        IoObject *o = VOXA_FILE_Open(name.c_str(), 1, 0, kCallerData, 16);
        EXPECT_EQ(o != nullptr, commandable);
        VOXA_FILE_Close(o);
        g_refusals = 1;
        o = VOXA_FILE_FileSystemOpen(parent, name.c_str(), 0, 1);
        EXPECT_EQ(o != nullptr, commandable);
        VOXA_FILE_Close(o);
        g_refusals = 0;
        o = VOXA_FILE_Open(name.c_str(), 0, 0, kCallerData, 16);
        ASSERT_NE(o, nullptr);
        g_refusals = 1;
        EXPECT_EQ(VOXA_FILE_MakeWriteable(o), commandable ? 0u : 207u);
        VOXA_FILE_Close(o);
        EXPECT_EQ(g_gets > 0, commandable) << "listed";
        EXPECT_EQ(g_sets > 0, commandable) << "cleared or restored";
    }
    VOXA_FILE_Close(parent);
}

TEST_F(FileBackend, FileExistsReadsEveryNameKindAndNullArgumentsAreRefused) {
    const std::string path = dir.write("here", "x"), missing = dir.file("gone");
    const std::wstring wide(path.begin(), path.end());
    // Counted records: the stated length, two bytes, the text; the text
    // must end within its stated length and one terminator.
    auto counted = [&](size_t stated) {
        return std::string{char(stated), char(stated >> 8), 0, 0} + path;
    };
    auto countedWide = [&](size_t stated) {
        return std::wstring{wchar_t(stated), 0} + wide;
    };
    const std::string exact = counted(path.size()), cut = counted(path.size() - 1);
    const std::wstring exactWide = countedWide(2 * wide.size()), cutWide = countedWide(2 * wide.size() - 2);
    struct Case { const void *name; uint32_t kind; uint64_t status; } cases[] = {
        {path.c_str(), 0, 0}, {wide.c_str(), 1, 0}, {exact.c_str(), 2, 0}, {cut.c_str(), 2, 50},
        {exactWide.c_str(), 3, 0}, {cutWide.c_str(), 3, 50}, {missing.c_str(), 0, 207},
        {path.c_str(), 7, 50}, {nullptr, 1, 50}};
    for (const Case &c : cases)
        EXPECT_EQ(VOXA_FILE_FileSystemFileExists(nullptr, c.name, c.kind), c.status)
            << c.kind << " " << &c - cases;
    const std::string tooLong(10240, 'a');
    EXPECT_EQ(VOXA_FILE_FileSystemFileExists(nullptr, tooLong.c_str(), 0), 50u);
    // A UTF-16 name with no terminator is read no further than the longest
    // one that could fit the work buffer (20480 units): here memory ends there.
    auto *units = static_cast<wchar_t *>(VirtualAlloc(nullptr, 45056, MEM_RESERVE, PAGE_NOACCESS));
    ASSERT_TRUE(units && VirtualAlloc(units, 40960, MEM_COMMIT, PAGE_READWRITE));
    std::fill_n(units, 20480, L'a');
    EXPECT_EQ(VOXA_FILE_FileSystemFileExists(nullptr, units, 1), 50u);
    VirtualFree(units, 0, MEM_RELEASE);

    EXPECT_EQ(VOXA_FILE_Open(nullptr, 0, 0, kCallerData, 16), nullptr);
    EXPECT_EQ(VOXA_FILE_Open(path.c_str(), 0, 0, nullptr, 16), nullptr);
    char b[1];
    uint64_t size;
    EXPECT_EQ(VOXA_FILE_Read(nullptr, 0, b, 1) + VOXA_FILE_Write(nullptr, 0, b, 1), 2 * 207u);
    EXPECT_EQ(VOXA_FILE_GetSize(nullptr, &size) + VOXA_FILE_SetEnd(nullptr, 0), 2 * 207u);
    EXPECT_EQ(VOXA_FILE_MakeWriteable(nullptr), 207u);
    EXPECT_EQ(VOXA_FILE_PositionFile(nullptr, 0), 0);
    VOXA_FILE_Close(nullptr);
}

TEST_F(FileBackend, SiblingTakesTheParentsUserPointerAndCallerData) {
    IoObject *parent = VOXA_FILE_Open(dir.write("p", "x").c_str(), 0, 77, kCallerData, 16);
    ASSERT_NE(parent, nullptr);
    const std::string sibling = dir.file("s");
    EXPECT_EQ(VOXA_FILE_FileSystemOpen(nullptr, sibling.c_str(), 0, 3), nullptr);
    EXPECT_EQ(VOXA_FILE_FileSystemOpen(parent, sibling.c_str(), 7, 3), nullptr);
    IoObject *o = VOXA_FILE_FileSystemOpen(parent, sibling.c_str(), 0, 0xFF);
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(o->userPointer, 77u);
    EXPECT_EQ(o->kind, VXIO_KIND_FILE);
    EXPECT_EQ(std::string(o->name), sibling);
    EXPECT_EQ(0, memcmp(o->callerData, kCallerData, 16));
    EXPECT_EQ(reinterpret_cast<IoFileObject *>(o)->flags, 3u) << "only bits 0 and 1 pass";
    EXPECT_EQ(VOXA_FILE_FileSystemClose(nullptr, o), 0u);
    VOXA_FILE_Close(parent);
}

// Records the flags of each rename; fails the first planned ones.
std::vector<DWORD> g_moves;
int g_moveFailures = 0;
BOOL WINAPI recorded_move(LPCSTR, LPCSTR, DWORD flags) {
    g_moves.push_back(flags);
    if (g_moveFailures-- > 0) {
        SetLastError(ERROR_SHARING_VIOLATION);
        return FALSE;
    }
    return TRUE;
}

TEST_F(FileBackend, DeleteAndRename) {
    const std::string a = dir.write("a", "A"), b = dir.write("b", "B");
    EXPECT_EQ(VOXA_FILE_FileSystemRename(nullptr, a.c_str(), b.c_str(), 0), 0u);
    EXPECT_EQ(GetFileAttributesA(a.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(VOXA_FILE_FileSystemRename(nullptr, a.c_str(), b.c_str(), 7), 50u);
    EXPECT_EQ(VOXA_FILE_FileSystemDelete(nullptr, b.c_str(), 0), 0u);
    EXPECT_EQ(VOXA_FILE_FileSystemDelete(nullptr, b.c_str(), 0), 207u);
    EXPECT_EQ(VOXA_FILE_FileSystemDelete(nullptr, nullptr, 0), 50u);

    // Never the real delayed rename: it would land in the prefix's registry.
    SeamEntry move(&OsTable::MoveFileExA, &recorded_move);
    for (int failures : {1, 2}) {
        g_moves.clear();
        g_moveFailures = failures;
        EXPECT_EQ(VOXA_FILE_FileSystemRename(nullptr, "x", "y", 0), failures == 1 ? 0u : 207u);
        EXPECT_EQ(g_moves, (std::vector<DWORD>{
                               MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED,
                               MOVEFILE_REPLACE_EXISTING | MOVEFILE_DELAY_UNTIL_REBOOT}));
    }
}

TEST_F(FileBackend, OpenRunningOutOfMemoryLeavesNothing) {
    const std::string path = dir.write("m", "x");
    g_refused = path;
    for (bool refused : {false, true}) {
        SCOPED_TRACE(refused);
        vxio::test::each_allocation_fails([&](HeapLedger &l) {
            g_refusals = refused ? 1 : 0;
            IoObject *o = VOXA_FILE_Open(path.c_str(), 1, 0, kCallerData, 16);
            if (!l.failed()) {
                ASSERT_NE(o, nullptr);
                EXPECT_EQ(reinterpret_cast<IoFileObject *>(o)->savedSecurity != nullptr, refused);
            }
            VOXA_FILE_Close(o);
        });
    }
}

}  // namespace
