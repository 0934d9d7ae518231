// The startup scan against a plain RegEnumValueA loop, in the same run: a
// definition of 200 lines ("scansub_value" over 200 keys) over a registry
// populated with 10,000 values (50 a key, each naming a file that does not
// exist, as most start-up entries of a clean system name files that do).
// The keys live under HKEY_CURRENT_USER\Software\vxio-startup-bench and
// are removed at the end.
//
// On a 64-bit system the scan opens every key in both registry views; the
// reference enumerates each key once per view as well, reading names and
// data into 1024-byte buffers. What remains is the scan's own work: each
// value's text is split into tokens, macros are expanded and every
// candidate path is tested for existence.
#include <windows.h>

#include <cstdio>
#include <string>

#include "bench_util.h"
#include "vxio/startup.h"

namespace {

constexpr int kKeys = 200;
constexpr int kValuesPerKey = 50;
const char kBase[] = "Software\\vxio-startup-bench";

std::string key_path(int k) { return std::string(kBase) + "\\k" + std::to_string(k); }

bool populate() {
    for (int k = 0; k < kKeys; ++k) {
        HKEY key;
        if (RegCreateKeyExA(HKEY_CURRENT_USER, key_path(k).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                            nullptr, &key, nullptr) != ERROR_SUCCESS)
            return false;
        for (int v = 0; v < kValuesPerKey; ++v) {
            const std::string name = "entry" + std::to_string(v);
            const std::string data = "c:\\vxio-bench-missing\\program" + std::to_string(k) + "_" +
                                     std::to_string(v) + ".exe /background";
            RegSetValueExA(key, name.c_str(), 0, REG_SZ,
                           reinterpret_cast<const BYTE *>(data.c_str()),
                           static_cast<DWORD>(data.size() + 1));
        }
        RegCloseKey(key);
    }
    return true;
}

void remove_all() {
    for (int k = 0; k < kKeys; ++k) RegDeleteKeyA(HKEY_CURRENT_USER, key_path(k).c_str());
    RegDeleteKeyA(HKEY_CURRENT_USER, kBase);
}

bool sixty_four_bit() {
    SYSTEM_INFO info;
    GetNativeSystemInfo(&info);
    return info.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64;
}

}  // namespace

int main() {
    if (!populate()) {
        std::fprintf(stderr, "startup_bench: cannot create the keys\n");
        remove_all();
        return 1;
    }
    std::string definition;
    for (int k = 0; k < kKeys; ++k)
        definition += std::to_string(k + 1) + ",bench,0,HKCU," + key_path(k) +
                      ",scansub_value,,disinf_deletenamevalue,\n";
    uint64_t size = definition.size();
    const uint8_t callerData[16] = {};
    IoObject *object = VOXA_MEM_Open("definitions", 0, 0, &definition[0], &size, callerData, 16);

    const REGSAM views[] = {KEY_WOW64_32KEY, KEY_WOW64_64KEY};
    const int viewCount = sixty_four_bit() ? 2 : 1;
    bool ok = object != nullptr;
    long enumerated = 0;
    const bench::PairTimes t = bench::best_pair(
        [&] {
            DynArray *scan = VOXA_IO_OpenStartupScan(object, nullptr);
            // Nothing exists, so no walk adds a finding; the scan still
            // succeeds because its keys could be read.
            ok &= scan != nullptr && scan->count == 0;
            VOXA_IO_CloseStartupScan(scan);
        },
        [&] {
            for (int k = 0; k < kKeys; ++k) {
                for (int v = 0; v < viewCount; ++v) {
                    HKEY key;
                    const REGSAM view = viewCount == 2 ? views[v] : 0;
                    if (RegOpenKeyExA(HKEY_CURRENT_USER, key_path(k).c_str(), 0, KEY_READ | view,
                                      &key) != ERROR_SUCCESS)
                        continue;
                    char name[1024];
                    BYTE data[1024];
                    for (DWORD index = 0;; ++index) {
                        DWORD nameSize = sizeof name, dataSize = sizeof data, type = 0;
                        if (RegEnumValueA(key, index, name, &nameSize, nullptr, &type, data,
                                          &dataSize) != ERROR_SUCCESS)
                            break;
                        ++enumerated;
                    }
                    RegCloseKey(key);
                }
            }
        },
        5);
    VOXA_MEM_Close(object);
    remove_all();
    if (!ok) {
        std::fprintf(stderr, "startup_bench: the scan failed\n");
        return 1;
    }
    std::printf("startup scan, 200 keys, 10,000 values: %8.1f ms\n", t.a * 1e3);
    std::printf("RegEnumValueA loop, same keys and views:  %8.1f ms   ratio %.2f (scan time / loop time)\n",
                t.b * 1e3, t.a / t.b);
    return 0;
}
