// File times and attributes on real files (hidden, system, read-only), the
// error-mode bracket and the writes counted through the seam, a file that
// was missing when saved, null arguments, running out of memory; native
// paths against the real Windows directory and served ones.
#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "fs/native_path.h"
#include "platform/os.h"
#include "support/heap_ledger.h"
#include "support/temp_dir.h"
#include "vxio/fs.h"

using vxio::fs::NormalizeNativePath;
using vxio::platform::OsTable;
using vxio::platform::real_os;
using vxio::platform::SeamEntry;
using vxio::test::HeapLedger;

namespace {

constexpr DWORD kHiddenSystemReadOnly =
    FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_READONLY;

// Every attribute write, with the error mode in force at that moment.
UINT g_mode = 0;
std::vector<std::pair<DWORD, UINT>> g_writes;
UINT WINAPI fake_error_mode(UINT mode) { return std::exchange(g_mode, mode); }
BOOL WINAPI counted_set(LPCSTR path, DWORD attributes) {
    g_writes.push_back({attributes, g_mode});
    return real_os.SetFileAttributesA(path, attributes);
}

struct Attributes : ::testing::Test {
    vxio::test::TempDir dir;
    HeapLedger ledger;
    SeamEntry<decltype(OsTable::SetErrorMode)> mode{&OsTable::SetErrorMode, fake_error_mode};
    SeamEntry<decltype(OsTable::SetFileAttributesA)> set{&OsTable::SetFileAttributesA,
                                                         counted_set};
    Attributes() { g_mode = SEM_NOGPFAULTERRORBOX, g_writes.clear(); }
    void TearDown() override {
        EXPECT_EQ(g_mode, UINT{SEM_NOGPFAULTERRORBOX}) << "error mode put back";
        EXPECT_EQ(ledger.live(), 0u);
    }
};

TEST_F(Attributes, SaveClearRestoreOnAProtectedFile) {
    const std::string path = dir.write("p", "x");
    ASSERT_TRUE(SetFileAttributesA(path.c_str(), kHiddenSystemReadOnly));
    const DWORD before = GetFileAttributesA(path.c_str());
    ASSERT_EQ(before & kHiddenSystemReadOnly, kHiddenSystemReadOnly);

    FileAttributeSnapshot *saved = VOXA_IO_SaveFileAttributes(path.c_str());
    ASSERT_NE(saved, nullptr);
    EXPECT_EQ(*saved, before);
    EXPECT_EQ(VOXA_IO_ClearFileAttributes(path.c_str()), 1);
    EXPECT_EQ(GetFileAttributesA(path.c_str()) & kHiddenSystemReadOnly, 0u);
    EXPECT_EQ(VOXA_IO_RestoreFileAttributes(path.c_str(), saved), 1);
    EXPECT_EQ(GetFileAttributesA(path.c_str()), before);
    EXPECT_EQ(g_writes, (std::vector<std::pair<DWORD, UINT>>{{0, SEM_FAILCRITICALERRORS},
                                                             {before, SEM_FAILCRITICALERRORS}}));

    g_writes.clear();
    EXPECT_EQ(VOXA_IO_RestoreFileAttributes(path.c_str(), saved), 1) << "already equal";
    EXPECT_TRUE(g_writes.empty());
    EXPECT_EQ(VOXA_IO_FreeFileAttributes(saved), 1);
}

TEST_F(Attributes, FileMissingWhenSaved) {
    const std::string path = dir.file("later");
    FileAttributeSnapshot *saved = VOXA_IO_SaveFileAttributes(path.c_str());
    ASSERT_NE(saved, nullptr);
    EXPECT_EQ(*saved, INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(VOXA_IO_ClearFileAttributes(path.c_str()), 0);
    EXPECT_EQ(VOXA_IO_RestoreFileAttributes(path.c_str(), saved), 1) << "still missing: equal";
    dir.write("later", "x");
    // Wine would take the all-ones word and set every attribute bit;
    // Windows refuses it. No write is attempted at all.
    EXPECT_EQ(VOXA_IO_RestoreFileAttributes(path.c_str(), saved), 0);
    EXPECT_EQ(GetFileAttributesA(path.c_str()) & kHiddenSystemReadOnly, 0u);
    EXPECT_EQ(g_writes.size(), 1u) << "only the clear of the missing file";
    VOXA_IO_FreeFileAttributes(saved);
}

TEST_F(Attributes, NullArgumentsAndTheTimeFunctions) {
    FileAttributeSnapshot word = 0;
    EXPECT_EQ(VOXA_IO_SaveFileAttributes(nullptr), nullptr);
    EXPECT_EQ(VOXA_IO_ClearFileAttributes(nullptr) + VOXA_IO_FreeFileAttributes(nullptr) +
                  VOXA_IO_RestoreFileAttributes(dir.path().c_str(), nullptr) +
                  VOXA_IO_RestoreFileAttributes(nullptr, &word),
              0);
    EXPECT_TRUE(g_writes.empty());
    EXPECT_EQ(VOXA_IO_SaveFileTimes(dir.path().c_str()), nullptr);
    EXPECT_EQ(VOXA_IO_RestoreFileTimes(nullptr, &word) + VOXA_IO_FreeFileTimes(nullptr), 2);
}

TEST_F(Attributes, SaveRunningOutOfMemory) {
    const std::string path = dir.write("m", "x");
    vxio::test::each_allocation_fails([&](HeapLedger &l) {
        FileAttributeSnapshot *saved = VOXA_IO_SaveFileAttributes(path.c_str());
        EXPECT_EQ(saved == nullptr, l.failed());
        if (saved) VOXA_IO_FreeFileAttributes(saved);
    });
}

// The Windows directory as the seam serves it: "" fails the call, and one
// too long for the buffer is answered with the size it needs.
std::string g_windows;
UINT WINAPI served_windows(LPSTR buffer, UINT size) {
    const UINT n = static_cast<UINT>(g_windows.size());
    if (n >= size) return n + 1;
    std::memcpy(buffer, g_windows.c_str(), n + 1);
    return n;
}

TEST(NativePath, PrefixesAndLengthRules) {
    HeapLedger ledger;
    SeamEntry<decltype(OsTable::GetWindowsDirectoryA)> windows{&OsTable::GetWindowsDirectoryA,
                                                               served_windows};
    const std::string a254(254, 'A'), a255(255, 'A');
    struct Case { std::string windows, in, out; bool result; } cases[] = {
        {"C:\\Windows", "\\SystemRoot\\System32\\drivers\\x.sys",
         "c:\\windows\\system32\\drivers\\x.sys", true},
        {"C:\\Windows", "\\??\\C:\\A.EXE", "c:\\a.exe", true},
        {"C:\\Windows", "\\WINDOWS\\x", "\\WINDOWS\\x", false},  // the join would be longer
        {"C:\\WINDO", "\\WINDOWS\\x", "\\WINDOWS\\x", false},  // as long as the input
        {"C:\\WIND", "\\windows\\X", "c:\\wind\\x", true},
        {"C:\\Windows", "\\systemroot\\X.SYS", "c:\\windows\\x.sys", true},
        {"C:\\Windows", "C:\\SystemRoot\\a", "c:\\windows\\a", true},      // 15 bytes
        {"C:\\Windows", "C:\\SystemRoot\\", "c:\\systemroot\\", true},     // 14: only lowered
        {"C:\\Windows", "d:\\systemroot\\Drivers\\y.sys", "c:\\windows\\drivers\\y.sys", true},
        {"C:\\Windows", "C:\\Program Files\\App.EXE", "c:\\program files\\app.exe", true},
        {"", "\\SystemRoot\\System32\\x.sys", "\\SystemRoot\\System32\\x.sys", false},  // fails
        {"C:\\W", "\\SystemRoot\\" + a254, "c:\\w\\" + std::string(254, 'a'), true},  // 260
        {"C:\\W", "\\SystemRoot\\" + a255, "\\SystemRoot\\" + a255, false},           // 261
        {std::string(299, 'W'), "C:\\SystemRoot\\Z", "C:\\SystemRoot\\Z", false},  // too long
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.in);
        g_windows = c.windows;
        std::vector<char> buffer(c.in.begin(), c.in.end());
        buffer.push_back('\0'), buffer.push_back('#');
        EXPECT_EQ(NormalizeNativePath(buffer.data()), c.result);
        EXPECT_EQ(std::string(buffer.data()), c.out);
        EXPECT_EQ(buffer.back(), '#') << "nothing past the path's own bytes";
    }
    EXPECT_TRUE(NormalizeNativePath(nullptr));
    EXPECT_EQ(ledger.live(), 0u);
}

TEST(NativePath, RealWindowsDirectory) {
    char windows[MAX_PATH], path[] = "\\SystemRoot\\System32\\Drivers\\ETC\\hosts";
    std::string expected(windows, GetWindowsDirectoryA(windows, MAX_PATH));
    expected += "\\system32\\drivers\\etc\\hosts";
    for (char &c : expected) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    EXPECT_TRUE(NormalizeNativePath(path)) << "Windows directory " << windows;
    EXPECT_EQ(std::string(path), expected);
}

}  // namespace
