// Repairs: every action checked against a dump of the test tree taken
// before. A missing or refusing RegDeleteKeyExA and a 32-bit system go
// through the seam.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "platform/os.h"
#include "startup/definitions.h"
#include "support/heap_ledger.h"
#include "support/temp_dir.h"
#include "vxio/startup.h"

using vxio::platform::OsTable;
using vxio::platform::real_os;
using vxio::platform::SeamEntry;
using vxio::test::HeapLedger;

namespace {

const uint8_t kCallerData[16] = {};
const std::string kKey = "Software\\vxio-test-repair-" + std::to_string(GetCurrentProcessId());
const std::string kClassId = "{0BAD0BAD-0000-4000-8000-00000000F00D}";
const std::string kClassKey = "Software\\Classes\\CLSID\\" + kClassId;

// Texts are written with their terminator, binary data without one.
void set_value(const std::string &key, const char *name, DWORD type, const std::string &data) {
    HKEY h;
    ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, key.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                              nullptr, &h, nullptr), ERROR_SUCCESS);
    if (name)
        RegSetValueExA(h, name, 0, type, reinterpret_cast<const BYTE *>(data.c_str()),
                       DWORD(data.size() + (type != REG_BINARY)));
    RegCloseKey(h);
}

// "subkey|value" -> "type:data" for every value, "subkey|" -> "key" for
// every key below HKCU\key.
using Dump = std::map<std::string, std::string>;
void dump(const std::string &key, const std::string &as, Dump &out) {
    HKEY h;
    if (RegOpenKeyExA(HKEY_CURRENT_USER, key.c_str(), 0, KEY_READ, &h) != ERROR_SUCCESS) return;
    out[as + "|"] = "key";
    char name[1024], data[2048];
    for (DWORD i = 0, n = sizeof name, size = sizeof data, type;
         !RegEnumValueA(h, i, name, &n, nullptr, &type, (BYTE *)data, &size);
         ++i, n = sizeof name, size = sizeof data)
        out[as + "|" + name] = std::to_string(type) + ":" + std::string(data, size);
    for (DWORD i = 0, n = sizeof name;
         !RegEnumKeyExA(h, i, name, &n, nullptr, nullptr, nullptr, nullptr); ++i, n = sizeof name)
        dump(key + "\\" + name, as + "\\" + name, out);
    RegCloseKey(h);
}

Dump tree() {
    Dump out;
    dump(kKey, "", out);
    dump(kClassKey, "clsid", out);
    return out;
}

// Edits of a dump: "-" erases every entry that begins with the text given
// (a value, or a key with everything below it); anything else is the
// value's new "type:data".
Dump edited(Dump d, const std::map<std::string, std::string> &edits) {
    for (const auto &[where, what] : edits) {
        if (what != "-") d[where] = what;
        for (auto i = d.lower_bound(where);
             what == "-" && i != d.end() && !i->first.compare(0, where.size(), where);)
            i = d.erase(i);
    }
    return d;
}

DynArray *open_scan(std::string text) {
    uint64_t size = text.size();
    IoObject *object = VOXA_MEM_Open("definitions", 0, 0, &text[0], &size, kCallerData, 16);
    DynArray *scan = VOXA_IO_OpenStartupScan(object, nullptr);
    VOXA_MEM_Close(object);
    return scan;
}

// Scans one definition over kKey + sub, cleans its first finding `times`
// times and returns the last result.
uint64_t clean(const std::string &sub, const char *rest, int times = 1) {
    DynArray *scan = open_scan("1,x,0,HKCU," + kKey + sub + "," + rest + "\n");
    EXPECT_NE(scan, nullptr);
    uint64_t result = 12345;
    for (int i = 0; scan && i < times; ++i) result = VOXA_IO_CleanStartupScan(scan, 0);
    VOXA_IO_CloseStartupScan(scan);
    return result;
}

struct StartupRepair : ::testing::Test {
    vxio::test::TempDir dir;
    std::string evil = dir.write("evil.exe", "MZ"), lowerEvil = evil;
    HeapLedger ledger;
    void SetUp() override {
        for (char &c : lowerEvil) c = static_cast<char>(tolower(c));
        set_value(kKey + "\\run", "Evil", REG_EXPAND_SZ, evil + " /s");
        // "Tray.exe", a bare name, is no file where the system would look.
        set_value(kKey + "\\run", "Shell", REG_SZ, "Tray.exe " + evil);
        set_value(kKey + "\\run", "Bin", REG_BINARY, "Tray.exe " + lowerEvil);
        set_value(kKey + "\\run", "Long", REG_SZ, evil + " " + std::string(1500, 'y'));
        set_value(kKey + "\\tree\\evil", "Path", REG_SZ, evil + " x");
        set_value(kKey + "\\tree\\evil\\a\\b", "V", REG_SZ, "v");
        set_value(kKey + "\\tree\\evil\\z", nullptr, 0, "");
        set_value(kKey + "\\tree\\other", "Path", REG_SZ, "nothing");
        set_value(kKey + "\\bho\\" + kClassId, "Path", REG_SZ, evil + " x");
        set_value(kKey + "\\bho2\\plain", "Path", REG_SZ, evil + " x");
        set_value(kClassKey + "\\InprocServer32", "", REG_SZ, evil);
    }
    void TearDown() override {
        RegDeleteTreeA(HKEY_CURRENT_USER, kKey.c_str());
        RegDeleteTreeA(HKEY_CURRENT_USER, kClassKey.c_str());
        EXPECT_EQ(ledger.live(), 0u);
    }
};

TEST_F(StartupRepair, EachActionChangesOnlyItsPlace) {
    char windows[MAX_PATH];
    GetWindowsDirectoryA(windows, MAX_PATH);
    struct Case { const char *sub, *rest; int times; Dump edits; uint64_t result = 0; } cases[] = {
        // Emptied with its type kept; an empty value is left as it is (0).
        {"\\run", "scansub_false,Evil,disinf_deletevalue,", 2, {{"\\run|Evil", "2:"}}},
        {"\\run", "scansub_value,,disinf_deletenamevalue,", 2, {{"\\run|Bin", "-"}}},  // 0 again
        {"\\tree", "scansub_key,Path,disinf_deletekey,", 1, {{"\\tree\\evil", "-"}}},
        {"\\bho", "scansub_key,Path,disinf_bho,", 1, {{"\\bho\\{", "-"}, {"clsid", "-"}}},
        {"\\bho2", "scansub_key,Path,disinf_deleteclsid,", 1, {{"\\bho2\\plain", "-"}}},
        // Rewritten with the old type, without a terminator: the system
        // adds one, as the byte after the text is zero.
        {"\\run", "scansub_false,Evil,disinf_replacevalue,%windir%\\explorer.exe", 1,
         {{"\\run|Evil", "2:" + std::string(windows) + "\\explorer.exe" + '\0'}}},
        // The path is cut out in any case, the rest keeps its own; a second
        // time it is not found: -1, nothing written.
        {"\\run", "scansub_false,Shell,disinf_replacevalue,", 2,
         {{"\\run|Shell", std::string("1:Tray.exe ") + '\0'}}, VXIO_STARTUP_FAILED},
        {"\\run", "scansub_false,Long,disinf_replacevalue,", 1,
         {{"\\run|Long", "1: " + std::string(1500, 'y') + '\0'}}},  // read whole
        // Not stored as its text and one terminator: the cut is refused
        // and the empty data written instead.
        {"\\run", "scansub_false,Bin,disinf_replacevalue,", 1, {{"\\run|Bin", "3:"}}},
        {"\\run", "scansub_value,,disinf_binary,", 1, {}},
        {"\\run", "scansub_value,,disinf_deletefile,", 1, {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.sub) + "," + c.rest);
        SetUp();
        const Dump before = tree();
        EXPECT_EQ(clean(c.sub, c.rest, c.times), c.result);
        EXPECT_EQ(tree(), edited(before, c.edits));
        TearDown();
    }
}

// Findings made by hand, with what a scan never leaves out missing.
TEST_F(StartupRepair, IndexRulesAndUnreadableFindings) {
    const std::string missing = kKey + "\\missing", run = kKey + "\\run", huge = kKey + "\\huge";
    set_value(huge, "Huge", REG_SZ, std::string(70000, 'x'));
    const Dump before = tree();
    struct Case { uint32_t action; HKEY root; const char *key, *name; uint64_t result; } cases[] = {
        {1, HKEY_CURRENT_USER, missing.c_str(), "V", VXIO_STARTUP_FAILED},
        {2, HKEY_CURRENT_USER, run.c_str(), "Missing", 0},
        {3, nullptr, kKey.c_str(), "run", 0},              // no root: nothing done
        {3, HKEY_CURRENT_USER, kKey.c_str(), nullptr, 0},  // no name: nothing done
        {4, HKEY_CURRENT_USER, kKey.c_str(), nullptr, 1},
        {5, HKEY_CURRENT_USER, missing.c_str(), "V", 1},
        {5, HKEY_CURRENT_USER, run.c_str(), "Missing", VXIO_STARTUP_FAILED},
        // Beyond 64 KiB the value is held as "": no "x" to cut out.
        {5, HKEY_CURRENT_USER, huge.c_str(), "Huge", VXIO_STARTUP_FAILED},
        {99, HKEY_CURRENT_USER, kKey.c_str(), "run", 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::to_string(c.action) + " " + (c.name ? c.name : "(null)"));
        DynArray *hand = VOXA_arrNew();
        VOXA_arrAdd(hand, vxio::startup::NewStartupRecord(1, "x", 2, c.root, KEY_WOW64_64KEY,
                                                          c.key, 0, c.name, c.action, nullptr));
        EXPECT_EQ(VOXA_IO_CleanStartupScan(hand, 0), c.result);
        EXPECT_EQ(VOXA_IO_CleanStartupScan(hand, 1), VXIO_STARTUP_FAILED);
        EXPECT_EQ(VOXA_IO_CleanStartupScan(hand, 2), VXIO_STARTUP_BAD_INDEX);
        VOXA_IO_CloseStartupScan(hand);
    }
    EXPECT_EQ(VOXA_IO_CleanStartupScan(nullptr, 0), VXIO_STARTUP_FAILED);
    EXPECT_EQ(tree(), before);
}

// Advapi32 as the seam shows it: without RegDeleteKeyExA (as on 64-bit
// Windows XP); with the key "a" refused (access denied, as for a key whose
// descriptor forbids deletion); or with "a" not found, deleted or opened
// by its path, while its parent still lists it (as a redirected key can).
// A plain key named "link" is served as Windows answers for a registry
// link to "run", beside the tree: opened with REG_OPTION_OPEN_LINK it is
// itself and holds "SymbolicLinkValue" of type REG_LINK; any other open,
// and a delete by its name, reach "run". NtDeleteKey is the real one.
enum class KeyA { Real, NoEntryPoint, Refused, Hidden } g_keyA = KeyA::Real;
bool names_a(LPCSTR p) {
    return g_keyA != KeyA::Real && strlen(p) >= 2 && !strcmp(p + strlen(p) - 2, "\\a");
}
const std::string kRun = kKey + "\\run";
HKEY g_link = nullptr;  // the link, opened as itself
bool names_link(LPCSTR p) { return p && strlen(p) >= 4 && !strcmp(p + strlen(p) - 4, "link"); }
LSTATUS WINAPI delete_key(HKEY root, LPCSTR path, REGSAM view, DWORD reserved) {
    if (names_link(path)) return RegDeleteKeyExA(HKEY_CURRENT_USER, kRun.c_str(), view, 0);
    if (!names_a(path)) return RegDeleteKeyExA(root, path, view, reserved);
    return g_keyA == KeyA::Hidden ? ERROR_FILE_NOT_FOUND : ERROR_ACCESS_DENIED;
}
LSTATUS WINAPI delete_key_a(HKEY root, LPCSTR path) {
    return names_link(path) ? RegDeleteKeyA(HKEY_CURRENT_USER, kRun.c_str())
                            : RegDeleteKeyA(root, path);
}
FARPROC WINAPI lookup(HMODULE module, LPCSTR name) {
    if (HIWORD(reinterpret_cast<uintptr_t>(name)) && !strcmp(name, "RegDeleteKeyExA"))
        return g_keyA == KeyA::NoEntryPoint ? nullptr : (FARPROC)(void *)&delete_key;
    return real_os.GetProcAddress(module, name);
}
LSTATUS WINAPI open_key(HKEY root, LPCSTR path, DWORD options, REGSAM access, PHKEY key) {
    if (g_keyA == KeyA::Hidden && path && names_a(path)) return ERROR_FILE_NOT_FOUND;
    const bool asLink = names_link(path) && (options & REG_OPTION_OPEN_LINK);
    if (names_link(path) && !asLink) root = HKEY_CURRENT_USER, path = kRun.c_str();
    const LSTATUS status = real_os.RegOpenKeyExA(root, path, options, access, key);
    if (options & REG_OPTION_OPEN_LINK) g_link = asLink && !status ? *key : nullptr;
    return status;
}
LSTATUS WINAPI query_value(HKEY key, LPCSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                           LPDWORD size) {
    if (!key || key != g_link || !name || strcmp(name, "SymbolicLinkValue"))
        return real_os.RegQueryValueExA(key, name, reserved, type, data, size);
    if (type) *type = REG_LINK;
    return ERROR_SUCCESS;
}
// A 32-bit Windows: an x86 processor (and Wine's IsWow64Process says 0).
void WINAPI x86_system(LPSYSTEM_INFO info) {
    real_os.GetSystemInfo(info);
    info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_INTEL;
}

TEST_F(StartupRepair, KeyTreesThroughTheSeam) {
    SeamEntry<decltype(OsTable::GetProcAddress)> lookupEntry(&OsTable::GetProcAddress, &lookup);
    SeamEntry<decltype(OsTable::RegOpenKeyExA)> openEntry(&OsTable::RegOpenKeyExA, &open_key);
    SeamEntry<decltype(OsTable::RegQueryValueExA)> queryEntry(&OsTable::RegQueryValueExA,
                                                              &query_value);
    SeamEntry<decltype(OsTable::RegDeleteKeyA)> deleteEntry(&OsTable::RegDeleteKeyA,
                                                            &delete_key_a);
    const char *deleteKey = "scansub_key,Path,disinf_deletekey,";
    const std::string link = kKey + "\\tree\\evil\\link";
    set_value(link, nullptr, 0, "");
    struct Case { KeyA keyA; int times; uint64_t result; Dump edits; } cases[] = {
        {KeyA::NoEntryPoint, 1, VXIO_STARTUP_FAILED, {}},
        {KeyA::Refused, 1, VXIO_STARTUP_FAILED, {{"\\tree\\evil\\a\\b", "-"}}},  // stops at "a"
        {KeyA::Hidden, 1, VXIO_STARTUP_FAILED, {}},  // "a" keeps coming back: stops
        // A key gone from its view counts as deleted; the link inside goes
        // as itself, "run" stays.
        {KeyA::Real, 2, 0, {{"\\tree\\evil", "-"}}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(static_cast<int>(c.keyA));
        g_keyA = c.keyA;
        const Dump before = tree();
        EXPECT_EQ(clean("\\tree", deleteKey, c.times), c.result);
        EXPECT_EQ(tree(), edited(before, c.edits));
    }
    // The link itself named by a finding: only the link goes.
    for (uint32_t action : {VXIO_REPAIR_DELETE_KEY, VXIO_REPAIR_DELETE_CLSID}) {
        SCOPED_TRACE(action);
        SetUp();
        set_value(link, nullptr, 0, "");
        const Dump before = tree();
        DynArray *hand = VOXA_arrNew();
        VOXA_arrAdd(hand, vxio::startup::NewStartupRecord(1, "x", 2, HKEY_CURRENT_USER,
                                                          KEY_WOW64_64KEY,
                                                          (kKey + "\\tree\\evil").c_str(), 0,
                                                          "link", action, nullptr));
        EXPECT_EQ(VOXA_IO_CleanStartupScan(hand, 0), 0u);
        EXPECT_EQ(tree(), edited(before, {{"\\tree\\evil\\link", "-"}}));
        VOXA_IO_CloseStartupScan(hand);
    }
    SeamEntry<decltype(OsTable::GetSystemInfo)> x86(&OsTable::GetSystemInfo, &x86_system);
    SetUp();
    set_value(link, nullptr, 0, "");
    const Dump before = tree();
    // RegDeleteKeyA takes the tree apart; a second time the key is missing,
    // which without a view is a failure.
    EXPECT_EQ(clean("\\tree", deleteKey, 2), VXIO_STARTUP_FAILED);
    EXPECT_EQ(tree(), edited(before, {{"\\tree\\evil", "-"}}));
}

TEST_F(StartupRepair, EachAllocationFails) {
    DynArray *scan = open_scan("1,x,0,HKCU," + kKey +
                               "\\run,scansub_false,Evil,disinf_replacevalue,%windir%\\x.exe\n");
    ASSERT_NE(scan, nullptr);
    vxio::test::each_allocation_fails([&](HeapLedger &inner) {
        set_value(kKey + "\\run", "Evil", REG_EXPAND_SZ, evil + " /s");
        const uint64_t result = VOXA_IO_CleanStartupScan(scan, 0);
        // Out of memory: the value not read (-5), the finding unreadable
        // (1), or the text written without its macros expanded (0).
        const bool outOfMemory = result == 1 || result == VXIO_STARTUP_NO_MEMORY;
        EXPECT_TRUE(result == 0 || (inner.failed() && outOfMemory)) << result;
    });
    VOXA_IO_CloseStartupScan(scan);
}

}  // namespace
