// The texts of "vxio scan": printed paths, exclusion patterns, counts and
// JSON lines.
#include <gtest/gtest.h>

#include "tools/vxio/scan_text.h"

using namespace vxio_tool;

TEST(ScanText, PathsKeepTheUsersSeparatorAndRoots) {
    EXPECT_EQ(preferred_separator("sample/dir"), '/');
    EXPECT_EQ(preferred_separator("C:\\data"), '\\');
    EXPECT_EQ(preferred_separator("Z:\\mixed/dir"), '\\');
    EXPECT_EQ(preferred_separator("plain"), '\\');

    EXPECT_EQ(trim_separators("dir///"), "dir");
    EXPECT_EQ(trim_separators("C:\\data\\"), "C:\\data");
    EXPECT_EQ(trim_separators("C:\\"), "C:\\");
    EXPECT_EQ(trim_separators("/"), "/");

    EXPECT_EQ(join("dir", '/', "a b.txt"), "dir/a b.txt");
    EXPECT_EQ(join("C:\\", '\\', "x"), "C:\\x");
    EXPECT_EQ(join("/", '/', "x"), "/x");

    EXPECT_EQ(stream_name(":Zone.Identifier:$DATA"), "Zone.Identifier");
    EXPECT_EQ(stream_name(":a"), "a");
}

TEST(ScanText, GlobsMatchNamesIgnoringCaseAndSeparatorKind) {
    struct Case {
        const char *pattern, *text;
        bool match;
    } cases[] = {
        {"*.tmp", "a.TMP", true},     {"*.tmp", "a.tmpx", false}, {"?.txt", "a.txt", true},
        {"?.txt", "ab.txt", false},   {"*", "", true},            {"", "", true},
        {"", "a", false},             {"a*b*c", "aXbYbZc", true}, {"a*b*c", "aXbYc d", false},
        {"dir/*.log", "dir\\x.log", true}, {"*/cache/*", "top/cache/f", true},
        {"**a", "bba", true},         {"a?", "a", false},
    };
    for (const Case &c : cases)
        EXPECT_EQ(glob_matches(c.pattern, c.text), c.match) << c.pattern << " ~ " << c.text;
    // A pattern of many stars against a long miss ends quickly.
    EXPECT_FALSE(glob_matches(std::string(50, '*') + "b", std::string(10000, 'a')));
}

TEST(ScanText, CountsRejectSignsGarbageAndOverflow) {
    unsigned long value = 7;
    EXPECT_TRUE(parse_count("0", &value));
    EXPECT_EQ(value, 0u);
    EXPECT_TRUE(parse_count("4294967295", &value));
    EXPECT_EQ(value, 4294967295u);
    for (const char *bad : {"", "-1", "+1", "1x", "4294967296", "99999999999", " 1"})
        EXPECT_FALSE(parse_count(bad, &value)) << bad;
}

TEST(ScanText, JsonLinesEscapeAndKeepUtf8) {
    const uint64_t size = 5;
    EXPECT_EQ(json_line("d\\a \"q\".txt", "file", &size, "ab12", 0x20, ""),
              "{\"path\":\"d\\\\a \\\"q\\\".txt\",\"kind\":\"file\",\"size\":5,"
              "\"sha1\":\"ab12\",\"attributes\":32}\n");
    EXPECT_EQ(json_line("x\n", "link", nullptr, "", INVALID_FILE_ATTRIBUTES, "gone"),
              "{\"path\":\"x\\n\",\"kind\":\"link\",\"size\":null,\"sha1\":null,"
              "\"error\":\"gone\"}\n");
    // Names arrive in UTF-8 and are written as they are, never converted
    // again: e-acute stays its two bytes, a CJK character its three.
    EXPECT_EQ(json_line("caf\xC3\xA9\xE4\xB8\xAD", "file", &size, "", INVALID_FILE_ATTRIBUTES,
                        ""),
              "{\"path\":\"caf\xC3\xA9\xE4\xB8\xAD\",\"kind\":\"file\",\"size\":5,\"sha1\":null}\n");
    EXPECT_EQ(json_line(std::string("\x01", 1), "file", nullptr, "", INVALID_FILE_ATTRIBUTES, ""),
              "{\"path\":\"\\u0001\",\"kind\":\"file\",\"size\":null,\"sha1\":null}\n");
}
