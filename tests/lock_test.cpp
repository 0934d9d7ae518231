// OwnedLock: the refused second entry by the holder, try-enter against
// another thread, leave by a non-holder, and a failing initialisation.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/os.h"
#include "support/heap_ledger.h"
#include "vxio/lock_sha1.h"

using vxio::platform::OsTable;
using vxio::platform::SeamEntry;
using vxio::test::HeapLedger;

namespace {

// Runs f on another thread and returns its result.
template <typename F>
uint32_t on_other_thread(F f) {
    uint32_t result = 0;
    std::thread t([&] { result = f(); });
    t.join();
    return result;
}

TEST(OwnedLock, HolderCannotEnterTwiceAndOnlyItsLeaveReleases) {
    HeapLedger ledger;
    OwnedLock *lock = VOXA_InitCriticalSection();
    ASSERT_NE(lock, nullptr);
    VOXA_LeaveCriticalSection(lock);  // nobody holds it: harmless

    EXPECT_EQ(VOXA_EnterCriticalSection(lock), VXIO_LOCK_OK);
    EXPECT_EQ(VOXA_EnterCriticalSection(lock), VXIO_LOCK_REFUSED);
    EXPECT_EQ(VOXA_TryEnterCriticalSection(lock), VXIO_LOCK_REFUSED);
    auto try_elsewhere = [&] { return VOXA_TryEnterCriticalSection(lock); };
    EXPECT_EQ(on_other_thread(try_elsewhere), VXIO_LOCK_BUSY);
    std::thread([&] { VOXA_LeaveCriticalSection(lock); }).join();
    EXPECT_EQ(on_other_thread(try_elsewhere), VXIO_LOCK_BUSY)
        << "a Leave from a thread that does not hold the lock must not release it";

    // The refused entries were undone: one Leave frees the lock for others.
    VOXA_LeaveCriticalSection(lock);
    EXPECT_EQ(on_other_thread([&] {
                  const uint32_t r = VOXA_TryEnterCriticalSection(lock);
                  VOXA_LeaveCriticalSection(lock);
                  return r;
              }),
              VXIO_LOCK_OK);

    VOXA_DestroyCriticalSection(lock);
    EXPECT_EQ(ledger.live(), 0u);
}

TEST(OwnedLock, ExcludesOtherThreads) {
    OwnedLock *lock = VOXA_InitCriticalSection();
    ASSERT_NE(lock, nullptr);
    int counter = 0;  // deliberately unsynchronised but for the lock
    std::atomic<bool> refused{false};
    auto work = [&] {
        for (int i = 0; i < 20000; ++i) {
            if (VOXA_EnterCriticalSection(lock) != VXIO_LOCK_OK) refused = true;
            const int seen = counter;
            counter = seen + 1;
            VOXA_LeaveCriticalSection(lock);
        }
    };
    std::thread a(work), b(work);
    a.join();
    b.join();
    EXPECT_FALSE(refused);
    EXPECT_EQ(counter, 40000);
    VOXA_DestroyCriticalSection(lock);
}

BOOL WINAPI failing_init(LPCRITICAL_SECTION, DWORD) {
    ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
}

TEST(OwnedLock, FailuresGiveNullAndLeaveNothingBehind) {
    vxio::test::each_allocation_fails([](HeapLedger &ledger) {
        OwnedLock *lock = VOXA_InitCriticalSection();
        EXPECT_EQ(lock == nullptr, ledger.failed());
        VOXA_DestroyCriticalSection(lock);
    });
    HeapLedger ledger;
    SeamEntry init(&OsTable::InitializeCriticalSectionAndSpinCount, &failing_init);
    EXPECT_EQ(VOXA_InitCriticalSection(), nullptr);
    EXPECT_EQ(ledger.live(), 0u);
}

TEST(OwnedLock, NullLocksAreRefused) {
    EXPECT_EQ(VOXA_EnterCriticalSection(nullptr), VXIO_LOCK_REFUSED);
    EXPECT_EQ(VOXA_TryEnterCriticalSection(nullptr), VXIO_LOCK_REFUSED);
    VOXA_LeaveCriticalSection(nullptr);
    VOXA_DestroyCriticalSection(nullptr);
}

}  // namespace
