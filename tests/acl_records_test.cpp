// Records of "List" and "Restore": protection texts; byte-exact "sddl",
// "csl" and "tab" records (quoting, parts requested against parts present,
// which entries the inherited / explicit selectors list); the record-size
// limit; splitting a restore text or file, parsing records back (round
// trip, file lines, malformed records); security information from SDDL texts.
#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "acl/records.h"

using namespace vxio::acl;

namespace {

AclCommand listing(uint32_t format, uint32_t parts, uint32_t inherited = 3, uint32_t explicitFlag = 0) {
    AclCommand command;
    command.listFormat = format;
    command.listParts = parts;
    command.listInherited = inherited;
    command.listExplicit = explicitFlag;
    return command;
}

// Owner, group, a protected DACL with one explicit and one inherited entry,
// an auto-inherited SACL with one audit entry.
DescriptorView sample() {
    DescriptorView view;
    view.control = kControlDaclProtected | kControlSaclAutoInherited;
    view.hasOwner = view.hasGroup = view.hasDacl = view.hasSacl = true;
    view.owner = "BUILTIN\\Administrators";
    view.group = "NT AUTHORITY\\SYSTEM";
    view.dacl = {{0, 0x00, 0x1F01FF, "BUILTIN\\Administrators"},
                 {1, 0x13, 0x1200A9, "S-1-5-21-1-2-3-1001"}};
    view.sacl = {{2, 0xC0, 0x10000, "Everyone"}};
    return view;
}

const char kDacl[] = "DACL(protected):BUILTIN\\Administrators/allow/no_inheritance/full,"
                     "S-1-5-21-1-2-3-1001/deny/container_inherit+object_inherit+inherited/read_execute";
const char kSacl[] = "SACL(not_protected+auto_inherited):Everyone/audit/audit_success+audit_fail/DELETE";

TEST(AclRecords, ProtectionTexts) {
    const struct { uint16_t control; bool sacl; const char *text; } cases[] = {
        {0x1000, false, "(protected)"}, {0x0400, false, "(not_protected+auto_inherited)"},
        {0x2800, false, "(not_protected)"}, {0x2800, true, "(protected+auto_inherited)"},
        {0x1400, true, "(not_protected)"},
    };
    for (const auto &c : cases) EXPECT_EQ(protection_text(c.control, c.sacl), c.text) << c.control << c.sacl;
}

TEST(AclRecords, SddlRecordsQuoteNamesUnlessEmptyOrQuoted) {
    const struct { const char *name; uint32_t type; const char *record; } cases[] = {
        {"C:\\data\\a.txt", 1, "\"C:\\data\\a.txt\",1,\"O:BAD:AI(A;;FA;;;BA)\">>>"},
        {"\"machine\\SOFTWARE\"", 4, "\"machine\\SOFTWARE\",4,\"O:BAD:AI(A;;FA;;;BA)\">>>"},
        {"", 2, ",2,\"O:BAD:AI(A;;FA;;;BA)\">>>"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(list_record(listing(kFormatSddl, 15), c.name, c.type, "O:BAD:AI(A;;FA;;;BA)", sample()), c.record);
}

TEST(AclRecords, CslRecordHoldsRequestedPartsThatArePresent) {
    const std::string head = "\"C:\\a.txt\",1,\"";
    EXPECT_EQ(list_record(listing(kFormatCsl, 15), "C:\\a.txt", 1, "ignored", sample()),
              head + kDacl + ";" + kSacl + ";Owner:BUILTIN\\Administrators;Group:NT AUTHORITY\\SYSTEM\"");

    DescriptorView partial = sample();
    partial.hasDacl = partial.hasGroup = false;
    EXPECT_EQ(list_record(listing(kFormatCsl, 15), "C:\\a.txt", 1, "", partial),
              head + kSacl + ";Owner:BUILTIN\\Administrators\"");
    EXPECT_EQ(list_record(listing(kFormatCsl, kPartGroup), "C:\\a.txt", 1, "", partial), head + "\"");
}

TEST(AclRecords, TabRecordIndentsBlocksAndEntries) {
    EXPECT_EQ(list_record(listing(kFormatTab, 15), "C:\\a.txt", 1, "", sample()),
              "C:\\a.txt\n"
              "\n   Owner: BUILTIN\\Administrators\n"
              "\n   Group: NT AUTHORITY\\SYSTEM\n"
              "\n   DACL(protected):\n"
              "   BUILTIN\\Administrators\tallow\tno_inheritance\tfull\n"
              "   S-1-5-21-1-2-3-1001\tdeny\tcontainer_inherit+object_inherit+inherited\tread_execute\n"
              "\n   SACL(not_protected+auto_inherited):\n"
              "   Everyone\taudit\taudit_success+audit_fail\tDELETE\n");
}

TEST(AclRecords, InheritedAndExplicitSelectorsChooseEntries) {
    DescriptorView view;
    view.hasDacl = true;
    view.dacl = {{0, 0x03, 0x1F01FF, "Explicit"}, {0, 0x13, 0x1F01FF, "Inherited"}};
    const std::string e = "Explicit/allow/container_inherit+object_inherit/full";
    const std::string i = "Inherited/allow/container_inherit+object_inherit+inherited/full";
    const struct { uint32_t inherited, explicitFlag; std::string entries; } cases[] = {
        {1, 0, e}, {2, 0, i}, {3, 0, e + "," + i}, {1, 1, e}, {2, 1, e + "," + i}, {3, 1, e + "," + i}};
    for (const auto &c : cases) {
        EXPECT_EQ(list_record(listing(kFormatCsl, kPartDacl, c.inherited, c.explicitFlag), "o", 1, "", view),
                  "\"o\",1,\"DACL(not_protected):" + c.entries + "\"")
            << c.inherited << "/" << c.explicitFlag;
    }
}

TEST(AclRecords, PiecesThatWouldNotFitAreLeftOut) {
    // "n",1," + SDDL + " + >>> : each piece goes in only if the record
    // then still fits in 8320 characters with its terminator.
    const AclCommand sddl = listing(kFormatSddl, 1);
    const std::string a(kDescriptorTextSize - 12, 'A');
    EXPECT_EQ(list_record(sddl, "n", 1, a, {}), "\"n\",1,\"" + a + "\">>>");  // 8319 characters
    EXPECT_EQ(list_record(sddl, "n", 1, a + "AA", {}), "\"n\",1,\"" + a + "AA\"");
    EXPECT_EQ(list_record(sddl, "n", 1, a + "AAAAA", {}), "\"n\",1,\"\">>>");

    // An entry and the owner too long for the record: both left out, the
    // rest listed (the next entry becomes the first of its list).
    DescriptorView view = sample();
    view.dacl[0].account.assign(kDescriptorTextSize, 'x');
    EXPECT_EQ(list_record(listing(kFormatCsl, kPartDacl | kPartOwner), "n", 1, "", view),
              "\"n\",1,\"DACL(protected):S-1-5-21-1-2-3-1001/deny/"
              "container_inherit+object_inherit+inherited/read_execute;Owner:BUILTIN\\Administrators\"");
    view.owner.assign(kDescriptorTextSize, 'o');
    view.hasGroup = false;  // and a part requested but absent
    EXPECT_EQ(list_record(listing(kFormatTab, 15), "n", 1, "", view),
              "n\n"
              "\n   DACL(protected):\n"
              "   S-1-5-21-1-2-3-1001\tdeny\tcontainer_inherit+object_inherit+inherited\tread_execute\n"
              "\n   SACL(not_protected+auto_inherited):\n"
              "   Everyone\taudit\taudit_success+audit_fail\tDELETE\n");

    // 34 characters left: the 35 of "DACL(not_protected+auto_inherited):"
    // do not fit, and that list's entries then stay out even when they would.
    DescriptorView small;
    small.control = kControlDaclAutoInherited;
    small.hasDacl = small.hasOwner = true;
    small.dacl = {{0, 0, 0x1F01FF, "a"}};
    small.owner = "o";
    const std::string name(kDescriptorTextSize - 1 - 5 - 34, 'N');
    EXPECT_EQ(list_record(listing(kFormatCsl, kPartDacl | kPartOwner), name, 1, "", small),
              "\"" + name + "\",1,\"Owner:o\"");
}

TEST(AclRecords, RestoreTextSplitsAtEveryRunOfGreaterThan) {
    using Records = std::vector<std::string>;
    EXPECT_EQ(split_restore_text(""), Records{});
    EXPECT_EQ(split_restore_text(">>>>"), Records{});
    EXPECT_EQ(split_restore_text("a>>>b>c"), (Records{"a", "b", "c"}));
    EXPECT_EQ(split_restore_text(">>a>>>\r\n"), (Records{"a", "\r\n"}));
    // A file's lines: CR LF read as LF (a CR alone stays), cut after 4095
    // characters, a CR dropped before LF not counted.
    const std::string x(4095, 'x');
    EXPECT_EQ(split_restore_file("\"a\",1,\"D:\">>>\r\nb>c\rd\r\r\n"),
              (Records{"\"a\",1,\"D:\"", "\n", "b", "c\rd\r\n"}));
    EXPECT_EQ(split_restore_file(x + "yz>"), (Records{x, "yz"}));
    EXPECT_EQ(split_restore_file(x.substr(1) + "\r\n>y"), (Records{x.substr(1) + "\n", "y"}));
}

TEST(AclRecords, SddlRecordsParseBackToNameTypeAndSddl) {
    const struct { const char *name; uint32_t type; } objects[] = {
        {"C:\\data\\a.txt", 1}, {"C:\\a,b,c d.txt", 1}, {"hklm\\SOFTWARE\\x", 4}, {"Spooler", 2},
    };
    const std::string text = "O:BAG:SYD:PAI(A;OICI;FA;;;BA)(A;;0x1200a9;;;S-1-5-21-1-2-3)S:AI";
    std::string all;
    for (const auto &o : objects) all += list_record(listing(kFormatSddl, 15), o.name, o.type, text, {});
    const std::vector<std::string> records = split_restore_text(all);
    ASSERT_EQ(records.size(), std::size(objects));
    for (size_t i = 0; i < records.size(); ++i) {
        RestoreRecord out;
        ASSERT_EQ(parse_restore_record(records[i], out), RestoreParse::kRecord) << records[i];
        EXPECT_EQ(out.objectName, objects[i].name);
        EXPECT_EQ(out.objectType, objects[i].type);
        EXPECT_EQ(out.sddl, text);
    }
}

TEST(AclRecords, RestoreRecordsFromLinesAndMalformedRecords) {
    const struct { const char *line, *name; uint32_t type; const char *sddl; } lines[] = {
        {"\"C:\\a.txt\",1,\"D:(A;;FA;;;WD)\"\r\n", "C:\\a.txt", 1, "D:(A;;FA;;;WD)"},
        {"C:\\b\",12x,\"D:\"\"\n", "C:\\b", 12, "D:\""},  // one closing quote taken off
        {"\"C:\\b\",4294967297,\"D:\"", "C:\\b", 4294967295, "D:"},  // no wrap to a file
    };
    RestoreRecord out;
    for (const auto &l : lines) {
        ASSERT_EQ(parse_restore_record(l.line, out), RestoreParse::kRecord) << l.line;
        EXPECT_EQ(out.objectName + "|" + std::to_string(out.objectType) + "|" + out.sddl,
                  l.name + ("|" + std::to_string(l.type)) + "|" + l.sddl);
    }

    for (const char *bad : {"\"C:\\a.txt\"", "\"C:\\a.txt\",1", "\"C:\\a.txt\",1,D:",
                            "C:\\a.txt,1,\"D:\"",
                            ",2,\"D:(A;;FA;;;WD)\">>>"}) {  // an unnamed "sddl" record has no '",'
        EXPECT_EQ(parse_restore_record(bad, out), RestoreParse::kMalformed) << bad;
    }
    for (const char *lineEnd : {"", "\r\n", "\n\r\n"})
        EXPECT_EQ(parse_restore_record(lineEnd, out), RestoreParse::kNothing);
}

TEST(AclRecords, SecurityInformationFromSddl) {
    const uint32_t dacl = kInfoDacl, sacl = kInfoSacl;
    const struct { const char *sddl; uint32_t bits; } cases[] = {
        {"", 0}, {"O:BAG:SY", kInfoOwner | kInfoGroup},
        {"D:AI(A;;FA;;;BA)", dacl | kInfoUnprotectedDacl}, {"D:PAI(A;;FA;;;BA)", dacl | kInfoProtectedDacl},
        {"D:AI(A;;FA;;;PU)(A;;FR;;;PS)", dacl | kInfoUnprotectedDacl},  // a "P" in the entries
        {"D:P", dacl | kInfoProtectedDacl}, {"D:NO_ACCESS_CONTROL", dacl | kInfoUnprotectedDacl},
        {"O:BAG:SYD:AI(A;;FA;;;BA)S:PAI(AU;SA;FA;;;WD)",
         kInfoOwner | kInfoGroup | dacl | kInfoUnprotectedDacl | sacl | kInfoProtectedSacl},
        {"D:AIS:P(AU;SA;FA;;;WD)", dacl | kInfoUnprotectedDacl | sacl | kInfoProtectedSacl},
        {"S:AI(AU;FA;FA;;;WD)D:PAI(A;;FA;;;BA)",
         sacl | kInfoUnprotectedSacl | dacl | kInfoProtectedDacl},
    };
    for (const auto &c : cases) EXPECT_EQ(security_information_from_sddl(c.sddl), c.bits) << c.sddl;

    EXPECT_EQ(security_information_from_parts(kPartDacl | kPartGroup), kInfoDacl | kInfoGroup);
}

}  // namespace
