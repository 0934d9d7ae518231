// Name cache: a DynArray of NameCacheEntry records kept in ascending order
// of their lower-cased names, searched by binary search, each name with one
// small result for the engine (typically how the scan of that file ended).
//
// The search compares the name as the caller spells it against the stored
// lower-case spelling. A caller that passes upper-case letters therefore
// never finds its name again and gets a new entry on every add, possibly
// out of order. The engine always passes lower-case names and knows this
// behaviour, so it stays.
#include <cstring>

#include "platform/os.h"
#include "util/owner.h"
#include "vxio/name_cache.h"

using vxio::platform::os;

namespace {

NameCacheEntry *entry_at(const DynArray *cache, uint32_t index) {
    return static_cast<NameCacheEntry *>(cache->items[index]);
}

// The search bounds are signed 32-bit numbers: the upper bound of an
// exhausted left half is -1, and halving is an arithmetic shift. Sums wrap
// modulo 2^32 here instead of being undefined; a wrapped midpoint turns
// negative, reads as a huge unsigned index and ends the search (it takes
// more than 2^30 entries).
int32_t add32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

struct SearchResult {
    bool found;
    uint32_t index;  // found: the entry's position; otherwise where it goes
};

SearchResult search(const DynArray *cache, const char *name) {
    int32_t low = 0;
    int32_t high = add32(static_cast<int32_t>(cache->count), -1);
    const auto *wanted = reinterpret_cast<const unsigned char *>(name);
    while (low <= high) {
        const int32_t middle = add32(low, high) >> 1;
        // Slots are never empty and middle never reaches the count through
        // this interface; either one simply ends the search.
        if (static_cast<uint32_t>(middle) >= cache->count) break;
        const NameCacheEntry *entry = entry_at(cache, static_cast<uint32_t>(middle));
        if (!entry) break;
        // An entry without a name (an empty name, or one whose copy could
        // not be made) counts as smaller than any name searched for.
        int order = -1;
        if (entry->entryName) {
            order = os.mbscmp(reinterpret_cast<const unsigned char *>(entry->entryName), wanted);
        }
        if (order == 0) return {true, static_cast<uint32_t>(middle)};
        if (order > 0) {
            high = add32(middle, -1);
        } else {
            low = add32(middle, 1);
        }
    }
    return {false, static_cast<uint32_t>(low)};
}

// The stored spelling: a lower-cased copy of a non-empty name, or null. A
// copy that cannot be made leaves the name null and the entry is still
// made. When lower-casing fails the name stays null as well and the copy
// is freed, not dropped: a block that nobody owns would never go back to
// the heap, and every block the library takes must be given back.
char *stored_spelling(const char *name) {
    if (name[0] == '\0') return nullptr;
    vxio::ZeltaPtr<char> copy(vxio::zelta_strdup(name));
    if (!copy) return nullptr;
    if (!os.mbslwr(reinterpret_cast<unsigned char *>(copy.get()))) return nullptr;
    return copy.release();
}

}  // namespace

extern "C" DynArray *VOXA_IO_OpenNameCache(void) noexcept { return VOXA_arrNew(); }

extern "C" uint32_t VOXA_IO_AddNameToCache(DynArray *cache, const char *name,
                                           uint32_t *index) noexcept {
    // A null cache or out pointer is refused like a null name, before
    // anything changes: there is nowhere to search or to report the index.
    if (!cache || !name || !index) return VXIO_CACHE_BAD_ARGUMENT;

    SearchResult place{false, 0};
    if (cache->count != 0) {
        place = search(cache, name);
        if (place.found) {
            *index = place.index;
            return VXIO_CACHE_OK;
        }
    }

    auto entry = vxio::zelta_new<NameCacheEntry>();
    if (!entry) return VXIO_CACHE_NO_MEMORY;
    vxio::ZeltaPtr<char> spelling(stored_spelling(name));
    entry->entryName = spelling.get();
    entry->result = 1;

    // An empty cache is appended to, which is where the search would have
    // put the entry anyway. If the slot storage cannot grow, the entry and
    // its name go again and the cache is as it was: an entry that is not
    // in the array could never be found or freed.
    const uint8_t stored = cache->count == 0 ? VOXA_arrAdd(cache, entry.get())
                                             : VOXA_arrInsert(cache, place.index, entry.get());
    if (!stored) return VXIO_CACHE_NO_MEMORY;
    spelling.release();
    entry.release();
    *index = place.index;
    return VXIO_CACHE_ADDED;
}

extern "C" uint32_t VOXA_IO_GetResultOfCacheFile(DynArray *cache, uint32_t index,
                                                 uint32_t *result) noexcept {
    if (!result) return VXIO_CACHE_BAD_ARGUMENT;
    const uint32_t count = cache ? cache->count : 0;
    if (index > count) return VXIO_CACHE_BAD_ARGUMENT;
    // An index equal to the count (or any index 0 of a null cache) answers
    // 1, the result a fresh entry has, rather than an error code; only an
    // index beyond it is a bad argument.
    if (!cache || index == count) return 1;
    const NameCacheEntry *entry = entry_at(cache, index);
    if (!entry) return 1;
    *result = entry->result;
    return VXIO_CACHE_OK;
}

extern "C" uint32_t VOXA_IO_SetResultOfCacheFile(DynArray *cache, uint32_t index,
                                                 uint32_t result) noexcept {
    if (!cache || index >= cache->count) return VXIO_CACHE_NOT_FOUND;
    NameCacheEntry *entry = entry_at(cache, index);
    if (!entry) return VXIO_CACHE_NOT_FOUND;
    entry->result = result;
    return VXIO_CACHE_OK;
}

extern "C" uint32_t VOXA_IO_GetNameFromCache(DynArray *cache, uint32_t index, char **name,
                                             uint32_t *length) noexcept {
    if (!name || !length) return VXIO_CACHE_BAD_ARGUMENT;
    const uint32_t count = cache ? cache->count : 0;
    if (index > count) return VXIO_CACHE_BAD_ARGUMENT;
    if (!cache || index == count) return VXIO_CACHE_NOT_FOUND;
    const NameCacheEntry *entry = entry_at(cache, index);
    if (!entry) return VXIO_CACHE_NOT_FOUND;

    // Outputs are filled only when passed in cleared. Anything else is
    // taken as a name the caller already holds, which must not be
    // overwritten (it would be lost): success, nothing written.
    if (*name || *length) return VXIO_CACHE_OK;

    if (!entry->entryName || entry->entryName[0] == '\0') return VXIO_CACHE_NOT_FOUND;
    char *copy = vxio::zelta_strdup(entry->entryName);
    if (!copy) return VXIO_CACHE_NOT_FOUND;
    *name = copy;
    // The length counts the terminator and one unit more ("abc" gives 5);
    // callers expect exactly this figure.
    *length = static_cast<uint32_t>(std::strlen(copy)) + 2;
    return VXIO_CACHE_OK;
}

extern "C" uint32_t VOXA_IO_CloseNameCache(DynArray *cache) noexcept {
    if (!cache) return 0;
    for (uint32_t i = 0; i < cache->count; ++i) {
        NameCacheEntry *entry = entry_at(cache, i);
        if (entry && entry->entryName) ZELTA_myfree(entry->entryName);
    }
    // The array frees the entries themselves, then its slots and itself.
    VOXA_arrFree(cache, 1);
    return 0;
}
