// DynArray: growth steps, order after inserts and removals, the stale slot
// left by a removal, freeing of items, and the array staying intact when
// growth fails.
#include <gtest/gtest.h>

#include <vector>

#include "support/heap_ledger.h"
#include "vxio/alloc.h"

using vxio::test::HeapLedger;

namespace {

void *P(uintptr_t v) { return reinterpret_cast<void *>(v); }

std::vector<uintptr_t> contents(const DynArray *a) {
    std::vector<uintptr_t> out;
    for (uint32_t i = 0; i < a->count; ++i) out.push_back(reinterpret_cast<uintptr_t>(a->items[i]));
    return out;
}

using V = std::vector<uintptr_t>;

TEST(DynArray, StartsEmptyAndGrowsBy16ThenDoubling) {
    HeapLedger ledger;
    DynArray *a = VOXA_arrNew();
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->capacity, 0u);
    EXPECT_EQ(a->count, 0u);
    EXPECT_EQ(a->items, nullptr);

    const struct { uint32_t adds, capacity; int allocations; } steps[] = {
        {1, 16, 1}, {16, 16, 1}, {17, 32, 2}, {32, 32, 2}, {33, 64, 3}, {65, 128, 4}};
    const int base = ledger.allocations();
    uint32_t added = 0;
    for (const auto &s : steps) {
        while (added < s.adds) ASSERT_EQ(VOXA_arrAdd(a, P(++added)), 1);
        EXPECT_EQ(a->capacity, s.capacity) << "after " << s.adds << " adds";
        EXPECT_EQ(ledger.allocations() - base, s.allocations) << "after " << s.adds << " adds";
    }
    EXPECT_EQ(a->count, 65u);
    EXPECT_EQ(VOXA_arrFree(a, 0), 0);
    EXPECT_EQ(ledger.live(), 0u);
}

TEST(DynArray, InsertKeepsOrderAndRefusesHoles) {
    HeapLedger ledger;
    DynArray *a = VOXA_arrNew();
    ASSERT_EQ(VOXA_arrInsert(a, 0, P(2)), 1);  // into an empty array
    ASSERT_EQ(VOXA_arrInsert(a, 1, P(4)), 1);  // index == count appends
    ASSERT_EQ(VOXA_arrInsert(a, 0, P(1)), 1);  // front
    ASSERT_EQ(VOXA_arrInsert(a, 2, P(3)), 1);  // middle
    EXPECT_EQ(contents(a), (V{1, 2, 3, 4}));
    EXPECT_EQ(VOXA_arrInsert(a, 6, P(9)), 0) << "an index past count would leave a hole";
    EXPECT_EQ(contents(a), (V{1, 2, 3, 4}));
    VOXA_arrFree(a, 0);
    EXPECT_EQ(ledger.live(), 0u);
}

TEST(DynArray, RemoveLeavesTheStaleSlotTheEngineKnows) {
    DynArray *a = VOXA_arrNew();
    for (uintptr_t v : {10, 20, 30}) VOXA_arrAdd(a, P(v));
    a->items[3] = P(0xDEAD);  // marker in the slot at the old count

    ASSERT_EQ(VOXA_arrRemove(a, 1, 0), 1);
    EXPECT_EQ(contents(a), (V{10, 30}));
    EXPECT_EQ(a->items[2], P(30)) << "the vacated last slot keeps a copy of the last item";
    EXPECT_EQ(a->items[3], nullptr) << "the slot at the old count is cleared";

    ASSERT_EQ(VOXA_arrRemove(a, 1, 0), 1);  // the last element: its own slot is cleared
    EXPECT_EQ(contents(a), (V{10}));
    EXPECT_EQ(a->items[1], nullptr);

    EXPECT_EQ(VOXA_arrRemove(a, 1, 0), 0) << "index == count";
    EXPECT_EQ(VOXA_arrRemove(a, 7, 0), 0);
    ASSERT_EQ(VOXA_arrRemove(a, 0, 0), 1);
    EXPECT_EQ(a->count, 0u);
    EXPECT_EQ(VOXA_arrRemove(a, 0, 0), 0) << "nothing to remove from an empty array";
    EXPECT_EQ(VOXA_arrRemove(a, 0xFFFFFFFFu, 0), 0);
    EXPECT_EQ(a->capacity, 16u) << "removal never releases storage";
    VOXA_arrFree(a, 0);
}

TEST(DynArray, RemovalFromAFullArrayDoesNotWritePastTheStorage) {
    HeapLedger ledger;
    DynArray *a = VOXA_arrNew();
    for (uintptr_t v = 1; v <= 16; ++v) VOXA_arrAdd(a, P(v));
    ASSERT_EQ(a->capacity, 16u);
    ASSERT_EQ(VOXA_arrRemove(a, 0, 0), 1);
    EXPECT_EQ(a->count, 15u);
    EXPECT_EQ(a->items[0], P(2));
    EXPECT_EQ(a->items[15], P(16));
    EXPECT_NE(HeapValidate(GetProcessHeap(), 0, a->items), 0);
    VOXA_arrFree(a, 0);
    EXPECT_EQ(ledger.live(), 0u);
}

TEST(DynArray, FreeingFlagsReleaseTheItems) {
    HeapLedger ledger;
    DynArray *a = VOXA_arrNew();
    for (int i = 0; i < 5; ++i) VOXA_arrAdd(a, ZELTA_mymalloc(8));
    EXPECT_EQ(ledger.live(), 7u);  // record, slots, five items

    ASSERT_EQ(VOXA_arrRemove(a, 2, 1), 1);
    EXPECT_EQ(ledger.live(), 6u);

    ASSERT_EQ(VOXA_arrClear(a, 1), 1);
    EXPECT_EQ(a->capacity, 0u);
    EXPECT_EQ(a->count, 0u);
    EXPECT_EQ(a->items, nullptr);
    EXPECT_EQ(ledger.live(), 1u) << "only the record stays after a clear";

    // The cleared record is reusable, and Free with the flag releases all.
    VOXA_arrAdd(a, ZELTA_mymalloc(8));
    EXPECT_EQ(VOXA_arrFree(a, 1), 0);
    EXPECT_EQ(ledger.live(), 0u);
}

TEST(DynArray, FailedGrowthLeavesTheArrayAsItWas) {
    vxio::test::each_allocation_fails([](HeapLedger &ledger) {
        DynArray *a = VOXA_arrNew();
        if (!a) {
            EXPECT_TRUE(ledger.failed());
            return;
        }
        uint32_t stored = 0;
        for (uintptr_t v = 1; v <= 17; ++v) {
            const uint8_t ok = v % 2 ? VOXA_arrAdd(a, P(v)) : VOXA_arrInsert(a, a->count, P(v));
            if (!ok) {
                EXPECT_TRUE(ledger.failed());
                EXPECT_EQ(a->count, stored);
                EXPECT_EQ(a->capacity, stored == 0 ? 0u : 16u);
                break;
            }
            ++stored;
        }
        for (uint32_t i = 0; i < a->count; ++i) EXPECT_EQ(a->items[i], P(i + 1));
        VOXA_arrFree(a, 0);
    });
}

TEST(DynArray, NullArraysAreRefused) {
    EXPECT_EQ(VOXA_arrAdd(nullptr, P(1)), 0);
    EXPECT_EQ(VOXA_arrInsert(nullptr, 0, P(1)), 0);
    EXPECT_EQ(VOXA_arrRemove(nullptr, 0, 1), 0);
    EXPECT_EQ(VOXA_arrClear(nullptr, 1), 0);
    EXPECT_EQ(VOXA_arrFree(nullptr, 1), 0);
}

}  // namespace
