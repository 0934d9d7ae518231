// Startup scan over keys and files the tests make: every mode, both views,
// command-text passes, folders, name lists, Read. A 32-bit system and keys
// vanishing during a walk go through the seam.
#include <gtest/gtest.h>

#include <direct.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "platform/os.h"
#include "support/heap_ledger.h"
#include "support/temp_dir.h"
#include "vxio/startup.h"

using vxio::platform::OsTable;
using vxio::platform::real_os;
using vxio::platform::SeamEntry;
using vxio::test::HeapLedger;
using Rows = std::vector<std::string>;

namespace {

const uint8_t kCallerData[16] = {};
const std::string kKey = "Software\\vxio-test-scan-" + std::to_string(GetCurrentProcessId());

std::string lower(std::string s) {
    for (char &c : s) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return s;
}

// Texts are stored with their terminator.
void set_value(HKEY root, REGSAM view, const std::string &key, const std::string &name,
               DWORD type, const std::string &data) {
    HKEY h;
    ASSERT_EQ(RegCreateKeyExA(root, key.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | view, nullptr,
                              &h, nullptr), ERROR_SUCCESS);
    RegSetValueExA(h, name.c_str(), 0, type, reinterpret_cast<const BYTE *>(data.c_str()),
                   DWORD(data.size() + (type == REG_SZ || type == REG_EXPAND_SZ)));
    RegCloseKey(h);
}
void set_value(const std::string &key, const std::string &name, const std::string &data) {
    set_value(HKEY_CURRENT_USER, 0, key, name, REG_SZ, data);
}

// Relative names (subkey names, tokens) are looked up here.
struct InDirectory {
    char saved[MAX_PATH] = "";
    explicit InDirectory(const std::string &dir) { _getcwd(saved, MAX_PATH), _chdir(dir.c_str()); }
    ~InDirectory() { _chdir(saved); }
};

DynArray *open_scan(std::string text, DynArray *names = nullptr) {
    uint64_t size = text.size();
    IoObject *object = VOXA_MEM_Open("definitions", 0, 0, &text[0], &size, kCallerData, 16);
    DynArray *scan = VOXA_IO_OpenStartupScan(object, names);
    VOXA_MEM_Close(object);
    return scan;
}

// "id|label|root|view|key|mode|name|action|data" per finding (number is
// checked on the way), and the scan closed.
Rows rows(DynArray *scan) {
    Rows out;
    auto s = [](const char *t) { return std::string(t ? t : "(null)"); };
    for (uint32_t i = 0; scan && i < scan->count; ++i) {
        const auto &f = *static_cast<StartupFinding *>(scan->items[i]);
        EXPECT_EQ(f.number, int32_t(s(f.label).size() + 1)) << f.label;
        const char *root = f.root == HKEY_CURRENT_USER ? "HKCU" : f.root ? "HKLM" : "-";
        out.push_back(std::to_string(f.id) + "|" + s(f.label) + "|" + root + "|" +
                      std::to_string(f.view) + "|" + s(f.key) + "|" + std::to_string(f.mode) +
                      "|" + s(f.name) + "|" + std::to_string(f.action) + "|" + s(f.data));
    }
    VOXA_IO_CloseStartupScan(scan);
    return out;
}

// HKCU\Software is one key in both views under Wine: each definition's
// findings come in the 32-bit view, then again, the same, in the 64-bit
// one. Checks that and returns the first half.
Rows per_view(DynArray *scan) {
    const Rows all = rows(scan);
    Rows out;
    for (size_t begin = 0, end; begin < all.size(); begin = end) {
        const std::string id = all[begin].substr(0, all[begin].find('|') + 1);
        for (end = begin; end < all.size() && !all[end].compare(0, id.size(), id);) ++end;
        EXPECT_EQ((end - begin) % 2, 0u) << id;
        for (size_t i = begin, half = (end - begin) / 2; i < begin + half; ++i) {
            std::string in64 = all[i];
            in64.replace(in64.find("|512|"), 5, "|256|");
            EXPECT_EQ(all[i + half], in64);
            out.push_back(all[i]);
        }
    }
    return out;
}

// A definition line over HKCU\kKey + sub, and the row of its finding in the
// 32-bit view (tail: "action|data").
std::string line(int id, const std::string &sub, const char *mode, const char *name,
                 const char *tail) {
    return std::to_string(id) + ",x,0,HKCU," + kKey + sub + "," + mode + "," + name + "," + tail +
           "\n";
}
std::string row(int id, const std::string &label, const std::string &sub, int mode,
                const std::string &name, const char *tail) {
    return std::to_string(id) + "|" + label + "|HKCU|512|" + kKey + sub + "|" +
           std::to_string(mode) + "|" + name + "|" + tail;
}

struct StartupScan : ::testing::Test {
    vxio::test::TempDir dir;
    std::string prog = dir.write("prog.exe", "MZ program"), other = dir.write("other.exe", "MZ");
    std::string p = lower(prog), o = lower(other);
    HeapLedger ledger;
    void SetUp() override { CreateDirectoryA(dir.file("sub").c_str(), nullptr); }
    void TearDown() override {
        RegDeleteTreeA(HKEY_CURRENT_USER, kKey.c_str());
        for (REGSAM view : {KEY_WOW64_32KEY, KEY_WOW64_64KEY})
            RegDeleteKeyExA(HKEY_LOCAL_MACHINE, kKey.c_str(), view, 0);
        EXPECT_EQ(ledger.live(), 0u);
    }
};

// The TempDir's path holds "-", a separator of the first pass: a path there
// is found as the whole text, or as a token of the space-separated pass.
TEST_F(StartupScan, EveryModeOverValuesOfEveryType) {
    const std::string v = kKey + "\\values", exe = "c:\\windows\\system32\\notepad.exe";
    set_value(v, "a run", prog + " /arg");
    set_value(v, "b dir", dir.file("sub"));
    set_value(HKEY_CURRENT_USER, 0, v, "c expand", REG_EXPAND_SZ, "%SYSDIR%\\notepad.exe");
    const std::string multi = prog + " x" + '\0' + other + '\0' + '\0';
    set_value(HKEY_CURRENT_USER, 0, v, "d multi", REG_MULTI_SZ, multi);
    set_value(HKEY_CURRENT_USER, 0, v, "e binary", REG_BINARY, prog);  // no terminator
    set_value(v, "f long", prog + " " + std::string(1100, 'x'));
    set_value(HKEY_CURRENT_USER, 0, v, other, REG_DWORD, std::string("\7\0\0\0", 4));
    const std::string longName = other + " " + std::string(1100, 'n'), huge = prog + " huge";
    set_value(v, longName, prog);
    set_value(v, huge, prog + " " + std::string(70000, 'x'));  // beyond 64 KiB: held as ""
    set_value(v, "", other + " -q");  // the default value
    struct Case {
        std::string mode, name;
        int modeNumber;
        std::vector<std::pair<std::string, std::string>> found;  // label, name
    } cases[] = {
        {"scansub_false", "f long", 0, {{p, "f long"}}},  // > 1024 bytes: read again
        {"scansub_false", huge, 0, {}},
        {"scansub_false", "", 0, {{o, "(null)"}}},
        {"scansub_false", "b dir", 0, {}},
        // Values in name order; "%SYSDIR%\..." is both the whole text and its
        // only token: two findings. Long names and data are read whole.
        {"scansub_value", "N", 1, {{o, "N"}, {p, "a run"}, {exe, "c expand"}, {exe, "c expand"},
                                   {o, "N"}, {p, longName}, {p, "N"}, {p, "d multi"},
                                   {p, "e binary"}, {p, "f long"}}},
        {"scansub_name", "N", 2, {{o, "N"}, {p, "N"}, {exe, "N"}, {exe, "N"}, {o, other},
                                  {o, longName}, {p, huge}, {p, "N"}, {p, "N"}, {p, "N"}}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.mode + " " + c.name.substr(0, 40));
        Rows want;
        for (const auto &[label, name] : c.found)
            want.push_back(row(7, label, "\\values", c.modeNumber, name, "1|%windir%"));
        const char *tail = "disinf_deletevalue,%windir%";
        EXPECT_EQ(per_view(open_scan(line(7, "\\values", c.mode.c_str(), c.name.c_str(), tail))),
                  want);
    }
}

// Relative names find nothing, whatever files lie in the current directory;
// a bare file name is looked up in the system directory, then the Windows
// directory.
TEST_F(StartupScan, SubkeysSeparatorsAndTheSameFileTwice) {
    set_value(kKey + "\\subkeys\\one", "Path", prog + " -run");
    set_value(kKey + "\\subkeys\\two", "Other", prog);
    set_value(kKey + "\\subkeys\\notepad.exe", "Path", "nothing here");
    set_value(kKey + "\\subkeys\\other.exe", "Path", "nothing here");
    set_value(kKey, "List", "prog.exe;other.exe,/v,-k netsvcs,sub, \t,%sysdir%\\notepad.exe");
    // Only the first pass finds "notepad.exe"; the second decides that the
    // data gave nothing, so the value's name is checked as well.
    set_value(kKey + "\\sep", "win.ini", "notepad.exe-x y");
    dir.write("v", "");
    dir.write("netsvcs", "");
    InDirectory in(dir.path());
    const std::string exe = "c:\\windows\\system32\\notepad.exe", ini = "c:\\windows\\win.ini";
    Rows want = {
        // A bare name is the whole text and its only token: nothing checks
        // for duplicates.
        row(3, exe, "\\subkeys", 3, "Path", "3|(null)"),
        row(3, exe, "\\subkeys", 3, "Path", "3|(null)"),
        row(3, p, "\\subkeys", 3, "one", "3|(null)"),
        row(4, exe, "\\subkeys", 3, "notepad.exe", "6|(null)"),
        row(4, exe, "\\subkeys", 3, "notepad.exe", "6|(null)"),
        row(5, exe, "\\sep", 1, "win.ini", "7|(null)"),
        row(5, ini, "\\sep", 1, "(null)", "7|(null)"),
        row(5, ini, "\\sep", 1, "(null)", "7|(null)"),
    };
    // Each pass adds what it finds ("sub" is a directory, " \t" blank).
    for (int id : {1, 2}) want.insert(want.end(), 2, row(id, exe, "", 0, "List", "0|(null)"));
    EXPECT_EQ(per_view(open_scan(line(3, "\\subkeys", "scansub_key", "Path", "disinf_deletekey,") +
                                 line(4, "\\subkeys", "scansub_key", "", "disinf_bho,") +
                                 line(5, "\\sep", "scansub_value", "", "disinf_binary,") +
                                 line(1, "", "scansub_false", "List", ",") +
                                 line(2, "", "scansub_false", "List", ","))),
              want);
}

// A 32-bit Windows: an x86 processor (and Wine's IsWow64Process says 0).
void WINAPI x86_system(LPSYSTEM_INFO info) {
    real_os.GetSystemInfo(info);
    info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_INTEL;
}

TEST_F(StartupScan, MachineKeysDifferByView) {
    // HKLM\Software\Wow6432Node is what the 32-bit view calls HKLM\Software.
    set_value(HKEY_LOCAL_MACHINE, KEY_WOW64_64KEY, kKey, "Run", REG_SZ, prog + " 64");
    set_value(HKEY_LOCAL_MACHINE, KEY_WOW64_32KEY, kKey, "Run", REG_SZ, other + " 32");
    const std::string defs = "5,x,0,HKLM," + kKey + ",scansub_value,,disinf_deletenamevalue,";
    auto found = [&](const std::string &label, const char *view) {
        return "5|" + label + "|HKLM|" + view + "|" + kKey + "|1|Run|2|(null)";
    };
    EXPECT_EQ(rows(open_scan(defs)), (Rows{found(o, "512"), found(p, "256")}));
    SeamEntry<decltype(OsTable::GetSystemInfo)> x86(&OsTable::GetSystemInfo, &x86_system);
    EXPECT_EQ(rows(open_scan(defs)), Rows{found(p, "0")}) << "one view, without a view flag";
}

TEST_F(StartupScan, FilesAndFolders) {
    dir.write("empty.txt", "");
    dir.write(".hidden", "");  // skipped: empty and named with a dot
    dir.write(".profile", "text");
    const std::string d = lower(dir.path()) + "\\", f = "|8|(null)";
    struct Case {
        std::string key, mode, name;
        Rows found;  // sorted: the listing order is the file system's
        bool opens;
    } cases[] = {
        {d, "scansub_false", "prog.exe", {"9|" + p + "|-|0|" + d + "|0|prog.exe" + f}, true},
        {d + "*", "scansub_name", "", {"9|" + d + ".profile|-|0|" + d + "*|2|(null)" + f,
                                       "9|" + d + "empty.txt|-|0|" + d + "*|2|(null)" + f,
                                       "9|" + o + "|-|0|" + d + "*|2|(null)" + f,
                                       "9|" + p + "|-|0|" + d + "*|2|(null)" + f}, true},
        {d + "*.exe", "scansub_name", "", {}, true},  // the path is the pattern: none
        {d + "missing\\*", "scansub_name", "", {}, false},
        {d, "scansub_key", "", {}, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.key + " " + c.mode);
        DynArray *scan =
            open_scan("9,x,0,," + c.key + "," + c.mode + "," + c.name + ",disinf_deletefile,");
        EXPECT_EQ(scan != nullptr, c.opens);
        Rows got = rows(scan);
        std::sort(got.begin(), got.end());
        EXPECT_EQ(got, c.found);
    }
}

TEST_F(StartupScan, NameListMatching) {
    char longForm[MAX_PATH];
    ASSERT_GT(GetLongPathNameA(p.c_str(), longForm, MAX_PATH), 0u);
    InDirectory in(dir.path());
    const std::string exe = "c:\\windows\\system32\\notepad.exe";
    struct Case {
        std::string data;
        std::vector<std::string> names;
        Rows labels;
    } cases[] = {
        {prog + " x",
         {"c:\\elsewhere\\tool.exe", "run " + std::string(longForm)},
         {lower(longForm)}},
        {prog + " x", {"c:\\elsewhere\\prog.exe"}, {"c:\\elsewhere\\prog.exe"}},  // a missing file
        {prog + " x", {"C:\\Elsewhere\\Prog.exe"}, {p}},  // case counts: no match
        // A missing file has no short form; the empty one matches the first
        // entry and gives an empty path: the file name is never compared.
        {dir.file("ghost.exe") + " x", {"c:\\elsewhere\\ghost.exe"}, {}},
        // A relative token is never looked up where the scan runs.
        {"prog.exe x", {"c:\\elsewhere\\prog.exe"}, {}},
        // Without a list: quotes separate; a path cut before "/s" or a tab
        // loses its blanks.
        {"\"%sysdir%\\notepad.exe\"", {}, {exe}},
        {"\"" + prog + "\" /s", {}, {p}},
        {"%sysdir%\\notepad.exe /s", {}, {exe, exe}},
        {"%sysdir%\\notepad.exe\t/s", {}, {exe}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.data);
        set_value(kKey, "Run", c.data);
        DynArray *names = VOXA_arrNew();
        for (const std::string &n : c.names) VOXA_arrAdd(names, const_cast<char *>(n.c_str()));
        Rows want;
        for (const std::string &label : c.labels)
            want.push_back(row(1, label, "", 0, "Run", "0|(null)"));
        EXPECT_EQ(per_view(open_scan(line(1, "", "scansub_false", "Run", ","), names)), want);
        VOXA_arrFree(names, 0);
    }
}

TEST_F(StartupScan, ReadByIndexWithLocations) {
    set_value(kKey, "Run", prog);
    DynArray *scan = open_scan(line(1, "", "scansub_false", "Run", ",") +
                               line(2, "", "scansub_value", "", ","));
    ASSERT_EQ(scan ? scan->count : 0, 4u);
    const std::string single = kKey + "\\Run";  // the name only for mode 0
    const std::tuple<uint64_t, uint64_t, std::string> cases[] = {
        {0, 0, single}, {2, 0, kKey}, {4, VXIO_STARTUP_FAILED, ""},
        {5, VXIO_STARTUP_BAD_INDEX, ""}};
    for (const auto &[index, result, where] : cases) {
        SCOPED_TRACE(index);
        char *path = nullptr, *location = nullptr;
        uint64_t pathLength = 0, locationLength = 0;
        auto read = [&, index = index] {
            return VOXA_IO_ReadStartupScan(scan, index, &path, &pathLength, &location,
                                           &locationLength);
        };
        EXPECT_EQ(read(), result);
        EXPECT_EQ(path ? path : "", result ? "" : p);
        EXPECT_EQ(pathLength, result ? 0 : p.size() + 1);
        EXPECT_EQ(location ? location : "", where);
        EXPECT_EQ(locationLength, location ? where.size() + 3 : 0);
        if (result == 0) {
            // The outputs filled: -1, the path untouched, the location
            // copied into the block passed back.
            char *kept = path;
            location[0] = '#';
            EXPECT_EQ(read(), VXIO_STARTUP_FAILED);
            EXPECT_EQ(path, kept);
            EXPECT_EQ(location, where);
        }
        ZELTA_myfree(path);
        ZELTA_myfree(location);
    }
    // A null location with text length + 2 beside it is left alone.
    char *path = nullptr, *location = nullptr;
    uint64_t pathLength = 0, locationLength = single.size() + 2;
    EXPECT_EQ(VOXA_IO_ReadStartupScan(scan, 0, &path, &pathLength, &location, &locationLength), 0u);
    EXPECT_EQ(location, nullptr);
    ZELTA_myfree(path);
    path = nullptr, pathLength = 0;
    static_cast<StartupFinding *>(scan->items[1])->number += 1;
    EXPECT_EQ(VOXA_IO_ReadStartupScan(scan, 1, &path, &pathLength, 0, 0), VXIO_STARTUP_DAMAGED);
    EXPECT_EQ(path, nullptr);
    EXPECT_EQ(VOXA_IO_CloseStartupScan(scan), 0u);
}

// A key deleted while it is listed: every index answers ERROR_KEY_DELETED.
LSTATUS WINAPI deleted(HKEY, DWORD, LPSTR, LPDWORD, LPDWORD, LPDWORD, LPBYTE, LPDWORD) {
    return ERROR_KEY_DELETED;
}
LSTATUS WINAPI deleted(HKEY, DWORD, LPSTR, LPDWORD, LPDWORD, LPSTR, LPDWORD, PFILETIME) {
    return ERROR_KEY_DELETED;
}

TEST_F(StartupScan, NoScanWithoutAWalk) {
    EXPECT_EQ(open_scan(line(1, "\\missing", "scansub_value", "", ",")), nullptr);
    set_value(HKEY_CURRENT_USER, 0, kKey, "Run", REG_DWORD, std::string(4, '\0'));
    DynArray *scan = open_scan(line(1, "", "scansub_value", "", ","));
    EXPECT_TRUE(scan && scan->count == 0) << "a readable key without programs is a scan";
    VOXA_IO_CloseStartupScan(scan);

    set_value(kKey, "Run", prog);
    set_value(kKey + "\\sub", "Run", prog);
    SeamEntry<decltype(OsTable::RegEnumValueA)> values(&OsTable::RegEnumValueA, &deleted);
    SeamEntry<decltype(OsTable::RegEnumKeyExA)> keys(&OsTable::RegEnumKeyExA, &deleted);
    scan = open_scan(line(1, "", "scansub_value", "", ",") + line(2, "", "scansub_key", "", ","));
    EXPECT_TRUE(scan && scan->count == 0) << "the walks end and count as done";
    VOXA_IO_CloseStartupScan(scan);
}

TEST_F(StartupScan, EachAllocationFails) {
    set_value(kKey, "Run", prog + " x");
    DynArray *names = VOXA_arrNew();
    VOXA_arrAdd(names, const_cast<char *>("c:\\elsewhere\\prog.exe"));
    const std::string defs = line(1, "", "scansub_value", "", ",") + "2,x,0,," + dir.path() +
                             "\\*,scansub_name,,,\n";
    vxio::test::each_allocation_fails([&](HeapLedger &inner) {
        const size_t found = rows(open_scan(defs, names)).size();
        EXPECT_TRUE(found == 4 || (inner.failed() && found < 4)) << found;
    });
    VOXA_arrFree(names, 0);
}

}  // namespace
