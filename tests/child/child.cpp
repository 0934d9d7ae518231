// A process for the inspection tests to look at: it maps a buffer of a
// known pattern, loads a known module, opens the files it is given, starts
// a second thread, then tells its parent where the buffer lies and waits
// until its standard input is closed.
//
//   vxio_child.exe [SIZE_IN_KIB] [FILE...]
// prints one line: "ready <pid> <buffer address in hex> <buffer size>\n"
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

// The byte at offset i of the buffer: easy to recognise and to check.
unsigned char pattern_byte(size_t i) { return static_cast<unsigned char>((i * 7 + 0x5A) & 0xFF); }

DWORD WINAPI idle(void *) {
    Sleep(INFINITE);
    return 0;
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

    if (!LoadLibraryA("vxio_child_module.dll")) return 2;
    std::vector<HANDLE> files;
    for (int i = 2; i < argc; ++i) {
        HANDLE file = CreateFileA(argv[i], GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                  OPEN_ALWAYS, 0, nullptr);
        if (file == INVALID_HANDLE_VALUE) return 3;
        files.push_back(file);
    }
    if (!CreateThread(nullptr, 0, idle, nullptr, 0, nullptr)) return 4;

    std::printf("ready %lu %p %zu\n", GetCurrentProcessId(), static_cast<void *>(buffer), size);
    std::fflush(stdout);
    char byte;
    DWORD read = 0;
    // Until the parent closes our input (or goes away).
    while (ReadFile(GetStdHandle(STD_INPUT_HANDLE), &byte, 1, &read, nullptr) && read == 1) {
    }
    return 0;
}
