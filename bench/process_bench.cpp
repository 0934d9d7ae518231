// Process inspection against the plain system calls, in the same run:
//  - listing every process with each method of the library, against one
//    plain ToolHelp walk (CreateToolhelp32Snapshot, Process32First/Next);
//  - reading 64 MiB of a child process's memory with
//    VOXA_IO_ReadWin32ProcessModuleMemory, against ReadProcessMemory of the
//    same 64 MiB into a buffer allocated for it.
// The child is the tests' vxio_child.exe, started from the directory of
// this program with a 64 MiB buffer.
#include <windows.h>

#include <tlhelp32.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench_util.h"
#include "child/launch.h"
#include "vxio/alloc.h"
#include "vxio/process.h"
#include "vxio/process_memory.h"

namespace {

int toolhelp_walk() {
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32 entry{};
    entry.dwSize = sizeof entry;
    int count = 0;
    for (BOOL more = Process32First(snapshot, &entry); more; more = Process32Next(snapshot, &entry))
        ++count;
    CloseHandle(snapshot);
    return count;
}

}  // namespace

int main() {
    const double reference = bench::best_time([] { toolhelp_walk(); }, 0.5);
    std::printf("%-34s %9.1f us\n", "plain ToolHelp walk (reference)", reference * 1e6);
    struct Method {
        const char *name;
        int32_t (*list)(DynArray *);
    } methods[] = {
        {"ToolHelp (processes+modules+threads)", nullptr},
        {"PSAPI", VOXA_IO_CreateWin32PSAPIProcessList},
        {"native", nullptr},
        {"PDH", VOXA_IO_CreateWin32PDHProcessList},
        {"brute force (ids 8..19996)", VOXA_IO_CreateWin32BruteForcePIDList},
    };
    for (const Method &m : methods) {
        int32_t result = 0;
        const double t = bench::best_time(
            [&] {
                DynArray *a = VOXA_arrNew(), *b = VOXA_arrNew(), *c = VOXA_arrNew();
                if (m.list) result = m.list(a);
                else if (m.name[0] == 'T') result = VOXA_IO_CreateWin32ToolHelpEnumerations(a, b, c);
                else result = VOXA_IO_NativeAPIEnumProcessesThreads(a, b);
                VOXA_arrFree(a, 1);
                VOXA_arrFree(b, 1);
                VOXA_arrFree(c, 1);
            },
            0.5, 3);
        if (result != 0)
            std::printf("%-34s fails here (result %d)\n", m.name, static_cast<int>(result));
        else
            std::printf("%-34s %9.1f us   ratio %.1f (time / reference)\n", m.name, t * 1e6,
                        t / reference);
    }

    vxio::test::ChildProcess child(65536);
    if (child.size != (64u << 20) || child.buffer >> 32) {
        std::fprintf(stderr, "process_bench: the child did not start as expected\n");
        return 1;
    }
    const DWORD pid = GetProcessId(child.info.hProcess);
    HANDLE process = OpenProcess(PROCESS_VM_READ | PROCESS_QUERY_INFORMATION, FALSE, pid);
    bool ok = true;
    const bench::PairTimes t = bench::best_pair(
        [&] {
            void *buffer = nullptr;
            uint64_t count = 0;
            ok &= VOXA_IO_ReadWin32ProcessModuleMemory(pid, static_cast<uint32_t>(child.buffer),
                                                       static_cast<uint32_t>(child.size), &buffer,
                                                       &count) == 0 &&
                  count >= child.size;  // the region after the end is read as well
            ZELTA_myfree(buffer);
        },
        [&] {
            void *buffer = std::malloc(child.size);
            SIZE_T done = 0;
            ok &= ReadProcessMemory(process, reinterpret_cast<void *>(child.buffer), buffer,
                                    child.size, &done) &&
                  done == child.size;
            std::free(buffer);
        },
        7);
    CloseHandle(process);
    if (!ok) {
        std::fprintf(stderr, "process_bench: a memory read failed\n");
        return 1;
    }
    std::printf("read 64 MiB of a child: %.1f MB/s, ReadProcessMemory %.1f MB/s, ratio %.3f "
                "(target >= 0.95)\n",
                64.0 * 1048576 / t.a / 1e6, 64.0 * 1048576 / t.b / 1e6, t.b / t.a);
    return 0;
}
