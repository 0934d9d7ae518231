// Startup definitions: the keywords and every line-format rule, the shipped
// file, and the records made from the lines.
#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "startup/definitions.h"
#include "support/heap_ledger.h"

using namespace vxio::startup;
using vxio::test::HeapLedger;

namespace {

const std::string kRun =
    "1,run,0,HKLM,Software\\Run,scansub_value,,disinf_deletenamevalue,";
const char kRunParsed[] = "1|run|0|HKLM|Software\\Run|1||2|";

// Lines as "id|label|number|root|key|mode|name|action|data", joined by ";".
std::string render(const std::vector<DefinitionLine> &lines) {
    std::string out;
    for (const DefinitionLine &l : lines) {
        if (!out.empty()) out += ';';
        out += std::to_string(l.id) + '|' + l.label + '|' + std::to_string(l.number) + '|' +
               RootText(l.root) + '|' + l.key + '|' + std::to_string(l.mode) + '|' + l.name +
               '|' + std::to_string(l.action) + '|' + l.data;
    }
    return out;
}

TEST(DefinitionText, Keywords) {
    const std::pair<const char *, HKEY> roots[] = {
        {"HKCR", HKEY_CLASSES_ROOT}, {"HKCU", HKEY_CURRENT_USER},
        {"HKLM", HKEY_LOCAL_MACHINE}, {"HKU", HKEY_USERS},
        {"HKPD", HKEY_PERFORMANCE_DATA}, {"HKDD", HKEY_DYN_DATA},
        {"HKCC", HKEY_CURRENT_CONFIG}, {"HKEY_CLASSES_ROOT", HKEY_CLASSES_ROOT},
        {"HKEY_CURRENT_USER", HKEY_CURRENT_USER}, {"HKEY_LOCAL_MACHINE", HKEY_LOCAL_MACHINE},
        {"HKEY_USERS", HKEY_USERS}, {"HKEY_PERFORMANCE_DATA", HKEY_PERFORMANCE_DATA},
        {"HKEY_DYN_DATA", HKEY_DYN_DATA}, {"HKEY_CURRENT_CONFIG", HKEY_CURRENT_CONFIG},
        {"hklm", nullptr}, {"HKLM ", nullptr}, {"", nullptr}, {"HKEY_LOCAL", nullptr}};
    for (const auto &[text, key] : roots) EXPECT_EQ(RootKey(RootFromText(text)), key) << text;
    // The texts back (the fuzzer writes lines with them); keywords match
    // whole and case-sensitively.
    for (uint32_t mode = 0; mode < 4; ++mode) EXPECT_EQ(ModeFromText(ModeText(mode)), mode);
    for (uint32_t action = 1; action < 9; ++action)
        EXPECT_EQ(ActionFromText(ActionText(action)), action) << ActionText(action);
    for (const char *text : {"", "Scansub_value", "scansub_value ", "disinf_bho\r"})
        EXPECT_EQ(ModeFromText(text) + ActionFromText(text), 0u) << text;
    EXPECT_STREQ(ModeText(4), "");
    EXPECT_STREQ(ActionText(0), "");
}

TEST(DefinitionText, Lines) {
    const std::string longName(100000, 'n');
    const struct {
        std::string text;
        int status;
        std::string lines;  // what is in the vector afterwards, failing or not
    } cases[] = {
        {kRun, kParsed, kRunParsed},
        {"\n\n" + kRun, kParsed, kRunParsed},  // line feeds ahead of the first line
        // One final line feed is accepted.
        {kRun + "\r\n" + kRun + "\r\n", kParsed, std::string(kRunParsed) + ";" + kRunParsed},
        {"7,a,-3,HKEY_USERS,k,scansub_key,n,disinf_bho,x,y,z\r\r", kParsed,
         "7|a|-3|HKU|k|3|n|6|x,y,z\r"},  // more fields go to data; one CR removed
        {"0,,,,,,,,", kParsed, "0||0|||0||0|"},  // empty field 3: field 4 after its comma
        {"3," + longName + ",0,HKCU,k,scansub_name,n,disinf_binary,d", kParsed,
         "3|" + longName + "|0|HKCU|k|2|n|7|d"},
        // Field 2 begins one byte after the number, whatever that byte is.
        {"12;run,0,,k,,,,", kParsed, "12|run|0||k|0||0|"},
        {"12x,run,0,,k,,,,", kParsed, "12||0||0|0|k|0|,,"},
        {"x,run,7,HKLM,k,scansub_key,n,disinf_bho,d", kParsed, "0||0||7|0|k|0|n,disinf_bho,d"},
        {"1,a,12x,HKLM,k,m,n,a,d", kParsed, "1|a|12||HKLM|0|m|0|a,d"},
        // strtoul and strtol with a 32-bit long: white space, sign, limits.
        {" \t-1,a, +5,,,,,,", kParsed, "4294967295|a|5|||0||0|"},
        {"-4294967295,a,-2147483648,,,,,,", kParsed, "1|a|-2147483648|||0||0|"},
        {"99999999999999999999,a,2147483648,,,,,,\n-4294967296,a,-99999999999,,,,,,", kParsed,
         "4294967295|a|2147483647|||0||0|;4294967295|a|-2147483648|||0||0|"},
        // Failures keep the lines read before them.
        {"1,a,0,HKLM,k,scansub_false,disinf_bho,d", kParseFormat, ""},  // seven commas
        {kRun + "\n\n" + kRun, kParseFormat, kRunParsed},                 // blank line
        {kRun + "\n\r\n" + kRun, kParseFormat, kRunParsed},  // a line of "\r" has no comma
        {kRun + "\nnext", kParseFormat, kRunParsed},
        {"5\n,a,0,,,,,,", kParseFormat, ""},  // a number ending its line has no field 2
        {kRun + std::string("\0", 1), kParseFormat, kRunParsed},
        {std::string("\0" "1,a,0,,,,,,", 12), kParseFormat, ""},
        {"", kParseFormat, ""},
    };
    for (const auto &c : cases) {
        std::vector<DefinitionLine> lines;
        EXPECT_EQ(ParseDefinitionText(c.text.data(), c.text.size(), lines), c.status)
            << c.text.substr(0, 80);
        EXPECT_EQ(render(lines), c.lines) << c.text.substr(0, 80);
    }
    std::vector<DefinitionLine> lines;
    EXPECT_EQ(ParseDefinitionText(nullptr, 5, lines), kParseFormat);
}

// The shipped definitions (copied beside this test by the build): every
// line parses, folder lines are patterns, registry lines have a repair.
TEST(DefinitionText, TheShippedDefinitionsParse) {
    char self[MAX_PATH];
    ASSERT_GT(GetModuleFileNameA(nullptr, self, MAX_PATH), 0u);
    std::string path = self;
    path = path.substr(0, path.rfind('\\') + 1) + "startup_locations.txt";
    std::ifstream file(path, std::ios::binary);
    ASSERT_TRUE(file) << path;
    const std::string text{std::istreambuf_iterator<char>(file), {}};

    std::vector<DefinitionLine> lines;
    ASSERT_EQ(ParseDefinitionText(text.data(), text.size(), lines), kParsed);
    EXPECT_EQ(lines.size(), static_cast<size_t>(std::count(text.begin(), text.end(), '\n')));
    for (const DefinitionLine &line : lines) {
        SCOPED_TRACE(line.label);
        EXPECT_FALSE(line.key.empty());
        if (line.root == Root::None)
            EXPECT_TRUE(line.mode == 2 && line.key.back() == '*');  // a start-up folder
        else
            EXPECT_TRUE(line.mode <= 3 && line.action >= 1 && line.action <= 6);
    }
}

TEST(Definitions, RecordsOwnTheirStringsAndEmptyFieldsAreNull) {
    HeapLedger ledger;
    // Only `length` bytes are read: no terminator needed after them.
    const std::string text =
        "9,lab,-2,HKLM,Soft\\Key,scansub_key,Val,disinf_deleteclsid,%windir%\\x\n"
        "4,,0,hklm,,bogus,,,\r\nTRAILING";
    DynArray *list = VOXA_arrNew();
    ASSERT_EQ(ParseStartupDefinitions(list, text.data(), text.size() - 8), 0);
    ASSERT_EQ(list->count, 2u);
    const auto &a = *static_cast<StartupDefinition *>(list->items[0]);
    EXPECT_TRUE(a.id == 9 && a.number == -2 && a.root == HKEY_LOCAL_MACHINE && a.view == 0 &&
                a.mode == VXIO_SCAN_SUBKEYS && a.action == VXIO_REPAIR_DELETE_CLSID);
    EXPECT_EQ(std::string(a.label) + "|" + a.key + "|" + a.name + "|" + a.data,
              "lab|Soft\\Key|Val|%windir%\\x");
    const auto &b = *static_cast<StartupDefinition *>(list->items[1]);
    EXPECT_EQ(b.id, 4u);
    for (const char *field : {b.label, b.key, b.name, b.data}) EXPECT_EQ(field, nullptr);
    EXPECT_EQ(b.root, nullptr) << "roots match case-sensitively";
    EXPECT_EQ(b.mode + b.action, 0u);

    // A failure keeps the records appended before it for the caller to free.
    const std::string blank = kRun + "\n\n" + kRun;
    EXPECT_EQ(ParseStartupDefinitions(list, blank.data(), blank.size()), -1);
    EXPECT_EQ(ParseStartupDefinitions(list, nullptr, 4), -1);
    EXPECT_EQ(ParseStartupDefinitions(nullptr, kRun.data(), kRun.size()), -1);
    EXPECT_EQ(list->count, 3u);
    EXPECT_EQ(FreeStartupDefinitions(list), 1);
    EXPECT_EQ(FreeStartupDefinitions(nullptr), 1);
    EXPECT_EQ(ledger.live(), 0u);
}

}  // namespace
