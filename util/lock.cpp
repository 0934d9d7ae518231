// OwnedLock: a critical section that remembers its owner so that a second
// entry by the same thread is refused instead of nesting.
#include "platform/os.h"
#include "util/owner.h"
#include "vxio/lock_sha1.h"

using vxio::platform::os;

struct OwnedLock {
    CRITICAL_SECTION section;
    uint32_t ownerThread;  // 0 when nobody holds the lock
};

namespace {

// Called with the section just entered: either the caller becomes the owner,
// or it already was, and the nested entry is undone.
uint32_t claim(OwnedLock *lock) {
    const uint32_t self = os.GetCurrentThreadId();
    if (lock->ownerThread != self) {
        lock->ownerThread = self;
        return VXIO_LOCK_OK;
    }
    os.LeaveCriticalSection(&lock->section);
    return VXIO_LOCK_REFUSED;
}

}  // namespace

extern "C" OwnedLock *VOXA_InitCriticalSection(void) noexcept {
    auto lock = vxio::zelta_new<OwnedLock>();
    if (!lock) return nullptr;
    // The spin-count form reports a failure instead of raising an
    // out-of-memory exception, so a failed initialisation is a null result.
    if (!os.InitializeCriticalSectionAndSpinCount(&lock->section, 0)) return nullptr;
    lock->ownerThread = 0;
    return lock.release();
}

extern "C" void VOXA_DestroyCriticalSection(OwnedLock *lock) noexcept {
    if (!lock) return;
    os.DeleteCriticalSection(&lock->section);
    lock->ownerThread = 0;
    ZELTA_myfree(lock);
}

extern "C" uint32_t VOXA_EnterCriticalSection(OwnedLock *lock) noexcept {
    if (!lock) return VXIO_LOCK_REFUSED;
    os.EnterCriticalSection(&lock->section);
    return claim(lock);
}

extern "C" uint32_t VOXA_TryEnterCriticalSection(OwnedLock *lock) noexcept {
    if (!lock) return VXIO_LOCK_REFUSED;
    if (!os.TryEnterCriticalSection(&lock->section)) return VXIO_LOCK_BUSY;
    return claim(lock);
}

extern "C" void VOXA_LeaveCriticalSection(OwnedLock *lock) noexcept {
    // Only the holder can see its own id here, so the unlocked read is safe.
    if (!lock || lock->ownerThread != os.GetCurrentThreadId()) return;
    lock->ownerThread = 0;
    os.LeaveCriticalSection(&lock->section);
}
