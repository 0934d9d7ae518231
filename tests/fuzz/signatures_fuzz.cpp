// Fuzz target of the signature list's parser and table. The input bytes
// are the list. For any bytes:
//  - the list is taken exactly when every line is good by the grammar
//    written out again below (independently of the parser), and refused
//    at the first bad line, with that line's number;
//  - the same bytes given in pieces of 1 to 16 bytes give the same answer;
//  - once taken, every signature is found: match() with its hash and size
//    (any size for "*") gives the name of the first line of that key,
//    wants() says yes to its size, and the table holds one entry a key.
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/fuzz/fuzz_support.h"
#include "tools/vxio/signatures.h"

using namespace vxio_tool;

namespace {

constexpr const char *kTarget = "signatures";

struct Line {
    std::string hash;  // 20 bytes
    uint64_t size;
    std::string name;
};

// The grammar: false for a bad line; true with *signature empty-hashed for
// a blank or comment line.
bool reference_line(std::string text, bool first, Line *signature) {
    signature->hash.clear();
    if (first && text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.erase(0, 3);
    if (!text.empty() && text.back() == '\r') text.pop_back();
    if (text.size() > kSignatureLineMax) return false;
    if (text.find_first_not_of(" \t") == std::string::npos || text[0] == '#') return true;
    const size_t colon = text.find(':', 41);
    if (text.size() < 41 || text[40] != ':' || colon == std::string::npos) return false;
    for (size_t i = 0; i < 40; i += 2) {
        const std::string pair = text.substr(i, 2);
        if (pair.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) return false;
        signature->hash += static_cast<char>(std::stoul(pair, nullptr, 16));
    }
    const std::string size = text.substr(41, colon - 41);
    if (size == "*") {
        signature->size = SignatureTable::kAnySize;
    } else {
        if (size.empty() || size.find_first_not_of("0123456789") != std::string::npos) return false;
        const std::string digits = size.substr(std::min(size.find_first_not_of('0'), size.size()));
        if (digits.size() > 19 || (digits.size() == 19 && digits > "9223372036854775807")) return false;
        signature->size = digits.empty() ? 0 : std::stoull(digits);
    }
    signature->name = text.substr(colon + 1);
    if (signature->name.empty()) return false;
    for (unsigned char c : signature->name)
        if (c < 0x20 || c > 0x7E) return false;
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::unique_ptr<uint8_t[]> held = vxio::fuzz::held_copy(data, size);
    const char *text = reinterpret_cast<const char *>(held.get());

    // What the grammar says.
    std::vector<Line> lines;
    uint64_t badLine = 0, number = 0;
    for (size_t at = 0; at < size && badLine == 0;) {
        const char *end = static_cast<const char *>(std::memchr(text + at, '\n', size - at));
        const size_t length = end ? end - (text + at) : size - at;
        Line line;
        ++number;
        if (!reference_line(std::string(text + at, length), number == 1, &line)) badLine = number;
        else if (!line.hash.empty()) lines.push_back(line);
        at += length + 1;
    }

    SignatureTable whole;
    SignatureParser parser(whole);
    const bool taken = parser.feed(text, size) && parser.finish();
    VXIO_REQUIRE(taken == (badLine == 0));
    VXIO_REQUIRE(taken ? parser.reason().empty() : parser.line() == badLine && !parser.reason().empty());

    SignatureTable pieces;
    SignatureParser piecewise(pieces);
    const size_t step = size ? 1 + data[0] % 16 : 1;
    bool fed = true;
    for (size_t at = 0; fed && at < size; at += step)
        fed = piecewise.feed(text + at, std::min(step, size - at));
    VXIO_REQUIRE((fed && piecewise.finish()) == taken);
    VXIO_REQUIRE(piecewise.line() == parser.line() && piecewise.reason() == parser.reason());
    if (!taken) return 0;

    std::map<std::pair<std::string, uint64_t>, std::string> first;
    for (const Line &line : lines) first.emplace(std::make_pair(line.hash, line.size), line.name);
    VXIO_REQUIRE(whole.count() == first.size() && pieces.count() == first.size());
    for (const auto &[key, name] : first) {
        const uint8_t *sha1 = reinterpret_cast<const uint8_t *>(key.first.data());
        const uint64_t asked = key.second == SignatureTable::kAnySize ? 12345 : key.second;
        const char *found = whole.match(sha1, asked);
        VXIO_REQUIRE(found && whole.wants(asked) && pieces.match(sha1, asked));
        // A signature of that very size comes before one for any size.
        const auto exact = first.find(std::make_pair(key.first, asked));
        VXIO_REQUIRE(found == (exact != first.end() ? exact->second : name));
    }
    return 0;
}
