// Process, thread, module, heap and service lists. A real child process
// (vxio_child.exe: it loads vxio_child_module.dll and starts a second
// thread) must be found by every method that works under Wine, checked
// against the system interface called directly. What Wine does not do
// (heap walks, performance counters, kernel modules, debug-buffer modules)
// is served through the seam's GetProcAddress with recorded answers, as
// each test says, and so are the hostile answers Wine never gives (records
// pointing outside their answer, lists without end). A second, hostile
// child loops its loader list and stretches its texts: every method must
// come back from it quickly with bounded lists and texts. Every test ends
// with no library block left.
#include <gtest/gtest.h>
#include <windows.h>

#include <pdh.h>
#include <tlhelp32.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "child/launch.h"
#include "platform/os.h"
#include "support/heap_ledger.h"
#include "support/served.h"
#include "vxio/process.h"
#include "vxio/process_memory.h"

using namespace vxio::platform;
using vxio::test::as_proc;
using vxio::test::HeapLedger;
using vxio::test::served;

namespace {

std::string lower(std::string text) {
    for (char &c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// The child, started once for the program and ended with it.
struct Child {
    DWORD id = 0;
    std::string path, modulePath;  // as the lists report them
    std::unique_ptr<vxio::test::ChildProcess> process;
} child;

class ChildEnvironment : public ::testing::Environment {
    void SetUp() override {
        child.path = lower(vxio::test::beside_program("vxio_child.exe"));
        child.modulePath = lower(vxio::test::beside_program("vxio_child_module.dll"));
        child.process = std::make_unique<vxio::test::ChildProcess>();
        child.id = child.process->pid;
        ASSERT_NE(child.id, 0u) << "the child did not start";
        ASSERT_EQ(child.id, child.process->info.dwProcessId);
    }
    void TearDown() override { child.process.reset(); }
};
const auto *const environment = ::testing::AddGlobalTestEnvironment(new ChildEnvironment);

// A caller's list, freed with its records at the end of the scope.
struct List {
    DynArray *array = VOXA_arrNew();
    ~List() { VOXA_arrFree(array, 1); }
    operator DynArray *() const { return array; }
    template <typename T>
    std::vector<T *> items(std::function<bool(const T &)> keep = nullptr) const {
        std::vector<T *> out;
        for (uint32_t i = 0; i < array->count; ++i) {
            auto *item = static_cast<T *>(array->items[i]);
            if (!keep || keep(*item)) out.push_back(item);
        }
        return out;
    }
};

class ProcessLists : public ::testing::Test {
protected:
    HeapLedger ledger;
    vxio::test::Served entries;  // what each test serves or hides in `served`
    void TearDown() override { EXPECT_EQ(ledger.live(), 0u) << "library blocks left"; }
};

// Process ids (or the child's thread ids) from a snapshot taken directly.
std::set<DWORD> snapshot_ids(bool childThreads = false) {
    std::set<DWORD> ids;
    HANDLE snap = CreateToolhelp32Snapshot(childThreads ? TH32CS_SNAPTHREAD : TH32CS_SNAPPROCESS, 0);
    THREADENTRY32 t{};
    PROCESSENTRY32 p{};
    t.dwSize = sizeof t, p.dwSize = sizeof p;
    for (BOOL ok = Thread32First(snap, &t); childThreads && ok; ok = Thread32Next(snap, &t))
        if (t.th32OwnerProcessID == child.id) ids.insert(t.th32ThreadID);
    for (BOOL ok = Process32First(snap, &p); !childThreads && ok; ok = Process32Next(snap, &p))
        if (p.th32ProcessID != 0 && p.th32ProcessID != 4) ids.insert(p.th32ProcessID);
    CloseHandle(snap);
    return ids;
}

// Processes come and go under Wine (its services start on demand, other
// tests start children): every process seen directly before and after the
// call must be listed. One seen neither time may have come and gone during
// the call: only a few such, with ids of the system's shape, are allowed.
// The child must be listed once, as its parent's.
const ProcessEntry &check_processes(const List &list, const std::set<DWORD> &before, DWORD parent) {
    const std::set<DWORD> after = snapshot_ids();
    std::set<DWORD> ours;
    for (auto *p : list.items<ProcessEntry>()) ours.insert(p->processId);
    for (DWORD id : before) EXPECT_TRUE(!after.count(id) || ours.count(id)) << "missing " << id;
    size_t unknown = 0;
    for (DWORD id : ours) {
        if (before.count(id) || after.count(id)) continue;
        ++unknown;
        EXPECT_TRUE(id % 4 == 0 && id > 4) << "unknown " << id;
    }
    EXPECT_LE(unknown, 3u);
    auto mine = list.items<ProcessEntry>([](auto &p) { return p.processId == child.id; });
    EXPECT_EQ(mine.size(), 1u);
    static ProcessEntry none{};
    if (mine.empty()) return none;
    EXPECT_EQ(mine[0]->parentOrAux, parent);
    return *mine[0];
}

std::set<DWORD> child_threads(const List &threads) {
    std::set<DWORD> ids;
    for (auto *t : threads.items<ThreadEntry>([](auto &t) { return t.ownerProcessId == child.id; }))
        ids.insert(t->threadId);
    return ids;
}

TEST_F(ProcessLists, ToolHelpFindsTheChildItsModulesAndThreads) {
    const auto before = snapshot_ids();
    List processes, modules, threads;
    ASSERT_EQ(VOXA_IO_CreateWin32ToolHelpEnumerations(processes, modules, threads), 0);
    EXPECT_EQ(check_processes(processes, before, GetCurrentProcessId()).name, child.path);
    auto separators = modules.items<ModuleEntry>([](auto &m) { return !m.processId && !m.size && !m.path[0]; });
    EXPECT_EQ(separators.size(), processes.array->count);
    auto dll = modules.items<ModuleEntry>([](auto &m) { return m.processId == child.id && m.path == child.modulePath; });
    ASSERT_EQ(dll.size(), 1u);
    EXPECT_NE(dll[0]->size, 0u);
    EXPECT_EQ(child_threads(threads).size(), 2u);
    EXPECT_EQ(child_threads(threads), snapshot_ids(true));

    served["Module32First"] = nullptr;  // now every module walk fails
    List processes2, modules2, threads2;
    ASSERT_EQ(VOXA_IO_CreateWin32ToolHelpEnumerations(processes2, modules2, threads2), 0);
    EXPECT_GT(processes2.array->count, 1u);
    EXPECT_EQ(modules2.array->count, processes2.array->count);  // separators only
    EXPECT_EQ(processes2.items<ProcessEntry>([](auto &p) { return p.name[0] != 0; }).size(), 0u);
}

TEST_F(ProcessLists, ProcessStatusAndBruteForceFindTheChildByPath) {
    for (auto create : {&VOXA_IO_CreateWin32PSAPIProcessList, &VOXA_IO_CreateWin32BruteForcePIDList}) {
        const auto before = snapshot_ids();
        List processes;
        ASSERT_EQ(create(processes), 0);
        EXPECT_EQ(check_processes(processes, before, 0).name, child.path);
    }
}

// Every id the brute-force probe asks for: the seam refuses each open.
std::vector<DWORD> probed;
HANDLE WINAPI refuse_open(DWORD, BOOL, DWORD id) {
    if (probed.empty() || probed.back() != id) probed.push_back(id);
    return nullptr;
}

TEST_F(ProcessLists, BruteForceProbesMultiplesOfFourFromEightTo19996) {
    probed.clear();
    SeamEntry open(&OsTable::OpenProcess, &refuse_open);
    List processes;
    ASSERT_EQ(VOXA_IO_CreateWin32BruteForcePIDList(processes), 0);
    EXPECT_EQ(processes.array->count, 0u);
    ASSERT_EQ(probed.size(), (19996u - 8u) / 4u + 1u);
    EXPECT_EQ(probed.front(), 8u);
    EXPECT_EQ(probed.back(), 19996u);
}

// Replays a process of 200 modules, named after their handles.
BOOL WINAPI two_hundred_modules(HANDLE, HMODULE *out, DWORD, LPDWORD needed, DWORD) {
    for (uintptr_t i = 0; i < 200; ++i) out[i] = reinterpret_cast<HMODULE>(0x10000 * (i + 1));
    return *needed = 200 * sizeof(HMODULE), TRUE;
}
DWORD WINAPI module_name(HANDLE, HMODULE module, LPSTR out, DWORD) {
    return DWORD(std::snprintf(out, 260, "C:\\M%zu.DLL", reinterpret_cast<uintptr_t>(module) / 0x10000));
}

TEST_F(ProcessLists, ProcessStatusModulesMatchTheSnapshotAndStopAt128) {
    List modules;
    ASSERT_EQ(VOXA_IO_CreateWin32PSAPIModulesList(modules, child.id), 0);
    auto dll = modules.items<ModuleEntry>([](auto &m) { return m.path == child.modulePath; });
    ASSERT_EQ(dll.size(), 1u);
    EXPECT_EQ(dll[0]->processId, child.id);
    EXPECT_NE(dll[0]->extra, 0u);  // the entry point
    HANDLE snap = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, child.id);
    MODULEENTRY32 m{};
    m.dwSize = sizeof m;
    uint32_t base = 0;
    for (BOOL ok = Module32First(snap, &m); ok; ok = Module32Next(snap, &m))
        if (lower(m.szExePath) == child.modulePath) base = uint32_t(uintptr_t(m.modBaseAddr));
    CloseHandle(snap);
    EXPECT_EQ(dll[0]->baseAddress, base);

    served = {{"EnumProcessModulesEx", as_proc(&two_hundred_modules)}, {"GetModuleFileNameExA", as_proc(&module_name)}};
    List capped;
    ASSERT_EQ(VOXA_IO_CreateWin32PSAPIModulesList(capped, child.id), 0);
    auto items = capped.items<ModuleEntry>();
    ASSERT_EQ(items.size(), 128u);
    EXPECT_STREQ(items[127]->path, "c:\\m128.dll");
}

TEST_F(ProcessLists, NativeProcessesCarryParentNameAndThreads) {
    const auto before = snapshot_ids();
    List processes, threads;
    ASSERT_EQ(VOXA_IO_NativeAPIEnumProcessesThreads(processes, threads), 0);
    EXPECT_EQ(lower(check_processes(processes, before, GetCurrentProcessId()).name), "vxio_child.exe");
    EXPECT_EQ(child_threads(threads), snapshot_ids(true));
}

// Replays a query that never fits: it reports three times the length
// offered while that is small, then 0, as some classes do under Wine.
// Records each length offered and the length reported for it.
std::vector<std::pair<ULONG, ULONG>> offered;
LONG NTAPI never_fits(ULONG, PVOID, ULONG length, PULONG reported) {
    offered.emplace_back(length, *reported = length < 4096 ? 3 * length : 0);
    return static_cast<LONG>(0xC0000004);
}

TEST_F(ProcessLists, NativeQueriesGrowToTheReportedSizeOrDoubleAndGiveUp) {
    served["NtQuerySystemInformation"] = as_proc(&never_fits);
    for (ULONG first : {264u, 292u}) {
        offered.clear();
        List list, threads;
        EXPECT_EQ(first == 264 ? VOXA_IO_NativeAPIEnumProcessesThreads(list, threads) : VOXA_IO_NativeAPIEnumModules(list), -1);
        ASSERT_GT(offered.size(), 5u);
        EXPECT_LE(offered.size(), 24u);
        EXPECT_EQ(offered.front().first, first);
        for (size_t i = 1; i < offered.size(); ++i) {
            const auto [size, reported] = offered[i - 1];
            ASSERT_EQ(offered[i].first, std::min<ULONG>(reported > size ? reported : 2 * size, 256u << 20)) << i;
        }
        EXPECT_EQ(offered.back().first, 256u << 20);  // given up at the largest size
    }
}

// Class 5 answers Wine never gives, replayed in the system's layout: two
// records (ids 8 and 12, the second at 0x200), whose names lie at the end
// of the answer: L"abcd" counted as 4 bytes, and L"z". Each row spoils one
// field of the first record. Names are served as offsets and made into
// addresses inside the buffer asked with; larger values stay addresses.
std::vector<uint8_t> served_block;
LONG NTAPI served_system(ULONG infoClass, PVOID out, ULONG length, PULONG reported) {
    *reported = ULONG(served_block.size());
    if ((infoClass != 11 && infoClass != 5) || length < served_block.size()) return static_cast<LONG>(0xC0000004);
    std::memcpy(out, served_block.data(), served_block.size());
    for (size_t at : {0x40, 0x240})
        if (auto *name = static_cast<uint64_t *>(out) + at / 8; infoClass == 5 && *name < 0x400) *name += uint64_t(out);
    return 0;
}

TEST_F(ProcessLists, NativeProcessRecordsAreReadOnlyInsideTheAnswer) {
    served["NtQuerySystemInformation"] = as_proc(&served_system);
    const struct {
        size_t at;
        uint64_t value;  // written over 8 bytes (a 32-bit field and its neighbour)
        const char *listed;
    } rows[] = {
        {0x300, 0, "8:ab/2 12:z/1 of 3"},                     // as the system gives it
        {0x04, 1000, "8:ab/3 12:z/1 of 4"},                   // thread count: what fits before 0x200
        {0x40, uint64_t(L"evil"), "12:z/1 of 1"},             // name outside the answer
        {0x38, 0x200, "12:z/1 of 1"},                         // name running past the end
        {0x38, 0, "8:/2 12:z/1 of 3"},                        // empty name
        {0x00, 0x380 | (2ull << 32), "8:ab/2 of 2"},          // next record without room
        {0x00, 8 | (1000ull << 32), "8:ab/9 of 9"},           // next record inside this one: threads to the end
    };
    for (const auto &row : rows) {
        served_block.assign(0x400, 0);
        auto put = [](size_t at, uint64_t v) { std::memcpy(&served_block[at], &v, 8); };
        put(0x00, 0x200 | (2ull << 32)), put(0x38, 4), put(0x40, 0x380), put(0x50, 8), put(0x58, 1);
        put(0x204, 1), put(0x238, 2), put(0x240, 0x3C0), put(0x250, 12);
        for (size_t t = 0; t < 9; ++t) put(0x128 + t * 0x50, 8);  // client ids, as far as the answer goes
        put(0x328, 12);
        put(0x380, 0x0064'0063'0062'0061), put(0x388, 'X'), put(0x3C0, 'z');  // L"abcdX", L"z"
        put(row.at, row.value);
        List processes, threads;
        ASSERT_EQ(VOXA_IO_NativeAPIEnumProcessesThreads(processes, threads), 0);
        std::string listed;
        for (auto *p : processes.items<ProcessEntry>())
            listed += std::to_string(p->processId) + ":" + p->name + "/" +
                      std::to_string(threads.items<ThreadEntry>([&](auto &t) { return t.ownerProcessId == p->processId; }).size()) + " ";
        EXPECT_EQ(listed + "of " + std::to_string(threads.array->count), row.listed) << std::hex << row.at;
    }
}

TEST_F(ProcessLists, NativeProcessModulesAndDetailsOfTheChild) {
    List modules;
    auto details = std::make_unique<ProcessDetails>();
    std::memset(details.get(), 0x5A, sizeof *details);
    ASSERT_EQ(VOXA_IO_NativeAPIEnumProcesseModules(modules, int32_t(child.id), details.get()), 0);
    EXPECT_EQ(details->parentProcessId, GetCurrentProcessId());
    EXPECT_EQ(details->imageBaseAddress, 0x140000000u);
    EXPECT_EQ(details->beingDebugged, 0u);
    EXPECT_EQ(details->imagePath, child.path);
    EXPECT_NE(std::string(details->commandLine).find("vxio_child.exe"), std::string::npos);
    ASSERT_GT(modules.array->count, 1u);
    EXPECT_EQ(modules.items<ModuleEntry>()[0]->path, child.path);  // load order: the exe first
    EXPECT_EQ(modules.items<ModuleEntry>([](auto &m) { return m.path == child.modulePath; }).size(), 1u);
}

// A target whose loader list never ends, served through the seam: entry i
// links to entry i + 1 for ever, and each entry's path claims pathLength
// bytes of L'x' of which only the first 4 KiB can be read.
constexpr uint64_t kPeb = 0x7000'0000, kLoader = 0x7000'1000, kEntries = 0x1'0000'0000, kTexts = 0x8'0000'0000;
uint16_t pathLength = 0;
size_t servedBytes = 0;
BOOL WINAPI endless_target(HANDLE, LPCVOID from, LPVOID out, SIZE_T size, SIZE_T *read) {
    const auto at = reinterpret_cast<uint64_t>(from);
    auto put = [&](size_t offset, uint64_t value) { std::memcpy(static_cast<uint8_t *>(out) + offset, &value, 8); };
    servedBytes += size, *read = 0;
    std::memset(out, 0, size);
    if (at == kPeb) put(0x18, kLoader);
    else if (at == kLoader) put(0x10, kEntries);
    else if (at >= kEntries && at < kTexts) put(0, at + 0x100), put(0x48, pathLength | uint64_t(pathLength) << 16), put(0x50, kTexts);
    else if (at >= kTexts && size <= 4096) std::fill_n(static_cast<wchar_t *>(out), size / 2, L'x');
    else return FALSE;
    return *read = size, TRUE;
}
LONG NTAPI endless_basic(HANDLE, ULONG, PVOID out, ULONG length, PULONG) {
    if (length != 48) return static_cast<LONG>(0xC0000004);
    return std::memset(out, 0, 48), std::memcpy(static_cast<uint8_t *>(out) + 8, &kPeb, 8), 0;
}

TEST_F(ProcessLists, LoaderWalkStopsAtItsEntryAndByteBounds) {
    served["NtQueryInformationProcess"] = as_proc(&endless_basic);
    SeamEntry read(&OsTable::ReadProcessMemory, &endless_target);
    for (uint16_t length : {0, 0xFFFE}) {  // without paths the entries run out first, with them the bytes
        pathLength = length, servedBytes = 0;
        List modules;
        auto details = std::make_unique<ProcessDetails>();
        ASSERT_EQ(VOXA_IO_NativeAPIEnumProcesseModules(modules, int32_t(child.id), details.get()), 0);
        auto items = modules.items<ModuleEntry>();
        EXPECT_LE(servedBytes, (2u << 20) + 644 + 832);  // the walk, the environment block, the parameters
        ASSERT_EQ(items.size() == 8192, length == 0) << items.size();
        EXPECT_GT(items.size(), 4000u);
        EXPECT_EQ(items[0]->path, length ? std::string(129, 'x') : "");  // the head of a text whose tail is unreadable
    }
}

// ---------------------------------------------------------------------------
// The entry gate, through every export.

ProcessDetails gateDetails;
struct Export {
    const char *entry;  // hiding it gives -1 (null: nothing late-bound decides)
    int refused;        // ids refused: 0 none, 1 only 0, 2 both 0 and 4
    std::function<int32_t(DynArray *, uint32_t)> call;
};
const Export exports[] = {
    {"EnumProcesses", 0, [](DynArray *l, uint32_t) { return VOXA_IO_CreateWin32PSAPIProcessList(l); }},
    {"GetModuleInformation", 2, [](DynArray *l, uint32_t id) { return VOXA_IO_CreateWin32PSAPIModulesList(l, id); }},
    {nullptr, 0, [](DynArray *l, uint32_t) { List m, t; return VOXA_IO_CreateWin32ToolHelpEnumerations(l, m, t); }},
    {"Heap32ListNext", 2, [](DynArray *l, uint32_t id) { return VOXA_IO_CreateWin32ToolHelpHeapsList(l, id); }},
    {"PdhEnumObjectItemsA", 0, [](DynArray *l, uint32_t) { return VOXA_IO_CreateWin32PDHProcessNamesList(l); }},
    {"PdhMakeCounterPathA", 0, [](DynArray *l, uint32_t) { return VOXA_IO_CreateWin32PDHProcessList(l); }},
    {"PdhCloseQuery", 0, [](DynArray *l, uint32_t) { return VOXA_IO_CreateWin32PDHThreadList(l); }},
    {"NtQuerySystemInformation", 0, [](DynArray *l, uint32_t) { List t; return VOXA_IO_NativeAPIEnumProcessesThreads(l, t); }},
    {"NtQueryInformationProcess", 1, [](DynArray *l, uint32_t id) { return VOXA_IO_NativeAPIEnumProcesseModules(l, int32_t(id), &gateDetails); }},
    {"NtQuerySystemInformation", 0, [](DynArray *l, uint32_t) { return VOXA_IO_NativeAPIEnumModules(l); }},
    {"RtlQueryProcessDebugInformation", 1, [](DynArray *l, uint32_t id) { return VOXA_IO_NativeDebugAPIEnumProcesseModules(l, id); }},
    {"EnumServicesStatusExA", 0, [](DynArray *l, uint32_t) { return VOXA_IO_CreateWin32ServiceList(l); }},
    {"GetModuleFileNameExA", 0, [](DynArray *l, uint32_t) { return VOXA_IO_CreateWin32BruteForcePIDList(l); }},
};

int platformId = 1, systemCalls = 0;
BOOL WINAPI served_version(LPOSVERSIONINFOA v) { return v->dwPlatformId = platformId, platformId != 0; }
HMODULE WINAPI counted_load(LPCSTR name) { return ++systemCalls, real_os.LoadLibraryA(name); }
HMODULE WINAPI counted_handle(LPCSTR name) { return ++systemCalls, real_os.GetModuleHandleA(name); }
HANDLE WINAPI counted_open(DWORD a, BOOL i, DWORD id) { return ++systemCalls, real_os.OpenProcess(a, i, id); }

TEST_F(ProcessLists, EntryGateOfEveryExport) {
    for (const Export &e : exports) {
        SCOPED_TRACE(e.entry ? e.entry : "tool-help");
        EXPECT_EQ(e.call(nullptr, child.id), -2);
        EXPECT_EQ(e.refused > 0 ? e.call(List(), 0) : -2, -2);
        EXPECT_EQ(e.refused > 1 ? e.call(List(), 4) : -2, -2);
        {
            SeamEntry version(&OsTable::GetVersionExA, &served_version);
            SeamEntry load(&OsTable::LoadLibraryA, &counted_load);
            SeamEntry handle(&OsTable::GetModuleHandleA, &counted_handle);
            SeamEntry open(&OsTable::OpenProcess, &counted_open);
            for (int id : {1, 0}) {  // a 9x platform: 5 and nothing done; a failed query: -1
                platformId = id, systemCalls = 0;
                List list;
                EXPECT_EQ(e.call(list, child.id), id ? 5 : -1);
                EXPECT_EQ(systemCalls, 0);
                EXPECT_EQ(list.array->count, 0u);
            }
        }
        if (!e.entry) continue;
        served[e.entry] = nullptr;
        EXPECT_EQ(e.call(List(), child.id), -1);
        served.clear();
        RevertToSelf();  // the debug-buffer export leaves its impersonation
    }
    List modules, processes;
    EXPECT_EQ(VOXA_IO_NativeAPIEnumProcesseModules(modules, int32_t(child.id), nullptr), -2);
    EXPECT_EQ(VOXA_IO_NativeAPIEnumProcessesThreads(processes, nullptr), -2);
}

// The hostile child (tests/child/child.cpp): a loader list that loops back
// to its second entry and texts that claim 0xFFFE bytes without a
// terminator. Wine's own module walks (the process-status module list and
// every tool-help module snapshot, so also the memory exports built on
// them) follow the loop for ever, so they are not asked about it; every
// other method is, and each comes back within seconds.
TEST_F(ProcessLists, HostileChildIsWalkedOnceAndItsTextsBounded) {
    SetEnvironmentVariableA("VXIO_CHILD_HOSTILE", "1");
    vxio::test::ChildProcess hostile;
    SetEnvironmentVariableA("VXIO_CHILD_HOSTILE", nullptr);
    ASSERT_NE(hostile.pid, 0u);
    for (const Export &e : exports) {
        if (!e.entry || std::string(e.entry) == "GetModuleInformation") continue;  // Wine's walks
        SCOPED_TRACE(e.entry);
        const ULONGLONG start = GetTickCount64();
        List list;
        const int32_t result = e.call(list, hostile.pid);
        EXPECT_TRUE(result == 0 || result == -1) << result;
        EXPECT_LT(GetTickCount64() - start, 5000u);
        RevertToSelf();  // the debug-buffer export leaves its impersonation
    }
    List modules;
    auto details = std::make_unique<ProcessDetails>();
    ASSERT_EQ(VOXA_IO_NativeAPIEnumProcesseModules(modules, int32_t(hostile.pid), details.get()), 0);
    std::set<uint32_t> bases;
    for (auto *m : modules.items<ModuleEntry>()) bases.insert(m->baseAddress);
    EXPECT_EQ(bases.size(), modules.array->count);  // each module once
    EXPECT_GT(bases.size(), 3u);
    EXPECT_EQ(modules.items<ModuleEntry>()[0]->path, child.path);
    EXPECT_EQ(modules.items<ModuleEntry>([](auto &m) { return m.path == std::string(129, 'x'); }).size(), 1u);
    EXPECT_EQ(details->imagePath, std::string(129, 'x'));
    EXPECT_EQ(details->commandLine, std::string(2047, 'y'));
    EXPECT_STREQ(details->dllPath, "");
    ProcessHandleQuery query{};
    query.handle = uint64_t(hostile.info.hProcess);
    ASSERT_EQ(VOXA_IO_NativeAPIProcessInfoFromHandle(&query), 0);
    EXPECT_EQ(query.imagePath, std::string(129, 'x'));
}

// ---------------------------------------------------------------------------
// Services: the real manager, and replayed first calls that end the list.

DWORD firstError = 0;
BOOL WINAPI first_call_ends(SC_HANDLE, SC_ENUM_TYPE, DWORD, DWORD, LPBYTE, DWORD, LPDWORD needed, LPDWORD count,
                            LPDWORD, LPCSTR) {
    *needed = 4096, *count = 0;
    SetLastError(firstError);
    return firstError == 0;
}

TEST_F(ProcessLists, ServicesMatchTheManager) {
    std::set<std::string> direct, ours;
    SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ENUMERATE_SERVICE);
    DWORD needed = 0, count = 0;
    EnumServicesStatusExA(manager, SC_ENUM_PROCESS_INFO, 0x3B, SERVICE_STATE_ALL, nullptr, 0, &needed, &count, nullptr, nullptr);
    std::vector<uint8_t> buffer(needed);
    EnumServicesStatusExA(manager, SC_ENUM_PROCESS_INFO, 0x3B, SERVICE_STATE_ALL, buffer.data(), needed, &needed, &count, nullptr, nullptr);
    for (DWORD i = 0; i < count; ++i) direct.insert(reinterpret_cast<ENUM_SERVICE_STATUS_PROCESSA *>(buffer.data())[i].lpServiceName);
    CloseServiceHandle(manager);
    List services;
    ASSERT_EQ(VOXA_IO_CreateWin32ServiceList(services), 0);
    for (auto *s : services.items<ServiceEntry>()) {
        ours.insert(s->serviceName);
        // A stopped service has no process; one that is starting or
        // stopping (Wine starts some on demand) may have one.
        EXPECT_TRUE(s->currentState != SERVICE_STOPPED || s->processId == 0) << s->serviceName;
    }
    EXPECT_GT(ours.size(), 5u);
    EXPECT_EQ(ours, direct);
    served["EnumServicesStatusExA"] = as_proc(&first_call_ends);
    for (DWORD error : {0ul, 5ul}) {  // success outright; access denied
        firstError = error;
        List empty;
        EXPECT_EQ(VOXA_IO_CreateWin32ServiceList(empty), 0);
        EXPECT_EQ(empty.array->count, 0u);
    }
}

// ---------------------------------------------------------------------------
// Kernel and debug-buffer modules: Wine reports none of its own, so they
// are replayed in the system's layout (RTL_PROCESS_MODULES).
std::vector<uint8_t> module_block(const std::vector<std::string> &paths, size_t at = 0) {
    std::vector<uint8_t> block(at + 8 + 296 * paths.size());
    *reinterpret_cast<uint32_t *>(&block[at]) = uint32_t(paths.size());
    for (size_t i = 0; i < paths.size(); ++i) {
        uint8_t *m = &block[at + 8 + 296 * i];
        *reinterpret_cast<uint64_t *>(m + 16) = 0xFFFFF80000000000ull + i * 0x100000;  // base
        *reinterpret_cast<uint32_t *>(m + 24) = 0x1000 * uint32_t(i + 1);             // size
        *reinterpret_cast<uint16_t *>(m + 38) = uint16_t(paths[i].rfind('\\') + 1);   // file name
        std::strcpy(reinterpret_cast<char *>(m + 40), paths[i].c_str());
    }
    return block;
}

TEST_F(ProcessLists, KernelModulesAreFoundWhereTheSystemKeepsThem) {
    // One in system32, one in its drivers folder, one only where reported.
    served_block = module_block({"\\SystemRoot\\system32\\NTOSKRNL.EXE", "\\SystemRoot\\Somewhere\\MountMgr.sys",
                                 "\\??\\C:\\Elsewhere\\NOTHERE.SYS"});
    served["NtQuerySystemInformation"] = as_proc(&served_system);
    vxio::test::each_allocation_fails([](HeapLedger &inner) {
        List modules;
        if (!modules.array) return;  // the test's own list was the one refused
        const int32_t result = VOXA_IO_NativeAPIEnumModules(modules);
        // A failed record ends the walk; a failed append drops the record.
        ASSERT_TRUE(result == 0 || (inner.failed() && result == -5)) << result;
        if (inner.failed()) return;
        auto items = modules.items<SystemModuleEntry>();
        ASSERT_EQ(items.size(), 3u);
        EXPECT_STREQ(items[0]->name, "NTOSKRNL.EXE");
        EXPECT_STREQ(items[0]->path, "c:\\windows\\system32\\ntoskrnl.exe");
        EXPECT_STREQ(items[1]->path, "c:\\windows\\system32\\drivers\\mountmgr.sys");
        EXPECT_STREQ(items[2]->path, "c:\\elsewhere\\nothere.sys");
        EXPECT_EQ(items[2]->baseAddress, 0xFFFFF80000200000ull);
        EXPECT_EQ(items[2]->size, 0x3000u);
    });
}

int destroyed = 0;
void *NTAPI served_create(ULONG, BOOLEAN) { return served_block.data(); }
LONG NTAPI served_query(ULONG, ULONG flags, void *) { return flags == 1 ? 0 : -1; }
LONG NTAPI served_destroy(void *) { return ++destroyed, 0; }

TEST_F(ProcessLists, DebugBufferModulesLeaveTheThreadImpersonating) {
    served = {{"RtlCreateQueryDebugBuffer", as_proc(&served_create)}, {"RtlQueryProcessDebugInformation", as_proc(&served_query)},
              {"RtlDestroyQueryDebugBuffer", as_proc(&served_destroy)}};
    const std::vector<uint8_t> elsewhere = module_block({"\\??\\C:\\ELSEWHERE.DLL"});
    // As the system fills it; then, written by a hostile target, a module
    // block outside the buffer, a part in use that ends inside the one
    // record, and a count past the buffer.
    for (auto [at, value] : std::vector<std::pair<size_t, uint64_t>>{
             {0x80, 0}, {0x60, uint64_t(elsewhere.data())}, {0x48, 0x200}, {0x100, 1000}}) {
        served_block = module_block({"\\SystemRoot\\system32\\Kernel32.DLL"}, 0x100);
        *reinterpret_cast<uint8_t **>(&served_block[0x60]) = &served_block[0x100];  // module information
        *reinterpret_cast<uint64_t *>(&served_block[0x48]) = served_block.size();  // in use
        *reinterpret_cast<uint64_t *>(&served_block[0x50]) = served_block.size();  // committed
        *reinterpret_cast<uint64_t *>(&served_block[at]) = value;
        destroyed = 0;
        List modules;
        ASSERT_EQ(VOXA_IO_NativeDebugAPIEnumProcesseModules(modules, child.id), 0);
        EXPECT_EQ(destroyed, 1);
        auto items = modules.items<SystemModuleEntry>();
        EXPECT_EQ(items.size(), at == 0x60 || at == 0x48 ? 0u : 1u) << std::hex << at;
        if (items.size() != 1) continue;
        EXPECT_STREQ(items[0]->name, "");
        EXPECT_STREQ(items[0]->path, "c:\\windows\\system32\\kernel32.dll");
    }
    HANDLE token = nullptr;  // a thread that does not impersonate has no token
    EXPECT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, FALSE, &token));
    if (token) CloseHandle(token);
    RevertToSelf();
}

// ---------------------------------------------------------------------------
// Heap walk: Wine refuses heap snapshots (120), so two heaps are replayed;
// the first holds a block of each flag, the second cannot be read.
const std::vector<std::pair<DWORD, ULONG_PTR>> heapBlocks = {{1, 0x1000}, {3, 0x2000}, {2, 0x3000}, {4, 0x1'0000'4000}};
size_t nextBlock = 0;
HANDLE WINAPI served_snapshot(DWORD, DWORD) { return CreateEventA(nullptr, FALSE, FALSE, nullptr); }
BOOL WINAPI served_list(HANDLE, LPHEAPLIST32 list) {
    return list->th32HeapID == 2 ? FALSE : (list->th32ProcessID = 77, ++list->th32HeapID, TRUE);
}
BOOL WINAPI served_block_next(LPHEAPENTRY32 b) {
    if (nextBlock == heapBlocks.size()) return FALSE;
    std::tie(b->dwFlags, b->dwAddress) = heapBlocks[nextBlock++];
    return b->dwBlockSize = b->dwAddress + 0x10, b->th32ProcessID = 78, TRUE;
}
BOOL WINAPI served_block_first(LPHEAPENTRY32 b, DWORD, ULONG_PTR heap) { return nextBlock = 0, heap == 1 && served_block_next(b); }

TEST_F(ProcessLists, HeapWalkKeepsFixedFreeAndMovableBlocks) {
    List real;
    EXPECT_EQ(VOXA_IO_CreateWin32ToolHelpHeapsList(real, child.id), -1);
    served = {{"CreateToolhelp32Snapshot", as_proc(&served_snapshot)}, {"Heap32ListFirst", as_proc(&served_list)},
              {"Heap32ListNext", as_proc(&served_list)}, {"Heap32First", as_proc(&served_block_first)},
              {"Heap32Next", as_proc(&served_block_next)}};
    List blocks;
    EXPECT_EQ(VOXA_IO_CreateWin32ToolHelpHeapsList(blocks, child.id), -1);  // the second heap
    auto items = blocks.items<HeapBlockEntry>();
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(items[0]->listProcessId, 77u);
    EXPECT_EQ(items[0]->blockProcessId, 78u);
    EXPECT_EQ(items[1]->address, 0x3000u);
    EXPECT_EQ(items[2]->address, 0x4000u);  // low 32 bits
    EXPECT_EQ(items[2]->blockSize, 0x4010u);
}

// ---------------------------------------------------------------------------
// Performance counters: Wine fails them early, so the query is replayed;
// the raw array (which ends the process under Wine) must never be asked
// for after an earlier failure.
struct Pdh {
    std::string object;
    LONG addStatus = 0;
    int rawCalls = 0, closes = 0;
} pdh;
const std::vector<std::pair<const char *, int64_t>> pdhItems = {
    {"notepad", 40}, {"IDLE", 0}, {"systemd", 8}, {"_TOTAL", 0}, {"Idler", 12}, {"cmd", 44}, {"cmd", 48}};
LONG WINAPI served_path(PDH_COUNTER_PATH_ELEMENTS_A *e, LPSTR out, LPDWORD, DWORD) {
    pdh.object = e->szObjectName;
    return std::snprintf(out, 260, "\\%s(%s)\\%s", e->szObjectName, e->szInstanceName, e->szCounterName), 0;
}
LONG WINAPI served_open(LPCSTR, DWORD_PTR, PDH_HQUERY *query) { return *query = &pdh, 0; }
LONG WINAPI served_add(PDH_HQUERY, LPCSTR path, DWORD_PTR, PDH_HCOUNTER *counter) {
    *counter = &pdh;
    return std::strcmp(path, ("\\" + pdh.object + "(*)\\ID Process").c_str()) ? -1 : pdh.addStatus;
}
LONG WINAPI served_collect(PDH_HQUERY) { return 0; }
LONG WINAPI served_close(PDH_HQUERY) { return ++pdh.closes, 0; }
LONG WINAPI served_raw(PDH_HCOUNTER, LPDWORD size, LPDWORD count, PDH_RAW_COUNTER_ITEM_A *out) {
    ++pdh.rawCalls;
    *count = DWORD(pdhItems.size());
    if (!out) return *size = *count * sizeof *out, static_cast<LONG>(0x800007D2);
    for (size_t i = 0; i < pdhItems.size(); ++i) out[i] = {const_cast<char *>(pdhItems[i].first), {0, {}, pdhItems[i].second, 0, 0}};
    return 0;
}

TEST_F(ProcessLists, PerformanceCountersSkipTheFirstItemAndPseudoProcesses) {
    List real;
    EXPECT_EQ(VOXA_IO_CreateWin32PDHProcessNamesList(real), -1);  // Wine: no object enumeration
    served = {{"PdhMakeCounterPathA", as_proc(&served_path)}, {"PdhOpenQueryA", as_proc(&served_open)},
              {"PdhAddCounterA", as_proc(&served_add)}, {"PdhCollectQueryData", as_proc(&served_collect)},
              {"PdhGetRawCounterArrayA", as_proc(&served_raw)}, {"PdhCloseQuery", as_proc(&served_close)}};
    pdh = Pdh{};
    List processes, threads;
    ASSERT_EQ(VOXA_IO_CreateWin32PDHProcessList(processes), 0);
    EXPECT_EQ(pdh.object, "Process");
    auto found = processes.items<ProcessEntry>();
    ASSERT_EQ(found.size(), 2u);  // the first item, notepad, is never listed
    EXPECT_EQ(found[0]->processId, 44u);
    EXPECT_EQ(found[1]->processId, 48u);
    EXPECT_STREQ(found[1]->name, "cmd");
    EXPECT_EQ(pdh.closes, 1);
    ASSERT_EQ(VOXA_IO_CreateWin32PDHThreadList(threads), 0);
    EXPECT_EQ(pdh.object, "Thread");
    ASSERT_EQ(threads.array->count, 2u);
    EXPECT_EQ(threads.items<PdhThreadEntry>()[1]->processId, 48u);

    pdh = Pdh{};
    pdh.addStatus = -1;  // as under Wine: the counter cannot be added
    EXPECT_EQ(VOXA_IO_CreateWin32PDHProcessList(List()), -1);
    EXPECT_EQ(pdh.rawCalls, 0);
    EXPECT_EQ(pdh.closes, 1);
}

}  // namespace
