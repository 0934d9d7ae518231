// vxio startup: runs the startup scan of vxio.dll over a definition file
// (by default the one installed beside vxio.exe) and prints its findings,
// or applies the repair of one finding when asked to.
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "digest.h"
#include "scan_text.h"
#include "signatures.h"
#include "tool.h"
#include "vxio/startup.h"

namespace vxio_tool {
namespace {

const char kUsage[] =
    "Usage: vxio startup [--definitions FILE] [--signatures LIST] [--json]\n"
    "       vxio startup [--definitions FILE] --clean INDEX [--yes]\n"
    "Walk the places from which programs start by themselves (registry keys in\n"
    "both registry views, start-up folders), as the definition FILE lists them,\n"
    "and print one line per file found there:\n"
    "  INDEX  ID  PATH  ROOT  VIEW  KEY  NAME  ACTION   (separated by tabs)\n"
    "VIEW is 32 or 64 (the registry view the key was read in), or - on a\n"
    "32-bit system; NAME is the value or subkey that named the file.\n"
    "\n"
    "Options:\n"
    "  --definitions FILE  the definition file (default: startup_locations.txt\n"
    "                      beside vxio.exe)\n"
    "  --json              one JSON object per finding instead\n"
    "  --signatures LIST   hash each finding's file and add the name of the\n"
    "                      signature of LIST it matches (SHA1HEX:SIZE:NAME lines,\n"
    "                      see vxio scan --help), or -, as a last field\n"
    "  --clean INDEX       apply the repair of finding INDEX (as listed by a run\n"
    "                      over the same definitions): prints what it will\n"
    "                      change, asks, then changes the registry\n"
    "  --yes               do not ask\n"
    "  -h, --help          show this help and exit\n"
    "\n"
    "Exit codes: 0 done, 1 the scan found no readable location or the repair\n"
    "failed, 2 bad usage. With --signatures: 0 no finding matched, 1 some\n"
    "finding matched, 2 a bad list, a file that could not be read, no readable\n"
    "location, or bad usage.\n";

constexpr const char kDefaultDefinitions[] = "startup_locations.txt";

struct ScanTraits {
    using Value = DynArray *;
    static DynArray *invalid() { return nullptr; }
    static void close(DynArray *scan) { VOXA_IO_CloseStartupScan(scan); }
};
using Scan = Owned<ScanTraits>;

std::string default_definitions() {
    char path[MAX_PATH];
    const DWORD length = GetModuleFileNameA(nullptr, path, sizeof path);
    if (length == 0 || length >= sizeof path) return kDefaultDefinitions;
    std::string dir(path, length);
    const size_t slash = dir.find_last_of("\\/");
    return (slash == std::string::npos ? std::string() : dir.substr(0, slash + 1)) +
           kDefaultDefinitions;
}

const char *root_text(void *root) {
    const HKEY key = static_cast<HKEY>(root);
    if (key == HKEY_CLASSES_ROOT) return "HKCR";
    if (key == HKEY_CURRENT_USER) return "HKCU";
    if (key == HKEY_LOCAL_MACHINE) return "HKLM";
    if (key == HKEY_USERS) return "HKU";
    if (key == HKEY_CURRENT_CONFIG) return "HKCC";
    if (key == HKEY_PERFORMANCE_DATA) return "HKPD";
    if (key == HKEY_DYN_DATA) return "HKDD";
    return "-";
}

const char *view_text(uint32_t view) {
    if (view == KEY_WOW64_32KEY) return "32";
    if (view == KEY_WOW64_64KEY) return "64";
    return "-";
}

const char *action_text(uint32_t action) {
    static const char *const kActions[] = {
        "none", "disinf_deletevalue", "disinf_deletenamevalue", "disinf_deletekey",
        "disinf_deleteclsid", "disinf_replacevalue", "disinf_bho", "disinf_binary",
        "disinf_deletefile"};
    return action < sizeof kActions / sizeof kActions[0] ? kActions[action] : "?";
}

const char *text_or_dash(const char *text) { return text && *text ? text : "-"; }

// What the repair of a finding will change, in words.
std::string repair_text(const StartupFinding &f) {
    const std::string where = std::string(root_text(f.root)) + "\\" + text_or_dash(f.key) +
                              " (view " + view_text(f.view) + ")";
    const std::string name = text_or_dash(f.name);
    switch (f.action) {
    case VXIO_REPAIR_EMPTY_VALUE: return "empty the value '" + name + "' of " + where;
    case VXIO_REPAIR_DELETE_VALUE: return "delete the value '" + name + "' of " + where;
    case VXIO_REPAIR_DELETE_KEY: return "delete the key '" + name + "' and all below it in " + where;
    case VXIO_REPAIR_DELETE_CLSID:
    case VXIO_REPAIR_BHO:
        return "delete the key '" + name + "' of " + where +
               " and its class registration SOFTWARE\\Classes\\CLSID\\" + name;
    case VXIO_REPAIR_REPLACE_VALUE:
        return f.data ? "set the value '" + name + "' of " + where + " to '" + f.data +
                            "' (path macros expanded)"
                      : "remove '" + std::string(text_or_dash(f.label)) + "' from the value '" +
                            name + "' of " + where;
    default: return "";
    }
}

// The name of the signature the file at path matches, "" for none; false
// (with the reason on stderr) when it cannot be read. Only a file of a
// size some signature has is hashed.
bool detect(const SignatureTable &signatures, const IoTable &table, std::vector<uint8_t> &buffer,
            const char *path, std::string &detection) {
    detection.clear();
    WIN32_FILE_ATTRIBUTE_DATA data{};
    std::string failure;
    if (!GetFileAttributesExA(path, GetFileExInfoStandard, &data)) {
        failure = reason_text(GetLastError());
    } else if (!(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) &&
               !signatures.wants(uint64_t(data.nFileSizeHigh) << 32 | data.nFileSizeLow)) {
        return true;
    } else {
        uint8_t digest[SHA1HashSize];
        uint64_t size = 0;
        failure = hash_named_object(table, buffer, path, false, digest, &size);
        if (failure.empty()) {
            if (const char *name = signatures.match(digest, size)) detection = name;
            return true;
        }
    }
    fprintf(stderr, "vxio: %s: %s\n", to_utf8(path).c_str(), failure.c_str());
    return false;
}

int parse_index(const char *text, uint64_t *index) {
    unsigned long value = 0;
    if (!parse_count(text, &value)) return 0;
    *index = value;
    return 1;
}

}  // namespace

int run_startup(int argc, char **argv) {
    std::string definitions, signatureList;
    bool json = false, yes = false, clean = false, useSignatures = false;
    uint64_t cleanIndex = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "-h" || arg == "--help") {
            fputs(kUsage, stdout);
            return kExitOk;
        } else if (arg == "--definitions" && i + 1 < argc) {
            definitions = argv[++i];
        } else if (arg == "--signatures" && i + 1 < argc) {
            useSignatures = true;
            signatureList = argv[++i];
        } else if (arg == "--json") {
            json = true;
        } else if (arg == "--yes") {
            yes = true;
        } else if (arg == "--clean" && i + 1 < argc) {
            clean = true;
            if (!parse_index(argv[++i], &cleanIndex))
                return usage_error("startup", "--clean takes a finding's index");
        } else {
            return usage_error("startup", "unknown or incomplete option '" + arg + "'");
        }
    }
    if (definitions.empty()) definitions = default_definitions();
    if (useSignatures && clean)
        return usage_error("startup", "--signatures does not go with --clean");
    // A bad list stops the run before anything is scanned.
    SignatureTable signatures;
    std::string listError;
    if (useSignatures && !load_signatures(signatureList, signatures, listError)) {
        fprintf(stderr, "vxio: %s\n", to_utf8(listError).c_str());
        return kExitUsage;
    }
    // In signature mode the exit codes are the scanners': 1 says found.
    const int failed = useSignatures ? int(kExitUsage) : int(kExitUnreadable);

    // The definition text is handed to the scan as an I/O object: a file
    // read through the File backend. A directory never reaches the backend,
    // which would answer the system's refusal by clearing its DACL.
    const DWORD attributes = GetFileAttributesA(definitions.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        fprintf(stderr, "vxio: %s: %s\n", definitions.c_str(),
                attributes == INVALID_FILE_ATTRIBUTES ? reason_text(GetLastError()).c_str()
                                                      : "Is a directory");
        return failed;
    }
    static const uint8_t kNoCallerData[16] = {};
    FileObject text(VOXA_FILE_Open(definitions.c_str(), 0, 0, kNoCallerData, 16));
    if (!text.valid()) {
        fprintf(stderr, "vxio: %s: %s\n", definitions.c_str(), open_failure(definitions.c_str()).c_str());
        return failed;
    }
    Scan scan(VOXA_IO_OpenStartupScan(text.get(), nullptr));
    text.reset();
    if (!scan.valid()) {
        fprintf(stderr, "vxio startup: %s: no location could be read, or the definitions do "
                        "not parse\n", definitions.c_str());
        return failed;
    }
    const uint32_t count = scan.get()->count;

    if (clean) {
        if (cleanIndex >= count) {
            fprintf(stderr, "vxio startup: no finding %llu (there are %u)\n",
                    static_cast<unsigned long long>(cleanIndex), count);
            return kExitUnreadable;
        }
        const StartupFinding &f = *static_cast<StartupFinding *>(scan.get()->items[cleanIndex]);
        const std::string change = repair_text(f);
        printf("finding %llu: %s\n", static_cast<unsigned long long>(cleanIndex),
               text_or_dash(f.label));
        if (change.empty()) {
            printf("its definition names no registry repair (%s): nothing to do\n",
                   action_text(f.action));
            return kExitOk;
        }
        printf("will %s\n", change.c_str());
        if (!yes) {
            printf("apply? [y/N] ");
            fflush(stdout);
            char answer[16] = {};
            if (!fgets(answer, sizeof answer, stdin) || (answer[0] != 'y' && answer[0] != 'Y')) {
                printf("nothing changed\n");
                return kExitOk;
            }
        }
        const uint64_t status = VOXA_IO_CleanStartupScan(scan.get(), cleanIndex);
        printf("%s (status %d)\n", status == 0 ? "done" : "failed", static_cast<int>(status));
        return status == 0 ? kExitOk : kExitUnreadable;
    }

    FileTable fileTable;
    std::vector<uint8_t> buffer;
    if (useSignatures) {
        fileTable.reset(VXIO_TOOL_TABLE(VOXA_IO_GetTableForFileIO));
        if (!fileTable.valid()) {
            fprintf(stderr, "vxio startup: no File backend table\n");
            return kExitUsage;
        }
        buffer.resize(kChunk);
    }
    bool found = false, unreadable = false;
    for (uint32_t index = 0; index < count; ++index) {
        char *path = nullptr, *location = nullptr;
        uint64_t pathLength = 0, locationLength = 0;
        if (VOXA_IO_ReadStartupScan(scan.get(), index, &path, &pathLength, &location,
                                    &locationLength) != VXIO_STARTUP_OK) {
            ZELTA_myfree(path);
            ZELTA_myfree(location);
            continue;
        }
        const StartupFinding &f = *static_cast<StartupFinding *>(scan.get()->items[index]);
        std::string detection;
        if (useSignatures && !detect(signatures, *fileTable.get(), buffer, path, detection))
            unreadable = true;
        found = found || !detection.empty();
        if (json) {
            const std::string line =
                "{\"index\":" + std::to_string(index) + ",\"id\":" + std::to_string(f.id) +
                ",\"path\":" + json_string(path) + ",\"root\":\"" + root_text(f.root) +
                "\",\"view\":\"" + view_text(f.view) + "\",\"key\":" +
                json_string(f.key ? f.key : "") + ",\"name\":" + json_string(f.name ? f.name : "") +
                ",\"location\":" + json_string(location ? location : "") + ",\"action\":\"" +
                action_text(f.action) + "\"" +
                (detection.empty() ? "" : ",\"detection\":" + json_string(detection)) + "}\n";
            fputs(line.c_str(), stdout);
        } else {
            printf("%u\t%u\t%s\t%s\t%s\t%s\t%s\t%s%s%s\n", index, f.id, to_utf8(path).c_str(),
                   root_text(f.root), view_text(f.view), to_utf8(text_or_dash(f.key)).c_str(),
                   to_utf8(text_or_dash(f.name)).c_str(), action_text(f.action),
                   useSignatures ? "\t" : "", useSignatures ? text_or_dash(detection.c_str()) : "");
        }
        ZELTA_myfree(path);
        ZELTA_myfree(location);
    }
    if (unreadable) return kExitUsage;
    return found ? kExitUnreadable : kExitOk;
}

}  // namespace vxio_tool
