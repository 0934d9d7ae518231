// Permission words, access masks and their listing words.
//
// Permission words are matched the way every keyword of the command
// language is: case-insensitively over the table word's own length, in
// table order, first match wins. A longer word that begins with a table
// word therefore takes that word's mask, and a table word that begins with
// an earlier one can never be reached: for files "read_attr" is "read"
// (0x20089) and "write_owner" is "write" (0x116); for registry keys
// "read_access" is "read". That is what these words mean in the language,
// so the tables keep their order.
//
// Example: a file request "read,write" with mode 4 (revoke) and no
// inheritance words ends with mask 0x120089 | 0x116 = 0x12019F and
// inheritance 3 (sub-objects and sub-containers).
#include "acl/vocabulary.h"
#include "acl/text.h"

#include <cstring>
#include <utility>

namespace vxio::acl {
namespace {

constexpr uint32_t kSynchronize = 0x100000;

constexpr uint32_t kModeDeny = 3;
constexpr uint32_t kModeAuditSuccess = 5;
constexpr uint32_t kModeAuditFail = 6;
constexpr uint32_t kModeBothAudits = 11;

constexpr uint32_t kInheritSubObjects = 1;
constexpr uint32_t kInheritSubContainers = 2;
constexpr uint32_t kInheritOnly = 8;

// ASCII only (acl/text.h): bytes of 0x80 and above compare as they are.

// True when text begins with keyword, ignoring case. The comparison covers
// the keyword's length, so a longer text matches and a shorter one not.
bool starts_with_word(const std::string &text, const char *keyword) {
    const size_t length = std::strlen(keyword);
    if (text.size() < length) return false;
    for (size_t i = 0; i < length; ++i) {
        if (fold_ascii(text[i]) != fold_ascii(keyword[i])) return false;
    }
    return true;
}

bool equals_word(const std::string &text, const char *keyword) {
    return text.size() == std::strlen(keyword) && starts_with_word(text, keyword);
}

// Splits at ",". Runs of "," separate words, so empty words never occur.
std::vector<std::string> split_words(const std::string &text) {
    std::vector<std::string> words;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find(',', start);
        if (end == std::string::npos) end = text.size();
        if (end > start) words.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return words;
}

// ---------------------------------------------------------------------------
// Permission words to masks

enum class WordEffect {
    None,
    // File "list_folder": without inheritance words the entry is inherited
    // by sub-containers only, which is what listing a folder's contents
    // needs (files inside it get nothing).
    SubContainersOnly,
    // Printer "print" and "man_printer": without inheritance words the
    // entry applies to the printer itself only.
    PrinterOnly,
    // Printer "man_docs" and "full": without inheritance words one entry
    // covers the printer (maskAlone, inheritanceAlone) and a second,
    // inherit-only entry covers the documents (kDocumentsEntry*).
    PrinterTwoEntries,
};

struct PermissionWord {
    const char *word;
    uint32_t mask;
    WordEffect effect = WordEffect::None;
    uint32_t maskAlone = 0;
    uint32_t inheritanceAlone = 0;
};

constexpr uint32_t kDocumentsEntryMask = 0xF0030;
constexpr uint32_t kDocumentsEntryInheritance = kInheritOnly | kInheritSubObjects;  // 9

const PermissionWord kFileWords[] = {
    {"read", 0x20089},
    {"write", 0x116},
    {"list_folder", 0x200A9, WordEffect::SubContainersOnly},
    {"read_ex", 0x200A9},
    {"change", 0x301BF},
    {"profile", 0x701BF},
    {"full", 0xF01FF},
    {"traverse", 0x20},
    {"list_dir", 0x1},
    {"read_attr", 0x80},
    {"read_ea", 0x8},
    {"add_file", 0x2},
    {"add_subdir", 0x4},
    {"write_attr", 0x100},
    {"write_ea", 0x10},
    {"del_child", 0x40},
    {"delete", 0x10000},
    {"read_dacl", 0x20000},
    {"write_dacl", 0x40000},
    {"write_owner", 0x80000},
};

const PermissionWord kRegistryWords[] = {
    {"read", 0x20019},
    {"full", 0xF003F},
    {"query_val", 0x1},
    {"set_val", 0x2},
    {"create_subkey", 0x4},
    {"enum_subkeys", 0x8},
    {"notify", 0x10},
    {"create_link", 0x20},
    {"delete", 0x10000},
    {"write_dacl", 0x40000},
    {"write_owner", 0x80000},
    {"read_access", 0x20000},
};

const PermissionWord kServiceWords[] = {
    {"read", 0x2018D},
    {"start_stop", 0x201FD},
    {"full", 0xF01FF},
};

const PermissionWord kShareWords[] = {
    {"read", 0x1200A9},
    {"change", 0x1301BF},
    {"full", 0x1F01FF},
};

const PermissionWord kPrinterWords[] = {
    {"print", 0x20008, WordEffect::PrinterOnly},
    {"man_printer", 0xF000C, WordEffect::PrinterOnly},
    {"man_docs", 0xF0030, WordEffect::PrinterTwoEntries, 0x20000, kInheritOnly | kInheritSubContainers},
    {"full", 0xF000C, WordEffect::PrinterTwoEntries, 0xF000C, 0},
};

struct WordTable {
    const PermissionWord *begin;
    const PermissionWord *end;
};

template <size_t N>
WordTable table_of(const PermissionWord (&words)[N]) {
    return {words, words + N};
}

WordTable permission_table(uint32_t objectType) {
    switch (objectType) {
    case kTypeFile: return table_of(kFileWords);
    case kTypeRegistry: return table_of(kRegistryWords);
    case kTypeService: return table_of(kServiceWords);
    case kTypeShare: return table_of(kShareWords);
    case kTypePrinter: return table_of(kPrinterWords);
    default: return {nullptr, nullptr};
    }
}

const PermissionWord *find_word(const WordTable &table, const std::string &word) {
    for (const PermissionWord *entry = table.begin; entry != table.end; ++entry) {
        if (starts_with_word(word, entry->word)) return entry;
    }
    return nullptr;
}

// One word's own effect on its request; a second entry goes to copies.
void apply_word(AceRequest &request, const PermissionWord &entry, std::vector<AceRequest> &copies) {
    switch (entry.effect) {
    case WordEffect::None:
        request.mask |= entry.mask;
        break;
    case WordEffect::SubContainersOnly:
        request.mask |= entry.mask;
        if (!request.inheritanceGiven) {
            request.inheritanceGiven = true;
            request.inheritance = kInheritSubContainers;
        }
        break;
    case WordEffect::PrinterOnly:
        request.mask |= entry.mask;
        if (!request.inheritanceGiven) request.inheritance = 0;
        break;
    case WordEffect::PrinterTwoEntries:
        if (request.inheritanceGiven) {
            request.mask |= entry.mask;
        } else {
            request.mask = entry.maskAlone;
            request.inheritance = entry.inheritanceAlone;
            AceRequest documents = request;
            documents.mask = kDocumentsEntryMask;
            documents.inheritance = kDocumentsEntryInheritance;
            copies.push_back(std::move(documents));
        }
        break;
    }
}

// What follows every word, in this order: the object type's defaults
// (which see list_folder's inheritance already set), then audits lose
// SYNCHRONIZE again: audited, it would log every wait on a handle.
void after_word(AceRequest &request, uint32_t objectType) {
    if (objectType == kTypeFile) {
        // Waiting on a file handle needs SYNCHRONIZE; a deny entry must not
        // take it away from everyone else's grants.
        if (request.accessMode != kModeDeny) request.mask |= kSynchronize;
        if (!request.inheritanceGiven) request.inheritance = kInheritSubObjects | kInheritSubContainers;
    } else if (objectType == kTypeShare) {
        if (!request.inheritanceGiven) request.inheritance = 0;
    }
    if (request.accessMode == kModeAuditSuccess || request.accessMode == kModeAuditFail) {
        request.mask &= ~kSynchronize;
    }
}

// ---------------------------------------------------------------------------
// Masks to listing words

struct GenericMapping {
    uint32_t read, write, execute, all;
};

constexpr uint32_t kGenericRead = 0x80000000;
constexpr uint32_t kGenericWrite = 0x40000000;
constexpr uint32_t kGenericExecute = 0x20000000;
constexpr uint32_t kGenericAll = 0x10000000;

constexpr GenericMapping kFileMapping = {0x120089, 0x120116, 0x1200A0, 0x1F01FF};
constexpr GenericMapping kRegistryMapping = {0x120019, 0x20006, 0x20019, 0xF003F};

// Generic bits become the object type's specific rights and are cleared,
// as the system does when it checks access.
uint32_t map_generic(uint32_t mask, const GenericMapping &mapping) {
    if (mask & kGenericRead) mask |= mapping.read;
    if (mask & kGenericWrite) mask |= mapping.write;
    if (mask & kGenericExecute) mask |= mapping.execute;
    if (mask & kGenericAll) mask |= mapping.all;
    return mask & ~(kGenericRead | kGenericWrite | kGenericExecute | kGenericAll);
}

struct ListingWord {
    const char *word;
    uint32_t bits;
};

// Composite words: taken when all bits are present; a taken word replaces
// the text and clears its bits, so a later composite may replace it again.
const ListingWord kFileComposites[] = {
    {"full+", 0xF01FF}, {"change+", 0x301BF}, {"read_execute+", 0x200A9}, {"write+", 0x116}, {"read+", 0x20089},
};
const ListingWord kRegistryComposites[] = {{"full+", 0xF003F}, {"read+", 0x20019}};
const ListingWord kServiceComposites[] = {{"full+", 0xF01FF}, {"start_stop+", 0x201FD}, {"read+", 0x2018D}};
const ListingWord kShareComposites[] = {{"full+", 0x1F01FF}, {"change+", 0x1301BF}, {"read+", 0x1200A9}};
const ListingWord kPrinterComposites[] = {
    {"manage_printer+", 0xF000C}, {"manage_documents+", 0xF0030}, {"print+", 0x20008}};

// Appended words: taken when any of their bits is present (most are a
// single bit). The multi-bit words of registry keys and shares are loose
// on purpose: any one of their bits lists the word.
const ListingWord kFileSingles[] = {
    {"FILE_LIST_DIRECTORY+", 0x1},   {"FILE_ADD_FILE+", 0x2},         {"FILE_ADD_SUBDIRECTORY+", 0x4},
    {"FILE_READ_EA+", 0x8},          {"FILE_WRITE_EA+", 0x10},        {"FILE_TRAVERSE+", 0x20},
    {"FILE_DELETE_CHILD+", 0x40},    {"FILE_READ_ATTRIBUTES+", 0x80}, {"FILE_WRITE_ATTRIBUTES+", 0x100},
};
const ListingWord kRegistrySingles[] = {
    {"KEY_CREATE_LINK+", 0x20}, {"KEY_CREATE_SUB_KEY+", 0x4}, {"KEY_ENUMERATE_SUB_KEYS+", 0x8},
    {"KEY_EXECUTE+", 0x20019},  {"KEY_NOTIFY+", 0x10},        {"KEY_QUERY_VALUE+", 0x1},
    {"KEY_READ+", 0x20019},     {"KEY_SET_VALUE+", 0x2},      {"KEY_WRITE+", 0x20006},
};
const ListingWord kServiceSingles[] = {
    {"SERVICE_CHANGE_CONFIG+", 0x2},    {"SERVICE_ENUMERATE_DEPENDENTS+", 0x8}, {"SERVICE_INTERROGATE+", 0x80},
    {"SERVICE_PAUSE_CONTINUE+", 0x40},  {"SERVICE_QUERY_CONFIG+", 0x1},         {"SERVICE_QUERY_STATUS+", 0x4},
    {"SERVICE_START+", 0x10},           {"SERVICE_STOP+", 0x20},                {"SERVICE_USER_DEFINED_CONTROL+", 0x100},
};
const ListingWord kShareSingles[] = {{"SHARE_READ+", 0x1BF}, {"SHARE_CHANGE+", 0xA9}, {"SHARE_WRITE+", 0x40}};
const ListingWord kPrinterSingles[] = {
    {"PRINTER_ACCESS_ADMINISTER+", 0x4}, {"PRINTER_ACCESS_USE+", 0x8},
    {"JOB_ACCESS_ADMINISTER+", 0x10},    {"JOB_ACCESS_READ+", 0x20},
};
const ListingWord kStandardWords[] = {
    {"READ_CONTROL+", 0x20000},    {"WRITE_OWNER+", 0x80000},   {"WRITE_DAC+", 0x40000},
    {"DELETE+", 0x10000},          {"SYNCHRONIZE+", kSynchronize}, {"ACCESS_SYSTEM_SECURITY+", 0x1000000},
    {"GENERIC_ALL+", kGenericAll}, {"GENERIC_EXECUTE+", kGenericExecute},
    {"GENERIC_READ+", kGenericRead}, {"GENERIC_WRITE+", kGenericWrite},
};

struct ListingWords {
    const ListingWord *composites, *compositesEnd;
    const ListingWord *singles, *singlesEnd;
};

template <size_t C, size_t S>
ListingWords listing_of(const ListingWord (&composites)[C], const ListingWord (&singles)[S]) {
    return {composites, composites + C, singles, singles + S};
}

// A text built as in a fixed buffer of kWordTextSize characters: a word
// that would not fit with the terminator is left out, and later shorter
// words may still go in.
class WordText {
public:
    void append(const char *word) {
        if (text_.size() + std::strlen(word) + 1 <= kWordTextSize) text_ += word;
    }
    void replace(const char *word) {
        if (std::strlen(word) + 1 <= kWordTextSize) text_ = word;
    }
    // Every word ends in "+"; the last one's goes.
    std::string finish() {
        if (!text_.empty()) text_.pop_back();
        return std::move(text_);
    }

private:
    std::string text_;
};

}  // namespace

uint32_t apply_permission_words(std::vector<AceRequest> &requests, uint32_t objectType) {
    const size_t originals = requests.size();
    for (size_t i = 0; i < originals; ++i) {
        if (requests[i].accessMode != kModeBothAudits) continue;
        requests[i].accessMode = kModeAuditFail;
        AceRequest success = requests[i];
        success.accessMode = kModeAuditSuccess;
        requests.push_back(std::move(success));
    }

    const WordTable table = permission_table(objectType);
    std::vector<AceRequest> copies;
    for (AceRequest &request : requests) {
        const std::vector<std::string> words = split_words(request.permissions);
        if (words.empty()) return kBadArgument;
        for (const std::string &word : words) {
            const PermissionWord *entry = find_word(table, word);
            if (!entry) return kUnknownPermission;
            apply_word(request, *entry, copies);
            after_word(request, objectType);
        }
    }
    for (AceRequest &copy : copies) requests.push_back(std::move(copy));
    return kOk;
}

std::string mask_to_words(uint32_t mask, uint32_t objectType) {
    ListingWords words;
    switch (objectType) {
    case kTypeFile:
        mask = map_generic(mask, kFileMapping) & ~kSynchronize;
        words = listing_of(kFileComposites, kFileSingles);
        break;
    case kTypeRegistry:
        mask = map_generic(mask, kRegistryMapping);
        words = listing_of(kRegistryComposites, kRegistrySingles);
        break;
    case kTypeService: words = listing_of(kServiceComposites, kServiceSingles); break;
    case kTypeShare: words = listing_of(kShareComposites, kShareSingles); break;
    case kTypePrinter: words = listing_of(kPrinterComposites, kPrinterSingles); break;
    default: return std::string();
    }

    WordText text;
    for (const ListingWord *w = words.composites; w != words.compositesEnd; ++w) {
        if ((mask & w->bits) == w->bits) {
            text.replace(w->word);
            mask &= ~w->bits;
        }
    }
    for (const ListingWord *w = words.singles; w != words.singlesEnd; ++w) {
        if (mask & w->bits) text.append(w->word);
    }
    for (const ListingWord &w : kStandardWords) {
        if (mask & w.bits) text.append(w.word);
    }
    return text.finish();
}

std::string ace_type_word(uint32_t type) {
    static const char *const kTypes[] = {"allow",        "deny",         "audit",        "alarm",       "allow_compound",
                                         "allow_object", "deny_object",  "audit_object", "alarm_object"};
    if (type >= sizeof kTypes / sizeof kTypes[0]) return std::string();
    return kTypes[type];
}

std::string ace_flags_words(uint32_t flags) {
    static const ListingWord kFlags[] = {
        {"container_inherit+", 0x2}, {"object_inherit+", 0x1}, {"inherit_only+", 0x8},
        {"no_propagate_inherit+", 0x4}, {"inherited+", 0x10}, {"audit_success+", 0x40},
        {"audit_fail+", 0x80},
    };
    WordText text;
    for (const ListingWord &f : kFlags) {
        if (flags & f.bits) text.append(f.word);
    }
    std::string words = text.finish();
    return words.empty() ? "no_inheritance" : words;
}

bool copy_if_fits(const std::string &text, char *dest, size_t destSize) {
    if (!dest || text.size() + 1 > destSize) return false;
    std::memcpy(dest, text.c_str(), text.size() + 1);
    return true;
}

RegistryRoot registry_root_word(const std::string &word) {
    static const struct {
        const char *word;
        RegistryRoot root;
    } kRoots[] = {
        {"hkey_current_user", RegistryRoot::CurrentUser},   {"current_user", RegistryRoot::CurrentUser},
        {"hkcu", RegistryRoot::CurrentUser},                {"hkey_classes_root", RegistryRoot::ClassesRoot},
        {"classes_root", RegistryRoot::ClassesRoot},        {"hkcr", RegistryRoot::ClassesRoot},
        {"hkey_users", RegistryRoot::Users},                {"users", RegistryRoot::Users},
        {"hkey_local_machine", RegistryRoot::LocalMachine}, {"machine", RegistryRoot::LocalMachine},
        {"hklm", RegistryRoot::LocalMachine},
    };
    for (const auto &r : kRoots) {
        if (equals_word(word, r.word)) return r.root;
    }
    return RegistryRoot::None;
}

}  // namespace vxio::acl
