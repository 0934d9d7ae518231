// The startup-scan definition text (see definition_text.h).
//
// A line, as the engine writes it:
//   7,run,0,HKLM,Software\Microsoft\Windows\CurrentVersion\Run,scansub_value,,disinf_deletenamevalue,
// gives id 7, label "run", number 0, root HKEY_LOCAL_MACHINE, that key,
// mode 1 (values by data), no name, action 2 and no data.
//
// The rules are the engine's own and are kept to the byte, including the
// ones that look odd:
//  - Lines are split at "\n" only, the way a tokenizer that skips empty
//    tokens splits them: a carriage return stays in its line (and is
//    removed from the end of field 9 later), and line feeds ahead of the
//    first line are passed over.
//  - Field 1 is an unsigned decimal number read like strtoul (leading
//    white space, an optional sign); field 2 starts ONE byte after the
//    number ends, whatever that byte is: normally the comma, but "12;run"
//    is id 12 and label "run", while in "12x,run" the byte skipped is the
//    "x", so the label is "" and every later field moves one place along
//    (as in a line without digits, "x,run", whose first byte is skipped).
//  - Fields 2, 4, 5, 6, 7 and 8 each run to the next comma; a missing
//    comma fails the whole text. Field 3 is a signed decimal number read
//    after the second comma, and field 4 starts one byte after it ends.
//  - Field 9 is the rest of the line, commas included; one final line feed
//    and then one final carriage return are removed from it.
//  - Each line must begin exactly one byte after the end of the one before
//    it: a blank line between two definitions fails the text.
//  - The last line must reach the end of the data.
//
// Two points the engine's rules leave open, settled here:
//  - A field never reaches past its line. A number that ends its line
//    ("5" alone) leaves no byte to skip and no field 2: that is a missing
//    comma, not a field borrowed from the next line.
//  - A text that ends with one line feed after its last definition parses:
//    a definition file saved by an editor ends that way. One line feed
//    only; "...\n\n" ends with a blank line and fails like any blank line.
//    The same goes for a final "\r\n".
// A NUL byte ends the text as it ends every C string: lines before it are
// read, and the text then fails because its last line does not reach the
// end of the data.
#include "startup/definition_text.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <string_view>

namespace vxio::startup {
namespace {

struct RootName {
    const char *text;
    Root root;
};

// Searched in order; the short names come first and are the printed ones.
constexpr RootName kRoots[] = {
    {"HKCR", Root::ClassesRoot},
    {"HKCU", Root::CurrentUser},
    {"HKLM", Root::LocalMachine},
    {"HKU", Root::Users},
    {"HKPD", Root::PerformanceData},
    {"HKDD", Root::DynData},
    {"HKCC", Root::CurrentConfig},
    {"HKEY_CLASSES_ROOT", Root::ClassesRoot},
    {"HKEY_CURRENT_USER", Root::CurrentUser},
    {"HKEY_LOCAL_MACHINE", Root::LocalMachine},
    {"HKEY_USERS", Root::Users},
    {"HKEY_PERFORMANCE_DATA", Root::PerformanceData},
    {"HKEY_DYN_DATA", Root::DynData},
    {"HKEY_CURRENT_CONFIG", Root::CurrentConfig},
};

// Indexed by mode and by action (VXIO_SCAN_*, VXIO_REPAIR_*). Action 0 has
// no keyword: a text that matches none asks for no repair.
constexpr const char *kModes[] = {"scansub_false", "scansub_value", "scansub_name",
                                  "scansub_key"};
constexpr const char *kActions[] = {"",
                                    "disinf_deletevalue",
                                    "disinf_deletenamevalue",
                                    "disinf_deletekey",
                                    "disinf_deleteclsid",
                                    "disinf_replacevalue",
                                    "disinf_bho",
                                    "disinf_binary",
                                    "disinf_deletefile"};

template <size_t N>
uint32_t index_of(const std::string &text, const char *const (&table)[N], size_t first) {
    for (size_t i = first; i < N; ++i)
        if (text == table[i]) return static_cast<uint32_t>(i);
    return 0;
}

// The white space strtol skips in the "C" locale.
bool is_c_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// A decimal number as strtoul and strtol read it, with the runtime's 32-bit
// long: the magnitude is kept exactly up to 2^32 - 1 and only flagged
// beyond, so no digit count can overflow anything.
struct Decimal {
    bool negative = false;
    bool tooLarge = false;  // the magnitude exceeds 2^32 - 1
    uint32_t magnitude = 0;
    size_t end = 0;  // one past the last digit; where reading began when there is none
};

Decimal read_decimal(std::string_view line, size_t from) {
    Decimal number;
    number.end = from;
    size_t at = from;
    while (at < line.size() && is_c_space(line[at])) ++at;
    bool negative = false;
    if (at < line.size() && (line[at] == '+' || line[at] == '-')) negative = line[at++] == '-';
    const size_t digits = at;
    uint64_t magnitude = 0;
    for (; at < line.size() && line[at] >= '0' && line[at] <= '9'; ++at) {
        if (!number.tooLarge) {
            magnitude = magnitude * 10 + static_cast<uint64_t>(line[at] - '0');
            number.tooLarge = magnitude > UINT32_MAX;
        }
    }
    if (at == digits) return number;  // no digits: nothing read, not even the sign
    number.negative = negative;
    number.magnitude = static_cast<uint32_t>(magnitude);
    number.end = at;
    return number;
}

// strtoul: a magnitude beyond the range gives the largest value whatever
// the sign; "-5" wraps to 2^32 - 5.
uint32_t as_unsigned(const Decimal &n) {
    if (n.tooLarge) return UINT32_MAX;
    return n.negative ? 0u - n.magnitude : n.magnitude;
}

// strtol: out-of-range values are clamped to the nearer limit.
int32_t as_signed(const Decimal &n) {
    constexpr uint32_t kMinMagnitude = uint32_t{1} << 31;
    if (n.negative) {
        if (n.tooLarge || n.magnitude >= kMinMagnitude) return INT32_MIN;
        return -static_cast<int32_t>(n.magnitude);
    }
    if (n.tooLarge || n.magnitude > static_cast<uint32_t>(INT32_MAX)) return INT32_MAX;
    return static_cast<int32_t>(n.magnitude);
}

// The text from at to the next comma of the line; at moves past the comma.
// False when no comma follows (or at already lies past the line's end).
bool next_field(std::string_view line, size_t &at, std::string &field) {
    if (at > line.size()) return false;
    const size_t comma = line.find(',', at);
    if (comma == std::string_view::npos) return false;
    field.assign(line.substr(at, comma - at));
    at = comma + 1;
    return true;
}

bool parse_line(std::string_view line, DefinitionLine &out) {
    std::string text;
    const Decimal id = read_decimal(line, 0);
    out.id = as_unsigned(id);
    size_t at = id.end + 1;  // one byte after the number, whatever it is
    if (!next_field(line, at, out.label)) return false;
    const Decimal number = read_decimal(line, at);
    out.number = as_signed(number);
    at = number.end + 1;
    if (!next_field(line, at, text)) return false;
    out.root = RootFromText(text);
    if (!next_field(line, at, out.key)) return false;
    if (!next_field(line, at, text)) return false;
    out.mode = ModeFromText(text);
    if (!next_field(line, at, out.name)) return false;
    if (!next_field(line, at, text)) return false;
    out.action = ActionFromText(text);
    out.data.assign(line.substr(at));
    // The split has already taken the line feed, so only a carriage return
    // can be left; both are removed in the engine's order all the same.
    if (!out.data.empty() && out.data.back() == '\n') out.data.pop_back();
    if (!out.data.empty() && out.data.back() == '\r') out.data.pop_back();
    return true;
}

int parse_lines(std::string_view text, size_t length, std::vector<DefinitionLine> &lines) {
    constexpr size_t npos = std::string_view::npos;
    size_t begin = text.find_first_not_of('\n');
    if (begin == npos) return kParseFormat;  // no definition at all
    for (;;) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        DefinitionLine line;
        if (!parse_line(text.substr(begin, end - begin), line)) return kParseFormat;
        lines.push_back(std::move(line));
        const size_t next = text.find_first_not_of('\n', end);
        if (next == npos) {
            // The last line: it must end where the data ends, or one line
            // feed before (see above).
            if (end == length) return kParsed;
            return end + 1 == length && end < text.size() ? kParsed : kParseFormat;
        }
        if (next != end + 1) return kParseFormat;  // a blank line
        begin = next;
    }
}

}  // namespace

int ParseDefinitionText(const char *text, size_t length, std::vector<DefinitionLine> &lines) {
    if (!text || length == 0 || text[0] == '\0') return kParseFormat;
    const auto *nul = static_cast<const char *>(std::memchr(text, '\0', length));
    const size_t readable = nul ? static_cast<size_t>(nul - text) : length;
    try {
        return parse_lines(std::string_view(text, readable), length, lines);
    } catch (const std::bad_alloc &) {
        return kParseNoMemory;
    }
}

Root RootFromText(const std::string &text) {
    for (const RootName &row : kRoots)
        if (text == row.text) return row.root;
    return Root::None;
}

uint32_t ModeFromText(const std::string &text) { return index_of(text, kModes, 0); }

uint32_t ActionFromText(const std::string &text) { return index_of(text, kActions, 1); }

const char *RootText(Root root) {
    for (const RootName &row : kRoots)
        if (row.root == root) return row.text;
    return "";
}

const char *ModeText(uint32_t mode) { return mode < std::size(kModes) ? kModes[mode] : ""; }

const char *ActionText(uint32_t action) {
    return action < std::size(kActions) ? kActions[action] : "";
}

}  // namespace vxio::startup
