// vxio acl: runs one command of the security-descriptor language through
// VOXA_ACLs_ExecCommand and prints the listing it gives (every record of a
// walk, in walk order), or "ok".
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "digest.h"
#include "scan_text.h"
#include "tool.h"
#include "vxio/acl.h"

namespace vxio_tool {
namespace {

// The engine's text buffer: listings and restore texts up to 8319
// characters.
constexpr size_t kTextSize = 8320;
// A listing read back from a List output file is printed up to this size;
// a walk of a whole drive is bounded by it rather than by memory.
constexpr uint64_t kMostListing = uint64_t{1} << 30;

const char kUsage[] =
    "Usage: vxio acl [--in FILE] [--json] COMMAND\n"
    "Run one security-descriptor command: arguments separated by \">>\".\n"
    "\n"
    "  --objectName>>NAME  --objectType>>file|registry|service|printer|share\n"
    "  --recursion>>fileDirNoRecurse|regNoRecurse|dirRecurse|regRecurse|fileRecurse|fileDirRecurse\n"
    "  --filter>>TEXT  (objects whose path contains TEXT are left out)   --ignoreErrors\n"
    "  --action>>List>>sddl|csl|tab>>dacl,sacl,owner,primary_group>>Yes|No (explicit)>>No|Yes|Both (inherited)>>FILE|None\n"
    "  --action>>Clear>>dacl|sacl        --action>>SetProtection>>daclNoChange|daclNotProtected|daclProtectCopy|daclProtectNoCopy>>sacl...\n"
    "  --action>>SetOwner>>NAME>>IsName|IsSID   --action>>SetGroup>>NAME>>IsName|IsSID\n"
    "  --action>>ACE>>TRUSTEE>>IsName|IsSID>>WORDS>>sub-objects,sub-containers,...>>audit_success|audit_fail|revoke>>sacl\n"
    "  --action>>Trustee>>FIND>>IsName|IsSID>>PUT>>IsName|IsSID>>replaceTrustee|removeTrustee|copyTrustee>>dacl|sacl\n"
    "  --action>>Domain>>FIND>>PUT>>replaceDomain|removeDomain|copyDomain>>dacl|sacl\n"
    "  --action>>ResetPermissions>>dacl|sacl   --action>>Restore>>FILE|FromVOXAStruct\n"
    "\n"
    "A List prints the record of every object listed, in walk order (a\n"
    "recursive walk included); with an output FILE the records are written\n"
    "there and printed as well. Other commands print \"ok\".\n"
    "\n"
    "Options:\n"
    "  --in FILE   the file's text (at most 8318 characters) is the command's\n"
    "              input: the records that Restore>>FromVOXAStruct writes back\n"
    "  --json      one JSON object a record: \"objectName\", \"objectType\" with\n"
    "              \"objectTypeName\" and \"descriptor\" (sddl and csl records),\n"
    "              and always \"record\", the record as printed; nothing is\n"
    "              printed for a command that lists nothing\n"
    "  -h, --help  show this help and exit\n"
    "\n"
    "Examples:\n"
    "  list a file as SDDL:\n"
    "    vxio acl \"--objectName>>C:\\data\\a.txt>>--objectType>>file>>--action>>List>>sddl>>dacl,owner>>No>>Yes>>None\"\n"
    "  make a directory tree's DACL protected (inherited entries copied):\n"
    "    vxio acl \"--objectName>>C:\\data>>--objectType>>file>>--recursion>>fileDirRecurse>>--action>>SetProtection>>daclProtectCopy>>saclNoChange\"\n"
    "  restore from a saved SDDL listing:\n"
    "    vxio acl --in saved.txt \"--objectName>>C:\\data\\a.txt>>--objectType>>file>>--action>>Restore>>FromVOXAStruct\"\n"
    "\n"
    "Exit codes: 0 the command ran, 1 it failed (the reason on stderr) or\n"
    "FILE could not be read, 2 bad usage.\n";

// ---- What the tool needs to know of a command -------------------------
//
// The engine reads a command as tokens between runs of '>' and knows its
// words by a case-insensitive prefix ("NONE", "Nonesuch" are "None");
// "--objectName" alone must be spelled whole. The tool walks the tokens the
// same way, only to find the object's name, whether the walk recurses and
// where the List output argument is; the engine still parses the command.

struct Token {
    size_t at;
    size_t length;
};

std::vector<Token> split_tokens(const std::string &command) {
    std::vector<Token> tokens;
    size_t at = command.find_first_not_of('>');
    while (at != std::string::npos) {
        const size_t end = std::min(command.find('>', at), command.size());
        tokens.push_back({at, end - at});
        at = command.find_first_not_of('>', end);
    }
    return tokens;
}

bool begins_with(const std::string &text, const char *word) {
    const size_t length = strlen(word);
    return text.size() >= length && _strnicmp(text.c_str(), word, length) == 0;
}

struct CommandShape {
    std::string objectName;
    bool recursive = false;
    bool restores = false;
    size_t lists = 0;          // List actions met
    Token listFile{0, 0};      // the last List's output argument
    bool wellFormed = true;    // every option had its arguments
};

// The number of parameters an action takes after its name; -1 for a name
// the engine does not know.
int action_parameters(const std::string &name) {
    static const struct {
        const char *name;
        int parameters;
    } kActions[] = {{"ACE", 6},   {"List", 5},          {"SetOwner", 2},
                    {"SetGroup", 2}, {"Clear", 1},      {"SetProtection", 2},
                    {"ResetPermissions", 1}, {"Restore", 1}, {"Trustee", 6},
                    {"Domain", 4}};
    for (const auto &action : kActions)
        if (begins_with(name, action.name)) return action.parameters;
    return -1;
}

CommandShape command_shape(const std::string &command) {
    CommandShape shape;
    const std::vector<Token> tokens = split_tokens(command);
    auto text = [&](size_t i) { return command.substr(tokens[i].at, tokens[i].length); };
    for (size_t i = 0; i < tokens.size(); ++i) {
        const std::string token = text(i);
        const bool hasNext = i + 1 < tokens.size();
        if (_stricmp(token.c_str(), "--objectName") == 0 || begins_with(token, "--objectType") ||
            begins_with(token, "--filter") || begins_with(token, "--recursion")) {
            if (!hasNext) return shape.wellFormed = false, shape;
            const std::string value = text(++i);
            if (_stricmp(token.c_str(), "--objectName") == 0) shape.objectName = value;
            // The engine's table order: the "No" modes are met first.
            if (begins_with(token, "--recursion"))
                shape.recursive = !begins_with(value, "fileDirNoRecurse") &&
                                  !begins_with(value, "regNoRecurse");
        } else if (begins_with(token, "--action")) {
            if (!hasNext) return shape.wellFormed = false, shape;
            const std::string name = text(++i);
            const int parameters = action_parameters(name);
            if (parameters < 0 || i + parameters >= tokens.size())
                return shape.wellFormed = false, shape;
            if (begins_with(name, "List")) {
                ++shape.lists;
                shape.listFile = tokens[i + parameters];
            }
            if (begins_with(name, "Restore")) shape.restores = true;
            i += parameters;
        }
        // Any other token is passed over, as the engine does.
    }
    return shape;
}

// ---- The listing file of a recursive List -----------------------------

// A temporary file in %TEMP%, deleted when its owner goes.
struct TempFile {
    std::wstring path;  // empty until made
    TempFile() = default;
    TempFile(const TempFile &) = delete;
    TempFile &operator=(const TempFile &) = delete;
    ~TempFile() {
        if (!path.empty()) DeleteFileW(path.c_str());
    }
    bool valid() const { return !path.empty(); }
};

// Makes the temporary file; its name in the ANSI code page (the engine's
// 8-bit calls open it) goes to ansiName. The short form is used when the
// long one has no ANSI spelling.
bool make_temp_file(TempFile &file, std::string &ansiName, std::string &error) {
    wchar_t dir[MAX_PATH + 1], path[MAX_PATH + 1];
    const DWORD length = GetTempPathW(MAX_PATH + 1, dir);
    if (length == 0 || length > MAX_PATH || !GetTempFileNameW(dir, L"vxa", 0, path)) {
        error = "a temporary file in %TEMP%: " + reason_text(GetLastError());
        return false;
    }
    file.path = path;
    std::string failure;
    ansiName = library_name(path, false, &failure);
    if (ansiName.empty()) error = "a temporary file in %TEMP%: " + failure;
    return !ansiName.empty();
}

// The whole file, up to kMostListing bytes; false with the reason.
bool read_file(const std::string &path, uint64_t most, std::string &text, std::string &error) {
    FileHandle file(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size{};
    if (!file.valid() || !GetFileSizeEx(file.get(), &size)) {
        error = reason_text(GetLastError());
        return false;
    }
    if (static_cast<uint64_t>(size.QuadPart) > most) {
        error = "longer than " + std::to_string(most) + " bytes";
        return false;
    }
    text.resize(static_cast<size_t>(size.QuadPart));
    DWORD got = 0;
    if (!text.empty() && (!ReadFile(file.get(), &text[0], static_cast<DWORD>(text.size()), &got,
                                    nullptr) || got != text.size())) {
        error = reason_text(GetLastError());
        return false;
    }
    return true;
}

// The records of a List output file. The engine writes each record in text
// mode with its own CR LF, so a record ends in CR CR LF; "tab" records hold
// CR LF line ends inside.
std::vector<std::string> file_records(const std::string &text) {
    std::vector<std::string> records;
    size_t at = 0;
    while (at < text.size()) {
        size_t end = text.find("\r\r\n", at);
        const size_t next = end == std::string::npos ? text.size() : end + 3;
        if (end == std::string::npos) end = text.size();
        std::string record;
        for (size_t i = at; i < end; ++i)
            if (text[i] != '\r') record += text[i];
        if (!record.empty()) records.push_back(record);
        at = next;
    }
    return records;
}

// ---- Printing -----------------------------------------------------------

const char *object_type_name(uint64_t type) {
    static const char *const kNames[] = {"unknown", "file", "service", "printer", "registry", "share"};
    return type < sizeof kNames / sizeof kNames[0] ? kNames[type] : "unknown";
}

// One record as JSON. "sddl" and "csl" records are "NAME",TYPE,"TEXT"
// (an sddl record ends in ">>>"); "tab" records and anything else keep
// their text alone.
std::string record_json(std::string record) {
    while (!record.empty() && record.back() == '\n') record.pop_back();
    std::string json = "{";
    if (record.size() > 1 && record[0] == '"') {
        const size_t nameEnd = record.find("\",", 1);
        const size_t typeEnd = nameEnd == std::string::npos ? nameEnd : record.find(",\"", nameEnd + 2);
        uint64_t type = 0;
        if (typeEnd != std::string::npos &&
            parse_number(record.substr(nameEnd + 2, typeEnd - nameEnd - 2), 0, 0xFFFFFFFFu, &type)) {
            std::string descriptor = record.substr(typeEnd + 2);
            if (descriptor.size() >= 3 && descriptor.compare(descriptor.size() - 3, 3, ">>>") == 0)
                descriptor.resize(descriptor.size() - 3);
            if (!descriptor.empty() && descriptor.back() == '"') descriptor.pop_back();
            json += "\"objectName\":" + json_string(record.substr(1, nameEnd - 1)) +
                    ",\"objectType\":" + std::to_string(type) + ",\"objectTypeName\":\"" +
                    object_type_name(type) + "\",\"descriptor\":" + json_string(descriptor) + ",";
        }
    }
    return json + "\"record\":" + json_string(record) + "}\n";
}

void print_records(const std::vector<std::string> &records, bool json) {
    for (const std::string &record : records) {
        if (json) {
            fputs(record_json(record).c_str(), stdout);
        } else {
            fputs(to_utf8(record).c_str(), stdout);
            if (record.empty() || record.back() != '\n') fputs("\n", stdout);
        }
        end_if_output_closed();
    }
}

}  // namespace

int run_acl(int argc, char **argv) {
    static const std::vector<OptionRule> kOptions = {{"--in", OptionKind::kText},
                                                     {"--json", OptionKind::kFlag}};
    // A command begins with "--" like an option; it is told apart by its
    // ">" separators, which no option of the tool holds, and handed to the
    // parser after "--" so that it counts as the operand it is.
    std::vector<std::string> options, commands;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool isCommand = arg.find('>') != std::string::npos && arg.compare(0, 5, "--in=") != 0 &&
                               arg.compare(0, 7, "--json=") != 0;
        (isCommand ? commands : options).push_back(arg);
    }
    if (!commands.empty()) {
        options.push_back("--");
        options.insert(options.end(), commands.begin(), commands.end());
    }
    ParsedArgs args;
    const int parsed = run_options("acl", kUsage, options, kOptions, "COMMAND", 1, 1, &args);
    if (parsed >= 0) return parsed;
    std::string command = args.operands[0];
    const bool json = args.has("--json");
    const std::string *input = args.value("--in");

    std::vector<char> text(kTextSize, '\0');
    uint32_t size = kTextSize;
    if (input) {
        std::string given, error;
        if (!read_file(*input, kTextSize - 2, given, error) || given.empty()) {
            fprintf(stderr, "vxio acl: %s: %s\n", to_utf8(*input).c_str(),
                    given.empty() && error.empty() ? "empty" : error.c_str());
            return kExitUnreadable;
        }
        // The engine takes a text as input when its stated size is its
        // length (a full-size buffer would not be taken).
        memcpy(text.data(), given.c_str(), given.size() + 1);
        size = static_cast<uint32_t>(given.size());
    }

    // A recursive List hands back only the last object's record in the
    // text buffer; every record goes to the List's output file. When the
    // command names none ("None"), the tool lists into a temporary file of
    // its own, so that a person sees every object. Only that argument of
    // the user's command is changed, and only when it is None; a command
    // that also restores shares the file argument and is left alone.
    const CommandShape shape = command_shape(command);
    const bool namesFile = shape.lists == 1 && !begins_with(command.substr(shape.listFile.at, shape.listFile.length), "None");
    TempFile temp;
    std::string listFile;
    if (shape.wellFormed && shape.lists == 1 && !namesFile && shape.recursive &&
        !shape.restores && !input) {
        std::string error;
        if (!make_temp_file(temp, listFile, error)) {
            fprintf(stderr, "vxio acl: %s\n", error.c_str());
            return kExitUnreadable;
        }
        command.replace(shape.listFile.at, shape.listFile.length, listFile);
    } else if (shape.wellFormed && namesFile && !shape.restores) {
        listFile = command.substr(shape.listFile.at, shape.listFile.length);
    }

    SetLastError(ERROR_SUCCESS);
    if (!VOXA_ACLs_ExecCommand(command.c_str(), text.data(), size)) {
        const DWORD error = GetLastError();
        const std::string object = shape.objectName.empty() ? "the command" : to_utf8(shape.objectName);
        fprintf(stderr, "vxio acl: %s: %s\n", object.c_str(),
                error != ERROR_SUCCESS ? reason_text(error).c_str() : "the command failed");
        return kExitUnreadable;
    }
    // The records are read back from the output file, the user's too: the
    // listing printed is then the whole walk whoever named the file.
    std::vector<std::string> records;
    std::string listing, error;
    if (!listFile.empty() && read_file(listFile, kMostListing, listing, error)) {
        records = file_records(listing);
    } else if (!listFile.empty() && temp.valid()) {
        fprintf(stderr, "vxio acl: the listing file %s: %s\n", to_utf8(listFile).c_str(), error.c_str());
        return kExitUnreadable;
    } else if (!input && text[0] != '\0') {
        records.emplace_back(text.data(), strnlen(text.data(), text.size()));
    }
    if (!records.empty() || json) {
        print_records(records, json);
    } else {
        puts("ok");
    }
    return kExitOk;
}

}  // namespace vxio_tool
