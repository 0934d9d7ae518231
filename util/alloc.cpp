// Allocation family: the process's default heap, fetched anew on every
// call, with no heap flags (no zeroing, no exceptions).
#include <cstring>

#include "platform/os.h"
#include "util/owner.h"
#include "vxio/alloc.h"

using vxio::platform::os;

namespace {

// The cheap overflow test the engine relies on: a product smaller than
// either factor is treated as a wrap. (It misses wraps that land above both
// factors; kept exactly as the interface defines it.)
bool product_wraps(uint64_t count, uint64_t size, uint64_t *product) {
    *product = count * size;
    return *product < count || *product < size;
}

// One resize, then, on failure, exactly one compaction and one retry.
void *resize_with_one_retry(HANDLE heap, void *block, uint64_t size) {
    void *moved = os.HeapReAlloc(heap, 0, block, size);
    if (moved) return moved;
    os.HeapCompact(heap, 0);
    return os.HeapReAlloc(heap, 0, block, size);
}

}  // namespace

extern "C" void *ZELTA_mymalloc(uint64_t size) noexcept {
    HANDLE heap = os.GetProcessHeap();
    if (!heap) return nullptr;
    return os.HeapAlloc(heap, 0, size);
}

extern "C" void *ZELTA_myrealloc(void *block, uint64_t newSize, uint64_t /*oldSize*/) noexcept {
    HANDLE heap = os.GetProcessHeap();
    if (!heap) return nullptr;
    if (!block) return os.HeapAlloc(heap, 0, newSize);
    return resize_with_one_retry(heap, block, newSize);
}

extern "C" void *ZELTA_mymallocarray(uint64_t count, uint64_t size) noexcept {
    HANDLE heap = os.GetProcessHeap();
    if (!heap) return nullptr;
    if (count == 0 || size == 0) return os.HeapAlloc(heap, 0, 0);
    uint64_t product;
    if (product_wraps(count, size, &product)) return nullptr;
    return os.HeapAlloc(heap, 0, product);
}

extern "C" void *ZELTA_myreallocarray(void *block, uint64_t count, uint64_t size,
                                      uint64_t oldSize) noexcept {
    if (count != 0 && size != 0) {
        uint64_t product;
        if (product_wraps(count, size, &product)) return nullptr;
        return ZELTA_myrealloc(block, product, oldSize);
    }
    HANDLE heap = os.GetProcessHeap();
    if (!heap) return nullptr;
    if (block) return resize_with_one_retry(heap, block, 0);
    return os.HeapAlloc(heap, 0, 0);
}

extern "C" int32_t ZELTA_myfree(void *block) noexcept {
    HANDLE heap = os.GetProcessHeap();
    if (!heap) return 0;
    return os.HeapFree(heap, 0, block);
}

char *vxio::zelta_strdup(const char *text) noexcept {
    const size_t length = std::strlen(text);
    auto *copy = static_cast<char *>(ZELTA_mymalloc(length + 1));
    if (copy) std::memcpy(copy, text, length + 1);
    return copy;
}
