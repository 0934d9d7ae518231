// I/O backends against the plain operations they wrap, in the same run:
//  - Memory backend Read of 64 KiB chunks against memcpy of the same chunks;
//  - Handle backend Read of 64 KiB (and 1 MiB) chunks against ReadFile of
//    the same chunks from the same (cached) file;
//  - File backend Read of 64 KiB chunks against ReadFile of the same chunks
//    through a handle opened the way the backend opens (read-only, others
//    may read, random access);
//  - one VOXA_FILE_Open + VOXA_FILE_Close against CreateFileA + CloseHandle.
//    The benchmark calls the DLL, not the platform seam, so the protected
//    path (List, Clear, reopen, Restore) cannot be forced here, and under
//    Wine a real refusal never happens: only the plain open is timed.
// Every figure is the best of several passes; ratios are ours / reference,
// so 1.0 means "as fast as the plain call".
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "bench_util.h"
#include "vxio/io.h"

namespace {

constexpr uint32_t kChunk = 64 * 1024;
constexpr uint64_t kMemorySize = 64ull << 20;
constexpr uint64_t kFileSize = 256ull << 20;

void entry() {}

IoTable *table_for(IoTable *(*build)(IoCallerEntry, IoCallerEntry, IoCallerEntry, IoCallerEntry)) {
    void *e = reinterpret_cast<void *>(&entry);
    return build(e, e, e, nullptr);
}

void report(const char *what, double ours, double reference, double target) {
    const double bytes = what[0] == 'm' ? double(kMemorySize) : double(kFileSize);
    std::printf("%-22s %9.1f MB/s  reference %9.1f MB/s  ratio %.3f (target >= %.2f)\n", what,
                bytes / ours / 1e6, bytes / reference / 1e6, reference / ours, target);
}

bool memory_backend() {
    std::vector<uint8_t> source(kMemorySize, 0x5A), sink(kChunk);
    uint64_t size = kMemorySize;
    const uint8_t callerData[16] = {};
    IoTable *table = table_for(VOXA_IO_GetTableForMemIO);
    IoObject *object = VOXA_MEM_Open("bench", 0, 0, source.data(), &size, callerData, 16);
    if (!table || !object) return false;
    uint64_t status = 0;
    volatile uint8_t keep = 0;
    const bench::PairTimes t = bench::best_pair(
        [&] {
            for (uint64_t at = 0; at < kMemorySize; at += kChunk)
                status |= table->Read(object, at, sink.data(), kChunk);
        },
        [&] {
            for (uint64_t at = 0; at < kMemorySize; at += kChunk) {
                std::memcpy(sink.data(), source.data() + at, kChunk);
                keep = keep + sink[at / kChunk % kChunk];  // keeps the copy from being dropped
            }
        });
    VOXA_MEM_Close(object);
    VOXA_IO_FreeTableForMemIO(table);
    if (status) return false;
    report("memory Read 64 KiB", t.a, t.b, 0.9);
    return true;
}

bool handle_backend(uint32_t chunkSize) {
    char dir[MAX_PATH];
    GetTempPathA(MAX_PATH, dir);
    const std::string path = std::string(dir) + "vxio-io-bench.bin";
    HANDLE file = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                              CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    std::vector<uint8_t> chunk(chunkSize, 0xA5);
    DWORD done = 0;
    for (uint64_t at = 0; at < kFileSize; at += chunkSize)
        WriteFile(file, chunk.data(), chunkSize, &done, nullptr);

    const uint8_t callerData[16] = {};
    IoTable *table = table_for(VOXA_IO_GetTableForHandleIO);
    IoObject *object = VOXA_HANDLE_Open(path.c_str(), 0, 0, file, callerData, 16);
    if (!table || !object) return false;
    uint64_t status = 0;
    bool ok = true;
    const bench::PairTimes t = bench::best_pair(
        [&] {
            for (uint64_t at = 0; at < kFileSize; at += chunkSize)
                status |= table->Read(object, at, chunk.data(), chunkSize);
        },
        [&] {
            SetFilePointer(file, 0, nullptr, FILE_BEGIN);
            for (uint64_t at = 0; at < kFileSize; at += chunkSize)
                ok &= ReadFile(file, chunk.data(), chunkSize, &done, nullptr) && done == chunkSize;
        });
    VOXA_HANDLE_Close(object);
    VOXA_IO_FreeTableForHandleIO(table);
    CloseHandle(file);
    if (status || !ok) return false;
    // Every Read seeks to its offset before reading (a failed seek is a
    // failed Read), a fixed cost per call that larger chunks hide.
    report(chunkSize == kChunk ? "handle Read 64 KiB" : "handle Read 1 MiB", t.a, t.b, 0.95);
    return true;
}

std::string temp_path(const char *name) {
    char dir[MAX_PATH];
    GetTempPathA(MAX_PATH, dir);
    return std::string(dir) + name;
}

HANDLE open_like_the_backend(const std::string &path) {
    return CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                       FILE_FLAG_RANDOM_ACCESS, nullptr);
}

// The backend opens the file itself, so the file is written and closed
// first; both sides then read it through read-only handles that share it.
// As with the handle backend, each Read seeks before it reads: a fixed cost
// per call that the 1 MiB figure shows shrinking.
bool file_backend(uint32_t chunkSize) {
    const std::string path = temp_path("vxio-file-bench.bin");
    HANDLE writer = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (writer == INVALID_HANDLE_VALUE) return false;
    std::vector<uint8_t> chunk(chunkSize, 0xC3);
    DWORD done = 0;
    bool ok = true;
    for (uint64_t at = 0; at < kFileSize; at += chunkSize)
        ok &= WriteFile(writer, chunk.data(), chunkSize, &done, nullptr) && done == chunkSize;
    CloseHandle(writer);

    const uint8_t callerData[16] = {};
    IoTable *table = table_for(VOXA_IO_GetTableForFileIO);
    IoObject *object = VOXA_FILE_Open(path.c_str(), 0, 0, callerData, 16);
    HANDLE reference = open_like_the_backend(path);
    uint64_t status = 0;
    if (ok && table && object && reference != INVALID_HANDLE_VALUE) {
        const bench::PairTimes t = bench::best_pair(
            [&] {
                for (uint64_t at = 0; at < kFileSize; at += chunkSize)
                    status |= table->Read(object, at, chunk.data(), chunkSize);
            },
            [&] {
                SetFilePointer(reference, 0, nullptr, FILE_BEGIN);
                for (uint64_t at = 0; at < kFileSize; at += chunkSize)
                    ok &= ReadFile(reference, chunk.data(), chunkSize, &done, nullptr) &&
                          done == chunkSize;
            });
        if (!status && ok)
            report(chunkSize == kChunk ? "file Read 64 KiB" : "file Read 1 MiB", t.a, t.b, 0.95);
        // The same Reads against the two calls each of them must make (seek,
        // then read): what the backend itself adds.
        const bench::PairTimes s = bench::best_pair(
            [&] {
                for (uint64_t at = 0; at < kFileSize; at += chunkSize)
                    status |= table->Read(object, at, chunk.data(), chunkSize);
            },
            [&] {
                for (uint64_t at = 0; at < kFileSize; at += chunkSize) {
                    LARGE_INTEGER to;
                    to.QuadPart = static_cast<LONGLONG>(at);
                    ok &= SetFilePointerEx(reference, to, nullptr, FILE_BEGIN) &&
                          ReadFile(reference, chunk.data(), chunkSize, &done, nullptr) &&
                          done == chunkSize;
                }
            });
        if (!status && ok)
            report(chunkSize == kChunk ? "  vs seek+ReadFile" : "  vs seek+ReadFile 1M", s.a, s.b,
                   0.95);
    } else {
        ok = false;
    }
    if (reference != INVALID_HANDLE_VALUE) CloseHandle(reference);
    VOXA_FILE_Close(object);
    VOXA_IO_FreeTableForFileIO(table);
    DeleteFileA(path.c_str());
    return ok && !status;
}

// What an object costs beyond its handle: the record, the name copy and
// their frees.
bool file_open_close() {
    constexpr int kOpens = 2000;
    const std::string path = temp_path("vxio-open-bench.bin");
    HANDLE writer = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (writer == INVALID_HANDLE_VALUE) return false;
    CloseHandle(writer);
    const uint8_t callerData[16] = {};
    bool ok = true;
    const bench::PairTimes t = bench::best_pair(
        [&] {
            for (int i = 0; i < kOpens; ++i) {
                IoObject *object = VOXA_FILE_Open(path.c_str(), 0, 0, callerData, 16);
                ok &= object != nullptr;
                VOXA_FILE_Close(object);
            }
        },
        [&] {
            for (int i = 0; i < kOpens; ++i) {
                HANDLE h = open_like_the_backend(path);
                ok &= h != INVALID_HANDLE_VALUE;
                CloseHandle(h);
            }
        },
        5);
    DeleteFileA(path.c_str());
    if (!ok) return false;
    std::printf("%-22s %9.2f us/op     reference %9.2f us/op     ratio %.3f\n", "file Open+Close",
                t.a / kOpens * 1e6, t.b / kOpens * 1e6, t.b / t.a);
    return true;
}

}  // namespace

int main() {
    const bool ok = memory_backend() && handle_backend(kChunk) && handle_backend(16 * kChunk) &&
                    file_backend(kChunk) && file_backend(16 * kChunk) && file_open_close();
    if (!ok) std::fprintf(stderr, "io_bench: a read failed\n");
    return ok ? 0 : 1;
}
