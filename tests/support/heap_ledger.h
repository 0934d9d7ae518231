// Test support: counts and fails the library's heap calls through the
// platform seam, so that every test can end by checking that each block the
// library allocated was freed, and can make each allocation of a call fail
// in turn.
#pragma once

#include <functional>
#include <mutex>
#include <set>

#include "platform/os.h"

namespace vxio::test {

class HeapLedger {
public:
    HeapLedger();
    ~HeapLedger();
    HeapLedger(const HeapLedger &) = delete;
    HeapLedger &operator=(const HeapLedger &) = delete;

    // Blocks allocated through the seam and not yet freed.
    size_t live() const;
    // Allocation calls (HeapAlloc and HeapReAlloc) seen so far.
    int allocations() const;
    // Makes the n-th allocation call from now on fail (1-based; 0: none).
    void fail_allocation(int n);
    // True once the planned failure has happened.
    bool failed() const;

private:
    static LPVOID WINAPI heap_alloc(HANDLE, DWORD, SIZE_T);
    static LPVOID WINAPI heap_realloc(HANDLE, DWORD, LPVOID, SIZE_T);
    static BOOL WINAPI heap_free(HANDLE, DWORD, LPVOID);
    bool should_fail();

    mutable std::mutex mutex_;
    std::set<void *> live_;
    int calls_ = 0;
    int fail_at_ = 0;
    bool failed_ = false;
    platform::OsTable restore_;  // the seam as it was before this ledger
    platform::OsTable next_;     // the real heap functions this ledger calls
    HeapLedger *previous_;
};

// Runs scenario once to count its allocation calls, then once more for each
// of them with that call failing. After every run no block may be left.
// scenario receives the ledger so that it can ask whether its run failed.
// Ledgers nest: while an inner ledger lives, it alone counts, and the outer
// one takes over again when it ends.
void each_allocation_fails(const std::function<void(HeapLedger &)> &scenario);

}  // namespace vxio::test
