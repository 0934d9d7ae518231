// Fuzz target of the startup-scan definition parser. For any bytes:
//  - the status is 0 or -1 (-5 only when memory runs out);
//  - parsing again, into a vector holding a stale line, appends the same;
//  - on success there is one line per definition of the text (per run of
//    bytes between line feeds), no field holds a line feed, the text fields
//    before field 9 hold no comma, and writing the lines out again as
//    canonical "\r\n"-ended text parses back to the very same lines;
//  - on success one more line feed is accepted when the text did not end
//    with one, and fails (a blank line) when it did;
//  - on failure no more lines come back than the text has.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "startup/definition_text.h"

using namespace vxio::startup;

namespace {

[[noreturn]] void broken(const char *what, const std::string &text) {
    std::fprintf(stderr, "startup_fuzz: broken: %s\ntext (%zu bytes): \"%s\"\n", what,
                 text.size(), text.c_str());
    std::abort();
}

#define REQUIRE(condition) \
    do {                   \
        if (!(condition)) broken(#condition, text); \
    } while (0)

bool same(const DefinitionLine &a, const DefinitionLine &b) {
    return a.id == b.id && a.label == b.label && a.number == b.number && a.root == b.root &&
           a.key == b.key && a.mode == b.mode && a.name == b.name && a.action == b.action &&
           a.data == b.data;
}

bool same(const std::vector<DefinitionLine> &a, const std::vector<DefinitionLine> &b,
          size_t skip = 0) {
    if (a.size() + skip != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (!same(a[i], b[i + skip])) return false;
    return true;
}

// Definitions in the text as the line split sees them: runs of bytes
// other than the line feed.
size_t definitions_in(const std::string &text) {
    size_t count = 0;
    for (size_t i = 0; i < text.size(); ++i)
        if (text[i] != '\n' && (i == 0 || text[i - 1] == '\n')) ++count;
    return count;
}

std::string canonical(const std::vector<DefinitionLine> &lines) {
    std::string out;
    for (const DefinitionLine &l : lines) {
        out += std::to_string(l.id) + ',' + l.label + ',' + std::to_string(l.number) + ',' +
               RootText(l.root) + ',' + l.key + ',' + ModeText(l.mode) + ',' + l.name + ',' +
               ActionText(l.action) + ',' + l.data + "\r\n";
    }
    return out;
}

bool has_any(const std::string &field, const char *bytes) {
    return field.find_first_of(bytes) != std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // The parser gets exactly size bytes (no terminator), so a read past
    // the end is caught.
    const std::vector<char> bytes(data, data + size);
    const std::string text(bytes.begin(), bytes.end());

    std::vector<DefinitionLine> lines;
    const int status = ParseDefinitionText(size ? bytes.data() : nullptr, size, lines);
    REQUIRE(status == kParsed || status == kParseFormat);

    std::vector<DefinitionLine> again(1);
    again[0].label = "stale";
    REQUIRE(ParseDefinitionText(size ? bytes.data() : nullptr, size, again) == status);
    REQUIRE(again[0].label == "stale" && same(lines, again, 1));

    const size_t definitions = definitions_in(text);
    if (status != kParsed) {
        REQUIRE(lines.size() <= definitions);
        return 0;
    }
    REQUIRE(lines.size() == definitions);
    for (const DefinitionLine &l : lines) {
        REQUIRE(!has_any(l.label, ",\n") && !has_any(l.key, ",\n") && !has_any(l.name, ",\n"));
        REQUIRE(!has_any(l.data, "\n"));
        REQUIRE(l.mode <= 3 && l.action <= 8);
    }

    const std::string rewritten = canonical(lines);
    std::vector<DefinitionLine> reread;
    REQUIRE(ParseDefinitionText(rewritten.data(), rewritten.size(), reread) == kParsed);
    REQUIRE(same(lines, reread));

    const bool endsWithLineFeed = text.back() == '\n';
    const std::string longer = text + '\n';
    std::vector<DefinitionLine> extended;
    REQUIRE(ParseDefinitionText(longer.data(), longer.size(), extended) ==
            (endsWithLineFeed ? kParseFormat : kParsed));
    REQUIRE(same(lines, extended));
    return 0;
}
