// Native queries of process inspection: entry points of the loaded
// "NTDLL.DLL" (never loaded or released here) and the one way every
// variable-size native query is asked.
#pragma once

#include <windows.h>

#include <cstdint>
#include <cstring>

#include "platform/os.h"
#include "util/owner.h"

namespace vxio::process {

using NtStatus = LONG;
constexpr NtStatus kInfoLengthMismatch = static_cast<NtStatus>(0xC0000004);
constexpr NtStatus kBufferOverflow = static_cast<NtStatus>(0x80000005);

template <typename Fn>
Fn ntdll_entry(const char *name) noexcept {
    HMODULE ntdll = platform::os.GetModuleHandleA("NTDLL.DLL");
    if (!ntdll) return nullptr;
    return reinterpret_cast<Fn>(reinterpret_cast<void *>(platform::os.GetProcAddress(ntdll, name)));
}

// Native queries that answer "length mismatch" are asked again with a
// larger buffer: the reported length when it is larger, else twice the
// size. Growing in small fixed steps would let a busy machine, whose
// tables grow between two questions, keep the caller asking for minutes;
// and some systems report 0 (or the same size) for ever, so the number of
// rounds and the size are bounded. The smaller block is freed before the
// larger one is asked for.
constexpr int kGrowRounds = 24;
constexpr ULONG kLargestQuery = 256u << 20;

struct GrownAnswer {
    NtStatus status = 0;
    bool noMemory = false;
    ULONG size = 0;  // the size of the buffer the last question was asked with
};

// query(buffer, size, &reported) -> NtStatus. The buffer is cleared before
// each question, so bytes the system did not write read as zero.
template <typename Query>
GrownAnswer query_growing(ZeltaPtr<uint8_t> &buffer, ULONG size, bool overflowToo,
                          Query &&query) noexcept {
    GrownAnswer answer;
    for (int round = 0;; ++round) {
        buffer.reset();
        buffer.reset(static_cast<uint8_t *>(ZELTA_mymalloc(size)));
        if (!buffer) {
            answer.noMemory = true;
            return answer;
        }
        std::memset(buffer.get(), 0, size);
        answer.size = size;
        ULONG reported = 0;
        answer.status = query(buffer.get(), size, &reported);
        const bool again = answer.status == kInfoLengthMismatch ||
                           (overflowToo && answer.status == kBufferOverflow);
        if (!again || round + 1 >= kGrowRounds || size >= kLargestQuery) return answer;
        size = reported > size ? reported : size * 2;
        if (size > kLargestQuery) size = kLargestQuery;
    }
}

}  // namespace vxio::process
