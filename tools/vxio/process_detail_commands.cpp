// vxio modules and vxio handles: the library's lists of one process,
// completed by what the system itself answers where the library's records
// keep less than a person needs (full 64-bit module bases, the system's
// own object type names).
#include <windows.h>

#include <stdio.h>
#include <string.h>
#include <psapi.h>
#include <winternl.h>

#include <algorithm>
#include <string>
#include <vector>

#include "digest.h"
#include "process_support.h"
#include "scan_text.h"
#include "vxio/process.h"
#include "vxio/process_memory.h"

namespace vxio_tool {
namespace {

// A module as the system lists it: full base and size, the path.
struct SystemModule {
    uint64_t base;
    uint64_t size;
    std::wstring path;
};

// The engine walks at most 128 modules; the system's list is read up to
// 4096, enough for any process that one would inspect by hand.
constexpr DWORD kMostSystemModules = 4096;

std::vector<SystemModule> system_modules(uint32_t pid) {
    std::vector<SystemModule> found;
    KernelHandle process(OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, pid));
    if (!process.valid()) return found;
    std::vector<HMODULE> handles(256);
    DWORD needed = 0;
    for (int attempt = 0; attempt < 3; ++attempt) {
        const DWORD bytes = static_cast<DWORD>(handles.size() * sizeof(HMODULE));
        if (!EnumProcessModulesEx(process.get(), handles.data(), bytes, &needed, LIST_MODULES_ALL))
            return found;
        if (needed <= bytes) break;
        // The list grew between the calls or was larger than the first
        // guess: ask again with room for it, within the bound.
        handles.resize(std::min<DWORD>(needed / sizeof(HMODULE) + 16, kMostSystemModules));
        needed = std::min<DWORD>(needed, static_cast<DWORD>(handles.size() * sizeof(HMODULE)));
    }
    const size_t count = std::min<size_t>(needed / sizeof(HMODULE), handles.size());
    for (size_t i = 0; i < count; ++i) {
        MODULEINFO info{};
        wchar_t path[1024];
        if (!GetModuleInformation(process.get(), handles[i], &info, sizeof info)) continue;
        const DWORD length =
            GetModuleFileNameExW(process.get(), handles[i], path, sizeof path / sizeof path[0]);
        if (length == 0 || length >= sizeof path / sizeof path[0]) continue;
        found.push_back({reinterpret_cast<uintptr_t>(info.lpBaseOfDll), info.SizeOfImage,
                         std::wstring(path, length)});
    }
    return found;
}

// The system's module that is the library's record: the same path (the
// library keeps it lower-cased) and the same low 32 bits of the base.
const SystemModule *match(const std::vector<SystemModule> &modules, const ModuleEntry &entry,
                          const std::wstring &path) {
    for (const SystemModule &m : modules) {
        if (static_cast<uint32_t>(m.base) != entry.baseAddress) continue;
        if (CompareStringOrdinal(m.path.c_str(), static_cast<int>(m.path.size()), path.c_str(),
                                 static_cast<int>(path.size()), TRUE) == CSTR_EQUAL)
            return &m;
    }
    return nullptr;
}

}  // namespace

int run_modules(int argc, char **argv) {
    static const char kUsage[] =
        "Usage: vxio modules PID [--json] [--no-header]\n"
        "List the modules of process PID (0..4294967295): BASE, SIZE, PATH\n"
        "(tab-separated). BASE is the full load address in 16 hex digits, read\n"
        "from the system's own module list; \"????????\" stands for the high half\n"
        "when the system does not list the module.\n"
        "\n"
        "Options:\n"
        "  --json       one JSON object a module: pid, base (null when not\n"
        "               known), size, name, path, libraryBase (the low 32 bits\n"
        "               the engine keeps)\n"
        "  --no-header  leave out the column headers\n"
        "  -h, --help   show this help and exit\n"
        "\n"
        "Exit codes: 0 listed, 1 no such process or it could not be read, 2 bad usage.\n";
    ParsedArgs args;
    uint32_t pid = 0;
    ProcessIdentity identity;
    const int status = parse_process_command("modules", kUsage, argc, argv,
                                             {kJsonOption, kNoHeaderOption}, &args, &pid, &identity);
    if (status >= 0) return status;
    List modules;
    SetLastError(0);
    const int32_t result = VOXA_IO_CreateWin32PSAPIModulesList(modules.get(), pid);
    if (result != VXIO_PROC_OK)
        return report_result("modules", "process " + identity.described(pid), result);
    // The engine keeps only the low half of each base; the system's own
    // list gives the whole address, which a person needs on 64-bit systems.
    const std::vector<SystemModule> full = system_modules(pid);
    const bool json = args.has("--json");
    if (!json && !args.has("--no-header")) printf("BASE\tSIZE\tPATH\n");
    for (uint32_t i = 0; i < modules.size(); ++i) {
        const ModuleEntry *m = modules.at<ModuleEntry>(i);
        if (!m) continue;
        char path[sizeof m->path + 1] = {};
        memcpy(path, m->path, sizeof m->path);
        const SystemModule *system = match(full, *m, wide_of_ansi(path));
        const uint64_t size = system ? system->size : m->size;
        if (json) {
            const std::string base = system ? std::to_string(system->base) : "null";
            printf("{\"pid\":%u,\"base\":%s,\"size\":%llu,\"name\":%s,\"path\":%s,"
                   "\"libraryBase\":%u}\n",
                   pid, base.c_str(), static_cast<unsigned long long>(size),
                   json_string(base_name(path)).c_str(), json_string(path).c_str(),
                   m->baseAddress);
        } else if (system) {
            printf("%016llx\t%llu\t%s\n", static_cast<unsigned long long>(system->base),
                   static_cast<unsigned long long>(size), to_utf8(path).c_str());
        } else {
            printf("????????%08x\t%llu\t%s\n", m->baseAddress,
                   static_cast<unsigned long long>(size), to_utf8(path).c_str());
        }
    }
    return kExitOk;
}

namespace {

using QueryObjectFn = NTSTATUS(NTAPI *)(HANDLE, OBJECT_INFORMATION_CLASS, void *, ULONG, ULONG *);

// The system's own name for the type of one handle of process owner, by
// the object-type query on a duplicate (closed again here). Empty when
// the handle cannot be duplicated or the answer is not sound.
std::string system_type(HANDLE owner, uint64_t value, QueryObjectFn query) {
    if (!owner || !query) return "";
    KernelHandle duplicate;
    HANDLE copy = nullptr;
    if (!DuplicateHandle(owner, reinterpret_cast<HANDLE>(static_cast<uintptr_t>(value)),
                         GetCurrentProcess(), &copy, 0, FALSE, DUPLICATE_SAME_ACCESS))
        return "";
    duplicate.reset(copy);
    // The type's record and its name; a type name longer than this space
    // is not a type name.
    alignas(8) unsigned char answer[1024];
    ULONG returned = 0;
    if (query(duplicate.get(), ObjectTypeInformation, answer, sizeof answer, &returned) < 0)
        return "";
    const auto *type = reinterpret_cast<const UNICODE_STRING *>(answer);
    const auto *text = reinterpret_cast<const unsigned char *>(type->Buffer);
    // The name must lie inside what was answered, in whole characters.
    if (!text || type->Length == 0 || type->Length % 2 || text < answer + sizeof *type ||
        text > answer + sizeof answer || type->Length > answer + sizeof answer - text)
        return "";
    return utf8_of(std::wstring(type->Buffer, type->Length / 2));
}

// The engine writes "__...__" marks where it has no name; a person sees
// an unnamed object as having none.
bool is_mark(const char *name) {
    const size_t length = strlen(name);
    return length >= 4 && strncmp(name, "__", 2) == 0 && strcmp(name + length - 2, "__") == 0;
}

}  // namespace

int run_handles(int argc, char **argv) {
    static const char kUsage[] =
        "Usage: vxio handles PID [--json] [--no-header]\n"
        "List the open handles of process PID (0..4294967295): HANDLE (hex), TYPE,\n"
        "NAME (tab-separated). TYPE is the system's own name of the object type\n"
        "(\"?\" when it cannot be asked); NAME is empty for an unnamed object and\n"
        "for one whose name could not be had within 500 ms.\n"
        "\n"
        "Options:\n"
        "  --json       one JSON object a handle: pid, handle, type (null when\n"
        "               not known), libraryType (the engine's fixed-table name),\n"
        "               typeNumber, access, name, libraryName (the engine's text,\n"
        "               marks such as __ACCESS_DENIED__ included)\n"
        "  --no-header  leave out the column headers\n"
        "  -h, --help   show this help and exit\n"
        "\n"
        "Exit codes: 0 listed, 1 no such process or the handle table could not be\n"
        "read, 2 bad usage.\n";
    ParsedArgs args;
    uint32_t pid = 0;
    ProcessIdentity identity;
    const int status = parse_process_command("handles", kUsage, argc, argv,
                                             {kJsonOption, kNoHeaderOption}, &args, &pid, &identity);
    if (status >= 0) return status;
    const bool json = args.has("--json");
    if (!json && !args.has("--no-header")) printf("HANDLE\tTYPE\tNAME\n");
    // The engine takes owner 0 as "every process": the idle process, which
    // is 0, owns no handles.
    if (pid == 0) return kExitOk;
    List processes, modules, threads, handles;
    VOXA_IO_CreateWin32ToolHelpEnumerations(processes.get(), modules.get(), threads.get());
    SetLastError(0);
    const int32_t result =
        VOXA_IO_EnumerateOpenHandles(nullptr, 0, pid, 0, handles.get(), processes.get());
    if (result != VXIO_PROC_OK)
        return report_result("handles", "process " + identity.described(pid), result);
    // The engine names types by a fixed table that other systems number
    // otherwise; the system's own type name is asked for each handle.
    KernelHandle owner(OpenProcess(PROCESS_DUP_HANDLE, FALSE, pid));
    const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    const auto query = ntdll ? reinterpret_cast<QueryObjectFn>(reinterpret_cast<void *>(
                                   GetProcAddress(ntdll, "NtQueryObject")))
                             : nullptr;
    for (uint32_t i = 0; i < handles.size(); ++i) {
        const HandleEntry *h = handles.at<HandleEntry>(i);
        if (!h) continue;
        char libraryType[sizeof h->typeName + 1] = {}, name[sizeof h->objectName + 1] = {};
        memcpy(libraryType, h->typeName, sizeof h->typeName);
        memcpy(name, h->objectName, sizeof h->objectName);
        const std::string type = system_type(owner.get(), h->handleValue, query);
        const char *shown = is_mark(name) ? "" : name;
        if (json)
            printf("{\"pid\":%u,\"handle\":%llu,\"type\":%s,\"libraryType\":%s,\"typeNumber\":%u,"
                   "\"access\":%u,\"name\":%s,\"libraryName\":%s}\n",
                   pid, static_cast<unsigned long long>(h->handleValue),
                   type.empty() ? "null" : json_utf8_string(type).c_str(),
                   json_string(libraryType).c_str(), h->objectTypeNumber, h->grantedAccess,
                   json_string(shown).c_str(), json_string(name).c_str());
        else
            printf("%llx\t%s\t%s\n", static_cast<unsigned long long>(h->handleValue),
                   type.empty() ? "?" : type.c_str(), to_utf8(shown).c_str());
    }
    return kExitOk;
}

}  // namespace vxio_tool
