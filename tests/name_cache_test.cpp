// Name cache: order and indexes of adds (including the null-named and
// upper-case entries that break the order), binary search through the
// seam, result and name accessors at count-1/count/count+1, the
// cleared-outputs rule, null arguments, and failures of every allocation
// and of lower-casing without a block left behind.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/heap_ledger.h"
#include "vxio/name_cache.h"

using vxio::platform::OsTable;
using vxio::platform::SeamEntry;
using vxio::test::HeapLedger;

namespace {

constexpr uint32_t kMarker = 0xA5A5A5A5u;

class NameCache : public testing::Test {
protected:
    void SetUp() override { ASSERT_NE(cache, nullptr); }
    void TearDown() override {
        EXPECT_EQ(VOXA_IO_CloseNameCache(cache), 0u);
        EXPECT_EQ(ledger.live(), 0u) << "blocks left after close";
    }
    uint32_t add(const char *name, uint32_t *index) {
        *index = kMarker;
        return VOXA_IO_AddNameToCache(cache, name, index);
    }
    // The stored spellings in slot order, "-" for a null name.
    std::vector<std::string> names() const {
        std::vector<std::string> out;
        for (uint32_t i = 0; i < cache->count; ++i) {
            const auto *e = static_cast<NameCacheEntry *>(cache->items[i]);
            out.push_back(e->entryName ? e->entryName : "-");
        }
        return out;
    }
    HeapLedger ledger;
    DynArray *cache = VOXA_IO_OpenNameCache();
};

using Names = std::vector<std::string>;

TEST_F(NameCache, AddsKeepOrderExceptForNullAndUpperCaseNames) {
    const struct {
        const char *name;
        uint32_t code, index;
        Names after;
    } steps[] = {
        {"a", VXIO_CACHE_ADDED, 0, {"a"}},
        {"c", VXIO_CACHE_ADDED, 1, {"a", "c"}},
        {"b", VXIO_CACHE_ADDED, 1, {"a", "b", "c"}},  // "c" moves to 2
        {"c", VXIO_CACHE_OK, 2, {"a", "b", "c"}},
        {"a", VXIO_CACHE_OK, 0, {"a", "b", "c"}},
        {"", VXIO_CACHE_ADDED, 0, {"-", "a", "b", "c"}},
        {"", VXIO_CACHE_ADDED, 1, {"-", "-", "a", "b", "c"}},  // never found again
        {"b", VXIO_CACHE_OK, 3, {"-", "-", "a", "b", "c"}},    // null names count as smaller
        {"B", VXIO_CACHE_ADDED, 2, {"-", "-", "b", "a", "b", "c"}},  // compared as given
        {"B", VXIO_CACHE_ADDED, 2, {"-", "-", "b", "b", "a", "b", "c"}},
        {"d", VXIO_CACHE_ADDED, 7, {"-", "-", "b", "b", "a", "b", "c", "d"}},
    };
    for (const auto &s : steps) {
        uint32_t index;
        EXPECT_EQ(add(s.name, &index), s.code) << '"' << s.name << '"';
        EXPECT_EQ(index, s.index) << '"' << s.name << '"';
        EXPECT_EQ(names(), s.after) << '"' << s.name << '"';
        uint32_t result = kMarker;
        EXPECT_EQ(VOXA_IO_GetResultOfCacheFile(cache, index, &result), 0u);
        EXPECT_EQ(result, 1u) << "a new entry's result is 1";
    }
}

int comparisons = 0;
int __cdecl counting_mbscmp(const unsigned char *a, const unsigned char *b) {
    ++comparisons;
    return vxio::platform::real_os.mbscmp(a, b);
}

TEST_F(NameCache, ManyNamesStaySortedAndAreFoundByBinarySearch) {
    constexpr uint32_t n = 1000;  // crosses several growth steps
    char name[16];
    for (uint32_t i = 0; i < n; ++i) {
        std::snprintf(name, sizeof name, "f%04u", (i * 7919u) % n);  // scattered order
        uint32_t index;
        ASSERT_EQ(add(name, &index), VXIO_CACHE_ADDED) << name;
    }
    const Names sorted = names();
    ASSERT_EQ(sorted.size(), n);
    for (uint32_t i = 0; i < n; ++i) {
        std::snprintf(name, sizeof name, "f%04u", i);
        ASSERT_EQ(sorted[i], name);
        SeamEntry<decltype(OsTable::mbscmp)> seam(&OsTable::mbscmp, counting_mbscmp);
        comparisons = 0;
        uint32_t index;
        ASSERT_EQ(add(name, &index), VXIO_CACHE_OK) << name;
        EXPECT_EQ(index, i);
        EXPECT_GE(comparisons, 1);
        EXPECT_LE(comparisons, 10) << name << ": at most floor(log2 1000) + 1 probes";
    }
}

TEST_F(NameCache, AccessorsAtTheEndOfTheCache) {
    uint32_t index;
    add("x", &index);
    add("y", &index);
    const uint32_t count = cache->count;
    ASSERT_EQ(VOXA_IO_SetResultOfCacheFile(cache, count - 1, 7), 0u);

    const struct {
        DynArray *cache;
        uint32_t index, get, set, getName;
    } rows[] = {
        {cache, count - 1, 0, 0, 0},
        {cache, count, 1, VXIO_CACHE_NOT_FOUND, VXIO_CACHE_NOT_FOUND},
        {cache, count + 1, VXIO_CACHE_BAD_ARGUMENT, VXIO_CACHE_NOT_FOUND, VXIO_CACHE_BAD_ARGUMENT},
        {nullptr, 0, 1, VXIO_CACHE_NOT_FOUND, VXIO_CACHE_NOT_FOUND},
        {nullptr, 1, VXIO_CACHE_BAD_ARGUMENT, VXIO_CACHE_NOT_FOUND, VXIO_CACHE_BAD_ARGUMENT},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(testing::Message() << (r.cache ? "cache" : "null") << " index " << r.index);
        uint32_t result = kMarker;
        EXPECT_EQ(VOXA_IO_GetResultOfCacheFile(r.cache, r.index, &result), r.get);
        EXPECT_EQ(result, r.get == 0 ? 7u : kMarker);
        EXPECT_EQ(VOXA_IO_SetResultOfCacheFile(r.cache, r.index, 9), r.set);
        char *name = nullptr;
        uint32_t length = 0;
        EXPECT_EQ(VOXA_IO_GetNameFromCache(r.cache, r.index, &name, &length), r.getName);
        EXPECT_EQ(name ? std::string(name) : "-", r.getName == 0 ? "y" : "-");
        EXPECT_EQ(length, r.getName == 0 ? 3u : 0u) << "the name's length + 2";
        if (name) ZELTA_myfree(name);
    }
    uint32_t result = 0;
    VOXA_IO_GetResultOfCacheFile(cache, 0, &result);
    EXPECT_EQ(result, 1u) << "a neighbour's result is untouched by Set";
    VOXA_IO_GetResultOfCacheFile(cache, count - 1, &result);
    EXPECT_EQ(result, 9u);
}

TEST_F(NameCache, NameCopiesAndTheClearedOutputsRule) {
    uint32_t index;
    add("Abc", &index);
    add("", &index);
    char *name = nullptr;
    uint32_t length = 0;
    ASSERT_EQ(VOXA_IO_GetNameFromCache(cache, 1, &name, &length), 0u);
    EXPECT_STREQ(name, "abc");
    EXPECT_NE(name, static_cast<NameCacheEntry *>(cache->items[1])->entryName) << "a copy";
    EXPECT_EQ(length, 5u) << "length + 2 by design";
    ZELTA_myfree(name);

    // Outputs passed in set are the caller's: success, nothing written.
    char held[] = "held";
    const size_t blocks = ledger.live();
    for (auto [in, inLength] : {std::pair<char *, uint32_t>{held, 0}, {nullptr, 3}}) {
        name = in;
        length = inLength;
        EXPECT_EQ(VOXA_IO_GetNameFromCache(cache, 1, &name, &length), 0u);
        EXPECT_EQ(name, in);
        EXPECT_EQ(length, inLength);
    }
    EXPECT_EQ(ledger.live(), blocks);

    name = nullptr;
    length = 0;
    EXPECT_EQ(VOXA_IO_GetNameFromCache(cache, 0, &name, &length), VXIO_CACHE_NOT_FOUND)
        << "the empty name has nothing to copy";
    EXPECT_EQ(name, nullptr);
    EXPECT_EQ(length, 0u);
}

TEST_F(NameCache, NullArgumentsAreRefused) {
    uint32_t index = kMarker, value = kMarker;
    char *name = nullptr;
    add("a", &index);
    EXPECT_EQ(VOXA_IO_AddNameToCache(nullptr, "a", &index), VXIO_CACHE_BAD_ARGUMENT);
    EXPECT_EQ(VOXA_IO_AddNameToCache(cache, nullptr, &index), VXIO_CACHE_BAD_ARGUMENT);
    EXPECT_EQ(VOXA_IO_AddNameToCache(cache, "b", nullptr), VXIO_CACHE_BAD_ARGUMENT);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(names(), Names{"a"});
    EXPECT_EQ(VOXA_IO_GetResultOfCacheFile(cache, 0, nullptr), VXIO_CACHE_BAD_ARGUMENT);
    EXPECT_EQ(VOXA_IO_GetNameFromCache(cache, 0, nullptr, &value), VXIO_CACHE_BAD_ARGUMENT);
    EXPECT_EQ(VOXA_IO_GetNameFromCache(cache, 0, &name, nullptr), VXIO_CACHE_BAD_ARGUMENT);
    EXPECT_EQ(value, kMarker);
    EXPECT_EQ(VOXA_IO_CloseNameCache(nullptr), 0u);
}

unsigned char *__cdecl failing_mbslwr(unsigned char *) { return nullptr; }

TEST_F(NameCache, FailedLowerCasingKeepsTheEntryAndFreesTheCopy) {
    SeamEntry<decltype(OsTable::mbslwr)> seam(&OsTable::mbslwr, failing_mbslwr);
    uint32_t index;
    EXPECT_EQ(add("Abc", &index), VXIO_CACHE_ADDED);
    EXPECT_EQ(names(), Names{"-"});
    EXPECT_EQ(ledger.live(), 3u) << "record, slots and entry; the copy is gone";
}

TEST(NameCacheMemory, EachFailedAllocationLeavesNothingBehind) {
    vxio::test::each_allocation_fails([](HeapLedger &ledger) {
        DynArray *cache = VOXA_IO_OpenNameCache();
        if (!cache) {
            EXPECT_TRUE(ledger.failed());
            return;
        }
        char name[8];
        for (uint32_t i = 0; i < 17; ++i) {  // the 17th add grows the slots
            std::snprintf(name, sizeof name, "n%02u", 16 - i);
            const uint32_t before = cache->count;
            uint32_t index = kMarker;
            const uint32_t code = VOXA_IO_AddNameToCache(cache, name, &index);
            if (code == VXIO_CACHE_NO_MEMORY) {
                EXPECT_TRUE(ledger.failed());
                EXPECT_EQ(cache->count, before);
                EXPECT_EQ(index, kMarker);
                continue;
            }
            ASSERT_EQ(code, VXIO_CACHE_ADDED);
            ASSERT_LT(index, cache->count) << "reported new but not stored";
            const auto *entry = static_cast<NameCacheEntry *>(cache->items[index]);
            EXPECT_EQ(entry->result, 1u);
            // A copy that could not be made still gives a new, nameless entry.
            EXPECT_TRUE(entry->entryName || ledger.failed());
        }
        char *copy = nullptr;
        uint32_t length = 0;
        const uint32_t code = VOXA_IO_GetNameFromCache(cache, cache->count - 1, &copy, &length);
        EXPECT_EQ(code == VXIO_CACHE_NOT_FOUND, copy == nullptr);
        if (copy) ZELTA_myfree(copy);
        VOXA_IO_CloseNameCache(cache);
    });
}

}  // namespace
