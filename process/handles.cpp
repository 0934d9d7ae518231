// Open handles of every process with the names of the objects behind them,
// the loaded device drivers, small questions about one process, thread or
// file handle, and process control (terminate, suspend).
//
// Naming a handle can block for ever (a pipe another process waits on), so
// the name questions (file name, object name and type) run on an
// expendable worker thread that is given 500 ms a question and killed when
// it overruns. Native entry points come from
// the loaded "NTDLL.DLL" (never loaded or released here); PSAPI and the
// tool-help functions are loaded by name for each call and released on
// every return path.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <new>

#include "fs/native_path.h"
#include "platform/library.h"
#include "platform/os.h"
#include "process/gate.h"
#include "process/handle_table.h"
#include "process/loader_walk.h"
#include "process/native_query.h"
#include "process/native_records.h"
#include "util/owner.h"
#include "vxio/process.h"
#include "vxio/process_memory.h"
#include "util/bytes.h"

namespace vxio::process {

using platform::os;
using platform::RuntimeLibrary;

namespace {

constexpr NtStatus kAccessDenied = static_cast<NtStatus>(0xC0000022);
constexpr int32_t kAccessDeniedResult = -3;
constexpr int32_t kEnvironmentUnreadable = -8;
constexpr int32_t kWorkerKilled = -2;  // naming result of a handle whose worker overran

using QuerySystemFn = NtStatus(NTAPI *)(ULONG, PVOID, ULONG, PULONG);
using QueryHandleFn = NtStatus(NTAPI *)(HANDLE, ULONG, PVOID, ULONG, PULONG);
using QueryFileFn = NtStatus(NTAPI *)(HANDLE, PVOID, PVOID, ULONG, ULONG);

// A counted UTF-16 text (length in bytes) as ANSI into out (capacity bytes,
// always terminated). False when nothing could be converted.
bool to_ansi(const wchar_t *text, size_t bytes, char *out, int capacity) noexcept {
    out[0] = '\0';
    if (!text || bytes < sizeof(wchar_t)) return false;
    const int n = os.WideCharToMultiByte(CP_ACP, 0, text, static_cast<int>(bytes / sizeof(wchar_t)),
                                         out, capacity - 1, nullptr, nullptr);
    if (n <= 0) {
        out[0] = '\0';
        return false;
    }
    out[n] = '\0';
    return true;
}

void copy_text(char *field, size_t capacity, const char *text) noexcept {
    std::snprintf(field, capacity, "%s", text);
}

// Layout of the 64-bit records read from the target (offsets in bytes).
constexpr size_t kThreadBasicInfoSize = 44;  // grown to the platform's 48
constexpr size_t kClientProcessAt = 16, kClientThreadAt = 24;
constexpr ULONG kThreadStartAddressClass = 9;
constexpr ULONG kFileNameClass = 9;
constexpr size_t kFileNameBufferSize = 2080;


// The target's memory for the environment-block reads: a read counts only
// when it is whole.
struct TargetReader {
    HANDLE process;
    bool read(uint64_t address, void *out, size_t size) noexcept {
        SIZE_T read = 0;
        return os.ReadProcessMemory(process, reinterpret_cast<LPCVOID>(address), out, size, &read) &&
               read == size;
    }
};

// How far a naming worker has come. Killing a thread is safe only while it
// waits inside one of its name queries itself: before one (the loader
// attaching the new thread, the entry-point lookup, the allocation),
// between two (growing a buffer) and after them (the conversion) the
// thread may hold a process-wide lock (loader, heap, locale) that would
// never be released, and every later call of the process would hang on it.
enum NamingStage : LONG { kStarting, kQuerying, kAnswered };

// The worker's block. It is on the heap rather than the caller's stack:
// should the worker outlive the wait (it could not be terminated, or the
// wait itself failed), it must not write into a frame that is gone, so the
// block is then left to it.
struct NamingJob {
    FileHandleQuery query;   // the handle, and the file name answered
    bool askFile;            // ask the file name first; else the object alone
    bool objectAsked;        // the object's name was asked (out)
    char objectName[260];    // the object's name as converted (out)
    std::atomic<LONG> stage;
    std::atomic<ULONGLONG> queryStartedAt;  // tick count when the last query began
};

// One name query of a naming worker (job null: of the calling thread): the
// job is told when the query begins and ends, so that the worker is killed
// only inside it.
template <typename Ask>
NtStatus asked(NamingJob *job, Ask &&ask) noexcept {
    if (job) {
        job->queryStartedAt.store(os.GetTickCount64());
        job->stage.store(kQuerying);
    }
    const NtStatus status = ask();
    if (job) job->stage.store(kAnswered);
    return status;
}

// The file name of query->handle.
int32_t file_name_of(FileHandleQuery *query, NamingJob *job) noexcept {
    query->name[0] = '\0';
    auto queryFile = ntdll_entry<QueryFileFn>("NtQueryInformationFile");
    ZeltaPtr<uint8_t> info(static_cast<uint8_t *>(ZELTA_mymalloc(kFileNameBufferSize)));
    if (!info) {
        copy_text(query->name, sizeof query->name, "*");
        return kNoMemory;
    }
    std::memset(info.get(), 0, kFileNameBufferSize);
    struct {
        void *status;
        ULONG_PTR information;
    } io{};
    HANDLE file = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(query->handle));
    const bool named = queryFile && asked(job, [&] {
        return queryFile(file, &io, info.get(), kFileNameBufferSize, kFileNameClass);
    }) == 0;
    AnswerText text;
    if (!named || !FileNameText(info.get(), kFileNameBufferSize, io.information, text) ||
        !to_ansi(reinterpret_cast<const wchar_t *>(info.get() + text.offset),
                 text.units * sizeof(wchar_t), query->name, sizeof query->name)) {
        copy_text(query->name, sizeof query->name, "*");
        return kOk;
    }
    fs::NormalizeNativePath(query->name);
    return kOk;
}

// The two classes asked of an object.
constexpr ULONG kObjectNameClass = 1, kObjectTypeClass = 2;

// The object's name through NtQueryObject, converted into name (empty when
// nothing usable came back). The type is asked too; the record keeps the
// fixed table's name.
void object_name_of(HANDLE object, char (&name)[260], NamingJob *job) noexcept {
    name[0] = '\0';
    auto queryObject = ntdll_entry<QueryHandleFn>("NtQueryObject");
    if (!queryObject) return;
    ZeltaPtr<uint8_t> answer;
    ULONG returned = 0;
    const GrownAnswer got = query_growing(answer, 16, true, [&](void *b, ULONG s, PULONG r) {
        const NtStatus status = asked(job, [&] { return queryObject(object, kObjectNameClass, b, s, r); });
        returned = *r;
        return status;
    });
    AnswerText text;
    if (!got.noMemory && got.status >= 0 &&
        ObjectNameText(answer.get(), got.size, returned, reinterpret_cast<uintptr_t>(answer.get()),
                       text))
        to_ansi(reinterpret_cast<const wchar_t *>(answer.get() + text.offset),
                text.units * sizeof(wchar_t), name, sizeof name);
    ZeltaPtr<uint8_t> type;
    query_growing(type, 100, true, [&](void *b, ULONG s, PULONG r) {
        return asked(job, [&] { return queryObject(object, kObjectTypeClass, b, s, r); });
    });
}

// A handle without a file name goes on to the object-name query, as the
// engine names it: the worker asks it at once rather than come back.
DWORD WINAPI name_worker(LPVOID block) {
    auto *job = static_cast<NamingJob *>(block);
    if (job->askFile) file_name_of(&job->query, job);
    if (!job->askFile || job->query.name[0] == '*') {
        object_name_of(reinterpret_cast<HANDLE>(static_cast<uintptr_t>(job->query.handle)),
                       job->objectName, job);
        job->objectAsked = true;
    }
    return 0;
}

// The worker is given 500 ms for each query. A worker that has not reached
// a query yet, is between two, or has left them, is slow (a loaded
// machine), not stuck on the object: it is waited for in at most
// kSlowWorkerSlices more slices of 500 ms before it is killed anyway.
// Answers WaitForSingleObjectEx's result.
constexpr DWORD kNamingWait = 500;
constexpr int kSlowWorkerSlices = 20;

// A worker found overrunning its query is suspended and asked again: the
// query may have returned between the look and the kill, and a worker
// that has moved on is let go on. Answers WAIT_TIMEOUT with the worker
// held (suspended where that could be done) when it is to be killed.
DWORD wait_for_worker(HANDLE worker, const NamingJob &job) noexcept {
    DWORD wait = os.WaitForSingleObjectEx(worker, kNamingWait, FALSE);
    for (int slice = 0; wait == WAIT_TIMEOUT && slice < kSlowWorkerSlices; ++slice) {
        DWORD next = kNamingWait;
        if (job.stage.load() == kQuerying) {
            const ULONGLONG queried = os.GetTickCount64() - job.queryStartedAt.load();
            if (queried >= kNamingWait) {
                const bool held = os.SuspendThread(worker) != static_cast<DWORD>(-1);
                if (!held || job.stage.load() == kQuerying) break;
                os.ResumeThread(worker);
            } else {
                next = static_cast<DWORD>(kNamingWait - queried);
            }
        }
        wait = os.WaitForSingleObjectEx(worker, next, FALSE);
    }
    return wait;
}

// Object type names by the type index of the handle table. The table is
// fixed: a system that numbers its types otherwise gets these names anyway.
const char *type_name(uint32_t index) noexcept {
    static const char *const kNames[30] = {
        "None",      "Type",          "Directory",    "SymbolicLink", "Token",
        "Process",   "Thread",        "Job",          "EventPair",    "Event",
        "Device",    "Mutant",        "Profile",      "Semaphore",    "Timer",
        "Section",   "KeyedEvent",    "WindowStation", "Desktop",     "Section",
        "Key",       "Port",          "WaitablePort", "Adapter",      "Controller",
        "Device",    "Unknown-1",     "IoCompletion", "File",         "WmiGuid"};
    return index < 30 ? kNames[index] : "Unknown-2";
}

bool starts_with(const char *text, const char *prefix) noexcept {
    return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

// The record's name from the object-name answer.
int32_t object_result(const char *name, HandleEntry &entry) noexcept {
    copy_text(entry.objectName, sizeof entry.objectName, name);
    // Only native file paths are paths: event, key or section names keep
    // their case.
    if (starts_with(entry.objectName, "\\??\\")) fs::NormalizeNativePath(entry.objectName);
    if (entry.objectName[0]) return kOk;
    copy_text(entry.objectName, sizeof entry.objectName, "__FAILED_TO_ACCESS_OBJECT_INFO__");
    return kFailed;
}

NamingJob *new_job(HANDLE handle, bool askFile) noexcept {
    auto *job = static_cast<NamingJob *>(ZELTA_mymalloc(sizeof(NamingJob)));
    if (!job) return nullptr;
    std::memset(static_cast<void *>(job), 0, sizeof(NamingJob));
    new (&job->stage) std::atomic<LONG>(kStarting);
    new (&job->queryStartedAt) std::atomic<ULONGLONG>(0);
    job->query.handle = reinterpret_cast<uintptr_t>(handle);
    job->askFile = askFile;
    return job;
}

// Runs job on a fresh worker. True when the worker finished: its answers
// are in *job, which the caller frees. Otherwise the entry has its mark,
// result the naming result, and the job is freed here once the worker is
// gone or left to it.
bool run_job(NamingJob *job, HandleEntry &entry, int32_t &result) noexcept {
    UniqueHandle worker(os.CreateThread(nullptr, 0, name_worker, job, 0, nullptr));
    if (!worker) {
        // Without a worker nothing is asked: a name query that may block is
        // never put to the calling thread, which would hang the scan.
        ZELTA_myfree(job);
        copy_text(entry.objectName, sizeof entry.objectName, "__FAILED_TO_ACCESS_OBJECT_INFO__");
        result = kFailed;
        return false;
    }
    const DWORD wait = wait_for_worker(worker.get(), *job);
    if (wait == WAIT_FAILED) {
        copy_text(entry.objectName, sizeof entry.objectName,
                  "__OBJECT_UNSAFE_TO_ACCESS__COULD_NOT_WAIT_FOR_THREAD__");
        result = kFailed;
        return false;
    }
    if (wait != WAIT_TIMEOUT) return true;
    if (!os.TerminateThread(worker.get(), 0)) {
        os.ResumeThread(worker.get());  // left to finish its query on its own
        copy_text(entry.objectName, sizeof entry.objectName,
                  "__OBJECT_UNSAFE_TO_ACCESS__THREAD_NOT_TERMINATED__");
        result = kFailed;
        return false;
    }
    copy_text(entry.objectName, sizeof entry.objectName,
              "__OBJECT_UNSAFE_TO_ACCESS__THREAD_TERMINATED__");
    result = kWorkerKilled;
    // Termination is only begun by the call: the block is freed once the
    // worker is gone, and otherwise left to it.
    if (os.WaitForSingleObjectEx(worker.get(), kNamingWait, FALSE) == WAIT_OBJECT_0) ZELTA_myfree(job);
    return false;
}

// The object's name alone, on a worker of its own.
int32_t name_from_object(HANDLE object, HandleEntry &entry) noexcept {
    NamingJob *job = new_job(object, false);
    if (!job) return kNoMemory;
    int32_t result = kOk;
    if (!run_job(job, entry, result)) return result;
    result = object_result(job->objectName, entry);
    ZELTA_myfree(job);
    return result;
}

int32_t name_handle(HandleEntry &entry) noexcept {
    constexpr DWORD kDupQueryRead = PROCESS_DUP_HANDLE | PROCESS_QUERY_INFORMATION | PROCESS_VM_READ;
    UniqueHandle owner(os.OpenProcess(kDupQueryRead, FALSE, entry.ownerProcessId));
    if (!owner) return kFailed;
    UniqueHandle duplicate;
    HANDLE value = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(entry.handleValue));
    if (!os.DuplicateHandle(owner.get(), value, os.GetCurrentProcess(), duplicate.addressof(), 0,
                            FALSE, DUPLICATE_SAME_ACCESS)) {
        copy_text(entry.objectName, sizeof entry.objectName,
                  "__ACCESS_DENIED__DUPLICATE_HANDLE_FAILED__");
        return kFailed;
    }

    NamingJob *job = new_job(duplicate.get(), true);
    if (!job) return kNoMemory;
    int32_t result = kOk;
    if (!run_job(job, entry, result)) return result;
    // The worker's "*" (no file name) sent every type, processes and
    // threads too, to the object-name query: the engine reads the
    // descriptions below only for handles whose file-name query answered.
    const FileHandleQuery answer = job->query;
    const bool objectAsked = job->objectAsked;
    if (objectAsked) result = object_result(job->objectName, entry);
    ZELTA_myfree(job);
    if (objectAsked) return result;
    if (starts_with(entry.typeName, "File") && answer.name[0]) {
        copy_text(entry.objectName, sizeof entry.objectName, answer.name);
        return kOk;
    }
    if (starts_with(entry.typeName, "Process")) {
        ProcessHandleQuery process{};
        process.handle = reinterpret_cast<uintptr_t>(duplicate.get());
        const int32_t status = VOXA_IO_NativeAPIProcessInfoFromHandle(&process);
        if (status == kOk) {
            copy_text(entry.objectName, sizeof entry.objectName, process.imagePath);
            entry.targetProcessId = process.processId;
            entry.targetParentId = process.parentProcessId;
            entry.targetProcessFlag = process.environmentValue;
            return kOk;
        }
        if (status == kAccessDeniedResult || status == kEnvironmentUnreadable) {
            copy_text(entry.objectName, sizeof entry.objectName,
                      status == kAccessDeniedResult ? "__ACCESS_DENIED__"
                                                    : "__PEB_READ_FAIL__(PROCESS_DOES_NOT_EXIST)__");
            return kFailed;
        }
    } else if (starts_with(entry.typeName, "Thread")) {
        ThreadHandleQuery thread{};
        thread.handle = reinterpret_cast<uintptr_t>(duplicate.get());
        const int32_t status = VOXA_IO_NativeAPIThreadInfoFromHandle(&thread);
        if (status == kOk) {
            entry.targetThreadId = thread.threadId;
            entry.targetThreadProcessId = thread.processId;
            entry.threadStartAddress = thread.startAddress;
            std::snprintf(entry.objectName, 50, "ProcessID_(%d)__ThreadID_(%d)",
                          static_cast<int>(thread.processId), static_cast<int>(thread.threadId));
            return kOk;
        }
        if (status == kAccessDeniedResult) {
            copy_text(entry.objectName, sizeof entry.objectName, "__ACCESS_DENIED__");
            return kFailed;
        }
    }
    // No description: the object's name, asked on a second worker.
    return name_from_object(duplicate.get(), entry);
}

// Handle table of the system (class 16).
constexpr ULONG kHandleInformationClass = 16;

int32_t enumerate_handles(const char *nameFilter, int32_t typeFilter, uint32_t ownerFilter,
                          bool noCollect, DynArray *out, const DynArray *processes) noexcept {
    auto querySystem = ntdll_entry<QuerySystemFn>("NtQuerySystemInformation");
    if (!querySystem) return kFailed;
    ZeltaPtr<uint8_t> table;
    ULONG returned = 0;
    const GrownAnswer answer = query_growing(table, 24, false, [&](void *b, ULONG s, PULONG r) {
        const NtStatus status = querySystem(kHandleInformationClass, b, s, r);
        returned = *r;
        return status;
    });
    if (answer.noMemory) return kNoMemory;
    if (answer.status != 0) return kFailed;

    const HandleTable handles(table.get(), answer.size, returned);
    for (size_t i = 0; i < handles.size(); ++i) {
        const HandleTableEntry raw = handles[i];
        const uint32_t owner = raw.ownerProcessId;
        const uint32_t type = raw.typeIndex;
        if (owner == 0) continue;
        if (typeFilter && static_cast<uint32_t>(typeFilter) != type) continue;
        if (ownerFilter && ownerFilter != owner) continue;
        // The no-collect mode keeps no record: the walk only filters.
        if (noCollect) continue;

        ZeltaPtr<HandleEntry> entry(static_cast<HandleEntry *>(ZELTA_mymalloc(sizeof(HandleEntry))));
        if (!entry) return kNoMemory;
        std::memset(entry.get(), 0, sizeof(HandleEntry));
        entry->handleValue = raw.handleValue;
        entry->ownerProcessId = owner;
        entry->grantedAccess = raw.grantedAccess;
        entry->objectTypeNumber = type;
        entry->handleFlags = raw.flags;
        copy_text(entry->typeName, sizeof entry->typeName, type_name(type));
        if (owner == 4) {
            copy_text(entry->ownerName, sizeof entry->ownerName, "SYSTEM");
        } else {
            for (uint32_t p = 0; p < processes->count; ++p) {
                const auto *process = static_cast<const ProcessEntry *>(processes->items[p]);
                if (process && process->processId == owner) {
                    copy_text(entry->ownerName, sizeof entry->ownerName, process->name);
                    break;
                }
            }
        }
        name_handle(*entry);

        // The filter matches when it begins with the object's name (an
        // empty name matches every filter). A record that does not match
        // is freed here rather than left behind.
        if (nameFilter &&
            _strnicmp(nameFilter, entry->objectName, std::strlen(entry->objectName)) != 0)
            continue;
        if (VOXA_arrAdd(out, entry.get())) entry.release();
    }
    return kOk;
}

// Windows directory + middle + name, lower-cased, when it fits and a file
// of that name opens for reading.
bool existing_system_file(const char *windows, const char *middle, const char *name,
                          char (&path)[260]) noexcept {
    const int n = std::snprintf(path, sizeof path, "%s%s%s", windows, middle, name);
    if (n < 0 || n >= static_cast<int>(sizeof path)) return false;
    os.mbslwr(reinterpret_cast<unsigned char *>(path));
    UniqueFile file(os.CreateFileA(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                   FILE_ATTRIBUTE_NORMAL, nullptr));
    return static_cast<bool>(file);
}

int32_t enumerate_drivers(DynArray *list) noexcept {
    RuntimeLibrary psapi("PSAPI.DLL");
    if (!psapi.loaded()) return kNoMemory;
    auto enumDrivers = psapi.get<BOOL(WINAPI *)(LPVOID *, DWORD, LPDWORD)>("EnumDeviceDrivers");
    auto baseName = psapi.get<DWORD(WINAPI *)(LPVOID, LPWSTR, DWORD)>("GetDeviceDriverBaseNameW");
    if (!enumDrivers || !baseName) return kFailed;

    constexpr DWORD kAddressBytes = 2080;
    LPVOID addresses[kAddressBytes / sizeof(LPVOID)] = {};
    DWORD needed = 0;
    if (!enumDrivers(addresses, kAddressBytes, &needed) || needed >= kAddressBytes) return kFailed;
    char windows[MAX_PATH] = {};
    os.GetWindowsDirectoryA(windows, MAX_PATH);

    for (DWORD i = 0; i < needed / sizeof(LPVOID); ++i) {
        wchar_t wide[260] = {};
        if (!baseName(addresses[i], wide, 260)) continue;
        char name[260] = {};
        if (os.WideCharToMultiByte(CP_ACP, 0, wide, -1, name, sizeof name, nullptr, nullptr) <= 0)
            name[0] = '\0';
        fs::NormalizeNativePath(name);
        char path[260];
        if (!existing_system_file(windows, "\\system32\\", name, path) &&
            !existing_system_file(windows, "\\system32\\drivers\\", name, path))
            copy_text(path, sizeof path, name);

        ZeltaPtr<DriverEntry> entry(static_cast<DriverEntry *>(ZELTA_mymalloc(sizeof(DriverEntry))));
        if (!entry) return kNoMemory;
        entry->reserved = 0;
        copy_text(entry->path, sizeof entry->path, path);
        if (VOXA_arrAdd(list, entry.get())) entry.release();
    }
    return kOk;
}

}  // namespace
}  // namespace vxio::process

using namespace vxio;
using namespace vxio::process;

extern "C" int32_t VOXA_IO_EnumerateOpenHandles(const char *nameFilter, int32_t typeFilter,
                                                uint32_t ownerFilter, uint32_t noCollect,
                                                DynArray *outList, DynArray *processList) noexcept {
    if (!processList) return kBadArgument;
    if (nameFilter && !typeFilter) return kBadArgument;
    if (noCollect && (!nameFilter || !typeFilter || !ownerFilter)) return kBadArgument;
    if (!noCollect && !outList) return kBadArgument;
    DebugPrivilegeBracket bracket;
    return enumerate_handles(nameFilter, typeFilter, ownerFilter, noCollect != 0, outList,
                             processList);
}

extern "C" int32_t VOXA_IO_EnumDeviceDrivers(DynArray *list) noexcept {
    if (!list) return kBadArgument;
    return RunGated([&] { return enumerate_drivers(list); });
}

extern "C" int32_t VOXA_IO_NativeAPIProcessInfoFromHandle(ProcessHandleQuery *query) noexcept {
    // No block to answer in: the argument is bad.
    if (!query) return kBadArgument;
    auto queryProcess = ntdll_entry<QueryHandleFn>("NtQueryInformationProcess");
    if (!queryProcess) return kFailed;
    HANDLE process = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(query->handle));
    ZeltaPtr<uint8_t> basic;
    ULONG basicSize = 32;
    const GrownAnswer answer = query_growing(basic, basicSize, false, [&](void *b, ULONG s, PULONG r) {
        basicSize = s;
        return queryProcess(process, 0, b, s, r);
    });
    if (answer.noMemory) return kNoMemory;
    if (answer.status == kAccessDenied) return kAccessDeniedResult;
    BasicProcessInfo info;
    if (answer.status != 0 || !read_basic_process_info(basic.get(), basicSize, info)) return kFailed;
    query->processId = low32(info.processId);
    query->parentProcessId = low32(info.parentId);
    const uint64_t peb = info.environmentBlock;

    TargetReader reader{process};
    EnvironmentBlock environment;
    if (!read_environment_block(RemoteRead(reader), peb, environment)) return kEnvironmentUnreadable;
    // The environment-block word reported is its global flag (the loader's
    // and heap's debugging switches), the word most telling about a target.
    query->environmentValue = environment.globalFlag;
    query->imagePath[0] = '\0';
    ProcessTexts texts;
    if (read_process_texts(RemoteRead(reader), environment.parameters, texts) &&
        texts.imagePathBytes) {
        to_ansi(reinterpret_cast<const wchar_t *>(texts.imagePath), texts.imagePathBytes,
                query->imagePath, sizeof query->imagePath);
        fs::NormalizeNativePath(query->imagePath);
    }
    return kOk;
}

extern "C" int32_t VOXA_IO_NativeAPIThreadInfoFromHandle(ThreadHandleQuery *query) noexcept {
    if (!query) return kBadArgument;
    auto queryThread = ntdll_entry<QueryHandleFn>("NtQueryInformationThread");
    if (!queryThread) return kFailed;
    HANDLE thread = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(query->handle));
    ZeltaPtr<uint8_t> basic;
    ULONG basicSize = kThreadBasicInfoSize;
    const GrownAnswer answer = query_growing(basic, basicSize, false, [&](void *b, ULONG s, PULONG r) {
        basicSize = s;
        return queryThread(thread, 0, b, s, r);
    });
    if (answer.noMemory) return kNoMemory;
    if (answer.status == kAccessDenied) return kAccessDeniedResult;
    if (answer.status != 0 || basicSize < kClientThreadAt + 8) return kFailed;
    query->processId = static_cast<uint32_t>(load_at<ULONG_PTR>(basic.get(), kClientProcessAt));
    query->threadId = static_cast<uint32_t>(load_at<ULONG_PTR>(basic.get(), kClientThreadAt));

    ULONG_PTR start = 0;
    const NtStatus status = queryThread(thread, kThreadStartAddressClass, &start, sizeof start, nullptr);
    if (status == kAccessDenied) return kAccessDeniedResult;
    if (status != 0) return kFailed;
    query->startAddress = static_cast<uint32_t>(start);
    return kOk;
}

extern "C" int32_t VOXA_IO_NativeAPIFilenameFromHandle(FileHandleQuery *query) noexcept {
    if (!query) return kBadArgument;
    return file_name_of(query, nullptr);
}

extern "C" int32_t VOXA_IO_PSAPIProcessNameFromHandle(FileHandleQuery *query) noexcept {
    if (!query) return kFailed;
    RuntimeLibrary psapi("PSAPI.DLL");
    auto fileName = psapi.get<DWORD(WINAPI *)(HANDLE, HMODULE, LPSTR, DWORD)>("GetModuleFileNameExA");
    if (!fileName) return kFailed;
    HANDLE process = reinterpret_cast<HANDLE>(static_cast<uintptr_t>(query->handle));
    if (!fileName(process, nullptr, query->name, sizeof query->name)) return kFailed;
    fs::NormalizeNativePath(query->name);
    return kOk;
}

extern "C" uint8_t VOXA_IO_TerminateWin32Process(uint32_t processId) noexcept {
    if (processId == 0) return 0;
    DebugPrivilegeBracket bracket;
    UniqueHandle process(OpenProcessToTerminate(processId));
    return process && os.TerminateProcess(process.get(), 0) ? 1 : 0;
}

extern "C" uint8_t VOXA_IO_SuspendWin32Process(int32_t processId) noexcept {
    if (processId == 0) return 0;
    UniqueModule kernel(os.LoadLibraryA("KERNEL32.DLL"));
    if (!kernel) return 0;
    auto entry = [&](const char *name) { return os.GetProcAddress(kernel.get(), name); };
    auto snapshot = reinterpret_cast<decltype(&::CreateToolhelp32Snapshot)>(
        reinterpret_cast<void *>(entry("CreateToolhelp32Snapshot")));
    auto first = reinterpret_cast<decltype(&::Thread32First)>(reinterpret_cast<void *>(entry("Thread32First")));
    auto next = reinterpret_cast<decltype(&::Thread32Next)>(reinterpret_cast<void *>(entry("Thread32Next")));
    auto openThread = reinterpret_cast<decltype(&::OpenThread)>(reinterpret_cast<void *>(entry("OpenThread")));
    if (!snapshot || !first || !next || !openThread) return 0;
    DebugPrivilegeBracket bracket;

    UniqueFile threads(snapshot(TH32CS_SNAPTHREAD, 0));
    if (!threads) return 0;
    constexpr DWORD kThreadAllAccess = 0x1F03FF;  // THREAD_ALL_ACCESS as the engine knows it
    THREADENTRY32 thread{};
    thread.dwSize = sizeof thread;
    for (BOOL more = first(threads.get(), &thread); more; more = next(threads.get(), &thread)) {
        if (thread.th32OwnerProcessID != static_cast<DWORD>(processId)) continue;
        UniqueHandle handle(openThread(kThreadAllAccess, FALSE, thread.th32ThreadID));
        if (!handle) handle.reset(openThread(THREAD_SUSPEND_RESUME, FALSE, thread.th32ThreadID));
        // Threads suspended so far stay suspended: nothing is resumed.
        if (!handle) return 0;
        if (os.SuspendThread(handle.get()) == static_cast<DWORD>(-1)) return 0;
        // One more release of the module per suspended thread, as the
        // engine has always done; KERNEL32.DLL is never really unloaded.
        os.FreeLibrary(kernel.get());
    }
    return 1;
}

extern "C" int32_t VOXA_IO_PatchInMemoryImage(void) noexcept { return 0; }
