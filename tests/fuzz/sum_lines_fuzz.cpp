// Fuzz target of the digest-list reader. The input bytes are a list, fed
// to the line splitter in two pieces cut where the first byte says (and,
// when that byte is 0, repeated past the longest line: only the splitting
// is checked then, the lines being the same few over again). For
// any bytes:
//  - the lines that come out are the runs between line feeds, in order,
//    the last one without a line feed included; a run longer than
//    kMaxSumLine comes out once, as overlong and empty;
//  - a line parsed as a digest line has a non-empty name without NUL,
//    taken verbatim when the line does not start with a backslash; the
//    line written back in the tool's own format parses to the same digest
//    and name;
//  - a stream name splits into a non-empty path and a stream without a
//    separator, which give the name back around a ':';
//  - a shown check name holds no line break, and is the name itself unless
//    the name holds one.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tests/fuzz/fuzz_support.h"
#include "tools/vxio/sum_lines.h"

using namespace vxio_tool;

namespace {

constexpr const char *kTarget = "sum_lines";

std::string escape(const std::string &name, bool *escaped) {
    std::string out;
    *escaped = false;
    for (const char c : name) {
        switch (c) {
        case '\\': out += "\\\\"; *escaped = true; break;
        case '\n': out += "\\n"; *escaped = true; break;
        case '\r': out += "\\r"; *escaped = true; break;
        default: out += c; break;
        }
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string input(reinterpret_cast<const char *>(data), size);
    std::string text = input;
    const bool repeated = size > 0 && data[0] == 0;
    if (repeated)
        while (text.size() <= kMaxSumLine + 1) text += input;
    const size_t cut = size > 0 ? data[0] % (text.size() + 1) : 0;

    // The lines expected: a plain split on line feeds.
    std::vector<std::string> want;
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find('\n', at);
        if (end == std::string::npos) end = text.size();
        want.push_back(text.substr(at, end - at));
        at = end + 1;
    }

    SumLineSplitter splitter;
    std::vector<std::string> got;
    std::vector<bool> cutShort;
    std::string line;
    bool overlong = false;
    splitter.feed(text.data(), cut);
    while (splitter.next(&line, &overlong)) got.push_back(line), cutShort.push_back(overlong);
    splitter.feed(text.data() + cut, text.size() - cut);
    while (splitter.next(&line, &overlong)) got.push_back(line), cutShort.push_back(overlong);
    splitter.finish();
    while (splitter.next(&line, &overlong)) got.push_back(line), cutShort.push_back(overlong);
    VXIO_REQUIRE(splitter.next(&line, &overlong) == false);

    VXIO_REQUIRE(got.size() == want.size());
    for (size_t i = 0; i < want.size(); ++i) {
        const bool tooLong = want[i].size() > kMaxSumLine;
        VXIO_REQUIRE(cutShort[i] == tooLong);
        VXIO_REQUIRE(got[i] == (tooLong ? std::string() : want[i]));
    }

    for (const std::string &one : want) {
        if (repeated) break;
        SumLine parsed;
        if (parse_sum_line(one.data(), one.size(), &parsed)) {
            VXIO_REQUIRE(!parsed.name.empty());
            VXIO_REQUIRE(parsed.name.find('\0') == std::string::npos);
            if (one[0] != '\\') {
                std::string body = one.substr(kSumHexDigits + 2);
                if (!body.empty() && body.back() == '\r') body.pop_back();
                VXIO_REQUIRE(parsed.name == body);
            }
            bool escaped = false;
            std::string again = escape(parsed.name, &escaped);
            static const char kHex[] = "0123456789abcdef";
            std::string hex;
            for (const uint8_t b : parsed.digest) hex += std::string{kHex[b >> 4], kHex[b & 15]};
            again = (escaped ? "\\" : "") + hex + (parsed.binary ? " *" : "  ") + again;
            SumLine back;
            VXIO_REQUIRE(parse_sum_line(again.data(), again.size(), &back));
            VXIO_REQUIRE(back.name == parsed.name && back.binary == parsed.binary);
            VXIO_REQUIRE(std::memcmp(back.digest, parsed.digest, kSumDigestSize) == 0);
        }

        std::string path, stream;
        if (split_stream_name(one, &path, &stream)) {
            VXIO_REQUIRE(!path.empty() && !stream.empty());
            VXIO_REQUIRE(stream.find_first_of("/\\") == std::string::npos);
            VXIO_REQUIRE(path + ":" + stream == one);
        }

        bool escaped = false;
        const std::string shown = shown_check_name(one, &escaped);
        VXIO_REQUIRE(shown.find_first_of("\n\r") == std::string::npos);
        VXIO_REQUIRE(escaped == (one.find_first_of("\n\r") != std::string::npos));
        if (!escaped) VXIO_REQUIRE(shown == one);
    }
    return 0;
}
