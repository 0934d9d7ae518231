// A process for the inspection tests to look at: it maps a buffer of a
// known pattern, loads a known module, opens the files it is given, starts
// a second thread, then tells its parent where the buffer lies and waits
// until its standard input is closed.
//
//   vxio_child.exe [SIZE_IN_KIB] [FILE...]
// prints one line: "ready <pid> <buffer address in hex> <buffer size>\n"
//
// With VXIO_CHILD_HOSTILE=1 in its environment it then turns hostile, as a
// malicious process may, before it says it is ready:
// - its loader's module list (load order) loops: the last entry's forward
//   link points back to the second entry, never to the head;
// - the known module's full path and the image path claim 0xFFFE bytes
//   over a page of L'x' that has no terminator (the rest of the claimed
//   length lies in memory that is only reserved: Windows refuses to read
//   it, Wine reads it as zeros);
// - the command line claims 0xFFFE bytes of L'y', all readable, with no
//   terminator;
// - the DLL search path points at an address that cannot be read.
// Its own loader walks that list whenever a thread starts or ends and when
// the process ends: so the second thread has started before, nothing is
// started or loaded after, and every word is put back before it exits.
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

// The byte at offset i of the buffer: easy to recognise and to check.
unsigned char pattern_byte(size_t i) { return static_cast<unsigned char>((i * 7 + 0x5A) & 0xFF); }

HANDLE started = nullptr;
DWORD WINAPI idle(void *) {
    SetEvent(started);  // past the loader's thread start-up
    Sleep(INFINITE);
    return 0;
}

// Words of the loader's and the parameters' records, as they were.
struct Saved {
    uint64_t *at;
    uint64_t was;
};
std::vector<Saved> saved;
void poke(uint8_t *record, size_t offset, uint64_t value) {
    auto *at = reinterpret_cast<uint64_t *>(record + offset);
    saved.push_back({at, *at});
    *at = value;
}
template <typename T>
T *at(uint8_t *record, size_t offset) {
    return *reinterpret_cast<T **>(record + offset);
}

// A counted text's first word: length and maximum length in bytes.
constexpr uint64_t kLongestText = 0xFFFEull | (0xFFFEull << 16);

// 64-bit layouts: environment block (loader data +0x18, parameters +0x20),
// loader data (load-order list head +0x10), loader entry (forward link +0,
// base +0x30, full path +0x48), parameters (DLL path +0x50, image path
// +0x60, command line +0x70); a counted text is 8 bytes of lengths and the
// address of its characters.
bool turn_hostile(HMODULE module) {
    auto *x = static_cast<wchar_t *>(VirtualAlloc(nullptr, 0x10000, MEM_RESERVE, PAGE_READWRITE));
    auto *y = static_cast<wchar_t *>(VirtualAlloc(nullptr, 0x10000, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
    if (!x || !VirtualAlloc(x, 0x1000, MEM_COMMIT, PAGE_READWRITE) || !y) return false;
    for (size_t i = 0; i < 0x800; ++i) x[i] = L'x';
    for (size_t i = 0; i < 0x8000; ++i) y[i] = L'y';
    saved.reserve(16);  // nothing is allocated once the list is spoiled

    auto *environment = at<uint8_t>(reinterpret_cast<uint8_t *>(NtCurrentTeb()), 0x60);
    uint8_t *head = at<uint8_t>(environment, 0x18) + 0x10;
    uint8_t *second = at<uint8_t>(at<uint8_t>(head, 0), 0);
    uint8_t *last = nullptr;
    for (uint8_t *entry = at<uint8_t>(head, 0); entry != head; entry = at<uint8_t>(entry, 0)) {
        last = entry;
        if (at<void>(entry, 0x30) == module) poke(entry, 0x48, kLongestText), poke(entry, 0x50, uint64_t(x));
    }
    if (!last || second == head || last == second || saved.size() != 2) return false;
    auto *parameters = at<uint8_t>(environment, 0x20);
    poke(parameters, 0x50, 0x200 | (0x200ull << 16));
    poke(parameters, 0x58, 0xFFFF800000000000ull);
    poke(parameters, 0x60, kLongestText);
    poke(parameters, 0x68, uint64_t(x));
    poke(parameters, 0x70, kLongestText);
    poke(parameters, 0x78, uint64_t(y));
    poke(last, 0, uint64_t(second));  // last: the walk above is done
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    const size_t kib = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 64;
    const size_t size = (kib ? kib : 64) * 1024;
    auto *buffer = static_cast<unsigned char *>(
        VirtualAlloc(nullptr, size, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
    if (!buffer) return 1;
    for (size_t i = 0; i < size; ++i) buffer[i] = pattern_byte(i);
    // The header says what this is, for a reader scanning the memory.
    std::memcpy(buffer, "VXIO-CHILD-BUFFER", 17);

    HMODULE module = LoadLibraryA("vxio_child_module.dll");
    if (!module) return 2;
    std::vector<HANDLE> files;
    for (int i = 2; i < argc; ++i) {
        HANDLE file = CreateFileA(argv[i], GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                  OPEN_ALWAYS, 0, nullptr);
        if (file == INVALID_HANDLE_VALUE) return 3;
        files.push_back(file);
    }
    started = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    if (!started || !CreateThread(nullptr, 0, idle, nullptr, 0, nullptr)) return 4;
    WaitForSingleObject(started, INFINITE);

    char ready[100];
    const int length = std::snprintf(ready, sizeof ready, "ready %lu %p %zu\n", GetCurrentProcessId(),
                                     static_cast<void *>(buffer), size);
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE), output = GetStdHandle(STD_OUTPUT_HANDLE);
    char hostile[2] = {};
    GetEnvironmentVariableA("VXIO_CHILD_HOSTILE", hostile, sizeof hostile);
    if (hostile[0] == '1' && !turn_hostile(module)) return 5;
    DWORD written = 0, read = 0;
    WriteFile(output, ready, DWORD(length), &written, nullptr);
    char byte;
    // Until the parent closes our input (or goes away).
    while (ReadFile(input, &byte, 1, &read, nullptr) && read == 1) {
    }
    for (auto it = saved.rbegin(); it != saved.rend(); ++it) *it->at = it->was;
    return 0;
}
