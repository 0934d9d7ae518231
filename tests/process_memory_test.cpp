// Memory reads, dumps, handle naming and process control against a real
// child process (vxio_child.exe, which holds a buffer of a known pattern).
// What Wine lacks is served through the seam's GetProcAddress: a recorded
// handle table, a file-name query that hangs or answers a native path, and
// a driver list. Every test ends with no library block and no handle that
// the library opened left open.
#include <gtest/gtest.h>
#include <windows.h>

#include <chrono>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "child/launch.h"
#include "platform/os.h"
#include "support/heap_ledger.h"
#include "support/served.h"
#include "support/temp_dir.h"
#include "vxio/process.h"
#include "vxio/process_memory.h"

using namespace vxio::platform;
using vxio::test::as_proc;
using vxio::test::HeapLedger;
using vxio::test::served;
using vxio::test::TempDir;

namespace {

// The first n bytes of the child's buffer: its header, then byte i is
// (i * 7 + 0x5A) & 0xFF.
std::string child_pattern(size_t n) {
    std::string bytes(n, '\0');
    for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<char>((i * 7 + 0x5A) & 0xFF);
    return bytes.replace(0, 17, "VXIO-CHILD-BUFFER");
}

std::string slurp(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

bool ends_with_nocase(std::string text, std::string tail) {
    for (auto *s : {&text, &tail})
        for (char &c : *s) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

using Child = vxio::test::ChildProcess;

// Handles the library opens (processes, duplicates, threads, files) must
// all be closed again: GetProcessHandleCount is 0 under Wine,
// so the seam keeps the account.
struct HandleAccount {
    static inline std::set<HANDLE> open;
    static HANDLE note(HANDLE h) {
        if (h && h != INVALID_HANDLE_VALUE) open.insert(h);
        return h;
    }
    static HANDLE WINAPI open_process(DWORD a, BOOL i, DWORD id) { return note(real_os.OpenProcess(a, i, id)); }
    static HANDLE WINAPI create_thread(LPSECURITY_ATTRIBUTES s, SIZE_T z, LPTHREAD_START_ROUTINE r,
                                       LPVOID p, DWORD f, LPDWORD id) {
        return note(real_os.CreateThread(s, z, r, p, f, id));
    }
    static BOOL WINAPI duplicate(HANDLE sp, HANDLE s, HANDLE tp, LPHANDLE t, DWORD a, BOOL i, DWORD o) {
        const BOOL ok = real_os.DuplicateHandle(sp, s, tp, t, a, i, o);
        if (ok) note(*t);
        return ok;
    }
    static HANDLE WINAPI create_file(LPCSTR n, DWORD a, DWORD s, LPSECURITY_ATTRIBUTES sa, DWORD d,
                                     DWORD f, HANDLE t) {
        return note(real_os.CreateFileA(n, a, s, sa, d, f, t));
    }
    static BOOL WINAPI close(HANDLE h) {
        open.erase(h);
        return real_os.CloseHandle(h);
    }
    SeamEntry<decltype(OsTable::OpenProcess)> a{&OsTable::OpenProcess, open_process};
    SeamEntry<decltype(OsTable::CreateThread)> b{&OsTable::CreateThread, create_thread};
    SeamEntry<decltype(OsTable::DuplicateHandle)> c{&OsTable::DuplicateHandle, duplicate};
    SeamEntry<decltype(OsTable::CreateFileA)> d{&OsTable::CreateFileA, create_file};
    SeamEntry<decltype(OsTable::CloseHandle)> e{&OsTable::CloseHandle, close};
    HandleAccount() { open.clear(); }
};

template <typename Query>
Query query_of(HANDLE handle) {
    Query query{};
    query.handle = reinterpret_cast<uintptr_t>(handle);
    return query;
}

class ProcessMemory : public ::testing::Test {
protected:
    HeapLedger ledger;
    HandleAccount handles;
    vxio::test::Served entries;  // what each test puts in `served`
    void TearDown() override {
        EXPECT_EQ(ledger.live(), 0u) << "library blocks left";
        EXPECT_TRUE(HandleAccount::open.empty()) << HandleAccount::open.size() << " handles left open";
    }
};

TEST_F(ProcessMemory, ReadsReturnTheChildsBuffer) {
    Child child;
    ASSERT_NE(child.pid, 0u);
    ASSERT_LT(child.buffer, 0x100000000ull) << "the 32-bit reads need the buffer below 4 GiB";
    const auto base = static_cast<uint32_t>(child.buffer);
    const std::string expected = child_pattern(child.size);
    std::string heap(4096, '\0');
    void *into = &heap[0];
    uint32_t count = 0;
    EXPECT_EQ(VOXA_IO_ReadWin32ProcessHeaps(child.pid, base + 100, 4096, &into, &count), 0);
    EXPECT_EQ(count, 4096u);
    EXPECT_TRUE(heap == expected.substr(100, 4096));

    void *out = nullptr;
    uint64_t outCount = 0;
    ASSERT_EQ(VOXA_IO_ReadWin32ProcessModuleMemory(child.pid, base, uint32_t(child.size), &out, &outCount), 0);
    ASSERT_GE(outCount, child.size);  // the region starting at the end is counted too
    EXPECT_TRUE(std::string(static_cast<char *>(out), child.size) == expected);
    ZELTA_myfree(out);

    out = nullptr;
    ASSERT_EQ(VOXA_IO_ReadWin32ProcessVirtualAllocMemory(&out, &outCount, child.pid), 0);
    const std::string gathered(static_cast<char *>(out), outCount);
    ZELTA_myfree(out);
    EXPECT_NE(gathered.find(expected), std::string::npos) << "private memory lacks the buffer";

    // Addresses that are no region's base leave the out pointers alone.
    void *const kUntouched = reinterpret_cast<void *>(0x1234);
    for (uint32_t bad : {base + 1, base + 0x800, 0xFFFFF000u}) {
        out = kUntouched;
        outCount = 77;
        EXPECT_EQ(VOXA_IO_ReadWin32ProcessModuleMemory(child.pid, bad, 4096, &out, &outCount), 0) << bad;
        EXPECT_EQ(out, kUntouched);
        EXPECT_EQ(outCount, 77u);
    }
    EXPECT_EQ(VOXA_IO_ReadWin32ProcessHeaps(child.pid, 0xFFFFF000u, 4096, &into, &count), -1);

    // A committed page followed by reserved ones, in this process: a module
    // read over the whole reservation returns the committed page only.
    auto *pages = static_cast<uint8_t *>(VirtualAlloc(nullptr, 0x20000, MEM_RESERVE, PAGE_NOACCESS));
    ASSERT_TRUE(pages && VirtualAlloc(pages, 0x1000, MEM_COMMIT, PAGE_READWRITE));
    memset(pages, 0xA5, 0x1000);
    const uint32_t self = GetCurrentProcessId();
    const auto at = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pages));
    if (reinterpret_cast<uintptr_t>(pages) < 0x100000000ull) {
        ASSERT_EQ(VOXA_IO_ReadWin32ProcessModuleMemory(self, at, 0x1F000, &out, &outCount), 0);
        EXPECT_TRUE(std::string(static_cast<char *>(out), outCount) == std::string(0x1000, '\xA5'));
        ZELTA_myfree(out);
    }
    VirtualFree(pages, 0, MEM_RELEASE);
}

// The system's handle table as it stood once, reduced to one process's
// entries and replayed for every later question: the live table changes
// size as other processes open handles, and with it the number of
// allocations a call makes.
std::vector<uint8_t> replayed_handles;
LONG NTAPI replay_handles(ULONG cls, PVOID buffer, ULONG size, PULONG reported) {
    if (cls != 16) return static_cast<LONG>(0xC0000003);
    if (size < replayed_handles.size()) return static_cast<LONG>(0xC0000004);
    memcpy(buffer, replayed_handles.data(), *reported = ULONG(replayed_handles.size()));
    return 0;
}
void record_handles_of(DWORD pid) {
    auto query = reinterpret_cast<LONG(NTAPI *)(ULONG, PVOID, ULONG, PULONG)>(reinterpret_cast<void *>(
        GetProcAddress(GetModuleHandleA("ntdll.dll"), "NtQuerySystemInformation")));
    std::vector<uint8_t> table(1 << 16);
    while (query(16, table.data(), ULONG(table.size()), nullptr) == LONG(0xC0000004)) table.resize(table.size() * 2);
    replayed_handles.assign(8, 0);
    ULONG kept = 0, count;
    memcpy(&count, table.data(), 4);
    for (ULONG i = 0; i < count; ++i) {
        const uint8_t *entry = table.data() + 8 + 24 * i;
        if (*reinterpret_cast<const USHORT *>(entry) != pid) continue;
        replayed_handles.insert(replayed_handles.end(), entry, entry + 24);
        ++kept;
    }
    memcpy(replayed_handles.data(), &kept, 4);
}

// Each allocation of a call fails in turn: the call reports -5 (or, where
// the lost block only costs a name, still 0) and leaves nothing behind.
TEST_F(ProcessMemory, EveryAllocationFailureIsCleanedUp) {
    Child child;
    record_handles_of(child.pid);
    ASSERT_GT(replayed_handles.size(), 8u);
    served = {{"NtQuerySystemInformation", as_proc(&replay_handles)}};
    const auto base = static_cast<uint32_t>(child.buffer);
    vxio::test::each_allocation_fails([&](HeapLedger &) {
        void *out = nullptr;
        uint64_t count = 0;
        const int32_t result = VOXA_IO_ReadWin32ProcessModuleMemory(child.pid, base, 4096, &out, &count);
        EXPECT_TRUE(result == 0 || result == -5) << result;
        if (result == 0) ZELTA_myfree(out);
    });
    vxio::test::each_allocation_fails([&](HeapLedger &) {
        auto query = query_of<ProcessHandleQuery>(child.info.hProcess);
        EXPECT_TRUE(VOXA_IO_NativeAPIProcessInfoFromHandle(&query) != -1);
        DynArray *processes = VOXA_arrNew(), *out = VOXA_arrNew();
        if (processes && out) {
            const int32_t result = VOXA_IO_EnumerateOpenHandles(nullptr, 0, child.pid, 0, out, processes);
            EXPECT_TRUE(result == 0 || result == -5) << result;
        }
        VOXA_arrFree(out, 1);
        VOXA_arrFree(processes, 1);
    });
}

TEST_F(ProcessMemory, BadArgumentsAndGoneProcesses) {
    // Wine hands out a freed id again soon: control is only tried on an
    // id that no process can have.
    constexpr uint32_t kNoSuchProcess = 0x7FFFFFFC;
    DWORD gone;
    {
        Child child;
        gone = child.pid;
    }
    std::string room(16, '\0');
    void *into = &room[0], *null = nullptr, *out = nullptr;
    uint32_t count = 0;
    uint64_t outCount = 0;
    struct Case {
        const char *what;
        int32_t got, want;
    } cases[] = {
        {"heaps pid 0", VOXA_IO_ReadWin32ProcessHeaps(0, 0x1000, 16, &into, &count), -1},
        {"heaps null buffer", VOXA_IO_ReadWin32ProcessHeaps(gone, 0x1000, 16, &null, &count), -1},
        {"heaps gone", VOXA_IO_ReadWin32ProcessHeaps(gone, 0x10000, 16, &into, &count), -1},
        {"module pid 0", VOXA_IO_ReadWin32ProcessModuleMemory(0, 0x1000, 16, &out, &outCount), -2},
        {"module size 0", VOXA_IO_ReadWin32ProcessModuleMemory(gone, 0x1000, 0, &out, &outCount), -2},
        {"module gone", VOXA_IO_ReadWin32ProcessModuleMemory(gone, 0x1000, 16, &out, &outCount), -1},
        {"private pid 0", VOXA_IO_ReadWin32ProcessVirtualAllocMemory(&out, &outCount, 0), -1},
        {"private gone", VOXA_IO_ReadWin32ProcessVirtualAllocMemory(&out, &outCount, gone), -1},
        {"private idle", VOXA_IO_ReadWin32ProcessVirtualAllocMemory(&out, &outCount, 4), -1},
        {"report pid 0", VOXA_IO_DumpWin32ModulesList(0, "x.txt"), -1},
        {"report null", VOXA_IO_DumpWin32ModulesList(gone, nullptr), -1},
        {"report gone", VOXA_IO_DumpWin32ModulesList(gone, "x.txt"), -1},
        {"pages null prefix", VOXA_IO_DumpCompleteWin32ProcessMemory(gone, nullptr, "x.txt"), -1},
        {"pages gone", VOXA_IO_DumpCompleteWin32ProcessMemory(gone, "", "x.txt"), -1},
        {"terminate 0", VOXA_IO_TerminateWin32Process(0), 0},
        {"terminate unknown", VOXA_IO_TerminateWin32Process(kNoSuchProcess), 0},
        {"suspend 0", VOXA_IO_SuspendWin32Process(0), 0},
        {"suspend unknown", VOXA_IO_SuspendWin32Process(int32_t(kNoSuchProcess)), 1},
        {"patch", VOXA_IO_PatchInMemoryImage(), 0},
        {"drivers null", VOXA_IO_EnumDeviceDrivers(nullptr), -2},
        {"handles no process list", VOXA_IO_EnumerateOpenHandles(nullptr, 0, 0, 0, nullptr, nullptr), -2},
        {"psapi null", VOXA_IO_PSAPIProcessNameFromHandle(nullptr), -1},
    };
    for (const auto &c : cases) EXPECT_EQ(c.got, c.want) << c.what;
}

// The region table: a failing query ends the walk with -1; an address
// space of more regions than the 1 MiB table holds ends it with -5.
SIZE_T WINAPI failing_query(HANDLE, LPCVOID, PMEMORY_BASIC_INFORMATION, SIZE_T) { return 0; }
SIZE_T WINAPI page_sized_regions(HANDLE, LPCVOID at, PMEMORY_BASIC_INFORMATION region, SIZE_T) {
    *region = MEMORY_BASIC_INFORMATION{};
    region->BaseAddress = const_cast<LPVOID>(at);
    region->RegionSize = 0x1000;
    region->State = MEM_FREE;
    return sizeof *region;
}

TEST_F(ProcessMemory, RegionTableLimits) {
    const DWORD self = GetCurrentProcessId();
    for (auto [query, want] : {std::pair{&failing_query, -1}, std::pair{&page_sized_regions, -5}}) {
        SeamEntry<decltype(OsTable::VirtualQueryEx)> seam(&OsTable::VirtualQueryEx, query);
        void *out = nullptr;
        uint64_t count = 0;
        EXPECT_EQ(VOXA_IO_ReadWin32ProcessModuleMemory(self, 0x10000, 16, &out, &count), want);
        EXPECT_EQ(VOXA_IO_ReadWin32ProcessVirtualAllocMemory(&out, &count, self), want);
        EXPECT_EQ(VOXA_IO_DumpCompleteWin32ProcessMemory(self, "", "unused.txt"), -1);
    }
}

// A recorded address space: a private page whose base has the low 32 bits
// of an image mapping's base 4 GiB above, and a second private page that
// cannot be read (ReadProcessMemory fails, as Windows answers for a
// no-access page or one the target freed since the walk). Readable pages
// read as 'P' (private) and 'I' (image).
SIZE_T WINAPI recorded_regions(HANDLE, LPCVOID at, PMEMORY_BASIC_INFORMATION region, SIZE_T) {
    static const struct { uintptr_t base; DWORD state, type; } kTable[] = {
        {0, MEM_FREE, 0}, {0x10000, MEM_COMMIT, MEM_PRIVATE}, {0x11000, MEM_COMMIT, MEM_PRIVATE},
        {0x12000, MEM_FREE, 0}, {0x100010000, MEM_COMMIT, MEM_IMAGE}, {0x100011000, MEM_FREE, 0},
        {0x800000000000, 0, 0}};  // past the highest application address: the walk ends before
    size_t i = 0;
    while (kTable[i + 1].base <= reinterpret_cast<uintptr_t>(at)) ++i;
    *region = MEMORY_BASIC_INFORMATION{};
    region->BaseAddress = region->AllocationBase = reinterpret_cast<void *>(kTable[i].base);
    region->RegionSize = kTable[i + 1].base - kTable[i].base;
    region->State = kTable[i].state;
    region->Type = kTable[i].type;
    region->Protect = region->AllocationProtect = kTable[i].state == MEM_COMMIT ? PAGE_READWRITE : 0;
    return sizeof *region;
}
BOOL WINAPI recorded_read(HANDLE, LPCVOID at, LPVOID into, SIZE_T size, SIZE_T *read) {
    if (reinterpret_cast<uintptr_t>(at) == 0x11000) return FALSE;
    memset(into, reinterpret_cast<uintptr_t>(at) == 0x10000 ? 'P' : 'I', size);
    *read = size;
    return TRUE;
}

TEST_F(ProcessMemory, RecordedRegionsUnreadableAndLookalike) {
    TempDir dir;
    SeamEntry<decltype(OsTable::VirtualQueryEx)> regions(&OsTable::VirtualQueryEx, recorded_regions);
    SeamEntry<decltype(OsTable::ReadProcessMemory)> reads(&OsTable::ReadProcessMemory, recorded_read);
    const DWORD self = GetCurrentProcessId();
    void *out = nullptr;
    uint64_t count = 0;
    // The module at 0x10000 is the image, not the private page before it.
    ASSERT_EQ(VOXA_IO_ReadWin32ProcessModuleMemory(self, 0x10000, 0x1000, &out, &count), 0);
    EXPECT_TRUE(std::string(static_cast<char *>(out), count) == std::string(0x1000, 'I'));
    ZELTA_myfree(out);
    // The unreadable page counts at its size, its share left at the end.
    ASSERT_EQ(VOXA_IO_ReadWin32ProcessVirtualAllocMemory(&out, &count, self), 0);
    ASSERT_EQ(count, 0x3000u);
    EXPECT_TRUE(std::string(static_cast<char *>(out), 0x2000) == std::string(0x1000, 'P') + std::string(0x1000, 'I'));
    ZELTA_myfree(out);
    // The dump writes its line and no bytes for it.
    char previous[MAX_PATH];
    GetCurrentDirectoryA(MAX_PATH, previous);
    ASSERT_TRUE(SetCurrentDirectoryA(dir.path().c_str()));
    // The index is scanned as the engine scans it: a NUL is a name's byte,
    // "0x" and a sign convert, and a name with a space ends the reading, so
    // "module.dll" is not found.
    dir.write("modules.tmp", std::string(1, '\0') + "\n5\n5\na.dll\n0x11000\n+1000\nmy module.dll\n10000\n2000\nEND\nffff\nffff");
    const int32_t dumped = VOXA_IO_DumpCompleteWin32ProcessMemory(self, "", "report.txt");
    SetCurrentDirectoryA(previous);
    EXPECT_EQ(dumped, 0);
    EXPECT_NE(slurp(dir.file("report.txt")).find("\r\n00011000 Commit RW     00001000 00011000 Private  RW    \r\n"),
              std::string::npos);
    EXPECT_TRUE(slurp(dir.file("UNKNOWN-0_memDump")) == std::string(0x1000, 'P'));
    EXPECT_TRUE(slurp(dir.file("UNKNOWN-1_memDump")) == std::string(0x1000, 'I'));
}

TEST_F(ProcessMemory, DumpsWriteTheReportIndexAndRawFiles) {
    TempDir dir;
    Child child;
    char previous[MAX_PATH];
    GetCurrentDirectoryA(MAX_PATH, previous);
    ASSERT_TRUE(SetCurrentDirectoryA(dir.path().c_str()));
    const std::string report = dir.file("report.txt");
    const int32_t modules = VOXA_IO_DumpWin32ModulesList(child.pid, report.c_str());
    const std::string index = slurp(dir.file("modules.tmp"));
    const int32_t pages = VOXA_IO_DumpCompleteWin32ProcessMemory(child.pid, (dir.path() + "\\").c_str(),
                                                                 report.c_str());
    const bool indexLeft = GetFileAttributesA("modules.tmp") != INVALID_FILE_ATTRIBUTES;
    SetCurrentDirectoryA(previous);

    ASSERT_GT(modules, 1);
    EXPECT_NE(index.find("vxio_child_module.dll\r\n"), std::string::npos);
    EXPECT_TRUE(ends_with_nocase(index, "\r\nEND\r\nffff\r\nffff")) << index;
    ASSERT_EQ(pages, 0);
    EXPECT_FALSE(indexLeft);
    const std::string text = slurp(report);
    EXPECT_EQ(text.rfind("\r\n Process Name = ", 0), 0u);
    EXPECT_NE(text.find("vxio_child.exe \r\n Process ID = " + std::to_string(child.pid) +
                        " \r\n\r\n |---> *** MODULES *** <---|\r\n\r\n     MODULE NAME:     "),
              std::string::npos);
    EXPECT_NE(text.find("\r\n\r\n\r\n |---> *** PAGE DUMPS *** <---| \r\n\r\n"), std::string::npos);
    EXPECT_NE(text.find("\r\n Module = vxio_child_module.dll  Start...\r\n"), std::string::npos);
    char line[80];
    snprintf(line, sizeof line, "%08X Commit RW     %08X %08X Private  RW    \r\n",
             unsigned(child.buffer), unsigned(child.size), unsigned(child.buffer));
    EXPECT_NE(text.find(line), std::string::npos) << "no line for the buffer:\n" << line;
    EXPECT_NE(text.find(" Commit RW G   00001000 "), std::string::npos) << "no stack guard page";
    EXPECT_EQ(slurp(dir.file("vxio_child_module.dll_memDump")).rfind("MZ", 0), 0u);

    const std::string header = child_pattern(17 + 64);
    bool found = false;
    for (int run = 0; run < 200 && !found; ++run)
        found = slurp(dir.file("UNKNOWN-" + std::to_string(run) + "_memDump")).find(header) != std::string::npos;
    EXPECT_TRUE(found) << "the buffer is in no unknown run's dump";
}

TEST_F(ProcessMemory, TerminateAndSuspendActOnTheChildOnly) {
    Child child;
    ASSERT_TRUE(VOXA_IO_SuspendWin32Process(int32_t(child.pid)));
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 thread{};
    thread.dwSize = sizeof thread;
    int suspended = 0;
    for (BOOL more = Thread32First(snapshot, &thread); more; more = Thread32Next(snapshot, &thread)) {
        if (thread.th32OwnerProcessID != child.pid) continue;
        HANDLE h = OpenThread(THREAD_SUSPEND_RESUME, FALSE, thread.th32ThreadID);
        EXPECT_EQ(SuspendThread(h), 1u) << "thread " << thread.th32ThreadID << " was running";
        ResumeThread(h);
        ResumeThread(h);
        CloseHandle(h);
        ++suspended;
    }
    CloseHandle(snapshot);
    EXPECT_GE(suspended, 2);

    ASSERT_TRUE(VOXA_IO_TerminateWin32Process(child.pid));
    ASSERT_EQ(WaitForSingleObject(child.info.hProcess, 5000), WAIT_OBJECT_0);
    DWORD code = 99;
    GetExitCodeProcess(child.info.hProcess, &code);
    EXPECT_EQ(code, 0u);
}

TEST_F(ProcessMemory, FromHandleQueriesNameTheChild) {
    TempDir dir;
    Child child;
    auto process = query_of<ProcessHandleQuery>(child.info.hProcess);
    ASSERT_EQ(VOXA_IO_NativeAPIProcessInfoFromHandle(&process), 0);
    EXPECT_EQ(process.processId, child.pid);
    EXPECT_EQ(process.parentProcessId, GetCurrentProcessId());
    EXPECT_TRUE(ends_with_nocase(process.imagePath, "vxio_child.exe")) << process.imagePath;

    auto name = query_of<FileHandleQuery>(child.info.hProcess);
    ASSERT_EQ(VOXA_IO_PSAPIProcessNameFromHandle(&name), 0);
    EXPECT_TRUE(ends_with_nocase(name.name, "\\vxio_child.exe")) << name.name;

    auto thread = query_of<ThreadHandleQuery>(child.info.hThread);
    ASSERT_EQ(VOXA_IO_NativeAPIThreadInfoFromHandle(&thread), 0);
    EXPECT_EQ(thread.processId, child.pid);
    EXPECT_EQ(thread.threadId, GetThreadId(child.info.hThread));

    HANDLE file = CreateFileA(dir.write("Named.txt", "x").c_str(), GENERIC_READ, 0, nullptr,
                              OPEN_EXISTING, 0, nullptr);
    auto fileName = query_of<FileHandleQuery>(file);
    EXPECT_EQ(VOXA_IO_NativeAPIFilenameFromHandle(&fileName), 0);
    EXPECT_TRUE(ends_with_nocase(fileName.name, "\\named.txt")) << fileName.name;
    CloseHandle(file);
    auto notFile = query_of<FileHandleQuery>(child.info.hProcess);
    EXPECT_EQ(VOXA_IO_NativeAPIFilenameFromHandle(&notFile), 0);
    EXPECT_STREQ(notFile.name, "*");
}

LONG NTAPI answers_every_handle(HANDLE, PVOID io, PVOID buffer, ULONG, ULONG) {
    const ULONG bytes = 4;
    static_cast<ULONG_PTR *>(io)[1] = 4 + bytes;
    memcpy(buffer, &bytes, 4);
    memcpy(static_cast<uint8_t *>(buffer) + 4, L"\\t", bytes);
    return 0;
}

TEST_F(ProcessMemory, HandleEnumerationFindsTheChildsFiles) {
    TempDir dir;
    const std::string a = dir.write("first-open.dat", ""), b = dir.write("second-open.dat", "");
    Child child(64, {a, b});
    DynArray *processes = VOXA_arrNew(), *out = VOXA_arrNew();
    auto *owner = static_cast<ProcessEntry *>(ZELTA_mymalloc(sizeof(ProcessEntry)));
    *owner = ProcessEntry{child.pid, 0, "child-name"};
    VOXA_arrAdd(processes, owner);

    // Threads are described by their own query only when the file-name
    // query answered for them, which no system does: the answer "\\t" for
    // every handle is served for a second walk.
    for (bool answered : {true, false}) {
        served.clear();
        if (answered) served["NtQueryInformationFile"] = as_proc(&answers_every_handle);
        ASSERT_EQ(VOXA_IO_EnumerateOpenHandles(nullptr, 0, child.pid, 0, out, processes), 0);
        bool threadNamed = false;
        for (uint32_t i = 0; i < out->count; ++i) {
            const auto *entry = static_cast<HandleEntry *>(out->items[i]);
            EXPECT_EQ(entry->ownerProcessId, child.pid);
            EXPECT_STREQ(entry->ownerName, "child-name");
            threadNamed |= std::string(entry->objectName).rfind("ProcessID_(" + std::to_string(child.pid) + ")__ThreadID_(", 0) == 0;
        }
        EXPECT_EQ(threadNamed, answered) << "a thread handle's description";
        if (answered) VOXA_arrClear(out, 1);
    }
    const HandleEntry *first = nullptr;
    for (const char *file : {"\\first-open.dat", "\\second-open.dat"}) {
        bool seen = false;
        for (uint32_t i = 0; i < out->count; ++i) {
            const auto *entry = static_cast<HandleEntry *>(out->items[i]);
            if (!ends_with_nocase(entry->objectName, file)) continue;
            seen = true;
            if (!first) first = entry;
        }
        EXPECT_TRUE(seen) << file;
    }
    ASSERT_TRUE(first);
    // A name filter keeps the records whose name the filter begins with,
    // in any case: the first file's name plus a tail matches only it.
    DynArray *filtered = VOXA_arrNew();
    std::string filter = std::string(first->objectName) + "-AND-MORE";
    for (char &ch : filter) ch = static_cast<char>(toupper(static_cast<unsigned char>(ch)));
    ASSERT_EQ(VOXA_IO_EnumerateOpenHandles(filter.c_str(), int32_t(first->objectTypeNumber), child.pid, 0,
                                           filtered, processes), 0);
    ASSERT_EQ(filtered->count, 1u);
    EXPECT_STREQ(static_cast<HandleEntry *>(filtered->items[0])->objectName, first->objectName);
    VOXA_arrFree(filtered, 1);
    const uint32_t before = out->count;
    EXPECT_EQ(VOXA_IO_EnumerateOpenHandles("x", 28, child.pid, 1, nullptr, processes), 0);
    EXPECT_EQ(VOXA_IO_EnumerateOpenHandles("x", 0, child.pid, 0, out, processes), -2);
    EXPECT_EQ(VOXA_IO_EnumerateOpenHandles(nullptr, 28, 0, 1, out, processes), -2);
    EXPECT_EQ(out->count, before);
    VOXA_arrFree(out, 1);
    VOXA_arrFree(processes, 1);
}

// A recorded handle table that returns one entry (and counts two): our own
// file handle, typed "File" (index 28) as Windows numbers it or "Event"
// (9), answered by a file-name query and an object-name query that each
// hang, fail or answer (the file name's length past the bytes returned,
// the object's text outside the buffer or too long).
enum Answer { kAnswers, kHangs, kFails, kShort, kOutside, kOverlong };
enum Worker { kPrompt, kSlow, kNone };  // kNone: no thread can be started
struct Recorded {
    static inline HANDLE file;
    static inline HANDLE release;
    static inline void *lostBlock;
    static inline Answer fileAnswer, objectAnswer;
    static inline uint8_t type;
    static inline Worker start;
    static inline bool killFails;
    static inline DWORD testThread;
    static inline DWORD waitAnswer;
    static inline HANDLE worker;
    static inline void *workerBlock;
    static HANDLE WINAPI create_thread(LPSECURITY_ATTRIBUTES s, SIZE_T z, LPTHREAD_START_ROUTINE r,
                                       LPVOID p, DWORD f, LPDWORD id) {
        if (start == kNone) return nullptr;
        HANDLE h = HandleAccount::create_thread(s, z, r, p, f, id);
        if (worker) CloseHandle(worker);  // a handle's first worker, when it has two
        DuplicateHandle(GetCurrentProcess(), h, GetCurrentProcess(), &worker, 0, FALSE, DUPLICATE_SAME_ACCESS);
        workerBlock = p;
        return h;
    }
    static DWORD WINAPI wait(HANDLE h, DWORD ms, BOOL alertable) {
        return waitAnswer ? waitAnswer : real_os.WaitForSingleObjectEx(h, ms, alertable);
    }
    // The worker's first call: slowed down, it stands for a loaded machine.
    static HMODULE WINAPI module_handle(LPCSTR name) {
        if (start == kSlow && GetCurrentThreadId() != testThread) Sleep(900);
        return real_os.GetModuleHandleA(name);
    }
    static BOOL WINAPI terminate(HANDLE h, DWORD code) {
        return killFails ? FALSE : real_os.TerminateThread(h, code);
    }
    // Two entries counted, one returned: the second is no part of the answer.
    static LONG NTAPI system(ULONG cls, PVOID buffer, ULONG size, PULONG reported) {
        if (cls != 16) return static_cast<LONG>(0xC0000003);
        if (size < 56) return static_cast<LONG>(0xC0000004);  // no length reported, as Wine does
        auto *b = static_cast<uint8_t *>(buffer);
        memset(b, 0, 56);
        b[0] = 2;
        const auto pid = static_cast<USHORT>(GetCurrentProcessId());
        const auto value = static_cast<USHORT>(reinterpret_cast<uintptr_t>(file));
        for (uint8_t *entry : {b + 8, b + 32}) {
            memcpy(entry, &pid, 2);
            entry[4] = type;
            memcpy(entry + 6, &value, 2);
        }
        *reported = 32;
        return 0;
    }
    // Killed, it never returns; left on the calling thread, it answers late.
    static void hang(PVOID buffer) {
        lostBlock = buffer;
        WaitForSingleObject(release, 3000);
    }
    static LONG NTAPI file_name(HANDLE, PVOID io, PVOID buffer, ULONG, ULONG) {
        if (fileAnswer == kFails) return static_cast<LONG>(0xC0000008);
        if (fileAnswer == kHangs) hang(buffer);
        const wchar_t name[] = L"\\??\\C:\\Data\\File.TXT";
        const ULONG bytes = sizeof name - 2;
        memcpy(buffer, &bytes, 4);
        memcpy(static_cast<uint8_t *>(buffer) + 4, name, bytes);
        static_cast<ULONG_PTR *>(io)[1] = 4 + bytes - (fileAnswer == kShort ? 2 : 0);
        return 0;
    }
    static LONG NTAPI object(HANDLE, ULONG cls, PVOID buffer, ULONG size, PULONG reported) {
        static const wchar_t kElsewhere[] = L"\\Elsewhere";
        if (cls != 1) return static_cast<LONG>(0xC0000003);  // the type, which is not kept
        *reported = 64;
        if (size < 64) return static_cast<LONG>(0x80000005);
        if (objectAnswer == kHangs) hang(buffer);
        auto *b = static_cast<uint8_t *>(buffer);
        const wchar_t name[] = L"\\Device\\Thing";
        memcpy(b + 16, name, sizeof name);
        const USHORT length = objectAnswer == kOverlong ? 64 : sizeof name - 2;
        const void *text = objectAnswer == kOutside ? static_cast<const void *>(kElsewhere) : b + 16;
        memcpy(b, &length, 2);
        memcpy(b + 8, &text, 8);
        return 0;
    }
};

TEST_F(ProcessMemory, NamingWorkerIsBoundedAndItsOutcomesMarked) {
    TempDir dir;
    Recorded::file = CreateFileA(dir.write("held.txt", "").c_str(), GENERIC_READ, 0, nullptr,
                                 OPEN_EXISTING, 0, nullptr);
    Recorded::release = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    served = {{"NtQuerySystemInformation", as_proc(&Recorded::system)},
              {"NtQueryInformationFile", as_proc(&Recorded::file_name)},
              {"NtQueryObject", as_proc(&Recorded::object)}};
    DynArray *processes = VOXA_arrNew(), *out = VOXA_arrNew();
    SeamEntry<decltype(OsTable::CreateThread)> threads(&OsTable::CreateThread, Recorded::create_thread);
    SeamEntry<decltype(OsTable::WaitForSingleObjectEx)> waits(&OsTable::WaitForSingleObjectEx, Recorded::wait);
    SeamEntry<decltype(OsTable::TerminateThread)> kills(&OsTable::TerminateThread, Recorded::terminate);
    SeamEntry<decltype(OsTable::GetModuleHandleA)> modules(&OsTable::GetModuleHandleA, Recorded::module_handle);
    Recorded::testThread = GetCurrentThreadId();
    // A worker that is slow to reach its query is waited for: only a query
    // that has run for 500 ms is given up on. A handle without a file name
    // (or a short one), or an "Event" with no description, is named by the
    // object query, on a worker too: with none, nothing is asked.
    struct {
        uint8_t type;
        Answer file, object;
        Worker start;
        DWORD wait;       // 0: the real wait
        bool killFails;
        const char *name;
    } cases[] = {{28, kAnswers, kAnswers, kPrompt, 0, false, "c:\\data\\file.txt"},
                 {28, kAnswers, kAnswers, kSlow, 0, false, "c:\\data\\file.txt"},
                 {28, kHangs, kAnswers, kPrompt, 0, false, "__OBJECT_UNSAFE_TO_ACCESS__THREAD_TERMINATED__"},
                 {28, kHangs, kAnswers, kSlow, 0, false, "__OBJECT_UNSAFE_TO_ACCESS__THREAD_TERMINATED__"},
                 {28, kAnswers, kAnswers, kPrompt, WAIT_FAILED, false, "__OBJECT_UNSAFE_TO_ACCESS__COULD_NOT_WAIT_FOR_THREAD__"},
                 {28, kAnswers, kAnswers, kPrompt, WAIT_TIMEOUT, true, "__OBJECT_UNSAFE_TO_ACCESS__THREAD_NOT_TERMINATED__"},
                 {28, kAnswers, kAnswers, kNone, 0, false, "__FAILED_TO_ACCESS_OBJECT_INFO__"},
                 {28, kFails, kAnswers, kPrompt, 0, false, "\\Device\\Thing"},
                 {28, kShort, kAnswers, kPrompt, 0, false, "\\Device\\Thing"},
                 {9, kAnswers, kAnswers, kPrompt, 0, false, "\\Device\\Thing"},
                 {28, kFails, kHangs, kPrompt, 0, false, "__OBJECT_UNSAFE_TO_ACCESS__THREAD_TERMINATED__"},
                 {9, kAnswers, kHangs, kPrompt, 0, false, "__OBJECT_UNSAFE_TO_ACCESS__THREAD_TERMINATED__"},
                 {28, kFails, kOutside, kPrompt, 0, false, "__FAILED_TO_ACCESS_OBJECT_INFO__"},
                 {28, kFails, kOverlong, kPrompt, 0, false, "__FAILED_TO_ACCESS_OBJECT_INFO__"}};
    for (const auto &c : cases) {
        Recorded::type = c.type;
        Recorded::fileAnswer = c.file;
        Recorded::objectAnswer = c.object;
        Recorded::start = c.start;
        Recorded::waitAnswer = c.wait;
        Recorded::killFails = c.killFails;
        Recorded::lostBlock = nullptr;
        const auto start = std::chrono::steady_clock::now();
        ASSERT_EQ(VOXA_IO_EnumerateOpenHandles(nullptr, 0, 0, 0, out, processes), 0);
        const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                            std::chrono::steady_clock::now() - start).count();
        ASSERT_EQ(out->count, 1u);
        const auto *entry = static_cast<HandleEntry *>(out->items[0]);
        EXPECT_STREQ(entry->objectName, c.name) << int(&c - cases);
        EXPECT_STREQ(entry->typeName, c.type == 28 ? "File" : "Event");
        EXPECT_EQ(entry->handleValue, reinterpret_cast<uintptr_t>(Recorded::file));
        const long long least = (c.start == kSlow ? 900 : 0) + (c.file == kHangs || c.object == kHangs ? 450 : 0);
        EXPECT_TRUE(ms >= least && ms < least + 2500) << ms << " ms";
        // A killed worker's buffer, and the query block of a worker left
        // running, are abandoned by design: collect them here.
        if (Recorded::lostBlock) ZELTA_myfree(Recorded::lostBlock);
        if (c.wait) {
            WaitForSingleObject(Recorded::worker, INFINITE);
            ZELTA_myfree(Recorded::workerBlock);
        }
        CloseHandle(Recorded::worker);
        Recorded::worker = nullptr;
        VOXA_arrClear(out, 1);
    }
    VOXA_arrFree(out, 1);
    VOXA_arrFree(processes, 1);
    CloseHandle(Recorded::file);
    CloseHandle(Recorded::release);
}

// Wine lists no drivers: a recorded list of two base names, one a real
// system file and one that exists nowhere.
std::vector<std::wstring> driverNames;
BOOL WINAPI recorded_drivers(LPVOID *bases, DWORD, LPDWORD needed) {
    for (size_t i = 0; i < driverNames.size(); ++i) bases[i] = reinterpret_cast<LPVOID>(0x1000 * (i + 1));
    *needed = DWORD(driverNames.size() * sizeof(LPVOID));
    return TRUE;
}
DWORD WINAPI recorded_base_name(LPVOID base, LPWSTR name, DWORD) {
    wcscpy(name, driverNames[reinterpret_cast<uintptr_t>(base) / 0x1000 - 1].c_str());
    return DWORD(wcslen(name));
}

TEST_F(ProcessMemory, DriversAreFoundInTheSystemDirectory) {
    DynArray *list = VOXA_arrNew();
    ASSERT_EQ(VOXA_IO_EnumDeviceDrivers(list), 0);  // the system's own list, whatever it holds
    VOXA_arrClear(list, 1);

    driverNames = {L"NTDLL.dll", L"NoSuch.SYS"};
    served = {{"EnumDeviceDrivers", as_proc(&recorded_drivers)},
              {"GetDeviceDriverBaseNameW", as_proc(&recorded_base_name)}};
    ASSERT_EQ(VOXA_IO_EnumDeviceDrivers(list), 0);
    ASSERT_EQ(list->count, 2u);
    char windows[MAX_PATH];
    GetWindowsDirectoryA(windows, MAX_PATH);
    std::string expected = std::string(windows) + "\\system32\\ntdll.dll";
    for (char &ch : expected) ch = static_cast<char>(tolower(static_cast<unsigned char>(ch)));
    EXPECT_EQ(static_cast<DriverEntry *>(list->items[0])->path, expected);
    EXPECT_STREQ(static_cast<DriverEntry *>(list->items[1])->path, "nosuch.sys");
    VOXA_arrFree(list, 1);
}

}  // namespace
