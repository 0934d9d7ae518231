// The texts of "vxio scan": printed paths, exclusion patterns, counts and
// JSON lines.
#include <gtest/gtest.h>

#include "tools/vxio/options.h"
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

// Every command's command line: each row is the arguments and what the
// parser makes of them, or the one-line reason it gives.
TEST(Options, EveryCommandLineIsTakenOrRefusedWithItsReason) {
    const std::vector<OptionRule> rules = {
        {"--json", OptionKind::kFlag},
        {"--out", OptionKind::kText},
        {"--jobs", OptionKind::kNumber, 1, 64},
        {"--check", OptionKind::kFlag, 0, 0, "-c"},
    };
    struct Case {
        std::vector<std::string> args;
        const char *taken;  // "name=value;...|operand,..." or the error
    } cases[] = {
        {{"1"}, "|1"},
        {{"--json", "7", "--jobs", "3"}, "--json=;--jobs=3|7"},
        {{"--jobs=64", "--out=", "1"}, "option '--out' needs a value"},
        {{"--out=a=b", "1"}, "--out=a=b|1"},
        {{"-c", "--", "--json"}, "--check=|--json"},
        {{"-"}, "|-"},
        {{"1", "2"}, "extra operand '2'"},
        {{}, "missing PID"},
        {{"--bogus", "1"}, "unknown option '--bogus'"},
        {{"--bogus=1", "1"}, "unknown option '--bogus'"},
        {{"-x", "1"}, "unknown option '-x'"},
        {{"--json=yes", "1"}, "option '--json' takes no value"},
        {{"1", "--out"}, "option '--out' needs a value"},
        {{"--jobs", "0", "1"}, "--jobs takes a number from 1 to 64, not '0'"},
        {{"--jobs", "65", "1"}, "--jobs takes a number from 1 to 64, not '65'"},
        {{"--jobs", "-1", "1"}, "--jobs takes a number from 1 to 64, not '-1'"},
        {{"--jobs", "2x", "1"}, "--jobs takes a number from 1 to 64, not '2x'"},
        {{"--jobs", " 2", "1"}, "--jobs takes a number from 1 to 64, not ' 2'"},
        {{"--bogus", "--help"}, "unknown option '--bogus'"},
        {{"1", "2", "-h"}, "extra operand '2'"},
        {{"-h", "--bogus"}, "help"},
    };
    for (const Case &c : cases) {
        ParsedArgs parsed;
        std::string error, got;
        if (!parse_arguments(c.args, rules, "PID", 1, 1, &parsed, &error)) {
            got = error;
        } else if (parsed.help) {
            got = "help";
        } else {
            for (size_t i = 0; i < parsed.options.size(); ++i)
                got += (i ? ";" : "") + parsed.options[i].first + "=" + parsed.options[i].second;
            got += "|";
            for (size_t i = 0; i < parsed.operands.size(); ++i)
                got += (i ? "," : "") + parsed.operands[i];
        }
        EXPECT_EQ(got, c.taken) << ::testing::PrintToString(c.args);
    }
}

TEST(Options, NumbersAreDecimalWithinTheirRange) {
    uint64_t value = 7;
    EXPECT_TRUE(parse_number("0", 0, 0xFFFFFFFFu, &value));
    EXPECT_EQ(value, 0u);
    EXPECT_TRUE(parse_number("4294967295", 0, 0xFFFFFFFFu, &value));
    EXPECT_EQ(value, 4294967295u);
    EXPECT_TRUE(parse_number("18446744073709551615", 0, UINT64_MAX, &value));
    EXPECT_EQ(value, UINT64_MAX);
    for (const char *bad : {"18446744073709551616", "", "-1", "+1", "1x", " 1", "0x10", "1e3",
                            "4294967296", "99999999999"})
        EXPECT_FALSE(parse_number(bad, 0, 0xFFFFFFFFu, &value)) << bad;
    ParsedArgs parsed;
    parsed.options = {{"--jobs", "3"}, {"--jobs", "5"}};
    EXPECT_EQ(parsed.number("--jobs", 1), 5u);
    EXPECT_EQ(parsed.number("--max", 9), 9u);
    EXPECT_EQ(parsed.values("--jobs"), (std::vector<std::string>{"3", "5"}));
}
