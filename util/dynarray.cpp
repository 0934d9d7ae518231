// DynArray: a growable array of untyped pointers. Storage starts at 16
// slots on the first add and doubles; it never shrinks until Clear/Free.
#include <cstring>

#include "vxio/alloc.h"

namespace {

constexpr uint32_t kFirstCapacity = 16;
constexpr uint64_t kSlotSize = 8;

// Makes room for one more slot. On failure the array is left exactly as it
// was (the old slot storage stays valid).
bool grow_if_full(DynArray *array) {
    if (array->count < array->capacity) return true;
    if (array->capacity > UINT32_MAX / 2) return false;  // the count is 32-bit
    const uint32_t capacity = array->capacity ? array->capacity * 2 : kFirstCapacity;
    void *items = ZELTA_myreallocarray(array->items, capacity, kSlotSize, array->capacity);
    if (!items) return false;
    array->items = static_cast<void **>(items);
    array->capacity = capacity;
    return true;
}

void empty_out(DynArray *array, uint8_t freeItems) {
    if (freeItems) {
        for (uint32_t i = 0; i < array->count; ++i) {
            ZELTA_myfree(array->items[i]);
            array->items[i] = nullptr;
        }
    }
    if (array->items) ZELTA_myfree(array->items);
    array->capacity = 0;
    array->count = 0;
    array->items = nullptr;
}

}  // namespace

extern "C" DynArray *VOXA_arrNew(void) noexcept {
    auto *array = static_cast<DynArray *>(ZELTA_mymalloc(sizeof(DynArray)));
    if (array) *array = DynArray{0, 0, nullptr};
    return array;
}

extern "C" uint8_t VOXA_arrAdd(DynArray *array, void *item) noexcept {
    if (!array || !grow_if_full(array)) return 0;
    array->items[array->count++] = item;
    return 1;
}

extern "C" uint8_t VOXA_arrInsert(DynArray *array, uint32_t index, void *item) noexcept {
    // An index past count would leave a hole of garbage slots; callers never
    // pass one, so it is refused rather than left undefined.
    if (!array || index > array->count) return 0;
    if (!grow_if_full(array)) return 0;
    if (index != array->count) {
        const uint32_t moved = array->count - index;
        std::memmove(&array->items[index + 1], &array->items[index], moved * kSlotSize);
    }
    array->items[index] = item;
    ++array->count;
    return 1;
}

extern "C" uint8_t VOXA_arrRemove(DynArray *array, uint32_t index, uint8_t freeItem) noexcept {
    // On an empty array "last" would wrap to the largest index and accept
    // anything; an empty array has nothing to remove.
    if (!array || array->count == 0) return 0;
    const uint32_t oldCount = array->count;
    const uint32_t last = oldCount - 1;
    if (index == last) {
        if (freeItem) ZELTA_myfree(array->items[index]);
        array->items[index] = nullptr;
        array->count = last;
        return 1;
    }
    if (index > last) return 0;
    if (freeItem) ZELTA_myfree(array->items[index]);
    for (uint32_t i = index + 1; i < oldCount; ++i) array->items[i - 1] = array->items[i];
    // The slot at the old count is cleared, not the vacated last slot: the
    // last slot keeps a stale copy of the last item (kept as the engine
    // knows it). The store is skipped when that slot lies past the storage.
    if (oldCount < array->capacity) array->items[oldCount] = nullptr;
    array->count = last;
    return 1;
}

extern "C" uint8_t VOXA_arrClear(DynArray *array, uint8_t freeItems) noexcept {
    if (!array) return 0;
    empty_out(array, freeItems);
    return 1;
}

extern "C" uint8_t VOXA_arrFree(DynArray *array, uint8_t freeItems) noexcept {
    if (!array) return 0;
    empty_out(array, freeItems);
    ZELTA_myfree(array);
    return 0;
}
