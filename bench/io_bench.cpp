// I/O backends against the plain operations they wrap, in the same run:
//  - Memory backend Read of 64 KiB chunks against memcpy of the same chunks;
//  - Handle backend Read of 64 KiB (and 1 MiB) chunks against ReadFile of
//    the same chunks from the same (cached) file.
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

}  // namespace

int main() {
    const bool ok = memory_backend() && handle_backend(kChunk) && handle_backend(16 * kChunk);
    if (!ok) std::fprintf(stderr, "io_bench: a read failed\n");
    return ok ? 0 : 1;
}
