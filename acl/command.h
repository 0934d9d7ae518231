// The security-descriptor command language, as plain records.
//
// A command is one text of arguments separated by ">>" (any run of '>'
// separates), for example
//   --objectName>>C:\data\a.txt>>--objectType>>file>>--action>>List>>sddl>>dacl,sacl>>No>>Yes>>None
// The parser turns it into an AclCommand without touching any system
// object; the engine then runs what was recorded, in a fixed order.
//
// This header and the parser, the vocabulary and the record formats build
// on any platform (no Windows headers), so that they can be fuzzed natively.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vxio::acl {

// Statuses inside the engine; the export reduces them to true/false.
enum Status : uint32_t {
    kOk = 0,
    kLibraryMissing = 2,        // a system library or entry point could not be loaded
    kBadArgument = 3,           // missing or unknown token, bad value, out of range
    kNoObject = 4,              // empty object name, or --recursion before the type
    kNoDescriptor = 5,          // the platform refused an object's descriptor
    kTrusteeUnresolved = 6,     // a trustee could not be resolved to a SID
    kUnknownPermission = 8,     // an unknown permission word
    kPrivilegeFailed = 12,      // a privilege could not be switched on or off
    kDirectoryUnlistable = 16,  // a directory of a file walk cannot be listed
    kAceCountMismatch = 18,     // entries built for a list differ from the count
    kSetEntriesFailed = 19,     // SetEntriesInAclA failed
    kRemoteKeyName = 20,        // a "\\computer" key name without a further "\"
    kKeyEnumFailed = 23,        // a registry key enumeration failed
    kListParameters = 26,       // list parts 0 or list parameters out of range
    kDescriptorConversion = 27, // not made absolute, or not converted to SDDL
    kAclUnreadable = 29,        // an access list or entry could not be read
    kAceNotDeleted = 30,        // an entry could not be deleted
    kRestoreNoFile = 33,        // "Restore" without a file name
    kFileNotOpened = 34,        // the List output or Restore input file
    kFileWriteFailed = 36,      // writing a record to the List output file
    kSystemTooOld = 37,         // not Windows NT 5.0 or later
    kInvalidDacl = 39,
    kInvalidSacl = 40,
    kInvalidOwner = 41,
    kInvalidGroup = 42,
    kDomainLookup = 43,         // no controller for a domain, or an empty domain
    kPassedOver = 44,           // a descriptor-reader result that listing passes over
    kNoMemory = 46,             // out of memory, or a required entry point missing
};

// Object types are the platform's SE_OBJECT_TYPE numbers.
enum ObjectType : uint32_t {
    kTypeNone = 0,
    kTypeFile = 1,
    kTypeService = 2,
    kTypePrinter = 3,
    kTypeRegistry = 4,
    kTypeShare = 5,
};

// One bit per recorded action.
enum ActionBit : uint32_t {
    kActionAce = 1,
    kActionList = 2,
    kActionSetOwner = 4,
    kActionSetGroup = 8,
    kActionClearDacl = 16,
    kActionClearSacl = 32,
    kActionSetProtection = 64,
    kActionResetPermissions = 128,
    kActionRestore = 2048,
    kActionTrustee = 4096,
    kActionDomain = 8192,
};

// Recursion modes (a bit set): the object only, directories or subkeys,
// files.
enum Recursion : uint32_t {
    kRecurseNone = 1,
    kRecurseContainers = 2,
    kRecurseFiles = 4,
};

// Protection modes of "SetProtection".
enum Protection : int32_t {
    kProtectionNoChange = 0,
    kProtectionNotProtected = 1,
    kProtectionProtectCopy = 2,
    kProtectionProtectNoCopy = 4,
};

// Lists an ACE request or a rule applies to.
enum AclList : uint32_t { kListDacl = 1, kListSacl = 2 };

// Parts of a listing (bit set) and its formats.
enum ListPart : uint32_t { kPartDacl = 1, kPartSacl = 2, kPartOwner = 4, kPartGroup = 8 };
enum ListFormat : uint32_t { kFormatSddl = 0, kFormatCsl = 1, kFormatTab = 2 };

// Modes of "Trustee" and "Domain" rules.
enum RuleMode : uint32_t { kRuleReplace = 256, kRuleRemove = 512, kRuleCopy = 1024 };

// Names and texts are kept only when they have at most this many characters.
constexpr size_t kMaxName = 259;
// The caller's text and the listing: at most this many characters with the
// terminator.
constexpr size_t kDescriptorTextSize = 8320;

// A trustee as the command names it: an account name ("IsName",
// "DOMAIN\\user" or "user") or a string SID ("IsSID", "S-1-5-32-544").
struct TrusteeName {
    std::string name;
    bool isSid = false;
};

// One "ACE" action.
struct AceRequest {
    TrusteeName trustee;
    std::string permissions;   // permission words separated by ","
    uint32_t inheritance = 0;  // 1 sub-objects, 2 sub-containers, 4 no-propagation, 8 inherit-only
    bool inheritanceGiven = false;
    uint32_t accessMode = 0;   // 1 grant .. 6 audit_fail, 11 both audits
    uint32_t list = kListSacl;
    uint32_t mask = 0;         // filled from the permission words before writing
};

// One "Trustee" action: entries of find become entries of put (or go).
struct TrusteeRule {
    TrusteeName find;
    TrusteeName put;
    uint32_t mode = 0;  // RuleMode
};

// One "Domain" action.
struct DomainRule {
    std::string find;
    std::string put;
    uint32_t mode = 0;  // RuleMode
};

// Everything one command records. Defaults are the language's.
struct AclCommand {
    bool ignoreErrors = false;
    std::string objectName;
    uint32_t objectType = kTypeNone;
    uint32_t actions = 0;  // ActionBit set
    int32_t daclProtection = kProtectionNoChange;
    int32_t saclProtection = kProtectionNoChange;
    bool resetDacl = false;
    bool resetSacl = false;
    uint32_t recursion = kRecurseNone;  // 0 only after "--recursion" before the type
    TrusteeName owner;  // "SetOwner"; empty name: none
    TrusteeName group;  // "SetGroup"; empty name: none
    std::vector<AceRequest> aces;
    std::vector<std::string> filters;
    uint32_t daclEntryCount = 0;
    uint32_t saclEntryCount = 0;
    uint32_t listFormat = kFormatCsl;
    uint32_t listParts = kPartDacl;
    uint32_t listInherited = 1;  // 1 "No", 2 "Yes", 3 "Both"
    uint32_t listExplicit = 0;   // 0 "No", 1 "Yes"
    std::string fileName;        // List output / Restore input / "FromVOXAStruct"
    std::vector<TrusteeRule> trusteeRules;
    std::vector<DomainRule> domainRules;
    bool trusteeRulesDacl = false;
    bool trusteeRulesSacl = false;
    bool domainRulesDacl = false;
    bool domainRulesSacl = false;
};

// Parses command into out (which starts as a default AclCommand). Returns
// kOk, kBadArgument, kNoObject (--recursion before the type) or
// kListParameters, and kNoMemory when a copy cannot be allocated. A null
// command is kBadArgument; an empty one is kOk with nothing recorded. out is
// reset to a default AclCommand first; after a failure it holds what was
// recorded up to the failing token (with the List defaults put back for
// kListParameters, and recursion 0 for kNoObject).
uint32_t parse_command(const char *command, AclCommand &out);

}  // namespace vxio::acl
