// Path macros: expansion against the folders Wine reports, with the quirks;
// served values (Windows directory, registry, shell); the 64-bit test with
// served answers; ReplaceFirst, the path tests, running out of memory.
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

TEST_F(Macros, ExpandTheSystemsOwnFolders) {
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
        {"%SystemRoot%\\a", w + "\\a"},
        {"\\SystemRoot\\System32\\X.dll", w + "\\system32\\x.dll"},
        {"%progdir%\\a;%ProgramFiles%\\b", p + "\\a;" + p + "\\b"},
        {"%curuserstartdir%\\a.lnk", shell_folder(CSIDL_STARTUP) + "\\a.lnk"},
        {"%alluserstartdir%", shell_folder(CSIDL_COMMON_STARTUP)},
        {"%CommonProgramFiles%\\X", "%commonprogramfiles%\\x"},  // can never match
        {"%tempdir%\\a.exe", "\\a.exe"},
        {"%AppData%\\X", "%appdata%\\x"},
        {"C:\\Mixed\\%windir%", "c:\\mixed\\" + w},
        // One occurrence of each macro per pass, four passes.
        {"%windrive%;%windrive%;%windrive%;%windrive%;%windrive%",
         drive + ";" + drive + ";" + drive + ";" + drive + ";%windrive%"},
        {"", "(null)"},
    };
    for (const auto &[text, expanded] : cases) EXPECT_EQ(expand(text.c_str()), expanded) << text;
    EXPECT_EQ(expand(nullptr), "(null)");
    EXPECT_TRUE(IsDirectory(windows) && !IsDirectory((s + "\\kernel32.dll").c_str()));
}

#define SERVE(entry, fn) SeamEntry<decltype(OsTable::entry)> serve_##entry(&OsTable::entry, fn)
template <typename Fn>
FARPROC as_proc(Fn fn) {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void *>(fn));
}

// Served answers: the Windows directory ("" fails), the registry (the value
// "E:\Apps" is stored without its terminator), entry points by name, the
// architecture, and a count of loaded libraries.
std::string g_windows, g_used;  // g_used: the shell entry point that answered
LSTATUS g_open = 0, g_query = 0;
std::map<std::string, FARPROC> g_entries;
int g_loads = 0;
BOOL g_wow64Result = TRUE, g_wow64Answer = 0;
WORD g_architecture = 0;
UINT WINAPI served_windows(LPSTR buffer, UINT size) {
    return g_windows.empty() ? 0 : snprintf(buffer, size, "%s", g_windows.c_str());
}
UINT WINAPI served_system(LPSTR b, UINT n) { return snprintf(b, n, "D:\\WINDOWS\\system32\\\\"); }
LSTATUS WINAPI served_open(HKEY root, LPCSTR path, DWORD options, REGSAM access, PHKEY key) {
    return g_open ? g_open : real_os.RegOpenKeyExA(root, path, options, access, key);
}
LSTATUS WINAPI served_query(HKEY, LPCSTR, LPDWORD, LPDWORD type, LPBYTE data, LPDWORD size) {
    *type = REG_SZ, *size = 7;
    return g_query ? g_query : (memcpy(data, "E:\\AppsXXX", 10), 0);
}
HRESULT WINAPI folder_plain(HWND, int folder, HANDLE, DWORD, LPSTR path) {
    g_used = "plain";
    return folder == CSIDL_COMMON_STARTUP ? (strcpy(path, "D:\\All\\Startup"), S_OK) : E_FAIL;
}
HRESULT WINAPI folder_ansi(HWND, int, HANDLE, DWORD, LPSTR path) {
    return g_used = "ansi", path[0] = '\0', S_OK;  // an empty answer changes nothing
}
FARPROC WINAPI served_entry(HMODULE, LPCSTR name) {
    const auto found = g_entries.find(name);
    return found == g_entries.end() ? nullptr : found->second;
}
HMODULE WINAPI counted_load(LPCSTR name) { return ++g_loads, real_os.LoadLibraryA(name); }
BOOL WINAPI counted_free(HMODULE module) { return --g_loads, real_os.FreeLibrary(module); }
BOOL WINAPI served_wow64(HANDLE, PBOOL wow64) { return *wow64 = g_wow64Answer, g_wow64Result; }
void WINAPI served_info(SYSTEM_INFO *i) {
    real_os.GetSystemInfo(i), i->wProcessorArchitecture = g_architecture;
}

TEST_F(Macros, ServedLocations) {
    SERVE(GetWindowsDirectoryA, served_windows);
    SERVE(GetSystemDirectoryA, served_system);
    SERVE(RegOpenKeyExA, served_open);
    SERVE(RegQueryValueExA, served_query);
    SERVE(GetProcAddress, served_entry);
    SERVE(LoadLibraryA, counted_load);
    SERVE(FreeLibrary, counted_free);
    const std::map<std::string, FARPROC> both = {{"SHGetFolderPath", as_proc(folder_plain)},
                                                 {"SHGetFolderPathA", as_proc(folder_ansi)}};
    const char *all = "%windrive%|%windir%|%sysdir%|%progdir%|%alluserstartdir%|%curuserstartdir%";
    const struct { const char *windows; LSTATUS open, query; std::map<std::string, FARPROC> entries;
                   const char *used, *expanded; } cases[] = {
        {"D:\\WINDOWS\\", 0, 0, both, "plain",
         "D:|D:\\WINDOWS|D:\\WINDOWS\\system32|E:\\Apps|D:\\All\\Startup|"},
        {"D:\\WINDOWS\\", 2, 0, {{"SHGetFolderPathA", as_proc(folder_ansi)}}, "ansi",
         "D:|D:\\WINDOWS|D:\\WINDOWS\\system32|D:\\Program Files||"},
        {"D:\\", 0, 2, {}, "", "D:|D:|D:\\WINDOWS\\system32|D:\\Program Files||"},
        {"", 0, 2, {}, "", "||D:\\WINDOWS\\system32|\\Program Files||"},  // no drive either
    };
    for (const auto &c : cases) {
        g_windows = c.windows, g_open = c.open, g_query = c.query, g_entries = c.entries;
        g_used.clear();
        EXPECT_EQ(InitSystemLocations(), 0);
        EXPECT_EQ(g_used, c.used);
        EXPECT_EQ(expand(all), c.expanded);
        EXPECT_EQ(g_loads, 0) << "shell32 released";
    }
}

TEST_F(Macros, SixtyFourBitSystem) {
    EXPECT_TRUE(IsSixtyFourBitSystem()) << "Wine reports AMD64";
    SERVE(GetSystemInfo, served_info);
    SERVE(GetProcAddress, served_entry);
    const struct { WORD architecture; bool found; BOOL result, answer; bool expected; } cases[] = {
        {PROCESSOR_ARCHITECTURE_AMD64, false, 0, 0, true},
        {PROCESSOR_ARCHITECTURE_INTEL, false, 0, 0, false},    // no IsWow64Process
        {PROCESSOR_ARCHITECTURE_INTEL, true, TRUE, 1, true},   // 32-bit process on 64-bit
        {PROCESSOR_ARCHITECTURE_INTEL, true, TRUE, 2, false},  // exactly 1 only
        {PROCESSOR_ARCHITECTURE_INTEL, true, FALSE, 1, false},
        {PROCESSOR_ARCHITECTURE_ARM64, true, TRUE, 0, false},
    };
    for (const auto &c : cases) {
        g_architecture = c.architecture, g_wow64Result = c.result, g_wow64Answer = c.answer;
        g_entries.clear();
        if (c.found) g_entries["IsWow64Process"] = as_proc(served_wow64);
        EXPECT_EQ(IsSixtyFourBitSystem(), c.expected) << c.architecture << " " << c.answer;
    }
}

TEST_F(Macros, ReplaceFirst) {
    const struct { const char *text; size_t length; const char *value, *expected; } cases[] = {
        {"a%x%b%x%", 8, "VALUE", "aVALUEb%x%"},
        {"%x%", 3, "", ""},
        {"abc", 3, "v", "(null)"},     // nothing to replace
        {"a%x%b", 2, "v", "(null)"},   // shorter than its macro
        {"a%x%bc", 5, "v", "(null)"},  // the pieces do not fit
        {nullptr, 0, "v", "(null)"},
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

TEST_F(Macros, RunningOutOfMemory) {
    vxio::test::each_allocation_fails([](vxio::test::HeapLedger &l) {
        char *out = ExpandPathMacros("%WINDIR%\\%sysdir%\\%appdata%");
        EXPECT_EQ(out == nullptr, l.failed());
        ZELTA_myfree(out);
    });
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
