// Fuzz target of the cuts of a startup command text. The input bytes are
// the (lower-cased) text, held in a block of exactly that size. For any
// bytes:
//  - every candidate lies inside the text, is not empty and ends in no
//    space or tab;
//  - each pass starts with the whole text (without its trailing blanks,
//    left out only when nothing else is left), followed by its tokens;
//  - the second pass runs exactly when the text holds a space;
//  - the tokens of a pass are, in order, the runs of bytes between the
//    pass's separators that are not all blank, each without its trailing
//    blanks: so no token holds a separator, none is skipped, and every
//    byte is in a token, a separator, a blank run or a token's trail;
//  - there are at most 2 + size candidates, and walking again gives the
//    same ones.
#include <cstdint>
#include <cstring>
#include <vector>

#include "startup/command_text.h"
#include "tests/fuzz/fuzz_support.h"

using namespace vxio::startup;

namespace {

constexpr const char *kTarget = "command_text";

bool is_blank_byte(uint8_t c) { return (c >= 9 && c <= 13) || c == ' ' || c == 160; }
bool is_trailing_blank(char c) { return c == ' ' || c == '\t'; }

bool same(const CommandCandidate &a, const CommandCandidate &b) {
    return a.offset == b.offset && a.length == b.length && a.pass == b.pass && a.whole == b.whole;
}

std::vector<CommandCandidate> walk(const char *text, size_t size, bool &second) {
    std::vector<CommandCandidate> out;
    CommandCuts cuts(text, size);
    second = cuts.has_second_pass();
    for (CommandCandidate c; cuts.next(c);) {
        out.push_back(c);
        if (out.size() > 2 * size + 4) break;  // a runaway walk, caught below
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::vector<char> bytes(data, data + size);
    const char *text = size ? bytes.data() : nullptr;

    bool second = false;
    const std::vector<CommandCandidate> all = walk(text, size, second);
    VXIO_REQUIRE(all.size() <= 2 + size);
    VXIO_REQUIRE(second == (size && std::memchr(text, ' ', size) != nullptr));

    size_t trimmed = size;
    while (trimmed > 0 && is_trailing_blank(bytes[trimmed - 1])) --trimmed;

    size_t i = 0;
    for (uint8_t p = kFirstPass; p <= (second ? kSecondPass : kFirstPass); ++p) {
        const auto pass = static_cast<CommandPass>(p);
        const char *separators = CommandSeparators(pass);
        if (trimmed > 0) {
            VXIO_REQUIRE(i < all.size() && all[i].whole && all[i].pass == pass);
            VXIO_REQUIRE(all[i].offset == 0 && all[i].length == trimmed);
            ++i;
        }
        // The expected tokens: runs between separators, walked here byte
        // by byte.
        for (size_t at = 0; at < size;) {
            if (bytes[at] != '\0' && std::strchr(separators, bytes[at])) {
                ++at;
                continue;
            }
            const size_t start = at;
            bool blank = true;
            while (at < size && !(bytes[at] != '\0' && std::strchr(separators, bytes[at]))) {
                blank = blank && is_blank_byte(static_cast<uint8_t>(bytes[at]));
                ++at;
            }
            if (blank) continue;
            size_t end = at;
            while (is_trailing_blank(bytes[end - 1])) --end;
            VXIO_REQUIRE(i < all.size());
            const CommandCandidate &c = all[i++];
            VXIO_REQUIRE(!c.whole && c.pass == pass);
            VXIO_REQUIRE(c.offset == start && c.length == end - start);
        }
    }
    VXIO_REQUIRE(i == all.size());

    for (const CommandCandidate &c : all) {
        VXIO_REQUIRE(c.length > 0 && c.offset <= size && c.length <= size - c.offset);
        VXIO_REQUIRE(!is_trailing_blank(bytes[c.offset + c.length - 1]));
        if (c.whole) continue;
        for (size_t k = c.offset; k < c.offset + c.length; ++k)
            VXIO_REQUIRE(bytes[k] == '\0' || !std::strchr(CommandSeparators(c.pass), bytes[k]));
    }

    bool again = false;
    const std::vector<CommandCandidate> repeat = walk(text, size, again);
    VXIO_REQUIRE(again == second && repeat.size() == all.size());
    for (size_t k = 0; k < all.size(); ++k) VXIO_REQUIRE(same(all[k], repeat[k]));

    // The trim the scan also applies to a candidate's expansion.
    VXIO_REQUIRE(WithoutTrailingBlanks(text, size) == trimmed);
    return 0;
}
