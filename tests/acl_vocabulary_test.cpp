// The command language's vocabulary: every permission word of every object
// type to its mask (prefix matching and table order included); the effects
// that follow each word (file inheritance and SYNCHRONIZE, share and printer
// inheritance, audits); both-audits splitting and the printers' second
// entries with their place in the list; unknown and missing words; masks to
// listing words (composites, loose any-bit words, generic mapping, the
// 260-character text); ACE type and flag words; copy_if_fits; registry
// root words.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "acl/vocabulary.h"

using namespace vxio::acl;

namespace {

AceRequest request(const std::string &words, uint32_t mode = 4, bool given = false, uint32_t inheritance = 0) {
    AceRequest r;
    r.trustee.name = "Users";
    r.permissions = words;
    r.accessMode = mode;
    r.inheritanceGiven = given;
    r.inheritance = inheritance;
    return r;
}

// Every word, with inheritance given so that only the word's mask shows
// (and files' SYNCHRONIZE, which every non-deny file entry gets). Later
// words that begin with an earlier one take the earlier one's mask.
TEST(PermissionWords, EveryWordOfEveryType) {
    const struct { uint32_t type; const char *word; uint32_t mask; } cases[] = {
        {kTypeFile, "read", 0x120089}, {kTypeFile, "write", 0x100116}, {kTypeFile, "list_folder", 0x1200A9},
        {kTypeFile, "change", 0x1301BF}, {kTypeFile, "profile", 0x1701BF}, {kTypeFile, "full", 0x1F01FF},
        {kTypeFile, "traverse", 0x100020}, {kTypeFile, "list_dir", 0x100001}, {kTypeFile, "add_file", 0x100002},
        {kTypeFile, "add_subdir", 0x100004}, {kTypeFile, "del_child", 0x100040}, {kTypeFile, "delete", 0x110000},
        // Shadowed by "read" and "write" (as are read_ex, read_ea, write_attr, ...):
        {kTypeFile, "read_attr", 0x120089}, {kTypeFile, "write_owner", 0x100116},
        // Case and longer words:
        {kTypeFile, "READ", 0x120089}, {kTypeFile, "readx", 0x120089}, {kTypeFile, "Full_Control", 0x1F01FF},
        {kTypeRegistry, "read", 0x20019}, {kTypeRegistry, "full", 0xF003F}, {kTypeRegistry, "query_val", 0x1},
        {kTypeRegistry, "set_val", 0x2}, {kTypeRegistry, "create_subkey", 0x4}, {kTypeRegistry, "enum_subkeys", 0x8},
        {kTypeRegistry, "notify", 0x10}, {kTypeRegistry, "create_link", 0x20}, {kTypeRegistry, "delete", 0x10000},
        {kTypeRegistry, "write_dacl", 0x40000}, {kTypeRegistry, "write_owner", 0x80000},
        {kTypeRegistry, "read_access", 0x20019},  // shadowed by "read"
        {kTypeService, "read", 0x2018D}, {kTypeService, "start_stop", 0x201FD}, {kTypeService, "FULL", 0xF01FF},
        {kTypeShare, "read", 0x1200A9}, {kTypeShare, "change", 0x1301BF}, {kTypeShare, "full", 0x1F01FF},
        {kTypePrinter, "print", 0x20008}, {kTypePrinter, "man_printer", 0xF000C},
        {kTypePrinter, "man_docs", 0xF0030}, {kTypePrinter, "full", 0xF000C},
    };
    for (const auto &c : cases) {
        std::vector<AceRequest> list{request(c.word, 4, true, 1)};
        ASSERT_EQ(apply_permission_words(list, c.type), kOk) << c.type << " " << c.word;
        ASSERT_EQ(list.size(), 1u) << c.word;
        EXPECT_EQ(list[0].mask, c.mask) << c.type << " " << c.word;
        EXPECT_EQ(list[0].inheritance, 1u) << c.word;
    }
}

// What follows the words: inheritance defaults per type, list_folder's
// sub-containers (set once, so later words keep it), SYNCHRONIZE for files
// except deny, and no SYNCHRONIZE in audits of any type.
TEST(PermissionWords, InheritanceAndSynchronize) {
    const struct {
        uint32_t type; const char *words; uint32_t mode; bool given; uint32_t inheritance;
        uint32_t mask; uint32_t inheritanceAfter; bool givenAfter;
    } cases[] = {
        {kTypeFile, "read", 4, false, 0, 0x120089, 3, false},
        {kTypeFile, "list_folder", 4, false, 0, 0x1200A9, 2, true},
        {kTypeFile, "read,list_folder", 4, false, 0, 0x1200A9, 2, true},
        {kTypeFile, "list_folder,write", 4, false, 0, 0x1201BF, 2, true},
        {kTypeFile, "list_folder", 4, true, 1, 0x1200A9, 1, true},
        {kTypeFile, "read,write", 4, true, 5, 0x12019F, 5, true},
        {kTypeFile, "full", 3, false, 0, 0xF01FF, 3, false},
        {kTypeFile, "full", 5, false, 0, 0xF01FF, 3, false},
        {kTypeFile, "list_folder", 6, false, 0, 0x200A9, 2, true},
        {kTypeShare, "full", 4, false, 0, 0x1F01FF, 0, false},
        {kTypeShare, "full", 4, true, 3, 0x1F01FF, 3, true},
        {kTypeShare, "read", 6, false, 0, 0x200A9, 0, false},
        {kTypeRegistry, "read,create_link", 4, false, 0, 0x20039, 0, false},
        {kTypePrinter, "print", 4, true, 3, 0x20008, 3, true},
    };
    for (const auto &c : cases) {
        std::vector<AceRequest> list{request(c.words, c.mode, c.given, c.inheritance)};
        ASSERT_EQ(apply_permission_words(list, c.type), kOk) << c.words;
        EXPECT_EQ(list[0].mask, c.mask) << c.type << " " << c.words << " mode " << c.mode;
        EXPECT_EQ(list[0].inheritance, c.inheritanceAfter) << c.type << " " << c.words;
        EXPECT_EQ(list[0].inheritanceGiven, c.givenAfter) << c.type << " " << c.words;
    }
}

TEST(PermissionWords, BadAndUnknownWords) {
    const struct { uint32_t type; const char *words; uint32_t status; } cases[] = {
        {kTypeFile, "", kBadArgument}, {kTypeFile, ",,", kBadArgument}, {kTypeNone, "", kBadArgument},
        {kTypeFile, ",read,,write,", kOk},
        {kTypeFile, "rea", kUnknownPermission},     // shorter than the table word
        {kTypeFile, "xread", kUnknownPermission},   {kTypeFile, " read", kUnknownPermission},
        {kTypeFile, "read,bogus", kUnknownPermission}, {kTypeRegistry, "change", kUnknownPermission},
        {kTypeService, "write", kUnknownPermission}, {kTypePrinter, "read", kUnknownPermission},
        {kTypeNone, "read", kUnknownPermission},     {6, "full", kUnknownPermission},
    };
    for (const auto &c : cases) {
        std::vector<AceRequest> list{request(c.words)};
        EXPECT_EQ(apply_permission_words(list, c.type), c.status) << c.type << " '" << c.words << "'";
    }
    // A later request's fault fails the whole list.
    std::vector<AceRequest> list{request("read"), request("")};
    EXPECT_EQ(apply_permission_words(list, kTypeFile), kBadArgument);
}

struct Entry {
    uint32_t mode, mask, inheritance;
};

void expect_entries(const std::vector<AceRequest> &list, const std::vector<Entry> &expected) {
    ASSERT_EQ(list.size(), expected.size());
    for (size_t i = 0; i < list.size(); ++i) {
        EXPECT_EQ(list[i].accessMode, expected[i].mode) << i;
        EXPECT_EQ(list[i].mask, expected[i].mask) << i;
        EXPECT_EQ(list[i].inheritance, expected[i].inheritance) << i;
    }
}

// Both audits become audit-failure in place and an audit-success copy at
// the end (same trustee, words and list); the copy gets its mask like any
// request.
TEST(PermissionWords, BothAuditsSplit) {
    std::vector<AceRequest> list{request("read", 11), request("write", 4), request("full", 11)};
    list[0].trustee = {"S-1-5-32-544", true};
    ASSERT_EQ(apply_permission_words(list, kTypeFile), kOk);
    expect_entries(list, {{6, 0x20089, 3}, {4, 0x100116, 3}, {6, 0xF01FF, 3}, {5, 0x20089, 3}, {5, 0xF01FF, 3}});
    EXPECT_EQ(list[3].permissions, "read");
    EXPECT_EQ(list[4].permissions, "full");
    EXPECT_EQ(list[3].list, static_cast<uint32_t>(kListSacl));
    EXPECT_EQ(list[3].trustee.name, "S-1-5-32-544");
    EXPECT_TRUE(list[3].trustee.isSid);
}

// Without inheritance words "man_docs" and "full" make a printer entry and
// an inherit-only documents entry, appended after every request; "print"
// then resets the inheritance to the printer alone.
TEST(PermissionWords, PrinterSecondEntries) {
    std::vector<AceRequest> list{request("man_docs"), request("full,print", 5), request("man_docs", 4, true, 2),
                                 request("man_docs,print")};
    ASSERT_EQ(apply_permission_words(list, kTypePrinter), kOk);
    expect_entries(list, {{4, 0x20000, 10}, {5, 0xF000C, 0}, {4, 0xF0030, 2}, {4, 0x20008, 0},
                          {4, 0xF0030, 9}, {5, 0xF0030, 9}, {4, 0xF0030, 9}});
    // Both audits: the audit-success copy makes its own documents entry.
    std::vector<AceRequest> audits{request("man_docs", 11)};
    ASSERT_EQ(apply_permission_words(audits, kTypePrinter), kOk);
    expect_entries(audits, {{6, 0x20000, 10}, {5, 0x20000, 10}, {6, 0xF0030, 9}, {5, 0xF0030, 9}});
}

TEST(MaskToWords, EveryTypeOfListing) {
    const struct { uint32_t type; uint32_t mask; const char *words; } cases[] = {
        {kTypeFile, 0xF01FF, "full"}, {kTypeFile, 0x1F01FF, "full"}, {kTypeFile, 0x301BF | 0x1, "change"},
        {kTypeFile, 0x301BF | 0x40000, "change+WRITE_DAC"},
        {kTypeFile, 0x201BF, "write"},  // read_execute taken, then replaced by write
        {kTypeFile, 0x10000000, "full"}, {kTypeFile, 0x80000000, "read"}, {kTypeFile, 0xA0000000, "read_execute"},
        {kTypeFile, 0x40000000, "write+READ_CONTROL"}, {kTypeFile, 0x100000, ""}, {kTypeFile, 0, ""},
        {kTypeFile, 0x10001FF, "write+FILE_LIST_DIRECTORY+FILE_READ_EA+FILE_TRAVERSE+FILE_DELETE_CHILD+"
                               "FILE_READ_ATTRIBUTES+ACCESS_SYSTEM_SECURITY"},
        {kTypeRegistry, 0xF003F, "full"}, {kTypeRegistry, 0x10000000, "full"},
        {kTypeRegistry, 0x80000000, "read+SYNCHRONIZE"}, {kTypeRegistry, 0x20039, "read+KEY_CREATE_LINK"},
        {kTypeRegistry, 0x1, "KEY_EXECUTE+KEY_QUERY_VALUE+KEY_READ"},
        {kTypeRegistry, 0x20000, "KEY_EXECUTE+KEY_READ+KEY_WRITE+READ_CONTROL"},
        {kTypeRegistry, 0x40000000, "KEY_CREATE_SUB_KEY+KEY_EXECUTE+KEY_READ+KEY_SET_VALUE+KEY_WRITE+READ_CONTROL"},
        {kTypeService, 0xF01FF, "full"}, {kTypeService, 0x201FD, "start_stop"}, {kTypeService, 0x2018F,
         "read+SERVICE_CHANGE_CONFIG"}, {kTypeService, 0x90000010, "SERVICE_START+GENERIC_ALL+GENERIC_READ"},
        {kTypeShare, 0x1F01FF, "full"}, {kTypeShare, 0x1301BF, "change"}, {kTypeShare, 0x1200AB, "read+SHARE_READ"},
        {kTypeShare, 0x1, "SHARE_READ+SHARE_CHANGE"}, {kTypeShare, 0x2, "SHARE_READ"}, {kTypeShare, 0x40, "SHARE_WRITE"},
        {kTypePrinter, 0xF000C, "manage_printer"}, {kTypePrinter, 0xF0030, "manage_documents"},
        {kTypePrinter, 0xF003C, "manage_printer+JOB_ACCESS_ADMINISTER+JOB_ACCESS_READ"},
        {kTypePrinter, 0x2000C, "print+PRINTER_ACCESS_ADMINISTER"},
        {kTypePrinter, 0xF11F0000, "READ_CONTROL+WRITE_OWNER+WRITE_DAC+DELETE+SYNCHRONIZE+ACCESS_SYSTEM_SECURITY+"
                                   "GENERIC_ALL+GENERIC_EXECUTE+GENERIC_READ+GENERIC_WRITE"},
        {kTypeNone, 0xFFFFFFFF, ""}, {6, 0xF01FF, ""},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(mask_to_words(c.mask, c.type), c.words) << c.type << " 0x" << std::hex << c.mask;
    }
}

// Service words are long enough to overflow the 260-character text: a word
// goes in only if the text with it and its terminator still fits, and a
// shorter word after a left-out one may still go in.
TEST(MaskToWords, TextLimitedTo260Characters) {
    const std::string services = "SERVICE_CHANGE_CONFIG+SERVICE_ENUMERATE_DEPENDENTS+SERVICE_INTERROGATE+"
                                 "SERVICE_PAUSE_CONTINUE+SERVICE_QUERY_CONFIG+SERVICE_QUERY_STATUS+SERVICE_START+";
    const std::string tail = "SERVICE_USER_DEFINED_CONTROL+WRITE_OWNER+WRITE_DAC+DELETE+";
    // 259 characters with the last "+": exactly fits.
    std::string full = services + tail + "SYNCHRONIZE+ACCESS_SYSTEM_SECURITY+GENERIC_EXECUTE+";
    ASSERT_EQ(full.size(), 259u);
    EXPECT_EQ(mask_to_words(0x211D01DF, kTypeService), full.substr(0, 258));
    // With SERVICE_STOP the last word would need 261 characters.
    std::string cut = services + "SERVICE_STOP+" + tail + "ACCESS_SYSTEM_SECURITY+";
    EXPECT_EQ(mask_to_words(0x210D01FF, kTypeService), cut.substr(0, cut.size() - 1));
    // GENERIC_EXECUTE and GENERIC_WRITE left out, GENERIC_READ between them kept.
    std::string skipped = services + "SERVICE_STOP+" + tail + "SYNCHRONIZE+GENERIC_ALL+GENERIC_READ+";
    ASSERT_EQ(skipped.size(), 258u);
    EXPECT_EQ(mask_to_words(0xF01D01FF, kTypeService), skipped.substr(0, 257));
}

TEST(AceWords, TypesAndFlags) {
    const char *types[] = {"allow", "deny", "audit", "alarm", "allow_compound",
                           "allow_object", "deny_object", "audit_object", "alarm_object", ""};
    for (uint32_t t = 0; t < 10; ++t) EXPECT_EQ(ace_type_word(t), types[t]) << t;
    EXPECT_EQ(ace_type_word(0xFFFFFFFF), "");

    const struct { uint32_t flags; const char *words; } flags[] = {
        {0, "no_inheritance"}, {0x20, "no_inheritance"}, {0x3, "container_inherit+object_inherit"},
        {0xDF, "container_inherit+object_inherit+inherit_only+no_propagate_inherit+inherited+audit_success+audit_fail"},
        {0x4 | 0x80, "no_propagate_inherit+audit_fail"},
    };
    for (const auto &f : flags) EXPECT_EQ(ace_flags_words(f.flags), f.words) << f.flags;
}

TEST(CopyIfFits, LeavesTheDestinationAloneWhenTooSmall) {
    const std::string text = "change";
    for (size_t size : {text.size(), text.size() + 1, text.size() + 2}) {
        char dest[16];
        std::memset(dest, '#', sizeof dest);
        const bool fits = size >= text.size() + 1;
        EXPECT_EQ(copy_if_fits(text, dest, size), fits) << size;
        EXPECT_EQ(std::string(dest, 8), fits ? std::string("change\0#", 8) : std::string(8, '#')) << size;
    }
    EXPECT_FALSE(copy_if_fits("", nullptr, 4));
}

TEST(RegistryRoots, WholeWordsInAnyCase) {
    const struct { const char *word; RegistryRoot root; } cases[] = {
        {"HKEY_CURRENT_USER", RegistryRoot::CurrentUser}, {"current_user", RegistryRoot::CurrentUser},
        {"hkcu", RegistryRoot::CurrentUser}, {"hkey_classes_root", RegistryRoot::ClassesRoot},
        {"Classes_Root", RegistryRoot::ClassesRoot}, {"HKCR", RegistryRoot::ClassesRoot},
        {"hkey_users", RegistryRoot::Users}, {"USERS", RegistryRoot::Users},
        {"hkey_local_machine", RegistryRoot::LocalMachine}, {"machine", RegistryRoot::LocalMachine},
        {"HKLM", RegistryRoot::LocalMachine}, {"usersx", RegistryRoot::None}, {"user", RegistryRoot::None},
        {"hklm\\software", RegistryRoot::None}, {"hkey_current_config", RegistryRoot::None}, {"", RegistryRoot::None},
    };
    for (const auto &c : cases) EXPECT_EQ(registry_root_word(c.word), c.root) << c.word;
}

}  // namespace
