// Command parser: tokens and separators, keyword byte counts (FILES, exact
// --objectName, the dacl+sacl reading), every option and action with its
// values, missing and bad values with the status each gives, names at 259
// and 260 characters, the List defaults put back (26), --recursion per type
// and before the type (4), SetProtection clearing, sticky rule selectors,
// several actions in one command and the File backend's three commands.
//
// Each case compares a summary of every field that differs from a default
// AclCommand, so a field recorded by mistake fails the case too.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "acl/command.h"

using namespace vxio::acl;

namespace {

std::string trustee(const TrusteeName &t) { return t.name + (t.isSid ? ":sid" : ""); }

std::string summary(const AclCommand &c) {
    const AclCommand d;
    std::ostringstream s;
    auto put = [&s](const std::string &text) { s << (s.tellp() > 0 ? " " : "") << text; };
    auto num = [&put](const char *key, auto value, auto fallback) {
        if (value != fallback) put(std::string(key) + "=" + std::to_string(value));
    };
    if (c.ignoreErrors) put("ignore");
    if (!c.objectName.empty()) put("name=" + c.objectName);
    num("type", c.objectType, d.objectType);
    num("actions", c.actions, d.actions);
    num("dprot", c.daclProtection, d.daclProtection);
    num("sprot", c.saclProtection, d.saclProtection);
    if (c.resetDacl) put("reset-dacl");
    if (c.resetSacl) put("reset-sacl");
    num("rec", c.recursion, d.recursion);
    if (!c.owner.name.empty() || c.owner.isSid) put("owner=" + trustee(c.owner));
    if (!c.group.name.empty() || c.group.isSid) put("group=" + trustee(c.group));
    for (const AceRequest &a : c.aces) {
        std::string inh = a.inheritanceGiven ? " inh=" + std::to_string(a.inheritance) : "";
        if (!a.inheritanceGiven && a.inheritance) inh = " bits-without-words";
        put("ace(" + trustee(a.trustee) + " " + a.permissions + inh + " mode=" +
            std::to_string(a.accessMode) + " list=" + std::to_string(a.list) + ")");
    }
    for (const std::string &f : c.filters) put("filter=" + f);
    num("dcount", c.daclEntryCount, d.daclEntryCount);
    num("scount", c.saclEntryCount, d.saclEntryCount);
    num("format", c.listFormat, d.listFormat);
    num("parts", c.listParts, d.listParts);
    num("inherited", c.listInherited, d.listInherited);
    num("explicit", c.listExplicit, d.listExplicit);
    if (!c.fileName.empty()) put("file=" + c.fileName);
    for (const TrusteeRule &r : c.trusteeRules) {
        put("trustee(" + trustee(r.find) + "->" + trustee(r.put) + " " + std::to_string(r.mode) + ")");
    }
    for (const DomainRule &r : c.domainRules) {
        put("domain(" + r.find + "->" + r.put + " " + std::to_string(r.mode) + ")");
    }
    if (c.trusteeRulesDacl) put("trustee-dacl");
    if (c.trusteeRulesSacl) put("trustee-sacl");
    if (c.domainRulesDacl) put("domain-dacl");
    if (c.domainRulesSacl) put("domain-sacl");
    return s.str();
}

struct Case {
    std::string command;
    uint32_t status;
    std::string expected;  // summary; "*" where only the status matters
};

void check(const Case &c) {
    AclCommand out;
    out.objectName = "left over";  // the parser starts from a default record
    EXPECT_EQ(parse_command(c.command.c_str(), out), c.status) << c.command;
    if (c.expected != "*") {
        EXPECT_EQ(summary(out), c.expected) << c.command;
    }
}

const std::string kN259(259, 'n'), kN260(260, 'n');
const std::string kFile = "--objectName>>C:\\a.txt>>--objectType>>file>>--action>>";
const std::string kAce = "--action>>ACE>>Everyone>>IsName>>read>>";
const std::string kSetProt = "--action>>SetProtection>>";

TEST(AclParser, TokensOptionsAndObjects) {
    AclCommand out;
    out.objectType = kTypeFile;
    EXPECT_EQ(parse_command(nullptr, out), kBadArgument);
    EXPECT_EQ(summary(out), "") << "a null command still resets the record";

    const Case cases[] = {
        {"", kOk, ""},
        {">", kOk, ""},
        {"--help>>--HELPME>>stray>>words", kOk, ""},
        {">>--IGNOREERRORSX>>", kOk, "ignore"},
        {"--objectName>C:\\a.txt>--objectType>FILES", kOk, "name=C:\\a.txt type=1"},
        {">>>--objectname>>>>x>>>", kOk, "name=x"},
        {"--objectNameX>>C:\\a.txt", kOk, ""},  // exact keyword: both tokens skipped
        {"--objectName>>--objectType>>file", kOk, "name=--objectType"},
        {"--objectTypeS>>Registry>>--objectName>>hklm\\x", kOk, "name=hklm\\x type=4"},
        {"--objectType>>shares", kOk, "type=5"},
        {"--objectName>>a>>--objectName>>b>>--objectType>>file>>--objectType>>share", kOk,
         "name=b type=5"},
        {"--objectName>>" + kN259, kOk, "name=" + kN259},
        {"--objectName>>" + kN260 + ">>--objectType>>file", kOk, "type=1"},
        {"--objectName>>a>>--objectName>>" + kN260, kOk, "name=a"},
        {"--filter>>temp>>--FILTERS>>Cache", kOk, "filter=temp filter=Cache"},
        {"--objectName", kBadArgument, "*"},   {"--objectName>>>>", kBadArgument, "*"},
        {"--objectType", kBadArgument, "*"},   {"--objectType>>folder", kBadArgument, "*"},
        {"--filter", kBadArgument, "*"},       {"--recursion", kBadArgument, "*"},
        {"--objectType>>file>>--recursion>>deep", kBadArgument, "type=1"},
    };
    for (const Case &c : cases) check(c);
}

// Every recursion word under every object type: files take all modes,
// registry keys the first two, the rest none; no type yet is status 4.
TEST(AclParser, RecursionPerObjectType) {
    const struct {
        const char *word;
        uint32_t mode;
    } words[] = {{"fileDirNoRecurse", 1}, {"regNoRecurse", 1}, {"regRecurse", 2},
                 {"dirRecurse", 2},       {"FILERECURSE", 4},  {"fileDirRecurse", 6}};
    const struct {
        const char *option;  // sets the type, or nothing
        uint32_t type;
    } types[] = {{"", 0}, {"--objectType>>file>>", 1}, {"--objectType>>service>>", 2},
                 {"--objectType>>printer>>", 3}, {"--objectType>>registry>>", 4},
                 {"--objectType>>share>>", 5}};
    for (const auto &t : types) {
        for (const auto &w : words) {
            const std::string command = std::string(t.option) + "--recursion>>" + w.word;
            uint32_t status = kOk, mode = w.mode;
            if (t.type == kTypeNone) {
                status = kNoObject, mode = 0;
            } else if (t.type == kTypeRegistry && w.mode > 2) {
                status = kBadArgument, mode = kRecurseNone;
            } else if (t.type != kTypeFile && t.type != kTypeRegistry) {
                status = kBadArgument, mode = kRecurseNone;
            }
            AclCommand out;
            EXPECT_EQ(parse_command(command.c_str(), out), status) << command;
            EXPECT_EQ(out.recursion, mode) << command;
            EXPECT_EQ(out.objectType, t.type) << command;
        }
    }
    // A registry key keeps its earlier mode when a later one is refused.
    check({"--objectType>>registry>>--recursion>>regRecurse>>--recursion>>fileRecurse",
           kBadArgument, "type=4 rec=2"});
}

TEST(AclParser, AceRequests) {
    const Case cases[] = {
        {kAce + "sub-objects,inherit-only>>audit_success>>sacl", kOk,
         "actions=1 ace(Everyone read inh=9 mode=5 list=2) scount=1"},
        {"--action>>ace>>S-1-1-0>>IsSIDx>>read,write>>none>>AUDIT_FAILURE>>SACL", kOk,
         "actions=1 ace(S-1-1-0:sid read,write mode=6 list=2) scount=1"},
        {kAce + ",,Sub-Containers,,>>revoke>>sacl+dacl", kOk,
         "actions=1 ace(Everyone read inh=2 mode=4 list=2) scount=1"},
        {kAce + "sub-objects,sub-containers,no-propagation,inherit-only,junk>>"
                "audit_success+audit_fail>>sacl",
         kOk, "actions=1 ace(Everyone read inh=15 mode=11 list=2) scount=1"},
        {kAce + "x>>audit_fail+audit_success>>sacl>>" + kAce + "x>>revoke>>sacl", kOk,
         "actions=1 ace(Everyone read mode=11 list=2) ace(Everyone read mode=4 list=2) scount=2"},
        {"--action>>ACE>>" + kN260 + ">>IsName>>full>>x>>revoke>>sacl", kOk,
         "actions=1 ace( full mode=4 list=2) scount=1"},
        // DACL requests and the DACL-only modes are refused.
        {kAce + "x>>grant>>sacl", kBadArgument, "*"},        {kAce + "x>>set>>sacl", kBadArgument, "*"},
        {kAce + "x>>revoke>>dacl", kBadArgument, "*"},       {kAce + "x>>revoke>>dacl+sacl", kBadArgument, "*"},
        {kAce + "x>>revoke>>both", kBadArgument, "*"},       {kAce + "x>>audit>>sacl", kBadArgument, "*"},
        {"--action>>ACE>>Everyone>>IsUser>>read>>x>>revoke>>sacl", kBadArgument, "*"},
        {"--action>>ACE>>Everyone>>IsName>>" + kN260 + ">>x>>revoke>>sacl", kBadArgument, "*"},
        {"--action>>ACE>>Everyone>>IsName>>read>>x>>revoke", kBadArgument, "*"},
        {"--action>>ACE>>Everyone", kBadArgument, "*"},      {"--action>>ACE", kBadArgument, "*"},
    };
    for (const Case &c : cases) check(c);
}

TEST(AclParser, ListParameters) {
    const std::string kDefaults;  // format 1, parts 1, inherited 1, explicit 0
    const Case cases[] = {
        {"--action>>List>>csl>>dacl>>No>>No>>None", kOk, "actions=2"},
        {"--action>>LIST>>tab>>owner,primary_group>>Yes>>Both>>out.txt", kOk,
         "actions=2 format=2 parts=13 inherited=3 explicit=1 file=out.txt"},
        {"--action>>List>>sddl>>,sacl,,junk,>>no>>yes>>nonesuch.txt", kOk,
         "actions=2 format=0 parts=3 inherited=2"},
        {"--action>>List>>csl>>dacl>>No>>No>>" + kN260, kOk, "actions=2"},
        // Bad values put the defaults back, even over an earlier List.
        {"--action>>List>>xml>>dacl>>No>>No>>None", kListParameters, kDefaults},
        {"--action>>List>>csl>>dacl>>Perhaps>>No>>None", kListParameters, kDefaults},
        {"--action>>List>>csl>>dacl>>No>>Never>>None", kListParameters, kDefaults},
        {"--action>>List>>tab>>sacl>>Yes>>Both>>out.txt>>--action>>List>>csl>>dacl>>No>>All>>x",
         kListParameters, "actions=2 file=out.txt"},
        {"--action>>List>>csl>>dacl>>No>>No", kBadArgument, "*"}, {"--action>>List>>csl", kBadArgument, "*"},
    };
    for (const Case &c : cases) check(c);
}

TEST(AclParser, OwnerGroupClearResetRestore) {
    const Case cases[] = {
        {"--action>>SetOwner>>BUILTIN\\Administrators>>IsName", kOk,
         "actions=4 owner=BUILTIN\\Administrators"},
        {"--action>>SetOwner>>a>>IsName>>--action>>SetOwner>>S-1-5-18>>IsSID", kOk,
         "actions=4 owner=S-1-5-18:sid"},
        {"--action>>SetGroup>>S-1-5-32-544>>IsSID", kOk, "actions=8 group=S-1-5-32-544:sid"},
        {"--action>>SetGroup>>" + kN259 + ">>IsName", kOk, "actions=8 group=" + kN259},
        {"--action>>SetGroup>>" + kN260 + ">>IsName", kBadArgument, "*"},
        {"--action>>SetOwner>>a>>IsGroup", kBadArgument, "*"},
        {"--action>>Clear>>dacl", kOk, "actions=16"},
        {"--action>>Clear>>dacl+sacl", kOk, "actions=16"},
        {"--action>>Clear>>sacl+dacl", kOk, "actions=32"},
        {"--action>>Clear>>dacl>>--action>>Clear>>sacl", kOk, "actions=48"},
        {"--action>>Clear>>all", kBadArgument, "*"},       {"--action>>Clear", kBadArgument, "*"},
        {"--action>>ResetPermissions>>dacl+sacl", kOk, "actions=128 reset-dacl"},
        {"--action>>ResetPermissions>>sacl", kOk, "actions=128 reset-sacl"},
        {"--action>>ResetPermissions>>owner", kBadArgument, "*"},
        {"--action>>Restore>>FromVOXAStruct", kOk, "actions=2048 file=FromVOXAStruct"},
        {"--action>>Restore>>" + kN260, kOk, "actions=2048"},
        {"--action>>Restore", kBadArgument, "*"},          {"--action", kBadArgument, "*"},
        {"--action>>Delete>>dacl", kBadArgument, "*"},
    };
    for (const Case &c : cases) check(c);
}

TEST(AclParser, SetProtection) {
    const Case cases[] = {
        {kSetProt + "daclProtectNoCopy>>saclNotProtected", kOk, "actions=64 dprot=4 sprot=1"},
        {kSetProt + "DACLPROTECTCOPY>>saclProtectNoCopy", kOk, "actions=64 dprot=2 sprot=4"},
        {kSetProt + "daclNotProtected>>saclProtectCopy", kOk, "actions=64 dprot=1 sprot=2"},
        {kSetProt + "daclNoChange>>saclNoChange", kOk, "actions=64"},
        // A refused request also clears what earlier actions recorded.
        {"--action>>ResetPermissions>>dacl>>--action>>ResetPermissions>>sacl>>" + kSetProt +
             "daclProtectCopy>>saclProtectCopy>>" + kSetProt + "daclNotProtected>>saclMaybe",
         kBadArgument, "actions=192"},
        {kSetProt + "saclNoChange>>daclNoChange", kBadArgument, "*"}, {kSetProt + "daclNoChange", kBadArgument, "*"},
    };
    for (const Case &c : cases) check(c);
}

TEST(AclParser, TrusteeAndDomainRules) {
    const std::string kRule = "--action>>Trustee>>OLD\\a>>IsName>>S-1-5-18>>IsSID>>";
    const Case cases[] = {
        {kRule + "replaceTrustee>>dacl", kOk, "actions=4096 trustee(OLD\\a->S-1-5-18:sid 256) trustee-dacl"},
        {kRule + "removeTrustee>>sacl>>" + kRule + "COPYTRUSTEE>>dacl", kOk,
         "actions=4096 trustee(OLD\\a->S-1-5-18:sid 512) trustee(OLD\\a->S-1-5-18:sid 1024) "
         "trustee-dacl trustee-sacl"},
        {kRule + "copyTrustee>>dacl+sacl", kOk, "actions=4096 trustee(OLD\\a->S-1-5-18:sid 1024) trustee-dacl"},
        {"--action>>Domain>>OLD>>NEW>>replaceDomain>>sacl>>" + kRule + "removeTrustee>>dacl", kOk,
         "actions=12288 trustee(OLD\\a->S-1-5-18:sid 512) domain(OLD->NEW 256) trustee-dacl domain-sacl"},
        {"--action>>Domain>>A>>B>>removeDomains>>dacl>>--action>>Domain>>C>>D>>replaceDomaiX>>dacl",
         kOk, "actions=8192 domain(A->B 512) domain(C->D 256) domain-dacl"},
        {"--action>>Domain>>A>>B>>copydomain>>sacl", kOk, "actions=8192 domain(A->B 1024) domain-sacl"},
        {"--action>>Domain>>A>>B>>copyDomainX>>sacl", kBadArgument, "*"},
        {"--action>>Domain>>A>>B>>copyDomain>>both", kBadArgument, "*"},
        {"--action>>Domain>>A>>B>>copyDomain", kBadArgument, "*"},
        {kRule + "swapTrustee>>dacl", kBadArgument, "*"},  {kRule + "copyTrustee", kBadArgument, "*"},
        {"--action>>Trustee>>a>>IsName>>b>>IsAccount>>copyTrustee>>dacl", kBadArgument, "*"},
    };
    for (const Case &c : cases) check(c);
}

TEST(AclParser, FileBackendCommandsAndSeveralActions) {
    const Case cases[] = {
        {kFile + "List>>sddl>>dacl,sacl>>No>>Yes>>None", kOk,
         "name=C:\\a.txt type=1 actions=2 format=0 parts=3 inherited=2"},
        {kFile + "Clear>>dacl+sacl", kOk, "name=C:\\a.txt type=1 actions=16"},
        {kFile + "Restore>>FromVOXAStruct", kOk,
         "name=C:\\a.txt type=1 actions=2048 file=FromVOXAStruct"},
        {"--ignoreErrors>>--objectType>>file>>--recursion>>fileDirRecurse>>--filter>>tmp>>"
         "--objectName>>D:\\x>>--action>>Clear>>sacl>>--action>>SetOwner>>S-1-5-18>>IsSID>>"
         "--action>>List>>csl>>owner>>No>>Both>>None>>--action>>Restore>>in.txt",
         kOk,
         "ignore name=D:\\x type=1 actions=2086 rec=6 owner=S-1-5-18:sid filter=tmp "
         "parts=5 inherited=3 file=in.txt"},
        // A failing action stops the parse: nothing after it is recorded.
        {"--action>>Clear>>dacl>>--action>>Clear>>x>>--action>>Clear>>sacl", kBadArgument,
         "actions=16"},
    };
    for (const Case &c : cases) check(c);
}

}  // namespace
