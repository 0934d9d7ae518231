/* vxio: the name cache, a sorted array of lower-case names with one small
 * result per name.
 *
 * Results are unsigned 32-bit codes; as signed numbers: 0 ok, -8 new
 * entry made, -2 bad argument or index past the end, -1 not found / not
 * stored, -5 out of memory, and 1 from GetResult for an index equal to the
 * count or an empty slot. Indexes are positions in the sorted array and
 * stay valid only until the next insertion before them. */
#ifndef VXIO_NAME_CACHE_H
#define VXIO_NAME_CACHE_H

#include "alloc.h"

VXIO_EXTERN_C_BEGIN

#define VXIO_CACHE_OK 0u
#define VXIO_CACHE_NOT_FOUND 0xFFFFFFFFu /* -1 */
#define VXIO_CACHE_BAD_ARGUMENT 0xFFFFFFFEu /* -2 */
#define VXIO_CACHE_NO_MEMORY 0xFFFFFFFBu /* -5 */
#define VXIO_CACHE_ADDED 0xFFFFFFF8u /* -8 */

/* One entry: the lower-cased name (owned, null for an empty name) and the
 * caller's result, 1 when the entry is made. */
typedef struct NameCacheEntry {
    char *entryName;
    uint32_t result;
} NameCacheEntry;

VXIO_STATIC_ASSERT(sizeof(NameCacheEntry) == 16, NameCacheEntry_is_16_bytes);
VXIO_STATIC_ASSERT(offsetof(NameCacheEntry, result) == 8, NameCacheEntry_result);

/* A new empty cache (close with VOXA_IO_CloseNameCache), or null. */
VXIO_API DynArray *VOXA_IO_OpenNameCache(void) VXIO_NOEXCEPT;
/* Finds name (compared as given, stored lower-cased) or inserts it in
 * order: 0 found, VXIO_CACHE_ADDED new, with *index set; -2 for a null
 * cache, name or index pointer; -5 when no entry can be allocated or the
 * cache cannot grow to hold it (the cache is then unchanged). An empty
 * name, or one whose copy cannot be made, gives a new entry with a null
 * name. */
VXIO_API uint32_t VOXA_IO_AddNameToCache(DynArray *cache, const char *name,
                                         uint32_t *index) VXIO_NOEXCEPT;
/* 0 and *result; -2 when index > count (or a null out pointer); 1 for a
 * null cache, index == count or an empty slot. */
VXIO_API uint32_t VOXA_IO_GetResultOfCacheFile(DynArray *cache, uint32_t index,
                                               uint32_t *result) VXIO_NOEXCEPT;
/* 0 when stored; -1 for a null cache, index >= count or an empty slot. */
VXIO_API uint32_t VOXA_IO_SetResultOfCacheFile(DynArray *cache, uint32_t index,
                                               uint32_t result) VXIO_NOEXCEPT;
/* Copies the entry's name into a new block (free with ZELTA_myfree) and
 * sets *length to its length + 2. Only fills outputs passed in cleared:
 * a non-null *name or non-zero *length on entry returns 0 and writes
 * nothing. -2 when index > count (or a null out pointer); -1 for a null
 * cache, index == count, an empty slot, or no name to copy. */
VXIO_API uint32_t VOXA_IO_GetNameFromCache(DynArray *cache, uint32_t index, char **name,
                                           uint32_t *length) VXIO_NOEXCEPT;
/* Frees every entry and the cache; 0, also for null. */
VXIO_API uint32_t VOXA_IO_CloseNameCache(DynArray *cache) VXIO_NOEXCEPT;

VXIO_EXTERN_C_END

#endif /* VXIO_NAME_CACHE_H */
