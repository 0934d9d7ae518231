// Text records of the security-descriptor engine: the record that "List"
// makes of one object, and the records that "Restore" reads back.
//
// Everything here works on plain data that the engine has already read
// from the system (names, the control word, the entries of the lists, the
// SDDL text), so it builds without any Windows header and can be fuzzed
// natively.
//
// The three listing formats, for C:\data\a.txt (type 1) whose DACL is not
// protected and auto-inherited, owner BUILTIN\Administrators, one inherited
// entry allowing BUILTIN\Users to read (flags 0x13):
//
//   "sddl":  "C:\data\a.txt",1,"O:BAD:AI(A;OICIID;FR;;;BU)">>>
//   "csl":   "C:\data\a.txt",1,"DACL(not_protected+auto_inherited):BUILTIN\Users/allow/container_inherit+object_inherit+inherited/read;Owner:BUILTIN\Administrators"
//   "tab":   C:\data\a.txt\n
//            \n
//               Owner: BUILTIN\Administrators\n
//            \n
//               DACL(not_protected+auto_inherited):\n
//               BUILTIN\Users<TAB>allow<TAB>container_inherit+object_inherit+inherited<TAB>read\n
//
// (the "csl" and "tab" examples list inherited entries, "--action>>List>>csl>>dacl,owner>>No>>Both").
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "acl/command.h"

namespace vxio::acl {

// Security information bits, the platform's SECURITY_INFORMATION values.
enum SecurityInformation : uint32_t {
    kInfoOwner = 0x1,
    kInfoGroup = 0x2,
    kInfoDacl = 0x4,
    kInfoSacl = 0x8,
    kInfoUnprotectedSacl = 0x10000000,
    kInfoUnprotectedDacl = 0x20000000,
    kInfoProtectedSacl = 0x40000000,
    kInfoProtectedDacl = 0x80000000,
};

// Control word bits that the protection texts are made of.
enum DescriptorControl : uint16_t {
    kControlDaclAutoInherited = 0x0400,
    kControlSaclAutoInherited = 0x0800,
    kControlDaclProtected = 0x1000,
    kControlSaclProtected = 0x2000,
};

// The ACE flag that marks an entry inherited from a parent object.
constexpr uint8_t kAceInherited = 0x10;

// One entry of a DACL or SACL as read from the descriptor.
struct AceView {
    uint8_t type = 0;   // ACE type (0 allowed, 1 denied, 2 audit, ...)
    uint8_t flags = 0;  // ACE flags (inheritance, audit success / failure)
    uint32_t mask = 0;  // access mask as stored in the entry
    std::string account;  // "DOMAIN\name", or the string SID when the SID has no name
};

// The parts of one object's descriptor that "csl" and "tab" records show.
// A list that is present but null (a DACL that grants everyone everything)
// is hasDacl with no entries.
struct DescriptorView {
    uint16_t control = 0;  // the descriptor's control word
    bool hasOwner = false;
    bool hasGroup = false;
    std::string owner;  // account names, as for AceView::account
    std::string group;
    bool hasDacl = false;
    bool hasSacl = false;
    std::vector<AceView> dacl;
    std::vector<AceView> sacl;
};

// Security information bits to read for the "List" parts (DACL 1 -> 4,
// SACL 2 -> 8, owner 4 -> 1, primary group 8 -> 2).
uint32_t security_information_from_parts(uint32_t listParts);

// "(protected" or "(not_protected", then "+auto_inherited)" or ")", from the
// DACL bits of control, or from its SACL bits when sacl is true.
std::string protection_text(uint16_t control, bool sacl);

// The record of one object in command.listFormat, shortened to
// kDescriptorTextSize characters with the terminator (see records.cpp).
// "sddl" uses sddl (the descriptor converted with the bits of the list
// parts) and ignores view; "csl" and "tab" use view and ignore sddl.
// objectName is the object as the walk reached it; objectType its type
// number.
std::string list_record(const AclCommand &command, const std::string &objectName,
                        uint32_t objectType, const std::string &sddl,
                        const DescriptorView &view);

// The records of a descriptor text handed to "Restore": every run of '>'
// separates, and there are no empty records. Each record is a piece of the
// text.
std::vector<std::string> split_restore_text(std::string_view text);

// The longest line the engine reads from a restore file: a longer line
// goes on as the next one.
constexpr size_t kRestoreLineLength = 4095;

// The records of a restore file's bytes: its lines as a text-mode reader
// gives them (CR LF read as LF, lines cut after kRestoreLineLength
// characters), each split as split_restore_text splits a descriptor text.
// A listing file holds one "sddl" record a line, each still ending in its
// ">>>", so that what "List" wrote can be restored as it is; the line end
// behind the ">>>" is a record of its own, which parses to nothing.
std::vector<std::string> split_restore_file(std::string_view bytes);

// One record that "Restore" writes back.
struct RestoreRecord {
    std::string objectName;
    uint32_t objectType = 0;
    std::string sddl;
};

enum class RestoreParse {
    kRecord,     // out holds the record
    kNothing,    // a line end alone (or nothing): no record, no failure
    kMalformed,  // the '",' after the name or the ',"' after the type is missing
};

// Parses one record (a piece of split_restore_text or split_restore_file).
// out is unspecified unless the result is kRecord.
RestoreParse parse_restore_record(std::string_view record, RestoreRecord &out);

// The security information to write for an SDDL text: the parts it holds
// and, for each list it holds, whether that list is protected.
uint32_t security_information_from_sddl(const std::string &sddl);

}  // namespace vxio::acl
