// Fuzz target of the security-descriptor command parser. The input bytes
// become one NUL-terminated command (held in a block of exactly that size,
// so a read past the terminator is caught), and the record that comes back
// must keep what the engine relies on for any command:
//  - the status is one the parser may give;
//  - every kept name fits the engine's 260-character buffers;
//  - list parameters are in range, and the defaults after status 26;
//  - the recursion mode fits the object type (0 only after status 4);
//  - ACE requests are SACL requests with an audit or revoke mode, and each
//    list's entry count equals its number of requests;
//  - an action bit is set exactly when its action left something behind;
//  - a command of nothing but '>' records nothing;
//  - parsing again, into a record holding stale values, gives the same.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "acl/command.h"

using namespace vxio::acl;

namespace {

[[noreturn]] void broken(const char *what, const char *command) {
    std::fprintf(stderr, "acl_fuzz: broken: %s\ncommand: \"%s\"\n", what, command);
    std::abort();
}

#define REQUIRE(condition) \
    do {                   \
        if (!(condition)) broken(#condition, command); \
    } while (0)

bool same(const TrusteeName &a, const TrusteeName &b) { return a.name == b.name && a.isSid == b.isSid; }

bool same(const AclCommand &a, const AclCommand &b) {
    if (a.aces.size() != b.aces.size() || a.trusteeRules.size() != b.trusteeRules.size() ||
        a.domainRules.size() != b.domainRules.size()) {
        return false;
    }
    for (size_t i = 0; i < a.aces.size(); ++i) {
        const AceRequest &x = a.aces[i], &y = b.aces[i];
        if (!same(x.trustee, y.trustee) || x.permissions != y.permissions ||
            x.inheritance != y.inheritance || x.inheritanceGiven != y.inheritanceGiven ||
            x.accessMode != y.accessMode || x.list != y.list || x.mask != y.mask) {
            return false;
        }
    }
    for (size_t i = 0; i < a.trusteeRules.size(); ++i) {
        const TrusteeRule &x = a.trusteeRules[i], &y = b.trusteeRules[i];
        if (!same(x.find, y.find) || !same(x.put, y.put) || x.mode != y.mode) return false;
    }
    for (size_t i = 0; i < a.domainRules.size(); ++i) {
        const DomainRule &x = a.domainRules[i], &y = b.domainRules[i];
        if (x.find != y.find || x.put != y.put || x.mode != y.mode) return false;
    }
    return a.ignoreErrors == b.ignoreErrors && a.objectName == b.objectName &&
           a.objectType == b.objectType && a.actions == b.actions &&
           a.daclProtection == b.daclProtection && a.saclProtection == b.saclProtection &&
           a.resetDacl == b.resetDacl && a.resetSacl == b.resetSacl && a.recursion == b.recursion &&
           same(a.owner, b.owner) && same(a.group, b.group) && a.filters == b.filters &&
           a.daclEntryCount == b.daclEntryCount && a.saclEntryCount == b.saclEntryCount &&
           a.listFormat == b.listFormat && a.listParts == b.listParts &&
           a.listInherited == b.listInherited && a.listExplicit == b.listExplicit &&
           a.fileName == b.fileName && a.trusteeRulesDacl == b.trusteeRulesDacl &&
           a.trusteeRulesSacl == b.trusteeRulesSacl && a.domainRulesDacl == b.domainRulesDacl &&
           a.domainRulesSacl == b.domainRulesSacl;
}

// Case-insensitive count of a lower-case needle anywhere in the text. It
// over-counts option tokens (a name may contain the word), which only makes
// the check that depends on it skip more inputs.
size_t occurrences(const char *text, const char *needle) {
    const size_t n = std::strlen(needle);
    size_t count = 0;
    for (const char *p = text; *p; ++p) {
        size_t i = 0;
        while (i < n && p[i] && (p[i] | 0x20) == needle[i]) ++i;
        if (i == n) ++count;
    }
    return count;
}

bool recursion_allowed(uint32_t type, uint32_t mode) {
    switch (type) {
    case kTypeFile:
        return mode == 1 || mode == 2 || mode == 4 || mode == 6;
    case kTypeRegistry:
        return mode == 1 || mode == 2;
    default:
        return mode == 1;
    }
}

void check(const char *command, uint32_t status, const AclCommand &c) {
    REQUIRE(status == kOk || status == kBadArgument || status == kNoObject ||
            status == kListParameters);

    REQUIRE(c.objectName.size() <= kMaxName);
    REQUIRE(c.fileName.size() <= kMaxName);
    REQUIRE(c.owner.name.size() <= kMaxName);
    REQUIRE(c.group.name.size() <= kMaxName);
    for (const TrusteeRule &r : c.trusteeRules) {
        REQUIRE(r.find.name.size() <= kMaxName && r.put.name.size() <= kMaxName);
        REQUIRE(r.mode == kRuleReplace || r.mode == kRuleRemove || r.mode == kRuleCopy);
    }
    for (const DomainRule &r : c.domainRules) {
        REQUIRE(r.find.size() <= kMaxName && r.put.size() <= kMaxName);
        REQUIRE(r.mode == kRuleReplace || r.mode == kRuleRemove || r.mode == kRuleCopy);
    }
    REQUIRE(c.objectType <= kTypeShare);

    REQUIRE(c.listFormat <= kFormatTab);
    REQUIRE(c.listParts >= 1 && c.listParts <= 15 && (c.listParts & kPartDacl));
    REQUIRE(c.listInherited >= 1 && c.listInherited <= 3);
    REQUIRE(c.listExplicit <= 1);
    if (status == kListParameters) {
        REQUIRE(c.listFormat == kFormatCsl && c.listParts == kPartDacl && c.listInherited == 1 &&
                c.listExplicit == 0);
    }

    for (int32_t mode : {c.daclProtection, c.saclProtection}) {
        REQUIRE(mode == 0 || mode == 1 || mode == 2 || mode == 4);
    }

    if (status == kNoObject) {
        REQUIRE(c.recursion == 0 && c.objectType == kTypeNone);
    } else {
        REQUIRE(c.recursion == 1 || c.recursion == 2 || c.recursion == 4 || c.recursion == 6);
        // A later "--objectType" does not look at the mode again, so the
        // mode is checked against the type only when there was one type.
        if (occurrences(command, "--objecttype") <= 1) {
            REQUIRE(recursion_allowed(c.objectType, c.recursion));
        }
    }

    uint32_t dacl = 0, sacl = 0;
    for (const AceRequest &a : c.aces) {
        REQUIRE(a.list == kListSacl);
        REQUIRE(a.accessMode == 4 || a.accessMode == 5 || a.accessMode == 6 || a.accessMode == 11);
        REQUIRE(!a.permissions.empty() && a.permissions.size() <= kMaxName);
        REQUIRE(a.trustee.name.size() <= kMaxName);
        REQUIRE(a.inheritance < 16 && (a.inheritanceGiven || a.inheritance == 0));
        REQUIRE(a.mask == 0);
        ++(a.list == kListDacl ? dacl : sacl);
    }
    REQUIRE(c.daclEntryCount == dacl && c.saclEntryCount == sacl);

    REQUIRE(c.aces.empty() == !(c.actions & kActionAce));
    REQUIRE(c.trusteeRules.empty() == !(c.actions & kActionTrustee));
    REQUIRE(c.domainRules.empty() == !(c.actions & kActionDomain));
    REQUIRE(c.trusteeRules.empty() == !(c.trusteeRulesDacl || c.trusteeRulesSacl));
    REQUIRE(c.domainRules.empty() == !(c.domainRulesDacl || c.domainRulesSacl));
    REQUIRE(c.owner.name.empty() == !(c.actions & kActionSetOwner));
    REQUIRE(c.group.name.empty() == !(c.actions & kActionSetGroup));
    REQUIRE(!(c.resetDacl || c.resetSacl) || (c.actions & kActionResetPermissions));
    const uint32_t known = kActionAce | kActionList | kActionSetOwner | kActionSetGroup |
                           kActionClearDacl | kActionClearSacl | kActionSetProtection |
                           kActionResetPermissions | kActionRestore | kActionTrustee | kActionDomain;
    REQUIRE((c.actions & ~known) == 0);

    if (std::strspn(command, ">") == std::strlen(command)) {
        REQUIRE(status == kOk && same(c, AclCommand{}));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool nullChecked = [] {
        AclCommand c;
        const char *command = "(null)";
        REQUIRE(parse_command(nullptr, c) == kBadArgument && same(c, AclCommand{}));
        return true;
    }();
    (void)nullChecked;

    const std::unique_ptr<char[]> text(new char[size + 1]);
    if (size) std::memcpy(text.get(), data, size);
    text[size] = '\0';
    const char *command = text.get();

    AclCommand first;
    const uint32_t status = parse_command(command, first);
    check(command, status, first);

    AclCommand again;
    again.objectName = "stale";
    again.actions = kActionList;
    again.aces.emplace_back();
    REQUIRE(parse_command(command, again) == status && same(first, again));
    return 0;
}
