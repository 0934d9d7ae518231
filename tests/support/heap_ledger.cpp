#include "support/heap_ledger.h"

#include <gtest/gtest.h>

namespace vxio::test {

namespace {
HeapLedger *current = nullptr;
}

HeapLedger::HeapLedger()
    : restore_(platform::os),
      next_(current ? current->next_ : platform::os),
      previous_(current) {
    current = this;
    platform::os.HeapAlloc = heap_alloc;
    platform::os.HeapReAlloc = heap_realloc;
    platform::os.HeapFree = heap_free;
}

HeapLedger::~HeapLedger() {
    platform::os.HeapAlloc = restore_.HeapAlloc;
    platform::os.HeapReAlloc = restore_.HeapReAlloc;
    platform::os.HeapFree = restore_.HeapFree;
    current = previous_;
}

size_t HeapLedger::live() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return live_.size();
}

int HeapLedger::allocations() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
}

void HeapLedger::fail_allocation(int n) {
    std::lock_guard<std::mutex> lock(mutex_);
    fail_at_ = n ? calls_ + n : 0;
    failed_ = false;
}

bool HeapLedger::failed() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return failed_;
}

bool HeapLedger::should_fail() {
    ++calls_;
    if (fail_at_ != 0 && calls_ == fail_at_) {
        failed_ = true;
        return true;
    }
    return false;
}

LPVOID WINAPI HeapLedger::heap_alloc(HANDLE heap, DWORD flags, SIZE_T size) {
    HeapLedger &self = *current;
    std::lock_guard<std::mutex> lock(self.mutex_);
    if (self.should_fail()) {
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    void *block = self.next_.HeapAlloc(heap, flags, size);
    if (block) self.live_.insert(block);
    return block;
}

LPVOID WINAPI HeapLedger::heap_realloc(HANDLE heap, DWORD flags, LPVOID block, SIZE_T size) {
    HeapLedger &self = *current;
    std::lock_guard<std::mutex> lock(self.mutex_);
    if (self.should_fail()) {
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    void *moved = self.next_.HeapReAlloc(heap, flags, block, size);
    if (moved) {
        self.live_.erase(block);
        self.live_.insert(moved);
    }
    return moved;
}

BOOL WINAPI HeapLedger::heap_free(HANDLE heap, DWORD flags, LPVOID block) {
    HeapLedger &self = *current;
    std::lock_guard<std::mutex> lock(self.mutex_);
    self.live_.erase(block);
    return self.next_.HeapFree(heap, flags, block);
}

void each_allocation_fails(const std::function<void(HeapLedger &)> &scenario) {
    int total = 0;
    {
        HeapLedger ledger;
        scenario(ledger);
        total = ledger.allocations();
        EXPECT_EQ(ledger.live(), 0u) << "blocks left after the run without failures";
    }
    for (int n = 1; n <= total; ++n) {
        HeapLedger ledger;
        ledger.fail_allocation(n);
        scenario(ledger);
        EXPECT_TRUE(ledger.failed()) << "allocation " << n << " was never made";
        EXPECT_EQ(ledger.live(), 0u) << "blocks left when allocation " << n << " failed";
    }
}

}  // namespace vxio::test
