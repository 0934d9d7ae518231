// Parser of the security-descriptor command language: turns one command
// text into an AclCommand and touches nothing else (no system object, no
// Windows header), so that it builds and can be fuzzed on any platform.
//
// A command is a list of tokens separated by runs of '>':
//   --objectName>>C:\data\a.txt>>--objectType>>file>>--action>>Clear>>dacl+sacl
// gives the tokens "--objectName", "C:\data\a.txt", "--objectType", "file",
// "--action", "Clear", "dacl+sacl". A single '>' separates as ">>" does, and
// separators at the ends or in long runs never make empty tokens. The List
// parts and the ACE inheritance words are one token each, split again at
// ',' by the same rule ("dacl,,sacl" is the two words "dacl" and "sacl").
//
// Words are recognised by prefix: a token matches a keyword when its first
// bytes equal the keyword's, compared case-insensitively over a fixed count.
// The options have their own counts (kOption* below; "--objectName" counts
// its terminating zero and so must be exact). Every value word, action name
// and list word is compared over its own length, so "FILES" is "file",
// "Nonesuch" is "None" and "dacl+sacl" is "dacl". Tables are searched in
// order, and where one word begins with another the longer one comes first
// ("audit_success+audit_fail" before "audit_success") so that both can be
// told apart. The two list words are the exception the language keeps:
// "dacl" and "sacl" are the only list words, so "dacl+sacl" selects the
// DACL alone and "sacl+dacl" the SACL alone (the File backend's
// "Clear>>dacl+sacl" clears the DACL and leaves the SACL).
#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "acl/command.h"
#include "acl/text.h"

namespace vxio::acl {
namespace {

// Letters are folded in ASCII only (see acl/text.h).

// True when the first count bytes of token and keyword agree, ignoring
// case. Like a bounded string comparison, the end of either text counts as
// a zero byte and ends the comparison: a count beyond the keyword's length
// thus demands that the token ends where the keyword does.
bool matches(std::string_view token, const char *keyword, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        const char a = i < token.size() ? fold_ascii(token[i]) : '\0';
        const char b = fold_ascii(keyword[i]);
        if (a != b) return false;
        if (b == '\0') return true;
    }
    return true;
}

// Value words are compared over their own length (a prefix match).
bool begins_with(std::string_view token, const char *word) {
    return matches(token, word, std::strlen(word));
}

struct Word {
    const char *text;
    uint32_t value;
};

// The value of the first word of the table that token begins with.
template <size_t N>
bool look_up(std::string_view token, const Word (&table)[N], uint32_t &value) {
    for (const Word &word : table) {
        if (begins_with(token, word.text)) {
            value = word.value;
            return true;
        }
    }
    return false;
}

// Yields the non-empty pieces of a text between runs of one separator.
class Splitter {
public:
    Splitter(std::string_view text, char separator) : rest_(text), separator_(separator) {}

    bool next(std::string_view &token) {
        const size_t start = rest_.find_first_not_of(separator_);
        if (start == std::string_view::npos) {
            rest_ = {};
            return false;
        }
        rest_.remove_prefix(start);
        const size_t end = std::min(rest_.find(separator_), rest_.size());
        token = rest_.substr(0, end);
        rest_.remove_prefix(end);
        return true;
    }

private:
    std::string_view rest_;
    char separator_;
};

// Option keywords with the number of bytes compared.
struct Option {
    const char *text;
    size_t count;
};
constexpr Option kOptionHelp{"--help", 6};
constexpr Option kOptionIgnoreErrors{"--ignoreErrors", 14};
constexpr Option kOptionObjectName{"--objectName", 13};  // with the zero: exact
constexpr Option kOptionObjectType{"--objectType", 12};
constexpr Option kOptionFilter{"--filter", 8};
constexpr Option kOptionRecursion{"--recursion", 11};
constexpr Option kOptionAction{"--action", 8};

bool is_option(std::string_view token, const Option &option) {
    return matches(token, option.text, option.count);
}

constexpr Word kObjectTypes[] = {
    {"file", kTypeFile},       {"registry", kTypeRegistry}, {"service", kTypeService},
    {"printer", kTypePrinter}, {"share", kTypeShare},
};

constexpr Word kRecursionModes[] = {
    {"fileDirNoRecurse", kRecurseNone},
    {"regNoRecurse", kRecurseNone},
    {"regRecurse", kRecurseContainers},
    {"dirRecurse", kRecurseContainers},
    {"fileRecurse", kRecurseFiles},
    {"fileDirRecurse", kRecurseContainers | kRecurseFiles},
};

constexpr Word kTrusteeKinds[] = {{"IsName", 0}, {"IsSID", 1}};

constexpr Word kInheritanceWords[] = {
    {"sub-objects", 1}, {"sub-containers", 2}, {"no-propagation", 4}, {"inherit-only", 8}};

// Access modes are the platform's numbers; 11 asks for both audits and is
// split into two requests when the permission words are read.
constexpr uint32_t kBothAudits = 11;
constexpr Word kAccessModes[] = {
    {"audit_success+audit_fail", kBothAudits},
    {"audit_fail+audit_success", kBothAudits},
    {"grant", 1},
    {"set", 2},
    {"deny", 3},
    {"revoke", 4},
    {"audit_success", 5},
    {"audit_fail", 6},
};

constexpr Word kListFormats[] = {{"sddl", kFormatSddl}, {"csl", kFormatCsl}, {"tab", kFormatTab}};
constexpr Word kListParts[] = {
    {"dacl", kPartDacl}, {"sacl", kPartSacl}, {"owner", kPartOwner}, {"primary_group", kPartGroup}};
constexpr Word kListExplicit[] = {{"Yes", 1}, {"No", 0}};
constexpr Word kListInherited[] = {{"No", 1}, {"Yes", 2}, {"Both", 3}};

// A value no table gives: marks an unrecognised word until it is checked.
constexpr uint32_t kUnknown = 0xFFFFFFFFu;

constexpr Word kDaclProtections[] = {
    {"daclNoChange", kProtectionNoChange},
    {"daclNotProtected", kProtectionNotProtected},
    {"daclProtectCopy", kProtectionProtectCopy},
    {"daclProtectNoCopy", kProtectionProtectNoCopy},
};
constexpr Word kSaclProtections[] = {
    {"saclNoChange", kProtectionNoChange},
    {"saclNotProtected", kProtectionNotProtected},
    {"saclProtectCopy", kProtectionProtectCopy},
    {"saclProtectNoCopy", kProtectionProtectNoCopy},
};

constexpr Word kTrusteeModes[] = {
    {"removeTrustee", kRuleRemove}, {"replaceTrustee", kRuleReplace}, {"copyTrustee", kRuleCopy}};

// The domain modes keep the language's 12-byte count: "replaceDomain" is
// told by its first twelve letters, "copyDomain" must be exact.
constexpr Option kDomainRemove{"removeDomain", 12};
constexpr Option kDomainReplace{"replaceDomain", 12};
constexpr Option kDomainCopy{"copyDomain", 12};

// The only list words: a combined word is read by its first four letters.
bool list_word(std::string_view token, uint32_t &list) {
    if (begins_with(token, "dacl")) {
        list = kListDacl;
    } else if (begins_with(token, "sacl")) {
        list = kListSacl;
    } else {
        return false;
    }
    return true;
}

// Names and texts live in 260-character buffers when the command runs: a
// longer one is not kept, and whatever was there before stays.
void keep(std::string &destination, std::string_view text) {
    if (text.size() <= kMaxName) destination.assign(text);
}

bool valid_protection(uint32_t mode) {
    return mode == kProtectionNoChange || mode == kProtectionNotProtected ||
           mode == kProtectionProtectCopy || mode == kProtectionProtectNoCopy;
}

class Parser {
public:
    Parser(std::string_view text, AclCommand &out) : tokens_(text, '>'), out_(out) {}

    uint32_t run() {
        std::string_view token;
        while (tokens_.next(token)) {
            uint32_t status = kOk;
            if (is_option(token, kOptionHelp)) {
                // Accepted and ignored: the engine has no text to show.
            } else if (is_option(token, kOptionIgnoreErrors)) {
                out_.ignoreErrors = true;
            } else if (is_option(token, kOptionObjectName)) {
                status = object_name();
            } else if (is_option(token, kOptionObjectType)) {
                status = object_type();
            } else if (is_option(token, kOptionFilter)) {
                status = filter();
            } else if (is_option(token, kOptionRecursion)) {
                status = recursion();
            } else if (is_option(token, kOptionAction)) {
                status = action();
            }
            // Any other token is passed over.
            if (status != kOk) {
                // These two tell the caller what went wrong; every other
                // failure is a bad argument.
                if (status == kNoObject || status == kListParameters) return status;
                return kBadArgument;
            }
        }
        return kOk;
    }

private:
    // The next token, which every option and action parameter needs.
    bool take(std::string_view &token) { return tokens_.next(token); }

    // The object is only recorded here. Mapping a drive letter to its
    // network name and finding the server of a UNC name ask the system, so
    // they are done when the command runs.
    uint32_t set_object() {
        if (out_.objectType < kTypeFile || out_.objectType > kTypeShare) {
            out_.objectName.clear();
            out_.objectType = kTypeNone;
            return kBadArgument;
        }
        return kOk;
    }

    uint32_t object_name() {
        std::string_view name;
        if (!take(name)) return kBadArgument;
        keep(out_.objectName, name);
        return out_.objectType != kTypeNone ? set_object() : kOk;
    }

    uint32_t object_type() {
        std::string_view word;
        uint32_t type = kTypeNone;
        if (!take(word) || !look_up(word, kObjectTypes, type)) return kBadArgument;
        out_.objectType = type;
        return !out_.objectName.empty() ? set_object() : kOk;
    }

    uint32_t filter() {
        std::string_view text;
        if (!take(text)) return kBadArgument;
        out_.filters.emplace_back(text);
        return kOk;
    }

    // The allowed modes depend on the type, so the type must come first.
    uint32_t recursion() {
        std::string_view word;
        uint32_t mode = 0;
        if (!take(word) || !look_up(word, kRecursionModes, mode)) return kBadArgument;
        switch (out_.objectType) {
        case kTypeNone:
            out_.recursion = 0;
            return kNoObject;
        case kTypeFile:
            break;  // every mode walks directories or files
        case kTypeRegistry:
            if (mode != kRecurseNone && mode != kRecurseContainers) return kBadArgument;
            break;
        default:
            // Services, printers and shares have nothing below them.
            out_.recursion = kRecurseNone;
            return kBadArgument;
        }
        out_.recursion = mode;
        return kOk;
    }

    // A trustee: its name, then "IsName" or "IsSID".
    uint32_t trustee(TrusteeName &entry) {
        std::string_view name, kind;
        uint32_t isSid = 0;
        if (!take(name) || !take(kind) || !look_up(kind, kTrusteeKinds, isSid)) {
            return kBadArgument;
        }
        keep(entry.name, name);
        entry.isSid = isSid != 0;
        return kOk;
    }

    uint32_t action() {
        std::string_view name;
        if (!take(name)) return kBadArgument;
        if (begins_with(name, "ACE")) return ace();
        if (begins_with(name, "List")) return list();
        if (begins_with(name, "SetOwner")) return owner_or_group(out_.owner, kActionSetOwner);
        if (begins_with(name, "SetGroup")) return owner_or_group(out_.group, kActionSetGroup);
        if (begins_with(name, "Clear")) return clear();
        if (begins_with(name, "SetProtection")) return protection();
        if (begins_with(name, "ResetPermissions")) return reset();
        if (begins_with(name, "Restore")) return restore();
        if (begins_with(name, "Trustee")) return trustee_rule();
        if (begins_with(name, "Domain")) return domain_rule();
        return kBadArgument;
    }

    uint32_t ace() {
        AceRequest request;
        if (trustee(request.trustee) != kOk) return kBadArgument;
        std::string_view permissions, inheritance, mode, list;
        if (!take(permissions) || !take(inheritance) || !take(mode) || !take(list)) {
            return kBadArgument;
        }
        keep(request.permissions, permissions);
        if (request.permissions.empty()) return kBadArgument;

        // A word that is not an inheritance word adds nothing; a token of
        // such words alone ("none") is how a command leaves inheritance to
        // the defaults of the object type.
        Splitter words(inheritance, ',');
        for (std::string_view word; words.next(word);) {
            uint32_t bit = 0;
            if (look_up(word, kInheritanceWords, bit)) {
                request.inheritance |= bit;
                request.inheritanceGiven = true;
            }
        }
        if (request.inheritanceGiven && request.inheritance >= 16) return kBadArgument;

        if (!look_up(mode, kAccessModes, request.accessMode)) return kBadArgument;

        // Requests go to the SACL only: the command edits DACLs through
        // Clear, SetProtection and the Trustee and Domain rules. A "dacl"
        // word is therefore refused, and with it the modes that only make
        // sense in a DACL (grant, set, deny).
        uint32_t which = 0;
        if (!list_word(list, which) || which != kListSacl) return kBadArgument;
        const uint32_t m = request.accessMode;
        if (m != 4 && m != 5 && m != 6 && m != kBothAudits) return kBadArgument;
        request.list = kListSacl;

        out_.aces.push_back(std::move(request));
        ++out_.saclEntryCount;
        out_.actions |= kActionAce;
        return kOk;
    }

    uint32_t list() {
        std::string_view format, parts, explicitWord, inheritedWord, file;
        if (!take(format) || !take(parts) || !take(explicitWord) || !take(inheritedWord) ||
            !take(file)) {
            return kBadArgument;
        }
        uint32_t listFormat = kUnknown, listExplicit = kUnknown, listInherited = kUnknown;
        look_up(format, kListFormats, listFormat);
        look_up(explicitWord, kListExplicit, listExplicit);
        look_up(inheritedWord, kListInherited, listInherited);
        // The DACL is always listed; the words add the other parts (a word
        // that names no part adds nothing).
        uint32_t listParts = kPartDacl;
        Splitter words(parts, ',');
        for (std::string_view word; words.next(word);) {
            uint32_t part = 0;
            if (look_up(word, kListParts, part)) listParts |= part;
        }

        if (listFormat > kFormatTab || listParts < 1 || listParts > 15 || listInherited < 1 ||
            listInherited > 3 || listExplicit > 1) {
            const AclCommand defaults;
            out_.listFormat = defaults.listFormat;
            out_.listParts = defaults.listParts;
            out_.listInherited = defaults.listInherited;
            out_.listExplicit = defaults.listExplicit;
            return kListParameters;
        }
        out_.listFormat = listFormat;
        out_.listParts = listParts;
        out_.listExplicit = listExplicit;
        out_.listInherited = listInherited;
        if (!begins_with(file, "None")) keep(out_.fileName, file);
        out_.actions |= kActionList;
        return kOk;
    }

    uint32_t owner_or_group(TrusteeName &entry, uint32_t bit) {
        TrusteeName replacement;
        if (trustee(replacement) != kOk || replacement.name.empty()) return kBadArgument;
        entry = std::move(replacement);
        out_.actions |= bit;
        return kOk;
    }

    uint32_t clear() {
        std::string_view word;
        uint32_t which = 0;
        if (!take(word) || !list_word(word, which)) return kBadArgument;
        out_.actions |= which == kListDacl ? kActionClearDacl : kActionClearSacl;
        return kOk;
    }

    uint32_t protection() {
        std::string_view daclWord, saclWord;
        if (!take(daclWord) || !take(saclWord)) return kBadArgument;
        uint32_t dacl = kUnknown, sacl = kUnknown;
        look_up(daclWord, kDaclProtections, dacl);
        look_up(saclWord, kSaclProtections, sacl);
        if (!valid_protection(dacl) || !valid_protection(sacl)) {
            // A rejected request leaves no protection mode and no reset
            // request behind, not even one recorded earlier.
            out_.daclProtection = kProtectionNoChange;
            out_.saclProtection = kProtectionNoChange;
            out_.resetDacl = false;
            out_.resetSacl = false;
            return kBadArgument;
        }
        out_.daclProtection = static_cast<int32_t>(dacl);
        out_.saclProtection = static_cast<int32_t>(sacl);
        out_.actions |= kActionSetProtection;
        return kOk;
    }

    uint32_t reset() {
        std::string_view word;
        uint32_t which = 0;
        if (!take(word) || !list_word(word, which)) return kBadArgument;
        (which == kListDacl ? out_.resetDacl : out_.resetSacl) = true;
        out_.actions |= kActionResetPermissions;
        return kOk;
    }

    // The file to restore from, or "FromVOXAStruct" for the caller's text;
    // the run tells them apart.
    uint32_t restore() {
        std::string_view file;
        if (!take(file)) return kBadArgument;
        keep(out_.fileName, file);
        out_.actions |= kActionRestore;
        return kOk;
    }

    // The selectors only ever switch on: "dacl" in one rule and "sacl" in a
    // later one make every rule of the command apply to both lists.
    static void select(uint32_t which, bool &dacl, bool &sacl) {
        (which == kListDacl ? dacl : sacl) = true;
    }

    uint32_t trustee_rule() {
        TrusteeRule rule;
        if (trustee(rule.find) != kOk || trustee(rule.put) != kOk) return kBadArgument;
        std::string_view mode, list;
        uint32_t which = 0;
        if (!take(mode) || !look_up(mode, kTrusteeModes, rule.mode) || !take(list) ||
            !list_word(list, which)) {
            return kBadArgument;
        }
        select(which, out_.trusteeRulesDacl, out_.trusteeRulesSacl);
        out_.trusteeRules.push_back(std::move(rule));
        out_.actions |= kActionTrustee;
        return kOk;
    }

    uint32_t domain_rule() {
        DomainRule rule;
        std::string_view find, put, mode, list;
        if (!take(find) || !take(put) || !take(mode)) return kBadArgument;
        keep(rule.find, find);
        keep(rule.put, put);
        if (is_option(mode, kDomainRemove)) {
            rule.mode = kRuleRemove;
        } else if (is_option(mode, kDomainReplace)) {
            rule.mode = kRuleReplace;
        } else if (is_option(mode, kDomainCopy)) {
            rule.mode = kRuleCopy;
        } else {
            return kBadArgument;
        }
        uint32_t which = 0;
        if (!take(list) || !list_word(list, which)) return kBadArgument;
        select(which, out_.domainRulesDacl, out_.domainRulesSacl);
        out_.domainRules.push_back(std::move(rule));
        out_.actions |= kActionDomain;
        return kOk;
    }

    Splitter tokens_;
    AclCommand &out_;
};

}  // namespace

uint32_t parse_command(const char *command, AclCommand &out) {
    out = AclCommand{};
    if (!command) return kBadArgument;
    try {
        return Parser(std::string_view(command), out).run();
    } catch (const std::bad_alloc &) {
        return kNoMemory;
    }
}

}  // namespace vxio::acl
