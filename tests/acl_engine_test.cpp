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
#include "support/served.h"
#include "support/temp_dir.h"
#include "acl/engine.h"
#include "vxio/acl.h"

namespace acl = vxio::acl;
using vxio::platform::OsTable;
using vxio::platform::SeamEntry;
using vxio::test::as_proc;
using vxio::test::HeapLedger;
using vxio::test::served;
using vxio::test::TempDir;

namespace {

const char kListDacl[] = "List>>sddl>>dacl>>No>>Yes>>None";

bool exec(const std::string &command, char *text = nullptr, uint32_t size = 0) {
    return VOXA_ACLs_ExecCommand(command.c_str(), text, size) != 0;
}

std::string text_of(PSECURITY_DESCRIPTOR sd, SECURITY_INFORMATION bits) {
    char *text = nullptr;
    ConvertSecurityDescriptorToStringSecurityDescriptorA(sd, SDDL_REVISION_1, bits, &text, nullptr);
    std::string out = text ? text : "<no text>";
    LocalFree(text);
    return out;
}

// What the system itself reports for an object's DACL, as SDDL.
std::string system_sddl(const std::string &name, SE_OBJECT_TYPE type) {
    PSECURITY_DESCRIPTOR sd = nullptr;
    std::string object = name;
    if (GetNamedSecurityInfoA(object.data(), type, DACL_SECURITY_INFORMATION, nullptr, nullptr, nullptr,
                              nullptr, &sd) != ERROR_SUCCESS)
        return "<no descriptor>";
    std::string out = text_of(sd, DACL_SECURITY_INFORMATION);
    LocalFree(sd);
    return out;
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

// ---------------------------------------------------------------------------
// A descriptor store: named objects and their descriptors as SDDL. It
// replays what Windows keeps and Wine does not (owner, group, protection,
// SACL), so that list -> change -> restore can be checked byte for byte.

std::map<std::string, std::string> g_store;
int g_sets = 0;

// The SDDL text the system's own converters make of sddl. Wine's
// converters take and report SACL flags as the DACL's (a SACL "AI" is
// read into the DACL's auto-inherited bit, and "S:" is written with the
// DACL's flags), so the store keeps every descriptor in the form the
// converters give back, and expectations go through the same function.
std::string norm(const std::string &sddl) {
    PSECURITY_DESCRIPTOR sd = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorA(sddl.c_str(), SDDL_REVISION_1, &sd, nullptr))
        return "<bad sddl>";
    std::string out = text_of(sd, 15);
    LocalFree(sd);
    return out;
}

DWORD WINAPI store_get(LPSTR name, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID *, PSID *, PACL *,
                       PACL *, PSECURITY_DESCRIPTOR *sd) {
    auto found = g_store.find(name);
    if (found == g_store.end()) return ERROR_FILE_NOT_FOUND;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorA(found->second.c_str(), SDDL_REVISION_1, sd,
                                                              nullptr))
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
    ConvertStringSecurityDescriptorToSecurityDescriptorA(found->second.c_str(), SDDL_REVISION_1, &old, nullptr);
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
    const SECURITY_DESCRIPTOR_CONTROL flags =
        SE_DACL_PROTECTED | SE_SACL_PROTECTED | SE_DACL_AUTO_INHERITED | SE_SACL_AUTO_INHERITED;
    SECURITY_DESCRIPTOR_CONTROL keep = control & flags;
    if (bits & PROTECTED_DACL_SECURITY_INFORMATION) keep |= SE_DACL_PROTECTED;
    if (bits & UNPROTECTED_DACL_SECURITY_INFORMATION) keep &= ~SE_DACL_PROTECTED;
    if (bits & PROTECTED_SACL_SECURITY_INFORMATION) keep |= SE_SACL_PROTECTED;
    if (bits & UNPROTECTED_SACL_SECURITY_INFORMATION) keep &= ~SE_SACL_PROTECTED;
    SetSecurityDescriptorControl(&sd, flags, keep);
    found->second = text_of(&sd, 15);
    LocalFree(old);
    return ERROR_SUCCESS;
}

// The store behind the named-security functions; each test serves or
// hides more entry points in `served`.
struct DescriptorStore : vxio::test::Served {
    DescriptorStore()
        : Served({{"GetNamedSecurityInfoA", as_proc(&store_get)}, {"SetNamedSecurityInfoA", as_proc(&store_set)}}) {
        g_store.clear();
        g_sets = 0;
    }
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

TEST(AclEngine, ListsClearsAndRestoresARealFile) {
    TempDir dir;
    const std::string path = dir.write("listed.txt", "x");
    const std::string object = "--objectName>>" + path + ">>--objectType>>file>>--action>>";
    const std::string list = object + kListDacl;
    char text[8320] = "";
    ASSERT_TRUE(exec(list, text, sizeof text));
    const std::string before = system_sddl(path, SE_FILE_OBJECT);
    EXPECT_EQ(std::string(text), "\"" + path + "\",1,\"" + before + "\">>>");
    // Wine keeps no descriptor of its own: it writes a DACL into the Unix
    // mode bits and builds the DACL it reports from them. Clearing and
    // restoring must still give back what was listed.
    ASSERT_TRUE(exec(object + "Clear>>dacl"));
    ASSERT_TRUE(exec(object + "Restore>>FromVOXAStruct", text, uint32_t(strlen(text))));
    EXPECT_EQ(system_sddl(path, SE_FILE_OBJECT), before);

    // A listing that does not fit is not returned, and the call succeeds.
    char small[8] = "";
    EXPECT_TRUE(exec(list, small, sizeof small));
    EXPECT_STREQ(small, "");
    // A non-empty buffer is input only: never overwritten.
    char given[64] = "keep me";
    EXPECT_TRUE(exec(list, given, sizeof given));
    EXPECT_STREQ(given, "keep me");
    // Listing a missing object fails, unless errors are ignored.
    const std::string missing = "--objectName>>" + dir.file("none") + ">>--objectType>>file>>--action>>" + kListDacl;
    EXPECT_FALSE(exec(missing));
    EXPECT_TRUE(exec("--ignoreErrors>>" + missing));
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
    char text[8320] = "";
    ASSERT_TRUE(exec("--objectName>>" + dir.path() + ">>--objectType>>file>>--recursion>>fileRecurse>>"
                     "--filter>>LISTING>>--action>>List>>sddl>>dacl>>No>>Yes>>" + out,
                     text, sizeof text));
    const std::string written = read_file(out);
    // Files at any depth, no directory, no dot-names, not the filtered
    // listing itself; each record ends in CR CR LF as listings always do.
    EXPECT_NE(written.find("a.txt\",1,"), std::string::npos) << written;
    EXPECT_NE(written.find("b.txt\",1,"), std::string::npos) << written;
    EXPECT_EQ(written.find(".profile"), std::string::npos) << written;
    EXPECT_EQ(written.find("c.txt"), std::string::npos) << written;
    EXPECT_EQ(written.find("listing.txt"), std::string::npos) << written;
    EXPECT_EQ(count_of(written, ">>>\r\r\n"), 2u) << written;
    const std::string last(text);
    EXPECT_TRUE(last.find("b.txt") != std::string::npos || last.find("a.txt") != std::string::npos)
        << "the caller's buffer holds the last object's record";
}

TEST(AclEngine, ListsRegistryKeysAndTheirTrees) {
    const std::string sub = "Software\\vxio-acl-test-" + std::to_string(GetCurrentProcessId());
    for (const char *key : {"", "\\a", "\\a\\deep", "\\b"}) {
        HKEY h;
        ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, (sub + key).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                  &h, nullptr),
                  ERROR_SUCCESS);
        RegCloseKey(h);
    }
    const std::string name = "CURRENT_USER\\" + sub;
    const std::string key = "--objectName>>" + name + ">>--objectType>>registry>>";
    char text[8320] = "";
    EXPECT_TRUE(exec(key + "--action>>" + kListDacl, text, sizeof text));
    EXPECT_EQ(std::string(text), "\"" + name + "\",4,\"" + system_sddl(name, SE_REGISTRY_KEY) + "\">>>");
    // An unknown root word is refused.
    EXPECT_FALSE(exec("--objectName>>NOWHERE\\x>>--objectType>>registry>>--action>>" + std::string(kListDacl)));

    TempDir dir;
    const std::string out = dir.file("keys.txt");
    ASSERT_TRUE(exec(key + "--recursion>>regRecurse>>--action>>List>>sddl>>dacl>>No>>Yes>>" + out));
    EXPECT_EQ(count_of(read_file(out), ">>>\r\r\n"), 4u) << read_file(out);
    ASSERT_TRUE(exec(key + "--recursion>>regNoRecurse>>--action>>List>>sddl>>dacl>>No>>Yes>>" + out));
    EXPECT_EQ(count_of(read_file(out), ">>>\r\r\n"), 1u);
    EXPECT_FALSE(exec(key + "--recursion>>fileRecurse>>--action>>" + kListDacl))
        << "registry keys know no file recursion";
    for (const char *k : {"\\a\\deep", "\\a", "\\b", ""}) RegDeleteKeyA(HKEY_CURRENT_USER, (sub + k).c_str());
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
    ASSERT_TRUE(exec("--objectName>>" + dir.path() + ">>--objectType>>file>>--action>>ResetPermissions>>dacl"));
    EXPECT_EQ(g_sets, 0);
}

TEST(AclEngine, ListClearRestoreGivesBackAByteIdenticalDescriptor) {
    DescriptorStore store;
    const std::string original =
        norm("O:BAG:SYD:PAI(A;;FA;;;SY)(A;;0x1200a9;;;BU)(A;OICIID;FA;;;BA)S:(AU;SAFA;FA;;;WD)");
    std::string &stored = g_store["C:\\protected.bin"];
    stored = original;
    const std::string object = "--objectName>>C:\\protected.bin>>--objectType>>file>>--action>>";
    char saved[8320] = "";
    ASSERT_TRUE(exec(object + "List>>sddl>>dacl,sacl,owner,primary_group>>No>>Yes>>None", saved, sizeof saved));
    EXPECT_EQ(std::string(saved), "\"C:\\protected.bin\",1,\"" + original + "\">>>");

    // "dacl+sacl" clears the explicit entries of the DACL only.
    ASSERT_TRUE(exec(object + "Clear>>dacl+sacl"));
    const std::string cleared = norm("O:BAG:SYD:PAI(A;OICIID;FA;;;BA)S:(AU;SAFA;FA;;;WD)");
    EXPECT_EQ(stored, cleared);

    // The caller's text is input only when its stated size leaves room in
    // the engine's 8320-character buffer: the full buffer is not taken.
    ASSERT_TRUE(exec(object + "Restore>>FromVOXAStruct", saved, sizeof saved));
    EXPECT_EQ(stored, cleared);
    // As the file backend does it: the text with its length.
    ASSERT_TRUE(exec(object + "Restore>>FromVOXAStruct", saved, uint32_t(strlen(saved))));
    EXPECT_EQ(stored, original);
}

TEST(AclEngine, OwnerGroupProtectionAndTrusteeRulesAreWritten) {
    DescriptorStore store;
    std::string &stored = g_store["C:\\f"];
    stored = "O:BAG:BAD:AI(A;;FA;;;BU)(A;;FR;;;WD)(A;ID;FA;;;SY)";
    const std::string object = "--objectName>>C:\\f>>--objectType>>file>>--action>>";
    const struct { std::string action, after; } steps[] = {
        {"SetOwner>>S-1-5-18>>IsSID>>--action>>SetGroup>>S-1-5-32-545>>IsSID",
         "O:SYG:BUD:AI(A;;FA;;;BU)(A;;FR;;;WD)(A;ID;FA;;;SY)"},
        {"SetProtection>>daclProtectNoCopy>>saclNoChange", "O:SYG:BUD:PAI(A;;FA;;;BU)(A;;FR;;;WD)"},
        {"Trustee>>S-1-1-0>>IsSID>>S-1-5-32-544>>IsSID>>replaceTrustee>>dacl", "O:SYG:BUD:PAI(A;;FA;;;BU)(A;;FR;;;BA)"},
        {"Trustee>>S-1-5-32-545>>IsSID>>S-1-5-32-545>>IsSID>>removeTrustee>>dacl", "O:SYG:BUD:PAI(A;;FR;;;BA)"},
    };
    for (const auto &s : steps) {
        ASSERT_TRUE(exec(object + s.action)) << s.action;
        EXPECT_EQ(stored, s.after) << s.action;
    }
    // One audit request for both outcomes stands for two entries.
    ASSERT_TRUE(exec(object + "ACE>>S-1-1-0>>IsSID>>read>>sub-objects>>audit_success+audit_fail>>sacl"));
    EXPECT_NE(stored.find("S:"), std::string::npos) << stored;
    EXPECT_NE(stored.find(";WD)"), std::string::npos) << stored;
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
    // Two listings into one file would replace it; list each into its own
    // and join them, as a user keeping records would.
    std::string joined;
    for (const char *name : {"C:\\a", "C:\\b"}) {
        ASSERT_TRUE(exec(std::string("--objectName>>") + name +
                         ">>--objectType>>file>>--action>>List>>sddl>>dacl,owner,primary_group>>No>>Yes>>" + saved));
        joined += read_file(saved);
    }
    dir.write("saved.txt", joined);
    const std::map<std::string, std::string> before = g_store;
    g_store["C:\\a"] = norm("O:BUG:BUD:(A;;FA;;;WD)");
    g_store["C:\\b"] = norm("O:BUG:BUD:P(A;;FA;;;WD)");
    const std::string restore = "--objectName>>C:\\a>>--objectType>>file>>--action>>Restore>>";
    ASSERT_TRUE(exec(restore + saved));
    EXPECT_EQ(g_store, before);
    EXPECT_FALSE(exec(restore + dir.file("missing.txt")));

    // A file that never ends (a device, a file still growing) is given up
    // at 256 MiB, before anything is restored, rather than read into
    // memory without end.
    static uint64_t reads;
    reads = 0;
    SeamEntry<decltype(OsTable::ReadFile)> endless{
        &OsTable::ReadFile, [](HANDLE, LPVOID buffer, DWORD size, LPDWORD done, LPOVERLAPPED) -> BOOL {
            std::memset(buffer, '"', size);
            return ++reads, *done = size, TRUE;
        }};
    EXPECT_EQ(acl::execute_command((restore + saved).c_str(), nullptr, 0), acl::kFileNotOpened);
    EXPECT_EQ(reads, (uint64_t{256} << 20) / 4096 + 1);
    EXPECT_EQ(g_store, before);
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
    served["LookupPrivilegeValueA"] = as_proc(&record_lookup);
    served["AdjustTokenPrivileges"] = as_proc(&record_adjust);
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
    EXPECT_FALSE(exec("--objectName>>C:\\none>>--objectType>>file>>--action>>" + std::string(kListDacl)));
    ASSERT_GE(g_privileges.size(), 4u);
    EXPECT_EQ(g_privileges.back(), "-SeTakeOwnershipPrivilege");
}

// ---------------------------------------------------------------------------
// Exact statuses of the engine (the export reduces them to true/false).

namespace statuses {

uint32_t run(const std::string &command) { return acl::execute_command(command.c_str(), nullptr, 0); }

template <DWORD kRefusal>
DWORD WINAPI refuse_set(LPSTR, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID, PSID, PACL, PACL) { return kRefusal; }
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
    const std::string list = std::string(">>--action>>") + kListDacl;
    const struct { std::string command; uint32_t status; } cases[] = {
        {"", acl::kNoObject},
        {"--recursion>>fileRecurse>>--objectType>>file", acl::kNoObject},
        {"--objectName>>spooler>>--objectType>>service>>--recursion>>regRecurse", acl::kBadArgument},
        {f + "List>>sddl>>dacl>>No>>Maybe>>None", acl::kListParameters},
        {f + "ACE>>S-1-1-0>>IsSID>>read>>sub-objects>>grant>>dacl", acl::kBadArgument},
        {f + "ACE>>S-1-1-0>>IsSID>>fly>>sub-objects>>audit_fail>>sacl", acl::kUnknownPermission},
        {f + "SetOwner>>S-1-nonsense>>IsSID", acl::kTrusteeUnresolved},
        {f + "SetOwner>>nobody-here-at-all>>IsName", acl::kTrusteeUnresolved},
        {"--objectName>>C:\\missing>>--objectType>>file" + list, acl::kNoDescriptor},
        {f + "Restore>>C:\\no\\such\\records.txt", acl::kFileNotOpened},
        {"--objectName>>\\\\computer>>--objectType>>registry" + list, acl::kRemoteKeyName},
        {"--objectName>>C:\\no\\such\\dir>>--objectType>>file>>--recursion>>fileRecurse" + list,
         acl::kDirectoryUnlistable},
        {"--objectName>>spooler>>--objectType>>service" + list, acl::kOk},
        {"--objectName>>\\\\host\\public>>--objectType>>share>>--action>>SetOwner>>S-1-5-18>>IsSID", acl::kOk},
        {"--objectName>>\\\\host\\public>>--objectType>>share>>--recursion>>dirRecurse", acl::kBadArgument},
        {f + "Domain>>CORP>>NEWCORP>>replaceDomain>>dacl", acl::kDomainLookup},
    };
    served["DsGetDcNameA"] = as_proc(&no_domain);
    for (const auto &k : cases) EXPECT_EQ(run(k.command), k.status) << k.command;
    EXPECT_EQ(acl::execute_command(nullptr, nullptr, 0), acl::kBadArgument);
    EXPECT_EQ(g_store["C:\\f"], norm("O:BAD:(A;;FA;;;BU)")) << "no failing command wrote";
    EXPECT_EQ(g_store["\\\\host\\public"], norm("O:SYD:(A;;0x1200a9;;;WD)")) << "the share's owner";
    char text[512] = "";
    EXPECT_EQ(acl::execute_command("--objectName>>\\\\host\\laser>>--objectType>>printer>>--action>>List>>"
                                   "csl>>dacl>>No>>Both>>None", text, sizeof text), acl::kOk);
    EXPECT_EQ(std::string(text), "\"\\\\host\\laser\",3,\"DACL(not_protected):Everyone/allow/no_inheritance/print\"");
}

// Each row replays a system without the named entry point, or with a
// writer that refuses: a status, not a crash, and nothing written. A
// refused write is passed over only when access is denied.
TEST(AclEngineStatus, MissingOrRefusingEntryPointsAndOldSystems) {
    DescriptorStore store;
    g_store["C:\\f"] = norm("O:BAD:(A;;FA;;;BU)");
    const std::string f = "--objectName>>C:\\f>>--objectType>>file>>--action>>";
    const FARPROC denied = as_proc(&refuse_set<ERROR_ACCESS_DENIED>), invalid = as_proc(&refuse_set<ERROR_INVALID_PARAMETER>);
    const struct { const char *entry; FARPROC answer; std::string command; uint32_t status; } cases[] = {
        {"GetNamedSecurityInfoA", nullptr, f + kListDacl, acl::kNoMemory},
        {"ConvertSecurityDescriptorToStringSecurityDescriptorA", nullptr, f + kListDacl, acl::kNoMemory},
        {"SetNamedSecurityInfoA", nullptr, f + "Clear>>dacl", acl::kLibraryMissing},
        {"SetEntriesInAclA", nullptr, f + "ACE>>S-1-1-0>>IsSID>>read>>sub-objects>>audit_fail>>sacl", acl::kLibraryMissing},
        {"ConvertStringSidToSidA", nullptr, f + "SetOwner>>S-1-5-18>>IsSID", acl::kLibraryMissing},
        {"DsGetDcNameA", nullptr, f + "SetOwner>>CORP\\user>>IsName", acl::kLibraryMissing},
        {"WNetOpenEnumA", nullptr, "--objectName>>Z:\\x>>--objectType>>file>>--action>>Clear>>dacl", acl::kLibraryMissing},
        {"SetNamedSecurityInfoA", denied, f + "Clear>>dacl", acl::kOk},
        {"SetNamedSecurityInfoA", invalid, f + "Clear>>dacl", acl::kNoDescriptor},
        {"SetNamedSecurityInfoA", invalid, "--ignoreErrors>>" + f + "Clear>>dacl", acl::kOk},
    };
    for (const auto &k : cases) {
        const auto kept = served;
        served[k.entry] = k.answer;
        EXPECT_EQ(run(k.command), k.status) << k.entry << " " << k.command;
        served = kept;
    }
    EXPECT_EQ(g_store["C:\\f"], norm("O:BAD:(A;;FA;;;BU)")) << "nothing was written";

    SeamEntry version(&OsTable::GetVersionExA, &windows_9x);
    EXPECT_EQ(run(f + kListDacl), acl::kSystemTooOld);
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
        return vxio::platform::real_os.LookupAccountSidA(system, sid, name, nameSize, domain, domainSize, use);
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
        return vxio::platform::real_os.LookupAccountNameA(system, account, sid, sidSize, domain, domainSize, use);
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
    served["DsGetDcNameA"] = as_proc(&fake_dc);
    served["DsRoleGetPrimaryDomainInformation"] = as_proc(&fake_role);
    served["NetApiBufferFree"] = as_proc(&fake_buffer_free);
    served["DsRoleFreeMemory"] = as_proc(&fake_role_free);
    SeamEntry byName(&OsTable::LookupAccountNameA, &fake_sid_of);
    SeamEntry bySid(&OsTable::LookupAccountSidA, &fake_account_of);
    const std::string start = norm("O:BAD:(A;;FA;;;S-1-5-21-1-2-3-1001)(A;;FR;;;BU)");
    const std::string f = "--objectName>>C:\\f>>--objectType>>file>>--action>>Domain>>CORP>>NEWCORP>>";
    const struct { const char *mode; std::string after; } cases[] = {
        {"replaceDomain", norm("O:BAD:(A;;FA;;;S-1-5-21-9-9-9-1001)(A;;FR;;;BU)")},
        {"copyDomain", norm("O:BAD:(A;;FA;;;S-1-5-21-1-2-3-1001)(A;;FA;;;S-1-5-21-9-9-9-1001)(A;;FR;;;BU)")},
        {"removeDomain", norm("O:BAD:(A;;FR;;;BU)")},
    };
    for (const auto &k : cases) {
        g_store["C:\\f"] = start;
        EXPECT_EQ(run(f + k.mode + ">>dacl"), acl::kOk) << k.mode;
        EXPECT_EQ(g_store["C:\\f"], k.after) << k.mode;
        // Rules for the SACL leave the DACL alone.
        g_store["C:\\f"] = start;
        EXPECT_EQ(run(f + k.mode + ">>sacl"), acl::kOk) << k.mode;
        EXPECT_EQ(g_store["C:\\f"].find("S-1-5-21-9-9-9"), std::string::npos) << k.mode;
    }
    // An account name with a domain is looked up on that domain's controller.
    g_store["C:\\f"] = start;
    EXPECT_EQ(run("--objectName>>C:\\f>>--objectType>>file>>--action>>SetOwner>>NEWCORP\\alice>>IsName"), acl::kOk);
    EXPECT_EQ(g_store["C:\\f"].substr(0, 22), "O:S-1-5-21-9-9-9-1001D");
}

}  // namespace statuses

}  // namespace
