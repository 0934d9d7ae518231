// vxio startup: runs the startup scan of vxio.dll over a definition file
// (by default the one installed beside vxio.exe) and prints its findings,
// or applies the repair of one finding when asked to.
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "digest.h"
#include "scan_text.h"
#include "signatures.h"
#include "tool.h"
#include "vxio/lock_sha1.h"
#include "vxio/startup.h"

namespace vxio_tool {
namespace {

const char kUsage[] =
    "Usage: vxio startup [--definitions FILE] [--signatures LIST] [--json] [--no-header]\n"
    "       vxio startup [--definitions FILE] --clean ID|INDEX [--yes]\n"
    "Walk the places from which programs start by themselves (registry keys in\n"
    "both registry views, start-up folders), as the definition FILE lists them,\n"
    "and print one line per distinct finding, separated by tabs:\n"
    "  ID  INDEX  DEFINITION  PATH  ROOT  VIEWS  KEY  NAME  ACTION\n"
    "ID is the finding's own 8 hex digits (a hash of its root, key, name,\n"
    "views, action and path: the same finding keeps it from run to run);\n"
    "INDEX its place in this listing, from 0; DEFINITION the id of the\n"
    "definition line that found it. A finding met in several registry views\n"
    "(a key both views share) is listed once, VIEWS naming them (32, 64 or\n"
    "32,64; - on a 32-bit system and for folders). NAME is the value or subkey\n"
    "that named the file.\n"
    "\n"
    "Options:\n"
    "  --definitions FILE  the definition file (default: startup_locations.txt\n"
    "                      beside vxio.exe)\n"
    "  --json              one JSON object per finding instead: id, index,\n"
    "                      definition, path, root/rootName, views/viewNames,\n"
    "                      key, name, location, action/actionName\n"
    "  --no-header         leave out the column headers\n"
    "  --signatures LIST   hash each finding's file and add the name of the\n"
    "                      signature of LIST it matches (SHA1HEX:SIZE:NAME lines,\n"
    "                      see vxio scan --help), or -, as a last field\n"
    "  --clean ID|INDEX    apply the repair of one finding, named by its ID (8\n"
    "                      hex digits) or its INDEX (0..9999999): prints what it\n"
    "                      will change, asks, scans again and acts only when the\n"
    "                      finding is still there (in every view it was found\n"
    "                      in), then reads the registry again and prints what\n"
    "                      changed: removed, value rewritten to '...', unchanged\n"
    "  --yes               with --clean: do not ask\n"
    "  -h, --help          show this help and exit\n"
    "\n"
    "Exit codes: 0 done, 1 the scan found no readable location, no such\n"
    "finding, or the repair changed nothing, 2 bad usage. With --signatures:\n"
    "0 no finding matched, 1 some finding matched, 2 a bad list, a file that\n"
    "could not be read, no readable location, or bad usage.\n";

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

const char *action_text(uint32_t action) {
    static const char *const kActions[] = {
        "none", "disinf_deletevalue", "disinf_deletenamevalue", "disinf_deletekey",
        "disinf_deleteclsid", "disinf_replacevalue", "disinf_bho", "disinf_binary",
        "disinf_deletefile"};
    return action < sizeof kActions / sizeof kActions[0] ? kActions[action] : "?";
}

const char *text_or_dash(const char *text) { return text && *text ? text : "-"; }

std::string views_text(const std::vector<uint32_t> &views);

// What the repair of a finding will change, in words.
std::string repair_text(const StartupFinding &f, const std::string &views) {
    const std::string where =
        std::string(root_text(f.root)) + "\\" + text_or_dash(f.key) + " (view " + views + ")";
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

// ---- Distinct findings ---------------------------------------------------

// One line of the listing: the library's findings that differ only in
// their registry view (HKCU keys are shared by both views, so the engine
// meets the same value twice) are one finding, shown once with its views.
struct Finding {
    std::string id;               // 8 hex digits
    std::vector<uint32_t> items;  // the library's indices, one per view
    std::vector<uint32_t> views;  // 0, 32 or 64, ascending
    std::string path, location;   // ANSI, as the library gives them
    const StartupFinding *record = nullptr;  // the first of items
};

uint32_t view_number(uint32_t view) {
    if (view == KEY_WOW64_32KEY) return 32;
    if (view == KEY_WOW64_64KEY) return 64;
    return 0;
}

uint32_t view_flag(uint32_t number) {
    return number == 32 ? KEY_WOW64_32KEY : number == 64 ? KEY_WOW64_64KEY : 0;
}

const char *view_name(uint32_t number) {
    return number == 32 ? "32-bit" : number == 64 ? "64-bit" : "none";
}

std::string views_text(const std::vector<uint32_t> &views) {
    std::string text;
    for (uint32_t view : views) {
        if (view == 0) continue;
        text += (text.empty() ? "" : ",") + std::to_string(view);
    }
    return text.empty() ? "-" : text;
}

// The key of a finding's identity; NUL-separated, as no field holds one.
std::string identity_text(const StartupFinding &f, const std::string &path) {
    std::string text = root_text(f.root);
    for (const char *field : {f.key, f.name}) {
        text += '\0';
        text += field ? field : "";
    }
    text += '\0';
    text += std::to_string(f.action);
    text += '\0';
    return text + path;
}

// A stable name for a finding: the first 8 hex digits of the SHA-1 of its
// identity and views, so that the same finding keeps its id between runs
// while the indices move with every other value added or removed.
std::string finding_id(const std::string &identity, const std::vector<uint32_t> &views) {
    const std::string text = identity + '\0' + views_text(views);
    SHA1Context context;
    uint8_t digest[SHA1HashSize];
    SHA1Reset(&context);
    SHA1Input(&context, reinterpret_cast<const uint8_t *>(text.data()),
              static_cast<unsigned>(text.size()));
    SHA1Result(&context, digest);
    char hex[9];
    for (int i = 0; i < 4; ++i) snprintf(hex + 2 * i, 3, "%02x", digest[i]);
    return hex;
}

// The distinct findings of a scan, in the order the scan met them first.
std::vector<Finding> distinct_findings(DynArray *scan) {
    std::vector<Finding> findings;
    std::vector<std::string> identities;
    const uint32_t count = scan->items ? scan->count : 0;
    for (uint32_t index = 0; index < count; ++index) {
        char *path = nullptr, *location = nullptr;
        uint64_t pathLength = 0, locationLength = 0;
        const auto *f = static_cast<const StartupFinding *>(scan->items[index]);
        if (!f || VOXA_IO_ReadStartupScan(scan, index, &path, &pathLength, &location,
                                          &locationLength) != VXIO_STARTUP_OK || !path) {
            ZELTA_myfree(path);
            ZELTA_myfree(location);
            continue;
        }
        const std::string pathText = path, locationText = location ? location : "";
        ZELTA_myfree(path);
        ZELTA_myfree(location);
        const std::string identity = identity_text(*f, pathText);
        const auto same = std::find(identities.begin(), identities.end(), identity);
        if (same == identities.end()) {
            identities.push_back(identity);
            findings.push_back({"", {index}, {view_number(f->view)}, pathText, locationText, f});
            continue;
        }
        Finding &known = findings[static_cast<size_t>(same - identities.begin())];
        const uint32_t view = view_number(f->view);
        if (std::find(known.views.begin(), known.views.end(), view) != known.views.end()) continue;
        known.items.push_back(index);
        known.views.push_back(view);
    }
    for (size_t i = 0; i < findings.size(); ++i) {
        Finding &f = findings[i];
        // Items and views sorted together, by view.
        std::vector<std::pair<uint32_t, uint32_t>> pairs;
        for (size_t k = 0; k < f.items.size(); ++k) pairs.emplace_back(f.views[k], f.items[k]);
        std::sort(pairs.begin(), pairs.end());
        for (size_t k = 0; k < pairs.size(); ++k) {
            f.views[k] = pairs[k].first;
            f.items[k] = pairs[k].second;
        }
        f.record = static_cast<const StartupFinding *>(scan->items[f.items[0]]);
        f.id = finding_id(identities[i], f.views);
    }
    return findings;
}

// Opens the scan over the definition file; false after the reason on
// stderr.
bool open_scan(const std::string &definitions, Scan &scan) {
    // The definition text is handed to the scan as an I/O object: a file
    // read through the File backend. A directory never reaches the backend,
    // which would answer the system's refusal by clearing its DACL.
    const DWORD attributes = GetFileAttributesA(definitions.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        fprintf(stderr, "vxio: %s: %s\n", to_utf8(definitions).c_str(),
                attributes == INVALID_FILE_ATTRIBUTES ? reason_text(GetLastError()).c_str()
                                                      : "Is a directory");
        return false;
    }
    static const uint8_t kNoCallerData[16] = {};
    FileObject text(VOXA_FILE_Open(definitions.c_str(), 0, 0, kNoCallerData, 16));
    if (!text.valid()) {
        fprintf(stderr, "vxio: %s: %s\n", to_utf8(definitions).c_str(),
                open_failure(definitions.c_str()).c_str());
        return false;
    }
    scan.reset(VOXA_IO_OpenStartupScan(text.get(), nullptr));
    if (!scan.valid()) {
        fprintf(stderr, "vxio startup: %s: no location could be read, or the definitions do "
                        "not parse\n", to_utf8(definitions).c_str());
        return false;
    }
    return true;
}

// ---- Repair and what it really did ------------------------------------

std::wstring wide(const char *ansi) { return ansi ? wide_of_ansi(ansi) : std::wstring(); }

struct RegistryKeyTraits {
    using Value = HKEY;
    static HKEY invalid() { return nullptr; }
    static void close(HKEY key) { RegCloseKey(key); }
};
using RegistryKey = Owned<RegistryKeyTraits>;

// What the registry holds at a finding's place in one view: the subkey
// key\name for the repairs that delete keys, else the value name of key.
struct Place {
    bool exists = false;
    std::string data;   // the value's data in words (UTF-8)
    std::string error;  // set when the place could not be read
};

bool deletes_key(uint32_t action) {
    return action == VXIO_REPAIR_DELETE_KEY || action == VXIO_REPAIR_DELETE_CLSID ||
           action == VXIO_REPAIR_BHO;
}

// The data of a value in words: strings as they are (a list joined by
// ';'), a DWORD in decimal, anything else by its size and type.
std::string data_text(DWORD type, const std::vector<BYTE> &data) {
    if (type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ) {
        const auto *text = reinterpret_cast<const wchar_t *>(data.data());
        size_t length = data.size() / sizeof(wchar_t);
        std::wstring joined(text, length);
        while (!joined.empty() && joined.back() == L'\0') joined.pop_back();
        if (type != REG_MULTI_SZ) joined = joined.substr(0, joined.find(L'\0'));
        for (wchar_t &c : joined)
            if (c == L'\0') c = L';';
        return utf8_of(joined);
    }
    if (type == REG_DWORD && data.size() == 4) {
        DWORD value;
        memcpy(&value, data.data(), 4);
        return std::to_string(value);
    }
    return std::to_string(data.size()) + " bytes of type " + std::to_string(type);
}

// Reads the place directly from the registry, in the view given.
Place read_place(const StartupFinding &f, uint32_t view) {
    Place place;
    const HKEY root = static_cast<HKEY>(f.root);
    std::wstring key = wide(f.key);
    const bool isKey = deletes_key(f.action);
    if (isKey) key += (key.empty() ? L"" : L"\\") + wide(f.name);
    RegistryKey opened;
    HKEY handle = nullptr;
    LSTATUS status = RegOpenKeyExW(root, key.c_str(), 0, KEY_QUERY_VALUE | view_flag(view), &handle);
    opened.reset(status == ERROR_SUCCESS ? handle : nullptr);
    if (status == ERROR_FILE_NOT_FOUND) return place;
    if (status != ERROR_SUCCESS) {
        place.error = reason_text(static_cast<DWORD>(status));
        return place;
    }
    if (isKey) {
        place.exists = true;
        return place;
    }
    const std::wstring name = wide(f.name);
    // The value may change between the two calls: ask again, a few times,
    // and never for more than the engine itself reads (64 KiB).
    std::vector<BYTE> data(256);
    for (int attempt = 0; attempt < 4; ++attempt) {
        DWORD type = 0, size = static_cast<DWORD>(data.size());
        status = RegQueryValueExW(opened.get(), name.c_str(), nullptr, &type, data.data(), &size);
        if (status == ERROR_MORE_DATA && size <= (1u << 16) + 16) {
            data.resize(size);
            continue;
        }
        if (status == ERROR_FILE_NOT_FOUND) return place;
        if (status != ERROR_SUCCESS) break;
        data.resize(size);
        place.exists = true;
        place.data = data_text(type, data);
        return place;
    }
    place.error = reason_text(static_cast<DWORD>(status));
    return place;
}

// The library's repair status in words.
std::string clean_status_text(uint64_t status) {
    const int32_t code = static_cast<int32_t>(status);
    switch (code) {
    case -1: return "the repair failed (or the finding is gone)";
    case -5: return "out of memory";
    case -6: return "no such finding";
    case -10: return "the finding is damaged";
    case 1: return "the repair found nothing to change";
    default: return code > 0 ? reason_text(static_cast<DWORD>(code)) : "status " + std::to_string(code);
    }
}

// What became of one place: "removed", "value rewritten to '...'" or
// "unchanged".
std::string outcome(const Place &before, const Place &after) {
    if (!after.error.empty()) return "could not be read again (" + after.error + ")";
    if (!after.exists) return before.exists ? "removed" : "unchanged (it was not there)";
    if (before.exists && before.data == after.data) return "unchanged";
    return "value rewritten to '" + after.data + "'";
}

// Accepts "1a2b3c4d" as an id, a decimal number as an index.
bool parse_target(const std::string &text, std::string *id, uint64_t *index) {
    if (text.size() == 8 && text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos) {
        *id = text;
        for (char &c : *id) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
        return true;
    }
    return parse_number(text, 0, 9999999, index);
}

const Finding *find_by_id(const std::vector<Finding> &findings, const std::string &id) {
    for (const Finding &f : findings)
        if (f.id == id) return &f;
    return nullptr;
}

int clean(const std::string &definitions, const std::string &target, bool yes) {
    std::string id;
    uint64_t index = 0;
    if (!parse_target(target, &id, &index))
        return usage_error("startup", "--clean takes a finding's ID (8 hex digits) or INDEX "
                                      "(0..9999999), not '" + target + "'");
    Scan scan;
    if (!open_scan(definitions, scan)) return kExitUnreadable;
    std::vector<Finding> findings = distinct_findings(scan.get());
    if (id.empty() && index < findings.size()) id = findings[index].id;
    const Finding *found = id.empty() ? nullptr : find_by_id(findings, id);
    if (!found) {
        fprintf(stderr, "vxio startup: no finding %s in a fresh scan: nothing changed\n",
                target.c_str());
        return kExitUnreadable;
    }
    const std::string change = repair_text(*found->record, views_text(found->views));
    printf("finding %s (index %zu, view %s): %s\n", found->id.c_str(),
           static_cast<size_t>(found - findings.data()), views_text(found->views).c_str(),
           to_utf8(found->path).c_str());
    if (change.empty()) {
        printf("its definition names no registry repair (%s): nothing to do\n",
               action_text(found->record->action));
        return kExitOk;
    }
    printf("will %s\n", to_utf8(change).c_str());
    if (!yes) {
        printf("apply? [y/N] ");
        fflush(stdout);
        char answer[16] = {};
        if (!fgets(answer, sizeof answer, stdin) || (answer[0] != 'y' && answer[0] != 'Y')) {
            printf("nothing changed\n");
            return kExitOk;
        }
    }
    // The registry may have changed while the question waited: the repair
    // acts on a scan made now, and only on the same finding.
    if (!yes) {
        scan.reset();
        if (!open_scan(definitions, scan)) return kExitUnreadable;
        findings = distinct_findings(scan.get());
        found = find_by_id(findings, id);
        if (!found) {
            fprintf(stderr, "vxio startup: no finding %s in a fresh scan: nothing changed\n",
                    id.c_str());
            return kExitUnreadable;
        }
    }
    const StartupFinding &record = *found->record;
    std::vector<Place> before;
    for (uint32_t view : found->views) before.push_back(read_place(record, view));
    // One repair per view the finding was met in; a view whose place the
    // repair of another already changed (a key both views share) is left.
    for (size_t k = 0; k < found->items.size(); ++k) {
        if (k > 0) {
            const Place now = read_place(record, found->views[k]);
            if (now.exists != before[k].exists || now.data != before[k].data) continue;
        }
        SetLastError(ERROR_SUCCESS);
        const uint64_t status = VOXA_IO_CleanStartupScan(scan.get(), found->items[k]);
        if (status != VXIO_STARTUP_OK)
            fprintf(stderr, "vxio startup: %s (view %s): %s\n", found->id.c_str(),
                    views_text({found->views[k]}).c_str(), clean_status_text(status).c_str());
    }
    // What a person is told is what the registry now holds, not what the
    // repair returned.
    bool changed = true;
    std::vector<std::pair<std::string, std::vector<uint32_t>>> outcomes;
    for (size_t k = 0; k < found->views.size(); ++k) {
        const std::string text = outcome(before[k], read_place(record, found->views[k]));
        if (text.compare(0, 7, "removed") != 0 && text.compare(0, 5, "value") != 0) changed = false;
        auto same = std::find_if(outcomes.begin(), outcomes.end(),
                                 [&](const auto &o) { return o.first == text; });
        if (same == outcomes.end()) outcomes.push_back({text, {found->views[k]}});
        else same->second.push_back(found->views[k]);
    }
    for (const auto &o : outcomes)
        printf("%s (view %s)\n", o.first.c_str(), views_text(o.second).c_str());
    return changed ? kExitOk : kExitUnreadable;
}

std::string root_json(void *root) {
    if (!root) return "null";
    return std::to_string(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(root)));
}

std::string finding_json(const Finding &f, size_t index, const std::string &detection) {
    const StartupFinding &r = *f.record;
    std::string views, names;
    for (uint32_t view : f.views) {
        views += (views.empty() ? "" : ",") + std::to_string(view);
        names += (names.empty() ? "\"" : ",\"") + std::string(view_name(view)) + "\"";
    }
    return "{\"id\":\"" + f.id + "\",\"index\":" + std::to_string(index) +
           ",\"definition\":" + std::to_string(r.id) + ",\"path\":" + json_string(f.path) +
           ",\"root\":" + root_json(r.root) + ",\"rootName\":" +
           (r.root ? "\"" + std::string(root_text(r.root)) + "\"" : "null") + ",\"views\":[" +
           views + "],\"viewNames\":[" + names + "],\"key\":" + json_string(r.key ? r.key : "") +
           ",\"name\":" + json_string(r.name ? r.name : "") + ",\"location\":" +
           json_string(f.location) + ",\"action\":" + std::to_string(r.action) +
           ",\"actionName\":\"" + action_text(r.action) + "\"" +
           (detection.empty() ? "" : ",\"detection\":" + json_string(detection)) + "}\n";
}

}  // namespace

int run_startup(int argc, char **argv) {
    static const std::vector<OptionRule> kOptions = {
        {"--definitions", OptionKind::kText}, {"--signatures", OptionKind::kText},
        {"--json", OptionKind::kFlag},        {"--no-header", OptionKind::kFlag},
        {"--clean", OptionKind::kText},       {"--yes", OptionKind::kFlag}};
    ParsedArgs args;
    const int parsed = run_options("startup", kUsage, argc, argv, kOptions, "", 0, 0, &args);
    if (parsed >= 0) return parsed;
    std::string definitions = args.value("--definitions") ? *args.value("--definitions") : "";
    if (definitions.empty()) definitions = default_definitions();
    const bool useSignatures = args.has("--signatures");
    if (args.has("--clean")) {
        for (const char *listing : {"--signatures", "--json", "--no-header"})
            if (args.has(listing))
                return usage_error("startup", std::string(listing) + " does not go with --clean");
        return clean(definitions, *args.value("--clean"), args.has("--yes"));
    }
    if (args.has("--yes")) return usage_error("startup", "--yes goes with --clean only");
    const bool json = args.has("--json");

    // A bad list stops the run before anything is scanned.
    SignatureTable signatures;
    std::string listError;
    if (useSignatures && !load_signatures(*args.value("--signatures"), signatures, listError)) {
        fprintf(stderr, "vxio: %s\n", to_utf8(listError).c_str());
        return kExitUsage;
    }
    // In signature mode the exit codes are the scanners': 1 says found.
    const int failed = useSignatures ? int(kExitUsage) : int(kExitUnreadable);
    Scan scan;
    if (!open_scan(definitions, scan)) return failed;
    const std::vector<Finding> findings = distinct_findings(scan.get());

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
    if (!json && !args.has("--no-header"))
        printf("ID\tINDEX\tDEFINITION\tPATH\tROOT\tVIEWS\tKEY\tNAME\tACTION%s\n",
               useSignatures ? "\tDETECTION" : "");
    bool found = false, unreadable = false;
    for (size_t index = 0; index < findings.size(); ++index) {
        const Finding &f = findings[index];
        const StartupFinding &r = *f.record;
        std::string detection;
        if (useSignatures && !detect(signatures, *fileTable.get(), buffer, f.path.c_str(), detection))
            unreadable = true;
        found = found || !detection.empty();
        if (json) {
            fputs(finding_json(f, index, detection).c_str(), stdout);
        } else {
            printf("%s\t%zu\t%u\t%s\t%s\t%s\t%s\t%s\t%s%s%s\n", f.id.c_str(), index, r.id,
                   to_utf8(f.path).c_str(), root_text(r.root), views_text(f.views).c_str(),
                   to_utf8(text_or_dash(r.key)).c_str(), to_utf8(text_or_dash(r.name)).c_str(),
                   action_text(r.action), useSignatures ? "\t" : "",
                   useSignatures ? text_or_dash(detection.c_str()) : "");
        }
        end_if_output_closed();
    }
    if (unreadable) return kExitUsage;
    return found ? kExitUnreadable : kExitOk;
}

}  // namespace vxio_tool
