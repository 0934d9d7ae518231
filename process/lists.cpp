// Lists of processes, threads, modules, heap blocks, kernel modules and
// services, each gathered through one independent system interface so that
// the engine can compare them (a process hidden from one interface often
// shows in another).
//
// Every walk appends records to the caller's DynArrays and never clears
// them. An item whose append fails is freed and dropped; a failed record
// allocation ends the walk with kNoMemory, keeping what was appended.
//
// Kept as the engine knows it:
// - The process-status module list covers at most 128 modules: the needed
//   byte count is clamped to 1024 before it is divided by the handle size.
// - The performance-counter lists skip their first item whatever it is,
//   and drop every name that merely begins with "Idle", "SYSTEM" or
//   "_Total" in any case.
// - The service list is empty (and the result 0) when the first
//   enumeration call succeeds outright or fails for another reason than a
//   short buffer.
// - The debug-buffer module list enables the debug privilege and never
//   reverts it: the calling thread keeps impersonating itself.
// - The combined tool-help enumeration closes every process's modules with
//   one separator record, also when its modules could not be read.
#include <pdh.h>
#include <psapi.h>
#include <winsvc.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "fs/native_path.h"
#include "platform/library.h"
#include "platform/os.h"
#include "process/gate.h"
#include "process/loader_walk.h"
#include "process/native_query.h"
#include "process/native_records.h"
#include "process/privileges.h"
#include "util/owner.h"
#include "vxio/process.h"
#include "vxio/process_memory.h"

namespace vxio::process {
namespace {

using platform::os;
using platform::RuntimeLibrary;

// ---------------------------------------------------------------------------
// Entry points looked up by name. Declared here rather than taken from the
// SDK headers, whose macros may rename them (EnumProcesses -> K32...).

using EnumProcessesFn = BOOL(WINAPI *)(DWORD *, DWORD, DWORD *);
using GetModuleFileNameExFn = DWORD(WINAPI *)(HANDLE, HMODULE, LPSTR, DWORD);
using EnumProcessModulesExFn = BOOL(WINAPI *)(HANDLE, HMODULE *, DWORD, LPDWORD, DWORD);
using EnumProcessModulesFn = BOOL(WINAPI *)(HANDLE, HMODULE *, DWORD, LPDWORD);
using GetModuleInformationFn = BOOL(WINAPI *)(HANDLE, HMODULE, LPMODULEINFO, DWORD);

using SnapshotFn = HANDLE(WINAPI *)(DWORD, DWORD);
using Module32Fn = BOOL(WINAPI *)(HANDLE, LPMODULEENTRY32);
using Thread32Fn = BOOL(WINAPI *)(HANDLE, LPTHREADENTRY32);
using Heap32ListFn = BOOL(WINAPI *)(HANDLE, LPHEAPLIST32);
using Heap32FirstFn = BOOL(WINAPI *)(LPHEAPENTRY32, DWORD, ULONG_PTR);
using Heap32NextFn = BOOL(WINAPI *)(LPHEAPENTRY32);

using PdhEnumObjectItemsFn = LONG(WINAPI *)(LPCSTR, LPCSTR, LPCSTR, LPSTR, LPDWORD, LPSTR, LPDWORD,
                                            DWORD, DWORD);
using PdhMakeCounterPathFn = LONG(WINAPI *)(PDH_COUNTER_PATH_ELEMENTS_A *, LPSTR, LPDWORD, DWORD);
using PdhOpenQueryFn = LONG(WINAPI *)(LPCSTR, DWORD_PTR, PDH_HQUERY *);
using PdhAddCounterFn = LONG(WINAPI *)(PDH_HQUERY, LPCSTR, DWORD_PTR, PDH_HCOUNTER *);
using PdhCollectQueryDataFn = LONG(WINAPI *)(PDH_HQUERY);
using PdhGetRawCounterArrayFn = LONG(WINAPI *)(PDH_HCOUNTER, LPDWORD, LPDWORD,
                                               PDH_RAW_COUNTER_ITEM_A *);
using PdhCloseQueryFn = LONG(WINAPI *)(PDH_HQUERY);

using NtQuerySystemInformationFn = LONG(NTAPI *)(ULONG, PVOID, ULONG, PULONG);
using NtQueryInformationProcessFn = LONG(NTAPI *)(HANDLE, ULONG, PVOID, ULONG, PULONG);
using RtlCreateQueryDebugBufferFn = void *(NTAPI *)(ULONG, BOOLEAN);
using RtlQueryProcessDebugInformationFn = LONG(NTAPI *)(ULONG, ULONG, void *);
using RtlDestroyQueryDebugBufferFn = LONG(NTAPI *)(void *);

using OpenSCManagerFn = SC_HANDLE(WINAPI *)(LPCSTR, LPCSTR, DWORD);
using EnumServicesStatusExFn = BOOL(WINAPI *)(SC_HANDLE, SC_ENUM_TYPE, DWORD, DWORD, LPBYTE, DWORD,
                                              LPDWORD, LPDWORD, LPDWORD, LPCSTR);
using CloseServiceHandleFn = BOOL(WINAPI *)(SC_HANDLE);

// ---------------------------------------------------------------------------
// Native records, as the 64-bit system lays them out.


constexpr ULONG kQueryModules = 1;  // RTL_QUERY_PROCESS_MODULES

// ---------------------------------------------------------------------------
// Bounds. Every walk over data the system hands back stops after a fixed
// number of steps, so a snapshot or buffer that never ends (or a seam that
// keeps answering) cannot hang the caller.
constexpr uint32_t kWalkLimit = 1u << 20;
// EnumProcesses doubles its id buffer from 1024 bytes; 16 doublings give
// 64 MiB (16 M ids). Past that the list is taken as returned.
constexpr uint32_t kIdBufferDoublings = 16;
constexpr uint32_t kBasicInfoRounds = 8;

constexpr size_t kText = 260;

// A zero-filled record from ZELTA_mymalloc, or null.
template <typename T>
T *new_record() {
    auto *record = static_cast<T *>(ZELTA_mymalloc(sizeof(T)));
    if (record) std::memset(record, 0, sizeof(T));
    return record;
}

// The list takes the record; one it cannot take is freed and dropped.
void append(DynArray *list, void *record) {
    if (!VOXA_arrAdd(list, record)) ZELTA_myfree(record);
}

// A text that does not fit its field is stored empty, never cut.
void store_text(char *field, const char *text) {
    field[0] = '\0';
    if (!text) return;
    const size_t length = strnlen(text, kText);
    if (length + 1 > kText) return;
    std::memcpy(field, text, length + 1);
}

void normalise(char *path) { fs::NormalizeNativePath(path); }

bool forbidden_id(uint64_t id) { return id == 0 || id == 4; }

// ---------------------------------------------------------------------------
// Process-status library.

// A block from the process heap, as the id buffer is allocated.
struct HeapBlock {
    void *block = nullptr;
    ~HeapBlock() { release(); }
    void release() {
        if (block) os.HeapFree(os.GetProcessHeap(), 0, block);
        block = nullptr;
    }
};

int32_t psapi_processes(DynArray *list) {
    RuntimeLibrary psapi("PSAPI.DLL");
    if (!psapi.loaded()) return kNoMemory;
    auto enumProcesses = psapi.get<EnumProcessesFn>("EnumProcesses");
    auto fileName = psapi.get<GetModuleFileNameExFn>("GetModuleFileNameExA");
    if (!enumProcesses || !fileName) return kFailed;

    HeapBlock ids;
    DWORD size = 1024;
    DWORD returned = 0;
    for (uint32_t round = 0;; ++round) {
        ids.block = os.HeapAlloc(os.GetProcessHeap(), 0, size);
        if (!ids.block) return kNoMemory;
        if (!enumProcesses(static_cast<DWORD *>(ids.block), size, &returned)) return kFailed;
        // A full buffer may have cut the list: ask again with twice the room.
        if (returned != size || round == kIdBufferDoublings) break;
        ids.release();
        size *= 2;
    }

    const DWORD count = (returned < size ? returned : size) / sizeof(DWORD);
    for (DWORD i = 0; i < count; ++i) {
        const DWORD id = static_cast<DWORD *>(ids.block)[i];
        if (forbidden_id(id)) continue;
        UniqueHandle process(OpenProcessToRead(id));
        if (!process) continue;
        char name[kText] = {};
        if (!fileName(process.get(), nullptr, name, kText)) continue;
        normalise(name);
        auto *entry = new_record<ProcessEntry>();
        if (!entry) return kNoMemory;
        entry->processId = id;
        store_text(entry->name, name);
        append(list, entry);
    }
    return kOk;
}

int32_t psapi_modules(DynArray *list, DWORD processId) {
    RuntimeLibrary psapi("PSAPI.DLL");
    if (!psapi.loaded()) return kFailed;
    auto enumEx = psapi.get<EnumProcessModulesExFn>("EnumProcessModulesEx");
    EnumProcessModulesFn enumOld = nullptr;
    if (!enumEx) enumOld = psapi.get<EnumProcessModulesFn>("EnumProcessModules");
    if (!enumEx && !enumOld) return kFailed;
    auto fileName = psapi.get<GetModuleFileNameExFn>("GetModuleFileNameExA");
    auto information = psapi.get<GetModuleInformationFn>("GetModuleInformation");
    if (!fileName || !information) return kFailed;

    UniqueHandle process(OpenProcessToRead(processId));
    if (!process) return kFailed;

    HMODULE modules[1024];
    DWORD needed = 0;
    const BOOL listed = enumEx ? enumEx(process.get(), modules, sizeof modules, &needed,
                                        LIST_MODULES_ALL)
                               : enumOld(process.get(), modules, sizeof modules, &needed);
    if (!listed) return kFailed;
    // The clamp is on bytes, not handles: at most 128 modules, on purpose.
    if (needed > 1024) needed = 1024;

    for (DWORD i = 0; i < needed / sizeof(HMODULE); ++i) {
        char path[kText] = {};
        if (!fileName(process.get(), modules[i], path, kText)) continue;
        normalise(path);
        auto *entry = new_record<ModuleEntry>();
        if (!entry) return kNoMemory;
        store_text(entry->path, path);
        // The platform's module record, at its own size: a shorter length is
        // refused, which would leave every base and size at 0.
        MODULEINFO info{};
        if (information(process.get(), modules[i], &info, sizeof info)) {
            entry->baseAddress = low32(info.lpBaseOfDll);
            entry->size = info.SizeOfImage;
            entry->extra = low32(info.EntryPoint);
        }
        entry->processId = processId;
        append(list, entry);
    }
    return kOk;
}

// ---------------------------------------------------------------------------
// Tool-help snapshots.

// The entry size fields are set to these values before the first call;
// the records are padded so that the size given is the room there is.
constexpr DWORD kProcessEntrySize = 600;
constexpr DWORD kModuleEntrySize = 1112;
union ProcessSnapshotEntry {
    PROCESSENTRY32 entry;
    uint8_t room[kProcessEntrySize];
};
union ModuleSnapshotEntry {
    MODULEENTRY32 entry;
    uint8_t room[kModuleEntrySize];
};

int32_t toolhelp_modules(DynArray *list, DWORD processId) {
    RuntimeLibrary kernel("KERNEL32.DLL");
    if (!kernel.loaded()) return kNoMemory;
    auto snapshot = kernel.get<SnapshotFn>("CreateToolhelp32Snapshot");
    auto first = kernel.get<Module32Fn>("Module32First");
    auto next = kernel.get<Module32Fn>("Module32Next");
    if (!snapshot || !first || !next) return kFailed;

    UniqueFile modules(snapshot(TH32CS_SNAPMODULE | TH32CS_SNAPMODULE32, processId));
    if (!usable(modules.get())) return kFailed;
    ModuleSnapshotEntry item{};
    item.entry.dwSize = kModuleEntrySize;
    if (!first(modules.get(), &item.entry)) return kFailed;
    uint32_t steps = 0;
    do {
        char path[kText] = {};
        store_text(path, item.entry.szExePath);
        normalise(path);
        auto *entry = new_record<ModuleEntry>();
        if (!entry) return kNoMemory;
        entry->processId = processId;
        entry->baseAddress = low32(item.entry.modBaseAddr);
        entry->size = item.entry.modBaseSize;
        entry->extra = low32(item.entry.hModule);
        store_text(entry->path, path);
        append(list, entry);
        std::memset(item.entry.szExePath, 0, sizeof item.entry.szExePath);
    } while (++steps < kWalkLimit && next(modules.get(), &item.entry));
    return kOk;
}

int32_t toolhelp_threads(DynArray *list) {
    RuntimeLibrary kernel("KERNEL32.DLL");
    if (!kernel.loaded()) return kNoMemory;
    auto snapshot = kernel.get<SnapshotFn>("CreateToolhelp32Snapshot");
    auto first = kernel.get<Thread32Fn>("Thread32First");
    auto next = kernel.get<Thread32Fn>("Thread32Next");
    if (!snapshot || !first || !next) return kFailed;

    UniqueFile threads(snapshot(TH32CS_SNAPTHREAD, 0));
    if (!usable(threads.get())) return kFailed;
    THREADENTRY32 item{};
    static_assert(sizeof item == 28, "thread snapshot entry");
    item.dwSize = sizeof item;
    if (!first(threads.get(), &item)) return kFailed;
    uint32_t steps = 0;
    do {
        auto *entry = new_record<ThreadEntry>();
        if (!entry) return kNoMemory;
        entry->threadId = item.th32ThreadID;
        entry->ownerProcessId = item.th32OwnerProcessID;
        append(list, entry);
    } while (++steps < kWalkLimit && next(threads.get(), &item));
    return kOk;
}

int32_t toolhelp_enumerations(DynArray *processes, DynArray *modules, DynArray *threads) {
    UniqueFile snapshot(os.CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS | TH32CS_INHERIT, 0));
    if (!usable(snapshot.get())) return kFailed;
    ProcessSnapshotEntry item{};
    item.entry.dwSize = kProcessEntrySize;
    if (!os.Process32First(snapshot.get(), &item.entry)) return kFailed;

    uint32_t steps = 0;
    do {
        const DWORD id = item.entry.th32ProcessID;
        if (forbidden_id(id)) continue;
        const uint32_t firstModule = modules->count;
        const bool walked = toolhelp_modules(modules, id) == kOk;

        auto *entry = new_record<ProcessEntry>();
        if (!entry) return kNoMemory;
        auto *separator = new_record<ModuleEntry>();
        if (!separator) {
            ZELTA_myfree(entry);
            return kNoMemory;
        }
        append(modules, separator);
        // The process's name is the path of its first module, normally its
        // executable; without modules the index falls on the separator.
        if (walked && firstModule < modules->count)
            store_text(entry->name, static_cast<ModuleEntry *>(modules->items[firstModule])->path);
        entry->processId = id;
        // The second word is the parent's id, the one process word of the
        // snapshot entry a caller can use to rebuild the process tree.
        entry->parentOrAux = item.entry.th32ParentProcessID;
        append(processes, entry);
    } while (++steps < kWalkLimit && os.Process32Next(snapshot.get(), &item.entry));

    toolhelp_threads(threads);
    return kOk;
}

int32_t toolhelp_heaps(DynArray *list, DWORD processId) {
    RuntimeLibrary kernel("KERNEL32.DLL");
    if (!kernel.loaded()) return kNoMemory;
    auto snapshot = kernel.get<SnapshotFn>("CreateToolhelp32Snapshot");
    auto blockFirst = kernel.get<Heap32FirstFn>("Heap32First");
    auto blockNext = kernel.get<Heap32NextFn>("Heap32Next");
    auto listFirst = kernel.get<Heap32ListFn>("Heap32ListFirst");
    auto listNext = kernel.get<Heap32ListFn>("Heap32ListNext");
    if (!snapshot || !blockFirst || !blockNext || !listFirst || !listNext) return kFailed;

    UniqueFile heaps(snapshot(TH32CS_SNAPHEAPLIST, processId));
    if (!usable(heaps.get())) return kFailed;
    // Both records at the platform's own sizes: the walk functions refuse
    // a record that announces less room than their declaration.
    HEAPLIST32 heap{};
    heap.dwSize = sizeof heap;
    if (!listFirst(heaps.get(), &heap)) return kFailed;
    uint32_t steps = 0;
    do {
        HEAPENTRY32 block{};
        static_assert(sizeof block == 56, "heap block entry");
        block.dwSize = sizeof block;
        if (!blockFirst(&block, heap.th32ProcessID, heap.th32HeapID)) return kFailed;
        do {
            if (block.dwFlags == LF32_FIXED || block.dwFlags == LF32_FREE ||
                block.dwFlags == LF32_MOVEABLE) {
                auto *entry = new_record<HeapBlockEntry>();
                if (!entry) return kNoMemory;
                entry->listProcessId = heap.th32ProcessID;
                entry->blockProcessId = block.th32ProcessID;
                entry->address = low32(block.dwAddress);
                entry->blockSize = low32(block.dwBlockSize);
                append(list, entry);
            }
        } while (++steps < kWalkLimit && blockNext(&block));
    } while (++steps < kWalkLimit && listNext(heaps.get(), &heap));
    return kOk;
}

// ---------------------------------------------------------------------------
// Performance counters.

constexpr LONG kPdhMoreData = static_cast<LONG>(0x800007D2);
constexpr DWORD kPerfDetailWizard = 400;

bool starts_with_nocase(const char *text, const char *prefix) {
    for (; *prefix; ++text, ++prefix) {
        const auto lower = [](char c) {
            return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
        };
        if (!*text || lower(*text) != lower(*prefix)) return false;
    }
    return true;
}

// The idle and system pseudo-processes and the total are not processes.
bool pdh_skipped(const char *name) {
    return !name || starts_with_nocase(name, "Idle") || starts_with_nocase(name, "SYSTEM") ||
           starts_with_nocase(name, "_Total");
}

int32_t pdh_process_names(DynArray *list) {
    RuntimeLibrary pdh("PDH.DLL");
    if (!pdh.loaded()) return kNoMemory;
    auto enumItems = pdh.get<PdhEnumObjectItemsFn>("PdhEnumObjectItemsA");
    if (!enumItems) return kFailed;

    DWORD counterLength = 0;
    DWORD instanceLength = 0;
    if (enumItems(nullptr, nullptr, "Process", nullptr, &counterLength, nullptr, &instanceLength,
                  kPerfDetailWizard, 0) != kPdhMoreData)
        return kFailed;
    if (counterLength == 0 || static_cast<LONG>(instanceLength) <= 0) return kFailed;
    ZeltaPtr<char> counters(static_cast<char *>(ZELTA_mymalloc(counterLength)));
    ZeltaPtr<char> instances(static_cast<char *>(ZELTA_mymalloc(instanceLength)));
    if (!counters || !instances) return kNoMemory;
    if (enumItems(nullptr, nullptr, "Process", counters.get(), &counterLength, instances.get(),
                  &instanceLength, kPerfDetailWizard, 0) != 0)
        return kFailed;

    // NUL-separated names ended by an empty one; never past the buffer.
    const char *end = instances.get() + instanceLength;
    for (const char *name = instances.get(); name < end && *name;) {
        const size_t length = strnlen(name, static_cast<size_t>(end - name));
        if (!pdh_skipped(name) && name + length < end) {
            auto *entry = new_record<PdhProcessName>();
            if (!entry) return kNoMemory;
            store_text(entry->name, name);
            append(list, entry);
        }
        name += length + 1;
    }
    return kOk;
}

// One pass of the "ID Process" counter over every instance of an object.
// Reaches PdhGetRawCounterArrayA only when every earlier step succeeded.
template <typename Record>
int32_t pdh_instances(DynArray *list, const char *object) {
    RuntimeLibrary pdh("PDH.DLL");
    if (!pdh.loaded()) return kNoMemory;
    auto openQuery = pdh.get<PdhOpenQueryFn>("PdhOpenQueryA");
    auto addCounter = pdh.get<PdhAddCounterFn>("PdhAddCounterA");
    auto collect = pdh.get<PdhCollectQueryDataFn>("PdhCollectQueryData");
    auto rawArray = pdh.get<PdhGetRawCounterArrayFn>("PdhGetRawCounterArrayA");
    auto closeQuery = pdh.get<PdhCloseQueryFn>("PdhCloseQuery");
    auto makePath = pdh.get<PdhMakeCounterPathFn>("PdhMakeCounterPathA");
    if (!openQuery || !addCounter || !collect || !rawArray || !closeQuery || !makePath)
        return kFailed;

    PDH_COUNTER_PATH_ELEMENTS_A elements{};
    elements.szObjectName = const_cast<char *>(object);
    elements.szInstanceName = const_cast<char *>("*");
    elements.szCounterName = const_cast<char *>("ID Process");
    char path[kText] = {};
    DWORD pathLength = kText;
    if (makePath(&elements, path, &pathLength, 0) != 0) return kFailed;

    PDH_HQUERY query = nullptr;
    if (openQuery(nullptr, 0, &query) != 0) return kFailed;
    struct QueryCloser {
        PdhCloseQueryFn close;
        PDH_HQUERY query;
        ~QueryCloser() {
            if (query) close(query);
        }
    } closer{closeQuery, query};
    PDH_HCOUNTER counter = nullptr;
    if (addCounter(query, path, 0, &counter) != 0) return kFailed;
    if (collect(query) != 0) return kFailed;
    DWORD size = 0;
    DWORD count = 0;
    if (rawArray(counter, &size, &count, nullptr) != kPdhMoreData || size == 0) return kFailed;
    ZeltaPtr<PDH_RAW_COUNTER_ITEM_A> items(
        static_cast<PDH_RAW_COUNTER_ITEM_A *>(ZELTA_mymalloc(size)));
    if (!items) return kNoMemory;
    const LONG status = rawArray(counter, &size, &count, items.get());
    closeQuery(query);
    closer.query = nullptr;
    if (status != 0) return kFailed;

    const DWORD room = size / sizeof(PDH_RAW_COUNTER_ITEM_A);
    if (count > room) count = room;
    // Item 0 is left out whatever it is.
    for (DWORD i = 1; i < count; ++i) {
        const PDH_RAW_COUNTER_ITEM_A &item = items.get()[i];
        if (pdh_skipped(item.szName)) continue;
        auto *entry = new_record<Record>();
        if (!entry) return kNoMemory;
        entry->processId = static_cast<uint32_t>(item.RawValue.FirstValue);
        store_text(entry->name, item.szName);
        append(list, entry);
    }
    return kOk;
}

// ---------------------------------------------------------------------------
// Native queries.

// Queries a system information class into a buffer that starts at first
// bytes and grows as every native query does (process/native_query.h).
// kOk with the buffer and its size, kNoMemory, or kFailed (another status,
// or no fit within the bounds).
int32_t query_system(NtQuerySystemInformationFn query, ULONG infoClass, ULONG first,
                     ZeltaPtr<uint8_t> &buffer, ULONG &size) {
    const GrownAnswer answer = query_growing(buffer, first, false, [&](void *b, ULONG s, PULONG r) {
        return query(infoClass, b, s, r);
    });
    size = answer.size;
    if (answer.noMemory) return kNoMemory;
    if (answer.status != 0) {
        buffer.reset();
        return kFailed;
    }
    return kOk;
}

int32_t native_processes(DynArray *processes, DynArray *threads) {
    auto query = ntdll_entry<NtQuerySystemInformationFn>("NtQuerySystemInformation");
    if (!query) return kFailed;
    ZeltaPtr<uint8_t> buffer;
    ULONG size = 0;
    const int32_t fetched = query_system(query, 5, 264, buffer, size);
    if (fetched != kOk) return fetched;

    // Offsets only move forward (read_process_record), so the chain ends;
    // the step bound is a second guard.
    ProcessRecord record;
    for (size_t offset = 0, steps = 0;
         steps < kWalkLimit && read_process_record(buffer.get(), size, offset, record); ++steps) {
        if (!forbidden_id(record.processId)) {
            // The name is converted by its counted length from inside the
            // answer; one that lies outside it cannot be converted and the
            // process is skipped. An empty name is listed empty.
            char name[kText] = {};
            bool named = record.name != nullptr;
            if (named && record.nameBytes > 0) {
                const int converted = os.WideCharToMultiByte(
                    CP_ACP, 0, reinterpret_cast<LPCWCH>(record.name),
                    static_cast<int>(record.nameBytes / sizeof(wchar_t)), name, kText - 1, nullptr,
                    nullptr);
                named = converted > 0;
                if (named) name[converted] = '\0';
            }
            if (named) {
                auto *entry = new_record<ProcessEntry>();
                if (!entry) return kNoMemory;
                entry->processId = low32(record.processId);
                entry->parentOrAux = low32(record.parentId);
                store_text(entry->name, name);
                append(processes, entry);
                for (uint32_t t = 0; t < record.threadCount; ++t) {
                    const ThreadIds ids = read_thread(buffer.get(), record, t);
                    auto *item = new_record<ThreadEntry>();
                    if (!item) return kNoMemory;
                    item->threadId = low32(ids.threadId);
                    item->ownerProcessId = low32(ids.processId);
                    append(threads, item);
                }
            }
        }
        if (record.next == 0) break;
        offset = record.next;
    }
    return kOk;
}

// True when path opens for reading (the file is there and readable).
bool opens(const char *path) {
    UniqueFile file(os.CreateFileA(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                   FILE_ATTRIBUTE_NORMAL, nullptr));
    return usable(file.get());
}

// windows + folder + name, lower case, when it fits and the file opens.
bool find_in(char *out, const char *windows, const char *folder, const char *name) {
    // Without the Windows directory the probe would look on the current
    // drive's root, where a file of that name is not the system's.
    if (!windows[0]) return false;
    const size_t a = std::strlen(windows), b = std::strlen(folder), c = std::strlen(name);
    if (a + b + c + 1 > kText) return false;
    char path[kText];
    std::memcpy(path, windows, a);
    std::memcpy(path + a, folder, b);
    std::memcpy(path + a + b, name, c + 1);
    os.mbslwr(reinterpret_cast<unsigned char *>(path));
    if (!opens(path)) return false;
    std::memcpy(out, path, a + b + c + 1);
    return true;
}

int32_t native_kernel_modules(DynArray *list) {
    auto query = ntdll_entry<NtQuerySystemInformationFn>("NtQuerySystemInformation");
    if (!query) return kFailed;
    ZeltaPtr<uint8_t> buffer;
    ULONG size = 0;
    const int32_t fetched = query_system(query, 11, 292, buffer, size);
    if (fetched != kOk) return fetched;

    char windows[kText] = {};
    const UINT windowsLength = os.GetWindowsDirectoryA(windows, kText);
    if (windowsLength == 0 || windowsLength >= kText) windows[0] = '\0';

    const uint32_t count = module_count(buffer.get(), size);
    for (uint32_t i = 0; i < count; ++i) {
        ModuleRecord module = read_module(buffer.get(), i);
        auto *entry = new_record<SystemModuleEntry>();
        if (!entry) return kNoMemory;
        entry->baseAddress = module.imageBase;
        entry->size = module.imageSize;
        // A reported path holds at most 256 bytes, so every file name fits
        // its 260-character field and no record is dropped for its length.
        char *full = module.fullPath;
        const char *name = full + module.fileNameAt;
        store_text(entry->name, name);
        // The driver files are looked for where the system keeps them; the
        // reported path is the fall-back.
        if (!find_in(entry->path, windows, "\\system32\\", name) &&
            !find_in(entry->path, windows, "\\system32\\drivers\\", name)) {
            normalise(full);
            store_text(entry->path, full);
        }
        append(list, entry);
    }
    return kOk;
}

// Reads from the target through the seam: true only for a full read.
struct TargetReader {
    HANDLE process;
    bool read(uint64_t address, void *out, size_t size) {
        SIZE_T read = 0;
        return os.ReadProcessMemory(process, reinterpret_cast<LPCVOID>(address), out, size,
                                    &read) &&
               read == size;
    }
};

// Converts the UTF-16 bytes read from the target into out (outSize bytes,
// NUL-terminated, normalised); an unconvertible text stays empty.
void convert_text(const Utf16Unit *text, size_t bytes, char *out, size_t outSize) {
    out[0] = '\0';
    if (bytes == 0) return;
    const int converted =
        os.WideCharToMultiByte(CP_ACP, 0, reinterpret_cast<LPCWCH>(text),
                               static_cast<int>(bytes / sizeof(Utf16Unit)), out,
                               static_cast<int>(outSize - 1), nullptr, nullptr);
    out[converted > 0 ? converted : 0] = '\0';
    normalise(out);
}

// Queries the basic process information. The query accepts this record
// only at exactly its own size: the buffer grows in 32-byte steps from 32
// bytes, and once it holds the record the record's size is what is asked
// for. Bounded, since the query may refuse every length.
int32_t query_basic(NtQueryInformationProcessFn query, HANDLE process,
                    BasicProcessInfo &basic) {
    ULONG size = 32;
    for (uint32_t round = 0; round < kBasicInfoRounds; ++round, size += 32) {
        ZeltaPtr<uint8_t> buffer(static_cast<uint8_t *>(ZELTA_mymalloc(size)));
        if (!buffer) return kNoMemory;
        const ULONG asked = size < kBasicProcessInfoSize ? size : ULONG{kBasicProcessInfoSize};
        ULONG reported = 0;
        const LONG status = query(process, 0, buffer.get(), asked, &reported);
        if (status == 0 && read_basic_process_info(buffer.get(), asked, basic)) return kOk;
        if (status != 0 && status != kInfoLengthMismatch) return kFailed;
    }
    return kFailed;
}

// Lists each module the loader walk takes; a record that cannot be
// allocated stops the walk.
struct ModuleLister final : LoaderVisitor {
    DynArray *list;
    uint32_t processId;
    ModuleLister(DynArray *l, uint32_t id) : list(l), processId(id) {}
    bool module(const LoaderModule &module) noexcept override {
        auto *entry = new_record<ModuleEntry>();
        if (!entry) return false;
        entry->processId = processId;
        entry->baseAddress = low32(module.imageBase);
        entry->size = module.imageSize;
        entry->extra = low32(module.entryPoint);
        convert_text(module.path, module.pathBytes, entry->path, kText);
        append(list, entry);
        return true;
    }
};

int32_t native_process_modules(DynArray *list, DWORD processId, ProcessDetails *details) {
    UniqueHandle process(OpenProcessToRead(processId));
    if (!process) return kFailed;
    auto query = ntdll_entry<NtQueryInformationProcessFn>("NtQueryInformationProcess");
    if (!query) return kFailed;
    BasicProcessInfo basic;
    const int32_t queried = query_basic(query, process.get(), basic);
    if (queried != kOk) return queried;

    details->exitStatus = static_cast<uint32_t>(basic.exitStatus);
    details->parentProcessId = low32(basic.parentId);
    details->environmentBlockAddress = basic.environmentBlock;
    TargetReader reader{process.get()};
    EnvironmentBlock environment;
    if (!read_environment_block(RemoteRead(reader), details->environmentBlockAddress, environment))
        return kOk;
    details->beingDebugged = environment.beingDebugged;
    details->ntGlobalFlag = environment.globalFlag;
    details->numberOfProcessors = environment.processors;
    details->imageBaseAddress = environment.imageBase;
    details->processParameters = environment.parameters;

    {
        ZeltaPtr<uint64_t> slots(
            static_cast<uint64_t *>(ZELTA_mymalloc(kLoaderVisitedSlots * sizeof(uint64_t))));
        if (!slots) return kNoMemory;
        std::memset(slots.get(), 0, kLoaderVisitedSlots * sizeof(uint64_t));
        ModuleLister lister(list, processId);
        if (!walk_loader_modules(RemoteRead(reader), environment.loaderData, slots.get(), lister))
            return kNoMemory;
    }

    ProcessTexts texts;
    if (!read_process_texts(RemoteRead(reader), details->processParameters, texts)) return kOk;
    convert_text(texts.dllPath, texts.dllPathBytes, details->dllPath, sizeof details->dllPath);
    convert_text(texts.imagePath, texts.imagePathBytes, details->imagePath,
                 sizeof details->imagePath);
    convert_text(texts.commandLine, texts.commandLineBytes, details->commandLine,
                 sizeof details->commandLine);
    return kOk;
}

int32_t debug_buffer_modules(DynArray *list, DWORD processId) {
    auto create = ntdll_entry<RtlCreateQueryDebugBufferFn>("RtlCreateQueryDebugBuffer");
    auto destroy = ntdll_entry<RtlDestroyQueryDebugBufferFn>("RtlDestroyQueryDebugBuffer");
    auto queryDebug =
        ntdll_entry<RtlQueryProcessDebugInformationFn>("RtlQueryProcessDebugInformation");
    if (!create || !destroy || !queryDebug) return kFailed;

    void *debug = create(0, FALSE);
    if (!debug) return kFailed;
    struct Destroyer {
        RtlDestroyQueryDebugBufferFn destroy;
        void *debug;
        ~Destroyer() { destroy(debug); }
    } destroyer{destroy, debug};
    if (queryDebug(processId, kQueryModules, debug) != 0) return kFailed;

    // A buffer without module information lists nothing. The module block
    // is written by the queried process: it and its records count only
    // where they lie inside the part of the buffer that the buffer itself
    // says is in use and committed; a block outside lists nothing.
    size_t blockSize = 0;
    const uint8_t *block =
        debug_module_block(static_cast<const uint8_t *>(debug), SIZE_MAX, blockSize);
    const uint32_t count = module_count(block, blockSize);
    for (uint32_t i = 0; i < count; ++i) {
        ModuleRecord module = read_module(block, i);
        auto *entry = new_record<SystemModuleEntry>();
        if (!entry) return kNoMemory;
        entry->baseAddress = module.imageBase;
        entry->size = module.imageSize;
        normalise(module.fullPath);
        store_text(entry->path, module.fullPath);
        append(list, entry);
    }
    return kOk;
}

// ---------------------------------------------------------------------------
// Service control manager.

int32_t services(DynArray *list) {
    RuntimeLibrary advapi("ADVAPI32.DLL");
    if (!advapi.loaded()) return kNoMemory;
    auto enumServices = advapi.get<EnumServicesStatusExFn>("EnumServicesStatusExA");
    auto openManager = advapi.get<OpenSCManagerFn>("OpenSCManagerA");
    // Looked up with the others: a manager that could not be closed again
    // is not opened.
    auto closeService = advapi.get<CloseServiceHandleFn>("CloseServiceHandle");
    if (!enumServices || !openManager || !closeService) return kFailed;

    SC_HANDLE manager = openManager(nullptr, SERVICES_ACTIVE_DATABASEA,
                                    SC_MANAGER_CONNECT | SC_MANAGER_ENUMERATE_SERVICE);
    if (!manager) return kFailed;
    struct ManagerCloser {
        CloseServiceHandleFn close;
        SC_HANDLE manager;
        ~ManagerCloser() {
            const DWORD error = os.GetLastError();
            close(manager);
            os.SetLastError(error);
        }
    } closer{closeService, manager};

    constexpr DWORD kEveryKind = 0x3B;  // drivers and Win32 services of every kind
    DWORD needed = 0;
    DWORD returned = 0;
    if (enumServices(manager, SC_ENUM_PROCESS_INFO, kEveryKind, SERVICE_STATE_ALL, nullptr, 0,
                     &needed, &returned, nullptr, nullptr) ||
        os.GetLastError() != ERROR_MORE_DATA)
        return kOk;
    if (needed == 0) return kFailed;
    const DWORD size = needed + 16;
    ZeltaPtr<uint8_t> buffer(static_cast<uint8_t *>(ZELTA_mymalloc(size)));
    if (!buffer) return kNoMemory;
    returned = 0;
    if (!enumServices(manager, SC_ENUM_PROCESS_INFO, kEveryKind, SERVICE_STATE_ALL, buffer.get(),
                      size, &needed, &returned, nullptr, nullptr))
        return kFailed;

    const auto *status = reinterpret_cast<const ENUM_SERVICE_STATUS_PROCESSA *>(buffer.get());
    const DWORD room = size / sizeof *status;
    for (DWORD i = 0; i < returned && i < room; ++i) {
        auto *entry = new_record<ServiceEntry>();
        if (!entry) return kNoMemory;
        const SERVICE_STATUS_PROCESS &state = status[i].ServiceStatusProcess;
        entry->processId = state.dwProcessId;
        entry->serviceType = state.dwServiceType;
        entry->currentState = state.dwCurrentState;
        entry->controlsAccepted = state.dwControlsAccepted;
        entry->serviceFlags = state.dwServiceFlags;
        store_text(entry->serviceName, status[i].lpServiceName);
        store_text(entry->displayName, status[i].lpDisplayName);
        append(list, entry);
    }
    return kOk;
}

// ---------------------------------------------------------------------------
// Brute-force probe of process ids.

constexpr DWORD kFirstProbedId = 8;
constexpr DWORD kProbeEnd = 19997;

int32_t brute_force(DynArray *list) {
    RuntimeLibrary psapi("PSAPI.DLL");
    if (!psapi.loaded()) return kNoMemory;
    auto fileName = psapi.get<GetModuleFileNameExFn>("GetModuleFileNameExA");
    if (!fileName) return kFailed;

    for (DWORD id = kFirstProbedId; id < kProbeEnd; id += 4) {
        UniqueHandle process(OpenProcessToRead(id));
        if (!process) continue;
        char path[kText] = {};
        if (!fileName(process.get(), nullptr, path, kText)) {
            // A process whose main module cannot be named (hidden from the
            // process-status library) is named from its own parameters.
            ProcessHandleQuery query{};
            query.handle = reinterpret_cast<uintptr_t>(process.get());
            if (VOXA_IO_NativeAPIProcessInfoFromHandle(&query) != kOk) continue;
            store_text(path, query.imagePath);
        }
        normalise(path);
        auto *entry = new_record<ProcessEntry>();
        if (!entry) return kNoMemory;
        entry->processId = id;
        store_text(entry->name, path);
        append(list, entry);
    }
    return kOk;
}

}  // namespace
}  // namespace vxio::process

using namespace vxio::process;

extern "C" {

int32_t VOXA_IO_CreateWin32PSAPIProcessList(DynArray *processes) noexcept {
    if (!processes) return kBadArgument;
    return RunGated([&] { return psapi_processes(processes); });
}

int32_t VOXA_IO_CreateWin32PSAPIModulesList(DynArray *modules, uint32_t processId) noexcept {
    if (!modules || forbidden_id(processId)) return kBadArgument;
    return RunGated([&] { return psapi_modules(modules, processId); });
}

int32_t VOXA_IO_CreateWin32ToolHelpEnumerations(DynArray *processes, DynArray *modules,
                                                DynArray *threads) noexcept {
    if (!processes || !modules || !threads) return kBadArgument;
    return RunGated([&] { return toolhelp_enumerations(processes, modules, threads); });
}

int32_t VOXA_IO_CreateWin32ToolHelpHeapsList(DynArray *blocks, uint32_t processId) noexcept {
    if (!blocks || forbidden_id(processId)) return kBadArgument;
    return RunGated([&] { return toolhelp_heaps(blocks, processId); });
}

int32_t VOXA_IO_CreateWin32PDHProcessNamesList(DynArray *names) noexcept {
    if (!names) return kBadArgument;
    return RunGated([&] { return pdh_process_names(names); });
}

int32_t VOXA_IO_CreateWin32PDHProcessList(DynArray *processes) noexcept {
    if (!processes) return kBadArgument;
    return RunGated([&] { return pdh_instances<ProcessEntry>(processes, "Process"); });
}

int32_t VOXA_IO_CreateWin32PDHThreadList(DynArray *threads) noexcept {
    if (!threads) return kBadArgument;
    return RunGated([&] { return pdh_instances<PdhThreadEntry>(threads, "Thread"); });
}

int32_t VOXA_IO_NativeAPIEnumProcessesThreads(DynArray *processes, DynArray *threads) noexcept {
    if (!processes || !threads) return kBadArgument;
    return RunGated([&] { return native_processes(processes, threads); });
}

int32_t VOXA_IO_NativeAPIEnumProcesseModules(DynArray *modules, int32_t processId,
                                             ProcessDetails *details) noexcept {
    if (!modules || processId == 0 || !details) return kBadArgument;
    return RunGated([&] {
        // The record starts cleared, so that what a short read leaves unset
        // reads as 0 and empty texts rather than as the caller's old bytes.
        std::memset(details, 0, sizeof *details);
        return native_process_modules(modules, static_cast<DWORD>(processId), details);
    });
}

int32_t VOXA_IO_NativeAPIEnumModules(DynArray *modules) noexcept {
    if (!modules) return kBadArgument;
    return RunGated([&] { return native_kernel_modules(modules); });
}

int32_t VOXA_IO_NativeDebugAPIEnumProcesseModules(DynArray *modules,
                                                  uint32_t processId) noexcept {
    if (!modules || processId == 0) return kBadArgument;
    const int32_t platform = CheckPlatform();
    if (platform != kOk) return platform;
    // Enabled and deliberately never reverted (see the top of this file).
    EnableDebugPrivilege();
    return debug_buffer_modules(modules, processId);
}

int32_t VOXA_IO_CreateWin32ServiceList(DynArray *list) noexcept {
    if (!list) return kBadArgument;
    return RunGated([&] { return services(list); });
}

int32_t VOXA_IO_CreateWin32BruteForcePIDList(DynArray *processes) noexcept {
    if (!processes) return kBadArgument;
    return RunGated([&] { return brute_force(processes); });
}

}  // extern "C"
