// The command engine run for real under Wine (files, directories, registry
// keys) and, for what Wine cannot keep (owners, protection flags, SACLs,
// byte-identical round trips), against a descriptor store that replaces the
// system's named-security functions through the platform seam.
#include <gtest/gtest.h>

#include <aclapi.h>
#include <dsgetdc.h>
#include <dsrole.h>
#include <lm.h>
#include <sddl.h>

#include <cstring>
#include <map>
#include <vector>
#include <string>

#include "platform/os.h"
#include "support/heap_ledger.h"
#include "support/temp_dir.h"
#include "acl/engine.h"
#include "vxio/acl.h"

using vxio::platform::OsTable;
using vxio::platform::SeamEntry;
using vxio::test::HeapLedger;
using vxio::test::TempDir;

namespace {

bool exec(const std::string &command, char *text = nullptr, uint32_t size = 0) {
    return VOXA_ACLs_ExecCommand(command.c_str(), text, size) != 0;
}

// What the system itself reports for an object, as SDDL.
std::string system_sddl(const std::string &name, SE_OBJECT_TYPE type, SECURITY_INFORMATION bits) {
    PSECURITY_DESCRIPTOR sd = nullptr;
    std::string object = name;
    if (GetNamedSecurityInfoA(object.data(), type, bits, nullptr, nullptr, nullptr, nullptr, &sd) !=
        ERROR_SUCCESS)
        return "<no descriptor>";
    char *text = nullptr;
    ConvertSecurityDescriptorToStringSecurityDescriptorA(sd, SDDL_REVISION_1, bits, &text, nullptr);
    std::string out = text ? text : "<no text>";
    LocalFree(text);
    LocalFree(sd);
    return out;
}

// ---------------------------------------------------------------------------
// A descriptor store: named objects and their descriptors as SDDL. It
// replays what Windows keeps and Wine does not (owner, group, protection,
// SACL), so that list -> change -> restore can be checked byte for byte.

// A function handed out where the system would give an entry point.
template <typename Fn>
FARPROC as_proc(Fn fn) {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void *>(fn));
}

std::map<std::string, std::string> g_store;
int g_sets = 0;
DWORD g_refusal = ERROR_ACCESS_DENIED;  // what a refusing writer answers

// The SDDL text the system's own converters make of sddl. Wine's
// converters take and report SACL flags as the DACL's (a SACL "AI" is
// read into the DACL's auto-inherited bit, and "S:" is written with the
// DACL's flags), so the store keeps every descriptor in the form the
// converters give back, and expectations go through the same function.
std::string norm(const std::string &sddl) {
    PSECURITY_DESCRIPTOR sd = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorA(sddl.c_str(), SDDL_REVISION_1, &sd,
                                                              nullptr))
        return "<bad sddl>";
    char *text = nullptr;
    ConvertSecurityDescriptorToStringSecurityDescriptorA(sd, SDDL_REVISION_1, 15, &text, nullptr);
    std::string out = text ? text : "";
    LocalFree(text);
    LocalFree(sd);
    return out;
}

DWORD WINAPI store_get(LPSTR name, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID *, PSID *, PACL *,
                       PACL *, PSECURITY_DESCRIPTOR *sd) {
    auto found = g_store.find(name);
    if (found == g_store.end()) return ERROR_FILE_NOT_FOUND;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorA(found->second.c_str(), SDDL_REVISION_1,
                                                              sd, nullptr))
        return GetLastError();
    return ERROR_SUCCESS;
}

DWORD WINAPI store_set(LPSTR name, SE_OBJECT_TYPE, SECURITY_INFORMATION bits, PSID owner,
                       PSID group, PACL dacl, PACL sacl) {
    auto found = g_store.find(name);
    if (found == g_store.end()) return ERROR_FILE_NOT_FOUND;
    ++g_sets;
    // Start from what is stored and replace the parts named by bits.
    PSECURITY_DESCRIPTOR old = nullptr;
    ConvertStringSecurityDescriptorToSecurityDescriptorA(found->second.c_str(), SDDL_REVISION_1,
                                                         &old, nullptr);
    BOOL daclPresent = FALSE, saclPresent = FALSE, defaulted;
    PSID oldOwner = nullptr, oldGroup = nullptr;
    PACL oldDacl = nullptr, oldSacl = nullptr;
    GetSecurityDescriptorOwner(old, &oldOwner, &defaulted);
    GetSecurityDescriptorGroup(old, &oldGroup, &defaulted);
    GetSecurityDescriptorDacl(old, &daclPresent, &oldDacl, &defaulted);
    GetSecurityDescriptorSacl(old, &saclPresent, &oldSacl, &defaulted);
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision;
    GetSecurityDescriptorControl(old, &control, &revision);

    SECURITY_DESCRIPTOR sd;
    InitializeSecurityDescriptor(&sd, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorOwner(&sd, (bits & OWNER_SECURITY_INFORMATION) ? owner : oldOwner, FALSE);
    SetSecurityDescriptorGroup(&sd, (bits & GROUP_SECURITY_INFORMATION) ? group : oldGroup, FALSE);
    if ((bits & DACL_SECURITY_INFORMATION) || daclPresent)
        SetSecurityDescriptorDacl(&sd, TRUE, (bits & DACL_SECURITY_INFORMATION) ? dacl : oldDacl, FALSE);
    if ((bits & SACL_SECURITY_INFORMATION) || saclPresent)
        SetSecurityDescriptorSacl(&sd, TRUE, (bits & SACL_SECURITY_INFORMATION) ? sacl : oldSacl, FALSE);
    SECURITY_DESCRIPTOR_CONTROL keep = control & (SE_DACL_PROTECTED | SE_SACL_PROTECTED |
                                                  SE_DACL_AUTO_INHERITED | SE_SACL_AUTO_INHERITED);
    if (bits & PROTECTED_DACL_SECURITY_INFORMATION) keep |= SE_DACL_PROTECTED;
    if (bits & UNPROTECTED_DACL_SECURITY_INFORMATION) keep &= ~SE_DACL_PROTECTED;
    if (bits & PROTECTED_SACL_SECURITY_INFORMATION) keep |= SE_SACL_PROTECTED;
    if (bits & UNPROTECTED_SACL_SECURITY_INFORMATION) keep &= ~SE_SACL_PROTECTED;
    SetSecurityDescriptorControl(&sd, SE_DACL_PROTECTED | SE_SACL_PROTECTED |
                                          SE_DACL_AUTO_INHERITED | SE_SACL_AUTO_INHERITED,
                                 keep);
    char *text = nullptr;
    ConvertSecurityDescriptorToStringSecurityDescriptorA(
        &sd, SDDL_REVISION_1,
        OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION |
            SACL_SECURITY_INFORMATION,
        &text, nullptr);
    found->second = text ? text : "";
    LocalFree(text);
    LocalFree(old);
    return ERROR_SUCCESS;
}

// Entry points that the test hides from the engine, by name.
std::map<std::string, FARPROC> g_replaced;

FARPROC WINAPI store_lookup(HMODULE module, LPCSTR name) {
    if (HIWORD(reinterpret_cast<uintptr_t>(name))) {
        auto found = g_replaced.find(name);
        if (found != g_replaced.end()) return found->second;
    }
    return vxio::platform::real_os.GetProcAddress(module, name);
}

struct DescriptorStore {
    SeamEntry<FARPROC(WINAPI *)(HMODULE, LPCSTR)> lookup{&OsTable::GetProcAddress, &store_lookup};
    DescriptorStore() {
        g_store.clear();
        g_sets = 0;
        g_replaced = {{"GetNamedSecurityInfoA", as_proc(&store_get)},
                      {"SetNamedSecurityInfoA", as_proc(&store_set)}};
    }
    ~DescriptorStore() { g_replaced.clear(); }
};

// ---------------------------------------------------------------------------

TEST(AclEngine, CommandsWithoutAnObjectFailAndTouchNothing) {
    HeapLedger ledger;
    for (const char *command : {"", ">>>>", ">", "--objectType>>file", "--action>>List>>sddl>>dacl>>No>>No>>None"}) {
        char text[16] = "";
        EXPECT_FALSE(exec(command, text, sizeof text)) << command;
        EXPECT_STREQ(text, "") << command;
    }
    EXPECT_EQ(VOXA_ACLs_ExecCommand(nullptr, nullptr, 0), 0);
    EXPECT_EQ(ledger.live(), 0u);
}

TEST(AclEngine, ListsARealFileAsTheSystemReportsIt) {
    TempDir dir;
    const std::string path = dir.write("listed.txt", "x");
    const std::string prefix = "--objectName>>" + path + ">>--objectType>>file>>--action>>List>>";
    char text[8320] = "";
    ASSERT_TRUE(exec(prefix + "sddl>>dacl>>No>>Yes>>None", text, sizeof text));
    const std::string want = "\"" + path + "\",1,\"" +
                             system_sddl(path, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION) +
                             "\">>>";
    EXPECT_EQ(std::string(text), want);

    // A listing that does not fit is not returned, and the call succeeds.
    char small[8] = "";
    EXPECT_TRUE(exec(prefix + "sddl>>dacl>>No>>Yes>>None", small, sizeof small));
    EXPECT_STREQ(small, "");
    // A non-empty buffer is input only: never overwritten.
    char given[64] = "keep me";
    EXPECT_TRUE(exec(prefix + "sddl>>dacl>>No>>Yes>>None", given, sizeof given));
    EXPECT_STREQ(given, "keep me");
    // Listing a missing object fails, unless errors are ignored.
    const std::string missing = "--objectName>>" + dir.file("none") +
                                ">>--objectType>>file>>--action>>List>>sddl>>dacl>>No>>Yes>>None";
    EXPECT_FALSE(exec(missing));
    EXPECT_TRUE(exec("--ignoreErrors>>" + missing));
}

TEST(AclEngine, ListsARegistryKeyAsTheSystemReportsIt) {
    const std::string sub = "Software\\vxio-acl-test-" + std::to_string(GetCurrentProcessId());
    HKEY key;
    ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, sub.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                              nullptr, &key, nullptr),
              ERROR_SUCCESS);
    RegCloseKey(key);
    const std::string name = "CURRENT_USER\\" + sub;
    char text[8320] = "";
    EXPECT_TRUE(exec("--objectName>>" + name +
                         ">>--objectType>>registry>>--action>>List>>sddl>>dacl>>No>>Yes>>None",
                     text, sizeof text));
    EXPECT_EQ(std::string(text),
              "\"" + name + "\",4,\"" +
                  system_sddl(name, SE_REGISTRY_KEY, DACL_SECURITY_INFORMATION) + "\">>>");
    // An unknown root word is refused.
    EXPECT_FALSE(exec("--objectName>>NOWHERE\\x>>--objectType>>registry>>--action>>List>>sddl>>"
                      "dacl>>No>>Yes>>None"));
    RegDeleteKeyA(HKEY_CURRENT_USER, sub.c_str());
}

TEST(AclEngine, ListingWalksTreesAndWritesAFile) {
    TempDir dir;
    CreateDirectoryA(dir.file("sub").c_str(), nullptr);
    CreateDirectoryA(dir.file(".cache").c_str(), nullptr);
    dir.write("a.txt", "a");
    dir.write("sub\\b.txt", "b");
    dir.write(".profile", "p");
    dir.write(".cache\\c.txt", "c");
    const std::string out = dir.file("listing.txt");
    const std::string command = "--objectName>>" + dir.path() +
                                ">>--objectType>>file>>--recursion>>fileRecurse>>--filter>>LISTING"
                                ">>--action>>List>>sddl>>dacl>>No>>Yes>>" + out;
    char text[8320] = "";
    ASSERT_TRUE(exec(command, text, sizeof text));
    std::string written;
    HANDLE h = CreateFileA(out.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    char buffer[8192];
    DWORD done = 0;
    ReadFile(h, buffer, sizeof buffer, &done, nullptr);
    CloseHandle(h);
    written.assign(buffer, done);
    // Files at any depth, no directory, no dot-names, not the filtered
    // listing itself; each record ends in CR CR LF as listings always do.
    EXPECT_NE(written.find("a.txt\",1,"), std::string::npos) << written;
    EXPECT_NE(written.find("b.txt\",1,"), std::string::npos) << written;
    EXPECT_EQ(written.find(".profile"), std::string::npos) << written;
    EXPECT_EQ(written.find("c.txt"), std::string::npos) << written;
    EXPECT_EQ(written.find("listing.txt"), std::string::npos) << written;
    EXPECT_NE(written.find(">>>\r\r\n"), std::string::npos);
    EXPECT_EQ(std::string(text).find("b.txt") != std::string::npos ||
                  std::string(text).find("a.txt") != std::string::npos,
              true)
        << "the caller's buffer holds the last object's record";
}

std::string read_file(const std::string &path) {
    std::string text;
    HANDLE h = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    char buffer[4096];
    DWORD done = 0;
    while (h != INVALID_HANDLE_VALUE && ReadFile(h, buffer, sizeof buffer, &done, nullptr) && done)
        text.append(buffer, done);
    if (h != INVALID_HANDLE_VALUE) CloseHandle(h);
    return text;
}

size_t count_of(const std::string &text, const std::string &what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

TEST(AclEngine, RegistryWalksListEveryKeyOfTheTree) {
    const std::string sub = "Software\\vxio-acl-walk-" + std::to_string(GetCurrentProcessId());
    for (const char *key : {"", "\\a", "\\a\\deep", "\\b"}) {
        HKEY h;
        ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, (sub + key).c_str(), 0, nullptr, 0,
                                  KEY_ALL_ACCESS, nullptr, &h, nullptr),
                  ERROR_SUCCESS);
        RegCloseKey(h);
    }
    TempDir dir;
    const std::string out = dir.file("keys.txt");
    const std::string list = "--objectName>>CURRENT_USER\\" + sub + ">>--objectType>>registry>>--recursion>>";
    ASSERT_TRUE(exec(list + "regRecurse>>--action>>List>>sddl>>dacl>>No>>Yes>>" + out));
    EXPECT_EQ(count_of(read_file(out), ">>>\r\r\n"), 4u) << read_file(out);
    ASSERT_TRUE(exec(list + "regNoRecurse>>--action>>List>>sddl>>dacl>>No>>Yes>>" + out));
    EXPECT_EQ(count_of(read_file(out), ">>>\r\r\n"), 1u);
    EXPECT_FALSE(exec(list + "fileRecurse>>--action>>List>>sddl>>dacl>>No>>Yes>>None"))
        << "registry keys know no file recursion";
    for (const char *key : {"\\a\\deep", "\\a", "\\b", ""})
        RegDeleteKeyA(HKEY_CURRENT_USER, (sub + key).c_str());
}

TEST(AclEngine, ResetPermissionsLeavesTheTreeItWalksAlone) {
    // Every path of the walk begins with the object's name, and the reset
    // pass leaves such paths alone: the action changes nothing below the
    // object. (The engine keeps this rule as its users know it.)
    DescriptorStore store;
    TempDir dir;
    CreateDirectoryA(dir.file("sub").c_str(), nullptr);
    dir.write("sub\\f.txt", "x");
    for (const std::string &path : {dir.path(), dir.file("sub"), dir.file("sub\\f.txt")})
        g_store[path] = norm("O:BAD:P(A;;FA;;;BU)");
    ASSERT_TRUE(exec("--objectName>>" + dir.path() +
                     ">>--objectType>>file>>--action>>ResetPermissions>>dacl"));
    EXPECT_EQ(g_sets, 0);
}

TEST(AclEngine, ListClearRestoreGivesBackAByteIdenticalDescriptor) {
    DescriptorStore store;
    const std::string original =
        norm("O:BAG:SYD:PAI(A;;FA;;;SY)(A;;0x1200a9;;;BU)(A;OICIID;FA;;;BA)S:(AU;SAFA;FA;;;WD)");
    g_store["C:\\protected.bin"] = original;
    const std::string object = "--objectName>>C:\\protected.bin>>--objectType>>file>>--action>>";
    char saved[8320] = "";
    ASSERT_TRUE(exec(object + "List>>sddl>>dacl,sacl,owner,primary_group>>No>>Yes>>None", saved,
                     sizeof saved));
    EXPECT_EQ(std::string(saved), "\"C:\\protected.bin\",1,\"" + original + "\">>>");

    // "dacl+sacl" clears the explicit entries of the DACL only.
    ASSERT_TRUE(exec(object + "Clear>>dacl+sacl"));
    EXPECT_EQ(g_store["C:\\protected.bin"],
              norm("O:BAG:SYD:PAI(A;OICIID;FA;;;BA)S:(AU;SAFA;FA;;;WD)"));

    // The caller's text is input only when its stated size leaves room in
    // the engine's 8320-character buffer: the full buffer is not taken.
    const std::string cleared = g_store["C:\\protected.bin"];
    ASSERT_TRUE(exec(object + "Restore>>FromVOXAStruct", saved, sizeof saved));
    EXPECT_EQ(g_store["C:\\protected.bin"], cleared);
    // As the file backend does it: the text with its length.
    ASSERT_TRUE(exec(object + "Restore>>FromVOXAStruct", saved, uint32_t(strlen(saved))));
    EXPECT_EQ(g_store["C:\\protected.bin"], original);
}

TEST(AclEngine, OwnerGroupProtectionAndTrusteeRulesAreWritten) {
    DescriptorStore store;
    g_store["C:\\f"] = "O:BAG:BAD:AI(A;;FA;;;BU)(A;;FR;;;WD)(A;ID;FA;;;SY)";
    const std::string object = "--objectName>>C:\\f>>--objectType>>file>>--action>>";
    ASSERT_TRUE(exec(object + "SetOwner>>S-1-5-18>>IsSID>>--action>>SetGroup>>S-1-5-32-545>>IsSID"));
    EXPECT_EQ(g_store["C:\\f"], "O:SYG:BUD:AI(A;;FA;;;BU)(A;;FR;;;WD)(A;ID;FA;;;SY)");

    ASSERT_TRUE(exec(object + "SetProtection>>daclProtectNoCopy>>saclNoChange"));
    EXPECT_EQ(g_store["C:\\f"], "O:SYG:BUD:PAI(A;;FA;;;BU)(A;;FR;;;WD)");

    ASSERT_TRUE(exec(object + "Trustee>>S-1-1-0>>IsSID>>S-1-5-32-544>>IsSID>>replaceTrustee>>dacl"));
    EXPECT_EQ(g_store["C:\\f"], "O:SYG:BUD:PAI(A;;FA;;;BU)(A;;FR;;;BA)");
    ASSERT_TRUE(exec(object + "Trustee>>S-1-5-32-545>>IsSID>>S-1-5-32-545>>IsSID>>removeTrustee>>dacl"));
    EXPECT_EQ(g_store["C:\\f"], "O:SYG:BUD:PAI(A;;FR;;;BA)");

    // One audit request for both outcomes stands for two entries.
    ASSERT_TRUE(exec(object + "ACE>>S-1-1-0>>IsSID>>read>>sub-objects>>audit_success+audit_fail>>sacl"));
    EXPECT_NE(g_store["C:\\f"].find("S:"), std::string::npos) << g_store["C:\\f"];
    EXPECT_NE(g_store["C:\\f"].find(";WD)"), std::string::npos) << g_store["C:\\f"];
    // Granting is not something an ACE action may do.
    EXPECT_FALSE(exec(object + "ACE>>S-1-1-0>>IsSID>>read>>sub-objects>>grant>>dacl"));

    // A string SID that does not parse is an unresolved trustee: nothing written.
    const int sets = g_sets;
    EXPECT_FALSE(exec(object + "SetOwner>>S-1-x>>IsSID"));
    EXPECT_EQ(g_sets, sets);
}

TEST(AclEngine, AListingFileRestoresWhatItListed) {
    DescriptorStore store;
    TempDir dir;
    const std::string saved = dir.file("saved.txt");
    // Protection comes back in both directions; the auto-inherited flag is
    // the system's to compute when a descriptor is written, so it is left
    // out here.
    g_store["C:\\a"] = norm("O:BAG:SYD:P(A;;FA;;;SY)(A;;FR;;;BU)");
    g_store["C:\\b"] = norm("O:SYG:SYD:(A;;FA;;;BA)");
    const std::string list = ">>--objectType>>file>>--action>>List>>sddl>>dacl,owner,primary_group>>No>>Yes>>";
    // Two listings into one file would replace it; list each into its own
    // and join them, as a user keeping records would.
    std::string joined;
    for (const char *name : {"C:\\a", "C:\\b"}) {
        ASSERT_TRUE(exec(std::string("--objectName>>") + name + list + saved));
        HANDLE h = CreateFileA(saved.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        char buffer[4096];
        DWORD done = 0;
        ReadFile(h, buffer, sizeof buffer, &done, nullptr);
        CloseHandle(h);
        joined.append(buffer, done);
    }
    dir.write("saved.txt", joined);
    const std::map<std::string, std::string> before = g_store;
    g_store["C:\\a"] = norm("O:BUG:BUD:(A;;FA;;;WD)");
    g_store["C:\\b"] = norm("O:BUG:BUD:P(A;;FA;;;WD)");
    ASSERT_TRUE(exec("--objectName>>C:\\a>>--objectType>>file>>--action>>Restore>>" + saved));
    EXPECT_EQ(g_store, before);
    EXPECT_FALSE(exec("--objectName>>C:\\a>>--objectType>>file>>--action>>Restore>>" +
                      dir.file("missing.txt")));
}

// The privileges the engine asks for, in order ("+Name" on, "-Name" off).
std::vector<std::string> g_privileges;
BOOL WINAPI record_lookup(LPCSTR, LPCSTR name, PLUID luid) {
    g_privileges.push_back(name);
    luid->LowPart = static_cast<DWORD>(g_privileges.size() - 1);
    luid->HighPart = 0;
    return TRUE;
}
BOOL WINAPI record_adjust(HANDLE, BOOL, PTOKEN_PRIVILEGES p, DWORD, PTOKEN_PRIVILEGES, PDWORD) {
    std::string &name = g_privileges[p->Privileges[0].Luid.LowPart];
    name = (p->Privileges[0].Attributes & SE_PRIVILEGE_ENABLED ? "+" : "-") + name;
    SetLastError(ERROR_SUCCESS);
    return TRUE;
}

TEST(AclEngine, PrivilegesAreSwitchedOnForTheWorkAndOffAfterIt) {
    DescriptorStore store;
    g_store["C:\\f"] = norm("O:BAD:(A;;FA;;;BU)S:(AU;SA;FA;;;WD)");
    g_replaced["LookupPrivilegeValueA"] = as_proc(&record_lookup);
    g_replaced["AdjustTokenPrivileges"] = as_proc(&record_adjust);
    g_privileges.clear();
    ASSERT_TRUE(exec("--objectName>>C:\\f>>--objectType>>file>>--action>>SetOwner>>S-1-5-18>>"
                     "IsSID>>--action>>List>>sddl>>sacl>>No>>Yes>>None"));
    const std::vector<std::string> want = {
        "+SeBackupPrivilege",        "+SeRestorePrivilege",  // the run
        "+SeTakeOwnershipPrivilege",                         // writing the owner
        "+SeSecurityPrivilege",                              // reading the SACL
        "-SeBackupPrivilege",        "-SeRestorePrivilege",  // release
        "-SeSecurityPrivilege",      "-SeTakeOwnershipPrivilege"};
    EXPECT_EQ(g_privileges, want);

    // A failed command switches them off all the same.
    g_privileges.clear();
    EXPECT_FALSE(exec("--objectName>>C:\\none>>--objectType>>file>>--action>>List>>sddl>>dacl>>No>>Yes>>None"));
    ASSERT_GE(g_privileges.size(), 4u);
    EXPECT_EQ(g_privileges.back(), "-SeTakeOwnershipPrivilege");
}

TEST(AclEngine, ClearAndRestoreARealFile) {
    // Wine keeps no descriptor of its own: it writes a DACL into the Unix
    // mode bits and builds the DACL it reports from them. Clearing and
    // restoring must still give back what was listed.
    TempDir dir;
    const std::string path = dir.write("real.txt", "x");
    const std::string object = "--objectName>>" + path + ">>--objectType>>file>>--action>>";
    char saved[8320] = "";
    ASSERT_TRUE(exec(object + "List>>sddl>>dacl>>No>>Yes>>None", saved, sizeof saved));
    const std::string before = system_sddl(path, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION);
    ASSERT_TRUE(exec(object + "Clear>>dacl"));
    ASSERT_TRUE(exec(object + "Restore>>FromVOXAStruct", saved, uint32_t(strlen(saved))));
    EXPECT_EQ(system_sddl(path, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION), before);
}

TEST(AclEngine, MissingSystemEntryPointsAreAStatusNotACrash) {
    DescriptorStore store;
    g_store["C:\\f"] = "O:BAD:(A;;FA;;;BU)";
    g_replaced["GetNamedSecurityInfoA"] = nullptr;
    EXPECT_FALSE(exec("--objectName>>C:\\f>>--objectType>>file>>--action>>List>>sddl>>dacl>>No>>"
                      "Yes>>None"));
    g_replaced["DsGetDcNameA"] = nullptr;
    EXPECT_FALSE(exec("--objectName>>C:\\f>>--objectType>>file>>--action>>SetOwner>>DOM\\user>>IsName"));
    EXPECT_EQ(g_store["C:\\f"], "O:BAD:(A;;FA;;;BU)");
}

// ---------------------------------------------------------------------------
// Exact statuses of the engine (the export reduces them to true/false).

namespace statuses {

using vxio::acl::execute_command;

uint32_t run(const std::string &command) { return execute_command(command.c_str(), nullptr, 0); }

DWORD WINAPI refuse_set(LPSTR, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID, PSID, PACL, PACL) {
    return g_refusal;
}
BOOL WINAPI windows_9x(LPOSVERSIONINFOA info) {
    info->dwPlatformId = VER_PLATFORM_WIN32_WINDOWS;
    info->dwMajorVersion = 4;
    return TRUE;
}
// Wine has no network: the domain functions answer "no domain" (1355).
DWORD WINAPI no_domain(LPCSTR, LPCSTR, GUID *, LPCSTR, ULONG, PDOMAIN_CONTROLLER_INFOA *) {
    return ERROR_NO_SUCH_DOMAIN;
}

TEST(AclEngineStatus, ParseAndRunFailuresCarryTheirNumbers) {
    DescriptorStore store;
    g_store["C:\\f"] = norm("O:BAD:(A;;FA;;;BU)");
    g_store["spooler"] = norm("O:SYD:(A;;0x2018d;;;BU)");
    g_store["\\\\host\\laser"] = norm("O:SYD:(A;;0x20008;;;WD)");
    g_store["\\\\host\\public"] = norm("O:BAD:(A;;0x1200a9;;;WD)");
    const std::string f = "--objectName>>C:\\f>>--objectType>>file>>--action>>";
    const struct {
        std::string command;
        uint32_t status;
    } cases[] = {
        {"", vxio::acl::kNoObject},
        {"--recursion>>fileRecurse>>--objectType>>file", vxio::acl::kNoObject},
        {"--objectName>>spooler>>--objectType>>service>>--recursion>>regRecurse",
         vxio::acl::kBadArgument},
        {f + "List>>sddl>>dacl>>No>>Maybe>>None", vxio::acl::kListParameters},
        {f + "ACE>>S-1-1-0>>IsSID>>read>>sub-objects>>grant>>dacl", vxio::acl::kBadArgument},
        {f + "ACE>>S-1-1-0>>IsSID>>fly>>sub-objects>>audit_fail>>sacl",
         vxio::acl::kUnknownPermission},
        {f + "SetOwner>>S-1-nonsense>>IsSID", vxio::acl::kTrusteeUnresolved},
        {f + "SetOwner>>nobody-here-at-all>>IsName", vxio::acl::kTrusteeUnresolved},
        {"--objectName>>C:\\missing>>--objectType>>file>>--action>>List>>sddl>>dacl>>No>>Yes>>None",
         vxio::acl::kNoDescriptor},
        {f + "Restore>>C:\\no\\such\\records.txt", vxio::acl::kFileNotOpened},
        {"--objectName>>\\\\computer>>--objectType>>registry>>--action>>List>>sddl>>dacl>>No>>Yes>>None",
         vxio::acl::kRemoteKeyName},
        {"--objectName>>C:\\no\\such\\dir>>--objectType>>file>>--recursion>>fileRecurse>>--action>>"
         "List>>sddl>>dacl>>No>>Yes>>None",
         vxio::acl::kDirectoryUnlistable},
        {"--objectName>>spooler>>--objectType>>service>>--action>>List>>sddl>>dacl>>No>>Yes>>None",
         vxio::acl::kOk},
        {"--objectName>>\\\\host\\laser>>--objectType>>printer>>--action>>List>>csl>>dacl>>No>>Yes>>None",
         vxio::acl::kOk},
        {"--objectName>>\\\\host\\public>>--objectType>>share>>--action>>SetOwner>>S-1-5-18>>IsSID",
         vxio::acl::kOk},
        {"--objectName>>\\\\host\\public>>--objectType>>share>>--recursion>>dirRecurse",
         vxio::acl::kBadArgument},
        {f + "Domain>>CORP>>NEWCORP>>replaceDomain>>dacl", vxio::acl::kDomainLookup},
    };
    g_replaced["DsGetDcNameA"] = as_proc(&no_domain);
    for (const auto &k : cases) EXPECT_EQ(run(k.command), k.status) << k.command;
    EXPECT_EQ(execute_command(nullptr, nullptr, 0), vxio::acl::kBadArgument);
    EXPECT_EQ(g_store["\\\\host\\public"], norm("O:SYD:(A;;0x1200a9;;;WD)")) << "the share's owner";
    char text[512] = "";
    EXPECT_EQ(execute_command("--objectName>>\\\\host\\laser>>--objectType>>printer>>--action>>List>>"
                              "csl>>dacl>>No>>Both>>None", text, sizeof text), vxio::acl::kOk);
    EXPECT_EQ(std::string(text), "\"\\\\host\\laser\",3,\"DACL(not_protected):Everyone/allow/no_inheritance/print\"");
}

TEST(AclEngineStatus, MissingEntryPointsAndOldSystems) {
    DescriptorStore store;
    g_store["C:\\f"] = norm("O:BAD:(A;;FA;;;BU)");
    const std::string f = "--objectName>>C:\\f>>--objectType>>file>>--action>>";
    const struct {
        const char *hidden;
        std::string command;
        uint32_t status;
    } cases[] = {
        {"ConvertSecurityDescriptorToStringSecurityDescriptorA", f + "List>>sddl>>dacl>>No>>Yes>>None",
         vxio::acl::kNoMemory},
        {"SetNamedSecurityInfoA", f + "Clear>>dacl", vxio::acl::kLibraryMissing},
        {"SetEntriesInAclA", f + "ACE>>S-1-1-0>>IsSID>>read>>sub-objects>>audit_fail>>sacl",
         vxio::acl::kLibraryMissing},
        {"ConvertStringSidToSidA", f + "SetOwner>>S-1-5-18>>IsSID", vxio::acl::kLibraryMissing},
        {"DsGetDcNameA", f + "SetOwner>>CORP\\user>>IsName", vxio::acl::kLibraryMissing},
        {"WNetOpenEnumA", "--objectName>>Z:\\x>>--objectType>>file>>--action>>Clear>>dacl",
         vxio::acl::kLibraryMissing},
    };
    for (const auto &k : cases) {
        g_replaced[k.hidden] = nullptr;
        EXPECT_EQ(run(k.command), k.status) << k.hidden;
        g_replaced.erase(k.hidden);
    }
    EXPECT_EQ(g_store["C:\\f"], norm("O:BAD:(A;;FA;;;BU)")) << "nothing was written";

    SeamEntry version(&OsTable::GetVersionExA, &windows_9x);
    EXPECT_EQ(run(f + "List>>sddl>>dacl>>No>>Yes>>None"), vxio::acl::kSystemTooOld);
}

TEST(AclEngineStatus, RefusedWritesArePassedOverOnlyWhenAccessIsDenied) {
    DescriptorStore store;
    g_store["C:\\f"] = norm("O:BAD:(A;;FA;;;BU)");
    g_replaced["SetNamedSecurityInfoA"] = as_proc(&refuse_set);
    const std::string clear = "--objectName>>C:\\f>>--objectType>>file>>--action>>Clear>>dacl";
    g_refusal = ERROR_ACCESS_DENIED;
    EXPECT_EQ(run(clear), vxio::acl::kOk);
    g_refusal = ERROR_INVALID_PARAMETER;
    EXPECT_EQ(run(clear), vxio::acl::kNoDescriptor);
    EXPECT_EQ(run("--ignoreErrors>>" + clear), vxio::acl::kOk);
}

// A domain as its controller would answer (Wine has none): every domain
// name has the controller "\\\\dc"; the account "alice" lives in CORP
// (S-1-5-21-1-2-3-1001) and in NEWCORP (S-1-5-21-9-9-9-1001).
DOMAIN_CONTROLLER_INFOA g_controller;
std::string g_domainAsked;
char g_controllerName[] = "\\\\dc";
DWORD WINAPI fake_dc(LPCSTR, LPCSTR domain, GUID *, LPCSTR, ULONG, PDOMAIN_CONTROLLER_INFOA *info) {
    g_domainAsked = domain;
    g_controller = {};
    g_controller.DomainControllerName = g_controllerName;
    g_controller.DomainName = g_domainAsked.data();
    *info = &g_controller;
    return ERROR_SUCCESS;
}
DWORD WINAPI fake_role(LPCWSTR, DSROLE_PRIMARY_DOMAIN_INFO_LEVEL, PBYTE *) { return ERROR_ACCESS_DENIED; }
NET_API_STATUS WINAPI fake_buffer_free(LPVOID) { return 0; }
void WINAPI fake_role_free(PVOID) {}

PSID sid_of(const char *text) {
    PSID sid = nullptr;
    ConvertStringSidToSidA(text, &sid);
    return sid;  // kept for the test's lifetime
}
BOOL WINAPI fake_account_of(LPCSTR system, PSID sid, LPSTR name, LPDWORD nameSize, LPSTR domain,
                            LPDWORD domainSize, PSID_NAME_USE use) {
    static PSID corp = sid_of("S-1-5-21-1-2-3-1001");
    if (!EqualSid(sid, corp))
        return vxio::platform::real_os.LookupAccountSidA(system, sid, name, nameSize, domain,
                                                        domainSize, use);
    strcpy(name, "alice");
    strcpy(domain, "CORP");
    *nameSize = 5;
    *domainSize = 4;
    *use = SidTypeUser;
    return TRUE;
}
BOOL WINAPI fake_sid_of(LPCSTR system, LPCSTR account, PSID sid, LPDWORD sidSize, LPSTR domain,
                        LPDWORD domainSize, PSID_NAME_USE use) {
    static PSID newcorp = sid_of("S-1-5-21-9-9-9-1001");
    if (!system || std::string(system) != "dc" || std::string(account) != "alice")
        return vxio::platform::real_os.LookupAccountNameA(system, account, sid, sidSize, domain,
                                                         domainSize, use);
    const DWORD need = GetLengthSid(newcorp);
    if (!sid || *sidSize < need || *domainSize < 8) {
        *sidSize = need;
        *domainSize = 8;
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    CopySid(need, sid, newcorp);
    strcpy(domain, "NEWCORP");
    *domainSize = 7;
    *use = SidTypeUser;
    return TRUE;
}

TEST(AclEngineStatus, DomainRulesRewriteTheEntriesOfTheirDomain) {
    DescriptorStore store;
    g_replaced["DsGetDcNameA"] = as_proc(&fake_dc);
    g_replaced["DsRoleGetPrimaryDomainInformation"] = as_proc(&fake_role);
    g_replaced["NetApiBufferFree"] = as_proc(&fake_buffer_free);
    g_replaced["DsRoleFreeMemory"] = as_proc(&fake_role_free);
    SeamEntry byName(&OsTable::LookupAccountNameA, &fake_sid_of);
    SeamEntry bySid(&OsTable::LookupAccountSidA, &fake_account_of);
    const std::string start = norm("O:BAD:(A;;FA;;;S-1-5-21-1-2-3-1001)(A;;FR;;;BU)");
    const std::string f = "--objectName>>C:\\f>>--objectType>>file>>--action>>Domain>>CORP>>NEWCORP>>";
    const struct {
        const char *mode;
        std::string after;
    } cases[] = {
        {"replaceDomain", norm("O:BAD:(A;;FA;;;S-1-5-21-9-9-9-1001)(A;;FR;;;BU)")},
        {"copyDomain", norm("O:BAD:(A;;FA;;;S-1-5-21-1-2-3-1001)(A;;FA;;;S-1-5-21-9-9-9-1001)(A;;FR;;;BU)")},
        {"removeDomain", norm("O:BAD:(A;;FR;;;BU)")},
    };
    for (const auto &k : cases) {
        g_store["C:\\f"] = start;
        EXPECT_EQ(run(f + k.mode + ">>dacl"), vxio::acl::kOk) << k.mode;
        EXPECT_EQ(g_store["C:\\f"], k.after) << k.mode;
        // Rules for the SACL leave the DACL alone.
        g_store["C:\\f"] = start;
        EXPECT_EQ(run(f + k.mode + ">>sacl"), vxio::acl::kOk) << k.mode;
        EXPECT_EQ(g_store["C:\\f"].find("S-1-5-21-9-9-9"), std::string::npos) << k.mode;
    }
    // An account name with a domain is looked up on that domain's controller.
    g_store["C:\\f"] = start;
    EXPECT_EQ(run("--objectName>>C:\\f>>--objectType>>file>>--action>>SetOwner>>NEWCORP\\alice>>IsName"),
              vxio::acl::kOk);
    EXPECT_EQ(g_store["C:\\f"].substr(0, 22), "O:S-1-5-21-9-9-9-1001D");
}

}  // namespace statuses

}  // namespace
