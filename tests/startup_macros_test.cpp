// Path macros: the system locations they expand to (real and with the
// system failing), the expansion quirks, the 64-bit test on served
// answers, ReplaceFirst and the path tests.
#include <gtest/gtest.h>

#include <shlobj.h>

#include <map>
#include <string>

#include "platform/os.h"
#include "startup/path_macros.h"
#include "support/heap_ledger.h"
#include "vxio/alloc.h"

using namespace vxio::startup;
using vxio::platform::OsTable;
using vxio::platform::real_os;
using vxio::platform::SeamEntry;

namespace {

std::string expand(const char *text) {
    char *expanded = ExpandPathMacros(text);
    const std::string out = expanded ? expanded : "(null)";
    ZELTA_myfree(expanded);
    return out;
}

std::string shell_folder(int folder) {
    char path[MAX_PATH] = {};
    return SHGetFolderPathA(nullptr, folder, nullptr, 0, path) == S_OK ? path : "(failed)";
}

struct Macros : testing::Test {
    void TearDown() override {
        InitSystemLocations();  // the real values again for the next test
        EXPECT_EQ(ledger.live(), 0u);
    }
    vxio::test::HeapLedger ledger;
};

// The system's answers, served. The failing ones leave text in the buffer,
// so that a value taken from a failed call shows.
UINT WINAPI failed_windows(LPSTR buffer, UINT) {
    strcpy(buffer, "C:\\junk");
    return 0;
}
UINT WINAPI cut_system(LPSTR buffer, UINT size) {  // too small: the length it would need
    strcpy(buffer, "C:\\cut");
    return size + 10;
}
UINT WINAPI windows_on_d(LPSTR buffer, UINT) {  // not a failure: another drive
    strcpy(buffer, "D:\\Windows");
    return 10;
}
LSTATUS WINAPI refused_key(HKEY, LPCSTR, DWORD, REGSAM, PHKEY) { return ERROR_ACCESS_DENIED; }
HMODULE WINAPI no_library(LPCSTR) { return nullptr; }

// The text expanded after InitSystemLocations with one seam entry served.
template <typename Fn>
std::string expand_served(Fn OsTable::*entry, Fn served, const char *text) {
    SeamEntry<Fn> seam(entry, served);
    EXPECT_EQ(InitSystemLocations(), 0);
    return expand(text);
}

// The system locations against what the system itself answers, and the
// expansion rules: lowered text, macros in any case, four passes.
TEST_F(Macros, SystemLocationsAndExpansion) {
    char windows[MAX_PATH], system[MAX_PATH], programs[MAX_PATH];
    DWORD size = sizeof programs;
    ASSERT_GT(GetWindowsDirectoryA(windows, MAX_PATH), 2u);
    ASSERT_GT(GetSystemDirectoryA(system, MAX_PATH), 0u);
    ASSERT_EQ(RegGetValueA(HKEY_LOCAL_MACHINE, "Software\\Microsoft\\Windows\\CurrentVersion",
                           "ProgramFilesDir", RRF_RT_REG_SZ, nullptr, programs, &size), 0);
    const std::string w = windows, drive = w.substr(0, 2), p = programs, s = system;
    ASSERT_EQ(InitSystemLocations(), 0);
    const std::map<std::string, std::string> cases = {
        {"%WINDIR%\\Notepad.EXE", w + "\\notepad.exe"},  // values keep the system's case
        {"%SYSDIR%\\drivers", s + "\\drivers"},
        {"%windrive%\\x", drive + "\\x"},
        {"\\SystemRoot\\System32\\X.dll", w + "\\system32\\x.dll"},
        {"%progdir%\\a;%ProgramFiles%\\b", p + "\\a;" + p + "\\b"},
        {"%curuserstartdir%\\a.lnk", shell_folder(CSIDL_STARTUP) + "\\a.lnk"},
        {"%alluserstartdir%", shell_folder(CSIDL_COMMON_STARTUP)},
        {"%SystemRoot%\\a", w + "\\a"},
        {"%CommonProgramFiles%\\X", "%commonprogramfiles%\\x"},  // can never match
        {"%tempdir%\\a.exe", "\\a.exe"},
        {"C:\\Mixed\\%windir%", "c:\\mixed\\" + w},
        // One occurrence of each macro per pass, four passes.
        {"%windrive%;%windrive%;%windrive%;%windrive%;%windrive%",
         drive + ";" + drive + ";" + drive + ";" + drive + ";%windrive%"},
        {"", "(null)"},
    };
    for (const auto &[text, expanded] : cases) EXPECT_EQ(expand(text.c_str()), expanded) << text;
    EXPECT_EQ(expand(nullptr), "(null)");
    EXPECT_TRUE(IsDirectory(windows) && !IsDirectory((s + "\\kernel32.dll").c_str()));

    // A value the system cannot give expands to nothing, never to what the
    // failed call left behind, nor to the previous Open's value.
    EXPECT_EQ(expand_served(&OsTable::GetWindowsDirectoryA, &failed_windows,
                            "%windir%|%windrive%|%progdir%"), "||" + p);
    EXPECT_EQ(expand_served(&OsTable::GetSystemDirectoryA, &cut_system, "%sysdir%|%windir%"),
              "|" + w);
    EXPECT_EQ(expand_served(&OsTable::LoadLibraryA, &no_library,
                            "%curuserstartdir%|%alluserstartdir%"), "|");
    // Without the registry's answer Program Files is built on the Windows
    // drive (served as D:, since the registry names C:\Program Files too).
    SeamEntry<decltype(OsTable::GetWindowsDirectoryA)> onD(&OsTable::GetWindowsDirectoryA,
                                                           &windows_on_d);
    EXPECT_EQ(expand_served(&OsTable::RegOpenKeyExA, &refused_key, "%progdir%|%windir%"),
              "D:\\Program Files|D:\\Windows");
}

// Served answers: IsWow64Process (or its absence), the processor
// architecture.
FARPROC g_isWow64 = nullptr;
BOOL g_wow64Result = TRUE, g_wow64Answer = 0;
WORD g_architecture = 0;
FARPROC WINAPI served_entry(HMODULE, LPCSTR name) {
    return strcmp(name, "IsWow64Process") ? nullptr : g_isWow64;
}
BOOL WINAPI served_wow64(HANDLE, PBOOL wow64) { return *wow64 = g_wow64Answer, g_wow64Result; }
void WINAPI served_info(SYSTEM_INFO *i) {
    real_os.GetSystemInfo(i), i->wProcessorArchitecture = g_architecture;
}

TEST_F(Macros, SixtyFourBitSystem) {
    EXPECT_TRUE(IsSixtyFourBitSystem()) << "Wine reports AMD64";
    SeamEntry<decltype(OsTable::GetSystemInfo)> info(&OsTable::GetSystemInfo, served_info);
    SeamEntry<decltype(OsTable::GetProcAddress)> entry(&OsTable::GetProcAddress, served_entry);
    const struct { WORD architecture; bool found; BOOL result, answer; bool expected; } cases[] = {
        {PROCESSOR_ARCHITECTURE_AMD64, false, 0, 0, true},
        {PROCESSOR_ARCHITECTURE_INTEL, false, 0, 0, false},    // no IsWow64Process
        {PROCESSOR_ARCHITECTURE_INTEL, true, TRUE, 1, true},   // 32-bit process on 64-bit
        {PROCESSOR_ARCHITECTURE_INTEL, true, TRUE, 2, false},  // exactly 1 only
        {PROCESSOR_ARCHITECTURE_ARM64, true, TRUE, 0, false},
    };
    for (const auto &c : cases) {
        g_architecture = c.architecture, g_wow64Result = c.result, g_wow64Answer = c.answer;
        void *isWow64 = c.found ? reinterpret_cast<void *>(served_wow64) : nullptr;
        g_isWow64 = reinterpret_cast<FARPROC>(isWow64);
        EXPECT_EQ(IsSixtyFourBitSystem(), c.expected) << c.architecture << " " << c.answer;
    }
}

TEST_F(Macros, ReplaceFirst) {
    const struct { const char *text; size_t length; const char *value, *expected; } cases[] = {
        {"a%x%b%x%", 8, "VALUE", "aVALUEb%x%"},
        {"abc", 3, "v", "(null)"},     // nothing to replace
        {"a%x%b", 2, "v", "(null)"},   // shorter than its macro
        {"a%x%bc", 5, "v", "(null)"},  // the pieces do not fit
    };
    for (const auto &c : cases) {
        char *out = ReplaceFirst(c.text, c.length, "%x%", c.value);
        EXPECT_EQ(out ? out : "(null)", std::string(c.expected));
        ZELTA_myfree(out);
    }
    // The block has the size the caller's length asks for, zero-filled.
    char *out = ReplaceFirst("a%x%", 10, "%x%", "v");
    EXPECT_EQ(std::string(out, HeapSize(GetProcessHeap(), 0, out)),
              std::string("av\0\0\0\0\0\0\0", 9));
    ZELTA_myfree(out);
}

TEST_F(Macros, PathTests) {
    using Stripped = std::pair<std::string, const char *>;
    for (auto [path, stripped] : {Stripped{"C:\\a\\/\\", "C:\\a"}, {"\\\\", ""}, {"a/b", "a/b"}}) {
        StripTrailingSeparators(path.data());
        EXPECT_STREQ(path.c_str(), stripped);
    }
    StripTrailingSeparators(nullptr);
    EXPECT_TRUE(IsBlank("") && IsBlank(" \t\n\v\f\r\xA0") && IsBlank(nullptr));
    EXPECT_FALSE(IsBlank(" \xA0x") || IsBlank("\x08") || IsDirectory(nullptr));
}

}  // namespace
