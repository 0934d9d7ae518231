// Allocation family: heap calls made, the single compaction-and-retry of a
// failed resize, the cheap overflow test, zero-length blocks, and what
// happens without a process heap.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/os.h"
#include "support/heap_ledger.h"
#include "vxio/alloc.h"

using vxio::platform::OsTable;
using vxio::platform::SeamEntry;
using vxio::test::HeapLedger;

namespace {

HANDLE WINAPI no_heap() { return nullptr; }

// Records the heap calls a resize makes ('R' resize, 'C' compaction),
// failing the first n resizes.
struct ResizeScript {
    static inline int failures_left = 0;
    static inline std::string order;

    static LPVOID WINAPI realloc(HANDLE heap, DWORD flags, LPVOID block, SIZE_T size) {
        order += 'R';
        if (failures_left > 0) return --failures_left, nullptr;
        return vxio::platform::real_os.HeapReAlloc(heap, flags, block, size);
    }
    static SIZE_T WINAPI compact(HANDLE, DWORD) { return order += 'C', 0; }
    static void reset(int failures) { failures_left = failures, order.clear(); }
};

TEST(Alloc, BlocksComeFromTheProcessHeapAndResizesKeepContents) {
    HeapLedger ledger;
    void *block = ZELTA_mymalloc(100);
    ASSERT_NE(block, nullptr);
    EXPECT_GE(HeapSize(GetProcessHeap(), 0, block), 100u);
    EXPECT_EQ(ledger.live(), 1u);
    EXPECT_NE(ZELTA_myfree(block), 0);

    auto *text = static_cast<char *>(ZELTA_myrealloc(nullptr, 8, 12345));  // from null: new
    ASSERT_NE(text, nullptr);
    std::memcpy(text, "abcdefgh", 8);
    text = static_cast<char *>(ZELTA_myrealloc(text, 1 << 20, 8));
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::memcmp(text, "abcdefgh", 8), 0);
    EXPECT_NE(ZELTA_myfree(text), 0);
    EXPECT_EQ(ledger.live(), 0u);
}

TEST(Alloc, FailedResizeIsRetriedExactlyOnceAfterOneCompaction) {
    const struct { int failures; bool succeeds; const char *order; } cases[] = {
        {0, true, "R"},     // no retry needed
        {1, true, "RCR"},   // retry after compaction succeeds
        {2, false, "RCR"},  // second failure is final: no further attempt
    };
    SeamEntry r(&OsTable::HeapReAlloc, &ResizeScript::realloc);
    SeamEntry c(&OsTable::HeapCompact, &ResizeScript::compact);
    for (const auto &k : cases) {
        void *block = ZELTA_mymalloc(16);
        ASSERT_NE(block, nullptr);
        ResizeScript::reset(k.failures);
        void *moved = ZELTA_myrealloc(block, 64, 16);
        EXPECT_EQ(moved != nullptr, k.succeeds) << k.failures;
        EXPECT_EQ(ResizeScript::order, k.order) << k.failures;
        // A failed resize leaves the old block valid and owned by the caller.
        ZELTA_myfree(moved ? moved : block);

        // The zero-product shrink of the array form retries the same way.
        block = ZELTA_mymalloc(16);
        ResizeScript::reset(k.failures);
        moved = ZELTA_myreallocarray(block, 0, 8, 16);
        EXPECT_EQ(moved != nullptr, k.succeeds) << k.failures;
        EXPECT_EQ(ResizeScript::order, k.order) << k.failures;
        ZELTA_myfree(moved ? moved : block);
    }
}

TEST(Alloc, ArrayFormsUseTheCheapOverflowTest) {
    HeapLedger ledger;
    const uint64_t big = uint64_t{1} << 63;
    // The product wraps to 0, smaller than both factors: refused unallocated.
    EXPECT_EQ(ZELTA_mymallocarray(big, 2), nullptr);
    EXPECT_EQ(ZELTA_mymallocarray(2, big), nullptr);
    EXPECT_EQ(ledger.allocations(), 0);

    void *block = ZELTA_mymalloc(4);
    ASSERT_NE(block, nullptr);
    const int before = ledger.allocations();
    EXPECT_EQ(ZELTA_myreallocarray(block, big, 2, 4), nullptr);
    EXPECT_EQ(ledger.allocations(), before) << "an overflow must not touch the heap";
    EXPECT_EQ(HeapSize(GetProcessHeap(), 0, block), 4u) << "the old block is untouched";
    ZELTA_myfree(block);

    // A wrap that lands above both factors passes the cheap test and is
    // simply an allocation the heap refuses (kept as the engine knows it).
    // (2^62 + 1) * 5 wraps to 2^62 + 5, above both factors.
    const int asked = ledger.allocations();
    EXPECT_EQ(ZELTA_mymallocarray((uint64_t{1} << 62) + 1, 5), nullptr);
    EXPECT_EQ(ledger.allocations(), asked + 1) << "this wrap reaches the heap";
    EXPECT_EQ(ledger.live(), 0u);
}

TEST(Alloc, ZeroCountOrSizeGivesValidZeroLengthBlocks) {
    HeapLedger ledger;
    for (auto [count, size] : {std::pair<uint64_t, uint64_t>{0, 8}, {8, 0}, {0, 0}}) {
        void *block = ZELTA_mymallocarray(count, size);
        ASSERT_NE(block, nullptr) << count << "x" << size;
        EXPECT_EQ(HeapSize(GetProcessHeap(), 0, block), 0u);
        ZELTA_myfree(block);

        block = ZELTA_myreallocarray(nullptr, count, size, 0);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(HeapSize(GetProcessHeap(), 0, block), 0u);
        ZELTA_myfree(block);
    }
    // Shrinking to zero elements keeps (does not free) the block.
    void *block = ZELTA_mymallocarray(4, 8);
    void *shrunk = ZELTA_myreallocarray(block, 0, 8, 32);
    ASSERT_NE(shrunk, nullptr);
    EXPECT_EQ(HeapSize(GetProcessHeap(), 0, shrunk), 0u);
    EXPECT_EQ(ledger.live(), 1u);
    ZELTA_myfree(shrunk);
    EXPECT_EQ(ledger.live(), 0u);
}

TEST(Alloc, EveryFunctionFailsCleanlyWithoutAProcessHeap) {
    HeapLedger ledger;
    void *block = ZELTA_mymalloc(8);
    {
        SeamEntry heap(&OsTable::GetProcessHeap, &no_heap);
        EXPECT_EQ(ZELTA_mymalloc(8), nullptr);
        EXPECT_EQ(ZELTA_myrealloc(nullptr, 8, 0), nullptr);
        EXPECT_EQ(ZELTA_myrealloc(block, 16, 8), nullptr);
        EXPECT_EQ(ZELTA_mymallocarray(2, 4), nullptr);
        EXPECT_EQ(ZELTA_mymallocarray(0, 4), nullptr);
        EXPECT_EQ(ZELTA_myreallocarray(block, 2, 4, 8), nullptr);
        EXPECT_EQ(ZELTA_myreallocarray(block, 0, 4, 8), nullptr);
        EXPECT_EQ(ZELTA_myfree(block), 0);
    }
    EXPECT_EQ(ledger.live(), 1u) << "the block survived the failed calls";
    EXPECT_NE(ZELTA_myfree(block), 0);
    EXPECT_EQ(ledger.live(), 0u);
}

}  // namespace
