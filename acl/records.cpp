// Text records of "List" and "Restore" (layout examples in records.h).
//
// Every record is built in a buffer of kDescriptorTextSize characters, the
// size of the engine's descriptor text. A record is made of pieces (a
// field, a separator, a part heading, one entry); a piece is appended only
// when the record then still fits with its terminator, otherwise that piece
// alone is left out and later, shorter pieces may still go in. So an SDDL
// text too long for the buffer is left out of its "sddl" record while the
// closing quote and the ">>>" stay; one that only just fits may crowd out
// the ">>>" instead, which "Restore" does without, since the end of the
// descriptor text ends the last record as well.
#include "acl/records.h"

#include <cstring>
#include <utility>

#include "acl/vocabulary.h"

namespace vxio::acl {

namespace {

class RecordBuffer {
public:
    // Appends piece if the record then still fits with its terminator.
    bool add(const std::string &piece) {
        if (text_.size() + piece.size() + 1 > kDescriptorTextSize) return false;
        text_ += piece;
        return true;
    }
    std::string take() { return std::move(text_); }

private:
    std::string text_;
};

// Which entries a "csl" or "tab" listing shows. The inherited selector says
// "No" (1: explicit entries only), "Yes" (2: inherited entries only) or
// "Both" (3); the explicit flag "Yes" adds the explicit entries whatever the
// selector says. So the defaults ("No", "No") list what was set on the
// object itself, and "Yes", "Yes" lists everything.
bool entry_listed(const AclCommand &command, uint8_t flags) {
    if (flags & kAceInherited) return command.listInherited == 2 || command.listInherited == 3;
    return command.listInherited == 1 || command.listInherited == 3 || command.listExplicit == 1;
}

// The name and type fields that "sddl" and "csl" records begin with. A name
// that already begins with a double quote is taken as quoted by the caller,
// and an empty name gets no quotes.
void add_name_fields(RecordBuffer &record, const std::string &name, uint32_t objectType) {
    if (name.empty() || name[0] == '"') {
        record.add(name);
    } else {
        record.add("\"");
        record.add(name);
        record.add("\"");
    }
    record.add(",");
    record.add(std::to_string(objectType));
    record.add(",");
}

// One entry's four fields, joined by separator: account, ACE type word,
// ACE flags words, access mask words of the object type.
std::string entry_text(const AceView &ace, uint32_t objectType, const char *separator) {
    std::string text = ace.account;
    text += separator;
    text += ace_type_word(ace.type);
    text += separator;
    text += ace_flags_words(ace.flags);
    text += separator;
    text += mask_to_words(ace.mask, objectType);
    return text;
}

std::string sddl_record(const std::string &name, uint32_t objectType, const std::string &sddl) {
    RecordBuffer record;
    add_name_fields(record, name, objectType);
    record.add("\"");
    record.add(sddl);
    record.add("\"");
    record.add(">>>");
    return record.take();
}

// "csl": the name and type fields, then one quoted field of the parts joined
// by ';', in the order DACL, SACL, owner, group. A list part is
// "DACL(protection):" with its entries joined by ',', each entry
//   account/type/flags/mask       e.g. Everyone/allow/no_inheritance/read
// ("/" because account names hold "\" and spaces but no "/"). A part whose
// heading did not fit is left out with its entries, so an entry never
// appears under the wrong list.
class CslParts {
public:
    explicit CslParts(RecordBuffer &record) : record_(record) {}

    void list(const char *word, const std::string &protection, const std::vector<AceView> &aces,
              const AclCommand &command, uint32_t objectType) {
        if (!heading(std::string(word) + protection + ":")) return;
        bool first = true;
        for (const AceView &ace : aces) {
            if (!entry_listed(command, ace.flags)) continue;
            if (record_.add((first ? "" : ",") + entry_text(ace, objectType, "/"))) first = false;
        }
    }
    void name(const char *word, const std::string &account) { heading(word + account); }

private:
    bool heading(const std::string &text) {
        if (!record_.add((any_ ? ";" : "") + text)) return false;
        any_ = true;
        return true;
    }
    RecordBuffer &record_;
    bool any_ = false;
};

std::string csl_record(const AclCommand &command, const std::string &name, uint32_t objectType,
                       const DescriptorView &view) {
    RecordBuffer record;
    add_name_fields(record, name, objectType);
    record.add("\"");
    CslParts parts(record);
    const uint32_t wanted = command.listParts;
    if ((wanted & kPartDacl) && view.hasDacl) {
        parts.list("DACL", protection_text(view.control, false), view.dacl, command, objectType);
    }
    if ((wanted & kPartSacl) && view.hasSacl) {
        parts.list("SACL", protection_text(view.control, true), view.sacl, command, objectType);
    }
    if ((wanted & kPartOwner) && view.hasOwner) parts.name("Owner:", view.owner);
    if ((wanted & kPartGroup) && view.hasGroup) parts.name("Group:", view.group);
    record.add("\"");
    return record.take();
}

// "tab": the object name on a line of its own, then a block per part in the
// order owner, group, DACL, SACL, each block after an empty line. The
// entries of a list follow its heading one a line, indented by three
// spaces, their fields separated by tab characters:
//      BUILTIN\Users<TAB>allow<TAB>inherited<TAB>read\n
// The heading ends with the first entry's indentation; every later entry
// brings its own. As in "csl", entries of a list whose heading did not fit
// are left out.
void add_tab_list(RecordBuffer &record, const char *word, const std::string &protection,
                  const std::vector<AceView> &aces, const AclCommand &command,
                  uint32_t objectType) {
    if (!record.add(std::string("\n   ") + word + protection + ":\n   ")) return;
    bool first = true;
    for (const AceView &ace : aces) {
        if (!entry_listed(command, ace.flags)) continue;
        if (record.add((first ? "" : "   ") + entry_text(ace, objectType, "\t") + "\n")) {
            first = false;
        }
    }
}

std::string tab_record(const AclCommand &command, const std::string &name, uint32_t objectType,
                       const DescriptorView &view) {
    RecordBuffer record;
    record.add(name);
    record.add("\n");
    const uint32_t wanted = command.listParts;
    if ((wanted & kPartOwner) && view.hasOwner) record.add("\n   Owner: " + view.owner + "\n");
    if ((wanted & kPartGroup) && view.hasGroup) record.add("\n   Group: " + view.group + "\n");
    if ((wanted & kPartDacl) && view.hasDacl) {
        add_tab_list(record, "DACL", protection_text(view.control, false), view.dacl, command,
                     objectType);
    }
    if ((wanted & kPartSacl) && view.hasSacl) {
        add_tab_list(record, "SACL", protection_text(view.control, true), view.sacl, command,
                     objectType);
    }
    return record.take();
}

// Where the flags of the SDDL section that starts at `from` end: at its
// first entry, or at the next section when the list has no entries (so that
// "D:AIS:P(...)" does not read the SACL's "P" as the DACL's), or at the end.
size_t section_flags_end(const std::string &sddl, size_t from) {
    for (size_t i = from; i < sddl.size(); ++i) {
        if (sddl[i] == '(') return i;
        if (sddl[i] == ':' && i > from && std::strchr("OGDS", sddl[i - 1])) return i - 1;
    }
    return sddl.size();
}

// For a list section ("D:" or "S:"): the list's bit and whether its flags
// hold "P" (protected).
uint32_t list_information(const std::string &sddl, const char *section, uint32_t list,
                          uint32_t protectedBit, uint32_t unprotectedBit) {
    const size_t at = sddl.find(section);
    if (at == std::string::npos) return 0;
    const size_t from = at + 2;
    const size_t end = section_flags_end(sddl, from);
    const bool isProtected = sddl.find('P', from) < end;
    return list | (isProtected ? protectedBit : unprotectedBit);
}

// The decimal type number of a restore record: its leading digits, 0 when
// there are none (the platform then refuses the object). A number too big
// for 32 bits is held at the largest one, which no object type has, rather
// than wrapping round to a type that exists (4294967297 would be a file).
uint32_t decimal_prefix(std::string_view text) {
    uint32_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') break;
        const uint32_t digit = static_cast<uint32_t>(c - '0');
        if (value > (UINT32_MAX - digit) / 10) return UINT32_MAX;
        value = value * 10 + digit;
    }
    return value;
}

}  // namespace

uint32_t security_information_from_parts(uint32_t listParts) {
    uint32_t bits = 0;
    if (listParts & kPartDacl) bits |= kInfoDacl;
    if (listParts & kPartSacl) bits |= kInfoSacl;
    if (listParts & kPartOwner) bits |= kInfoOwner;
    if (listParts & kPartGroup) bits |= kInfoGroup;
    return bits;
}

std::string protection_text(uint16_t control, bool sacl) {
    const uint16_t protectedBit = sacl ? kControlSaclProtected : kControlDaclProtected;
    const uint16_t autoBit = sacl ? kControlSaclAutoInherited : kControlDaclAutoInherited;
    std::string text = (control & protectedBit) ? "(protected" : "(not_protected";
    text += (control & autoBit) ? "+auto_inherited)" : ")";
    return text;
}

std::string list_record(const AclCommand &command, const std::string &objectName,
                        uint32_t objectType, const std::string &sddl,
                        const DescriptorView &view) {
    switch (command.listFormat) {
    case kFormatSddl:
        return sddl_record(objectName, objectType, sddl);
    case kFormatCsl:
        return csl_record(command, objectName, objectType, view);
    case kFormatTab:
        return tab_record(command, objectName, objectType, view);
    default:
        return std::string();  // the parser accepts no other format
    }
}

std::vector<std::string> split_restore_text(std::string_view text) {
    std::vector<std::string> records;
    size_t at = text.find_first_not_of('>');
    while (at != std::string_view::npos) {
        const size_t end = text.find('>', at);
        records.emplace_back(text.substr(at, end == std::string_view::npos ? text.npos : end - at));
        if (end == std::string_view::npos) break;
        at = text.find_first_not_of('>', end);
    }
    return records;
}

std::vector<std::string> split_restore_file(std::string_view bytes) {
    std::vector<std::string> records;
    std::string line;
    auto take_line = [&] {
        for (std::string &piece : split_restore_text(line)) records.push_back(std::move(piece));
        line.clear();
    };
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (bytes[i] == '\r' && i + 1 < bytes.size() && bytes[i + 1] == '\n') continue;
        line += bytes[i];
        if (bytes[i] == '\n' || line.size() == kRestoreLineLength) take_line();
    }
    if (!line.empty()) take_line();
    return records;
}

// A record is  "name",type,"sddl  after its line end and closing quote are
// taken off:
//   "C:\data\a.txt",1,"O:BAD:AI(A;OICIID;FR;;;BU)"\r\n
//   -> name C:\data\a.txt, type 1, SDDL O:BAD:AI(A;OICIID;FR;;;BU)
// The name ends at the first '",' and the type at the next ',"', so a name
// may hold commas but not '",'.
RestoreParse parse_restore_record(std::string_view record, RestoreRecord &out) {
    // The line end left behind a record's terminator is no record.
    if (record.find_first_not_of("\r\n") == std::string_view::npos) return RestoreParse::kNothing;
    if (!record.empty() && record.back() == '\n') record.remove_suffix(1);
    if (!record.empty() && record.back() == '\r') record.remove_suffix(1);
    if (!record.empty() && record.back() == '"') record.remove_suffix(1);
    if (!record.empty() && record[0] == '"') record.remove_prefix(1);

    const size_t nameEnd = record.find("\",");
    if (nameEnd == std::string_view::npos) return RestoreParse::kMalformed;
    const size_t typeStart = nameEnd + 2;
    const size_t typeEnd = record.find(",\"", typeStart);
    if (typeEnd == std::string_view::npos) return RestoreParse::kMalformed;

    out.objectName = std::string(record.substr(0, nameEnd));
    out.objectType = decimal_prefix(record.substr(typeStart, typeEnd - typeStart));
    out.sddl = std::string(record.substr(typeEnd + 2));
    return RestoreParse::kRecord;
}

uint32_t security_information_from_sddl(const std::string &sddl) {
    uint32_t bits = 0;
    bits |= list_information(sddl, "D:", kInfoDacl, kInfoProtectedDacl, kInfoUnprotectedDacl);
    bits |= list_information(sddl, "S:", kInfoSacl, kInfoProtectedSacl, kInfoUnprotectedSacl);
    if (sddl.find("O:") != std::string::npos) bits |= kInfoOwner;
    if (sddl.find("G:") != std::string::npos) bits |= kInfoGroup;
    return bits;
}

}  // namespace vxio::acl
