// The startup-scan definition text, as plain records.
//
// One definition per line, nine comma-separated fields:
//   id,label,number,root,key,mode,name,action,data
// for example
//   1,run,0,HKLM,Software\Microsoft\Windows\CurrentVersion\Run,scansub_value,,disinf_deletenamevalue,
// The parser turns the text into DefinitionLine records without touching
// any system object (no Windows headers here), so that it builds and is
// fuzzed natively; definitions.h turns the records into the library's
// StartupDefinition records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vxio::startup {

// Registry roots named in field 4 (exact, case-sensitive).
enum class Root : uint8_t {
    None,  // the text names no root: a file-system definition
    ClassesRoot,
    CurrentUser,
    LocalMachine,
    Users,
    PerformanceData,
    DynData,
    CurrentConfig,
};

struct DefinitionLine {
    uint32_t id = 0;
    std::string label;
    int32_t number = 0;
    Root root = Root::None;
    std::string key;
    uint32_t mode = 0;    // VXIO_SCAN_* (0 for an unknown keyword)
    std::string name;
    uint32_t action = 0;  // VXIO_REPAIR_* (0 for an unknown keyword)
    std::string data;
};

enum ParseResult : int {
    kParsed = 0,
    kParseFormat = -1,    // a line misses a comma, a blank line, trailing bytes...
    kParseNoMemory = -5,  // the working copy could not be made
};

// Parses the bytes [text, text + length). Lines are appended to lines in
// order; on a format error the lines before the failing one stay there.
// A null or empty text (first byte 0) is a format error.
int ParseDefinitionText(const char *text, size_t length, std::vector<DefinitionLine> &lines);

// The keyword tables (exact, case-sensitive matches).
Root RootFromText(const std::string &text);
uint32_t ModeFromText(const std::string &text);
uint32_t ActionFromText(const std::string &text);

// The texts for printing (the short root names "HKLM" etc., the keywords);
// "" for Root::None and for numbers outside the tables.
const char *RootText(Root root);
const char *ModeText(uint32_t mode);
const char *ActionText(uint32_t action);

}  // namespace vxio::startup
