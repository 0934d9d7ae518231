/* vxio: allocation and the growable pointer array.
 *
 * Every block the library hands to its caller comes from ZELTA_mymalloc
 * and its companions (the process's default heap, no flags: blocks are not
 * zero-filled), and may be freed by the caller with ZELTA_myfree; the
 * library in turn frees with ZELTA_myfree what the caller allocated here. */
#ifndef VXIO_ALLOC_H
#define VXIO_ALLOC_H

#include "base.h"

VXIO_EXTERN_C_BEGIN

/* DynArray: capacity and count of pointer-sized slots, and the slots
 * (null until the first add). Storage grows 16, 32, 64, ... and never
 * shrinks until VOXA_arrClear or VOXA_arrFree. */
typedef struct DynArray {
    uint32_t capacity;
    uint32_t count;
    void **items;
} DynArray;

VXIO_STATIC_ASSERT(sizeof(DynArray) == 16, DynArray_is_16_bytes);
VXIO_STATIC_ASSERT(offsetof(DynArray, capacity) == 0, DynArray_capacity);
VXIO_STATIC_ASSERT(offsetof(DynArray, count) == 4, DynArray_count);
VXIO_STATIC_ASSERT(offsetof(DynArray, items) == 8, DynArray_items);

/* A new block of size bytes, or null (no heap, or HeapAlloc failed). */
VXIO_API void *ZELTA_mymalloc(uint64_t size) VXIO_NOEXCEPT;
/* Resizes block (null: allocates). oldSize is accepted and ignored. On a
 * first failure the heap is compacted once and the resize tried again.
 * Returns the block or null (the old block then stays valid). */
VXIO_API void *ZELTA_myrealloc(void *block, uint64_t newSize, uint64_t oldSize) VXIO_NOEXCEPT;
/* count * size bytes; a zero count or size gives a valid zero-length
 * block; a product smaller than either factor counts as overflow: null. */
VXIO_API void *ZELTA_mymallocarray(uint64_t count, uint64_t size) VXIO_NOEXCEPT;
/* Resizes block to count * size bytes (same overflow test; a zero product
 * shrinks the block to zero bytes and returns it, it does not free it). */
VXIO_API void *ZELTA_myreallocarray(void *block, uint64_t count, uint64_t size,
                                    uint64_t oldSize) VXIO_NOEXCEPT;
/* HeapFree's result: non-zero on success; 0 without a process heap. */
VXIO_API int32_t ZELTA_myfree(void *block) VXIO_NOEXCEPT;

/* A new empty array (free with VOXA_arrFree), or null. */
VXIO_API DynArray *VOXA_arrNew(void) VXIO_NOEXCEPT;
/* Appends item. 1 when stored, 0 when growth failed (array unchanged) or
 * the array is null. */
VXIO_API uint8_t VOXA_arrAdd(DynArray *array, void *item) VXIO_NOEXCEPT;
/* Inserts item at index (0..count). 1 when stored, 0 when growth failed,
 * the array is null or the index is past count. */
VXIO_API uint8_t VOXA_arrInsert(DynArray *array, uint32_t index, void *item) VXIO_NOEXCEPT;
/* Removes slot index, keeping order, freeing the item with ZELTA_myfree
 * when freeItem is non-zero. 1 when removed, 0 when the index is past the
 * end or the array is null or empty. After a removal from the middle the
 * old last slot keeps a stale copy of the last item's pointer and the slot
 * at the old count (when it exists) is set to null. */
VXIO_API uint8_t VOXA_arrRemove(DynArray *array, uint32_t index, uint8_t freeItem) VXIO_NOEXCEPT;
/* Empties the array (freeing items when freeItems is non-zero) and
 * releases its slot storage; the record stays usable. 0 only for null. */
VXIO_API uint8_t VOXA_arrClear(DynArray *array, uint8_t freeItems) VXIO_NOEXCEPT;
/* As VOXA_arrClear, then frees the record itself. Always returns 0. */
VXIO_API uint8_t VOXA_arrFree(DynArray *array, uint8_t freeItems) VXIO_NOEXCEPT;

VXIO_EXTERN_C_END

#endif /* VXIO_ALLOC_H */
