// What a protected file costs: one VOXA_FILE_Open for writing whose first
// CreateFileA is refused (the backend then lists the descriptor, clears
// its DACL entries and opens again) plus the VOXA_FILE_Close that restores
// the descriptor, against the same open + close of a file that opens at
// once, and against a bare CreateFileA + CloseHandle.
//
// Wine never refuses an open (programs run as root), so the refusal is
// made through the platform seam: this benchmark links the static library.
// Everything after the refusal is real: the command engine lists, clears
// and restores the file's descriptor through the system.
#include <windows.h>

#include <cstdio>
#include <string>

#include "bench_util.h"
#include "platform/os.h"
#include "vxio/io.h"

namespace {

using vxio::platform::real_os;
using vxio::platform::SeamEntry;

bool g_refuse_next = false;

// Refuses the first open for writing after g_refuse_next is set, the way a
// file whose DACL denies the caller is refused.
HANDLE WINAPI refuse_once(LPCSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES sa,
                          DWORD disposition, DWORD flags, HANDLE templ) {
    if (g_refuse_next && (access & GENERIC_WRITE)) {
        g_refuse_next = false;
        SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    }
    return real_os.CreateFileA(path, access, share, sa, disposition, flags, templ);
}

}  // namespace

int main() {
    constexpr int kOpens = 200;
    char dir[MAX_PATH];
    GetTempPathA(MAX_PATH, dir);
    const std::string path = std::string(dir) + "vxio-protected-bench.bin";
    HANDLE writer = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (writer == INVALID_HANDLE_VALUE) return 1;
    CloseHandle(writer);

    SeamEntry refusing(&vxio::platform::OsTable::CreateFileA, &refuse_once);
    const uint8_t callerData[16] = {};
    bool ok = true;
    int restored = 0;
    auto open_close = [&](bool refuse) {
        for (int i = 0; i < kOpens; ++i) {
            g_refuse_next = refuse;
            IoObject *object = VOXA_FILE_Open(path.c_str(), 1, 0, callerData, 16);
            ok &= object != nullptr;
            if (object && reinterpret_cast<IoFileObject *>(object)->savedSecurity) ++restored;
            VOXA_FILE_Close(object);
        }
    };
    const bench::PairTimes t = bench::best_pair([&] { open_close(true); },
                                                [&] { open_close(false); }, 5);
    const double bare = bench::best_time([&] {
        for (int i = 0; i < kOpens; ++i) {
            HANDLE h = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ,
                                   nullptr, OPEN_EXISTING, FILE_FLAG_RANDOM_ACCESS, nullptr);
            ok &= h != INVALID_HANDLE_VALUE;
            CloseHandle(h);
        }
    });
    DeleteFileA(path.c_str());
    // Every refused open must have kept a descriptor to put back, or the
    // figure would time a failure path.
    if (!ok || restored != 5 * kOpens) {
        std::fprintf(stderr, "protected_open_bench: an open failed or kept no descriptor\n");
        return 1;
    }
    std::printf("%-28s %9.1f us/op\n", "protected Open+Close", t.a / kOpens * 1e6);
    std::printf("%-28s %9.1f us/op   ratio %.1f\n", "plain Open+Close (backend)",
                t.b / kOpens * 1e6, t.a / t.b);
    std::printf("%-28s %9.1f us/op   ratio %.1f\n", "CreateFileA+CloseHandle", bare / kOpens * 1e6,
                t.a / bare);
    return 0;
}
