// The raw reference of bench/scan_bench.sh: the least a scan must do, made
// with plain Win32 calls. One thread walks the tree with FindFirstFileW and
// FindNextFileW (directories in the order found, links to directories not
// entered, as vxio scan does) and queues every file; N hashing threads each
// open a file with CreateFileW, read it with ReadFile in 1 MiB transfers
// (vxio scan's size) and hash it with the library's exported SHA-1, the
// code vxio scan hashes with. It prints nothing per file: the shell times
// the whole Wine process, as it times vxio scan.
//
//   scan_reference [--jobs N] PATH
//
// prints one line, e.g. "10000 files, 1073741824 bytes, digest xor 3f...",
// where the xor of all digests lets a caller see that every byte was hashed
// (it does not depend on the order). Exit 1 when a file cannot be read.
#include <windows.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "vxio/lock_sha1.h"

namespace {

constexpr DWORD kChunk = 1u << 20;
// The queue between the walker and the hashers stays bounded, as vxio
// scan's does: a walk never holds the whole tree's names.
constexpr size_t kQueueLimit = 4096;

struct Queue {
    std::mutex lock;
    std::condition_variable changed;
    std::deque<std::wstring> paths;
    bool walked = false;
};

struct Totals {
    std::mutex lock;
    uint64_t files = 0;
    uint64_t bytes = 0;
    uint64_t failures = 0;
    uint8_t digestXor[SHA1HashSize] = {};
};

void push(Queue &queue, std::wstring path) {
    std::unique_lock<std::mutex> hold(queue.lock);
    queue.changed.wait(hold, [&] { return queue.paths.size() < kQueueLimit; });
    queue.paths.push_back(std::move(path));
    queue.changed.notify_all();
}

void walk(Queue &queue, const std::wstring &directory, Totals &totals) {
    WIN32_FIND_DATAW entry;
    HANDLE find = FindFirstFileW((directory + L"\\*").c_str(), &entry);
    if (find == INVALID_HANDLE_VALUE) {
        std::lock_guard<std::mutex> hold(totals.lock);
        ++totals.failures;
        return;
    }
    std::vector<std::wstring> subdirectories;
    do {
        if (!std::wcscmp(entry.cFileName, L".") || !std::wcscmp(entry.cFileName, L"..")) continue;
        const std::wstring path = directory + L"\\" + entry.cFileName;
        if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
            if (!(entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT))
                subdirectories.push_back(path);
        } else {
            push(queue, path);
        }
    } while (FindNextFileW(find, &entry));
    FindClose(find);
    for (const std::wstring &subdirectory : subdirectories) walk(queue, subdirectory, totals);
}

bool hash_file(const std::wstring &path, std::vector<uint8_t> &buffer,
               uint8_t digest[SHA1HashSize], uint64_t *size) {
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    SHA1Context context;
    bool ok = SHA1Reset(&context) == shaSuccess;
    *size = 0;
    for (DWORD got = 0; ok; *size += got) {
        ok = ReadFile(file, buffer.data(), kChunk, &got, nullptr) != FALSE;
        if (!ok || got == 0) break;
        ok = SHA1Input(&context, buffer.data(), got) == shaSuccess;
    }
    CloseHandle(file);
    return ok && SHA1Result(&context, digest) == shaSuccess;
}

void hash_queued(Queue &queue, Totals &totals) {
    std::vector<uint8_t> buffer(kChunk);
    for (;;) {
        std::wstring path;
        {
            std::unique_lock<std::mutex> hold(queue.lock);
            queue.changed.wait(hold, [&] { return !queue.paths.empty() || queue.walked; });
            if (queue.paths.empty()) return;
            path = std::move(queue.paths.front());
            queue.paths.pop_front();
            queue.changed.notify_all();
        }
        uint8_t digest[SHA1HashSize];
        uint64_t size = 0;
        const bool ok = hash_file(path, buffer, digest, &size);
        std::lock_guard<std::mutex> hold(totals.lock);
        if (!ok) {
            ++totals.failures;
            continue;
        }
        ++totals.files;
        totals.bytes += size;
        for (int i = 0; i < SHA1HashSize; ++i) totals.digestXor[i] ^= digest[i];
    }
}

int usage() {
    std::fprintf(stderr, "usage: scan_reference [--jobs N] PATH   (N from 1 to 64)\n");
    return 2;
}

}  // namespace

int main(int argc, char **argv) {
    unsigned jobs = 1;
    const char *root = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--jobs") == 0 && i + 1 < argc) {
            char *end = nullptr;
            const long n = std::strtol(argv[++i], &end, 10);
            if (!end || *end || n < 1 || n > 64) return usage();
            jobs = static_cast<unsigned>(n);
        } else if (!root) {
            root = argv[i];
        } else {
            return usage();
        }
    }
    if (!root) return usage();

    // The tree's name comes from a Unix shell ("/tmp/tree"): the system
    // makes it a full path, and the separators become the walk's own.
    wchar_t given[MAX_PATH];
    wchar_t full[MAX_PATH];
    if (!MultiByteToWideChar(CP_ACP, 0, root, -1, given, MAX_PATH)) return usage();
    const DWORD length = GetFullPathNameW(given, MAX_PATH, full, nullptr);
    if (length == 0 || length >= MAX_PATH) return usage();
    std::wstring top(full);
    for (wchar_t &c : top)
        if (c == L'/') c = L'\\';
    while (top.size() > 3 && top.back() == L'\\') top.pop_back();

    Queue queue;
    Totals totals;
    std::vector<std::thread> hashers;
    for (unsigned i = 0; i < jobs; ++i)
        hashers.emplace_back([&] { hash_queued(queue, totals); });
    std::thread walker([&] {
        walk(queue, top, totals);
        std::lock_guard<std::mutex> hold(queue.lock);
        queue.walked = true;
        queue.changed.notify_all();
    });
    walker.join();
    for (std::thread &hasher : hashers) hasher.join();

    std::printf("%llu files, %llu bytes, digest xor ", static_cast<unsigned long long>(totals.files),
                static_cast<unsigned long long>(totals.bytes));
    for (uint8_t byte : totals.digestXor) std::printf("%02x", byte);
    std::printf("\n");
    if (totals.failures) {
        std::fprintf(stderr, "scan_reference: %llu files or directories could not be read\n",
                     static_cast<unsigned long long>(totals.failures));
        return 1;
    }
    return 0;
}
