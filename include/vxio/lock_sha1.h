/* vxio: the library's lock and the SHA-1 digest (RFC 3174 interface). */
#ifndef VXIO_LOCK_SHA1_H
#define VXIO_LOCK_SHA1_H

#include "base.h"

VXIO_EXTERN_C_BEGIN

/* OwnedLock: a critical section plus the id of the thread holding it.
 * Deliberately not re-entrant: a second Enter by the holder fails. */
typedef struct OwnedLock OwnedLock;

#define VXIO_LOCK_OK 0u
#define VXIO_LOCK_BUSY 0xFFFFFFFDu /* -3: another thread holds it */
#define VXIO_LOCK_REFUSED 0xFFFFFFF7u /* -9: null lock, or already held by caller */

/* A new lock with no owner (destroy with VOXA_DestroyCriticalSection), or
 * null when memory or the critical section cannot be had. */
VXIO_API OwnedLock *VOXA_InitCriticalSection(void) VXIO_NOEXCEPT;
/* Deletes and frees the lock; null is ignored. */
VXIO_API void VOXA_DestroyCriticalSection(OwnedLock *lock) VXIO_NOEXCEPT;
/* 0 when entered; VXIO_LOCK_REFUSED for null or when the calling thread
 * already holds it (the lock then stays held once). */
VXIO_API uint32_t VOXA_EnterCriticalSection(OwnedLock *lock) VXIO_NOEXCEPT;
/* As Enter without waiting: VXIO_LOCK_BUSY when another thread holds it. */
VXIO_API uint32_t VOXA_TryEnterCriticalSection(OwnedLock *lock) VXIO_NOEXCEPT;
/* Leaves when the calling thread holds the lock; otherwise does nothing. */
VXIO_API void VOXA_LeaveCriticalSection(OwnedLock *lock) VXIO_NOEXCEPT;

#define SHA1HashSize 20

enum {
    shaSuccess = 0,
    shaNull = 1,         /* null argument */
    shaInputTooLong = 2, /* (kept for the RFC's numbering) */
    shaStateError = 3    /* input after the result was computed */
};

/* The context exactly as RFC 3174 lays it out. */
typedef struct SHA1Context {
    uint32_t Intermediate_Hash[SHA1HashSize / 4];
    uint32_t Length_Low;  /* message length in bits, low word */
    uint32_t Length_High; /* message length in bits, high word */
    int16_t Message_Block_Index;
    uint8_t Message_Block[64];
    int32_t Computed;
    int32_t Corrupted;
} SHA1Context;

VXIO_STATIC_ASSERT(sizeof(SHA1Context) == 104, SHA1Context_is_104_bytes);
VXIO_STATIC_ASSERT(offsetof(SHA1Context, Length_Low) == 20, SHA1Context_Length_Low);
VXIO_STATIC_ASSERT(offsetof(SHA1Context, Length_High) == 24, SHA1Context_Length_High);
VXIO_STATIC_ASSERT(offsetof(SHA1Context, Message_Block_Index) == 28, SHA1Context_Message_Block_Index);
VXIO_STATIC_ASSERT(offsetof(SHA1Context, Message_Block) == 30, SHA1Context_Message_Block);
VXIO_STATIC_ASSERT(offsetof(SHA1Context, Computed) == 96, SHA1Context_Computed);
VXIO_STATIC_ASSERT(offsetof(SHA1Context, Corrupted) == 100, SHA1Context_Corrupted);

/* Starts a message: shaSuccess, or shaNull for a null context. As in the
 * RFC, Message_Block keeps whatever it held. */
VXIO_API int32_t SHA1Reset(SHA1Context *context) VXIO_NOEXCEPT;
/* Appends length bytes. A zero length returns shaSuccess before any other
 * test; then shaNull for a null argument, shaStateError after SHA1Result
 * (stored as the corruption code), or a stored corruption code. When the
 * bit length reaches 2^64 the code 1 is stored and no further byte is
 * taken; that call itself still returns shaSuccess, as in the RFC. A
 * context whose Message_Block_Index is outside 0..63 (never reset) gets
 * shaStateError stored and returned. */
VXIO_API int32_t SHA1Input(SHA1Context *context, const uint8_t *message,
                           uint32_t length) VXIO_NOEXCEPT;
/* Finishes once and writes the 20-byte digest (again on later calls):
 * shaSuccess, shaNull, or the stored corruption code (the digest is then
 * not written), or shaStateError as Input gives it for a block index out
 * of range. Finishing clears Message_Block and the length fields. */
VXIO_API int32_t SHA1Result(SHA1Context *context, uint8_t digest[SHA1HashSize]) VXIO_NOEXCEPT;

VXIO_EXTERN_C_END

#endif /* VXIO_LOCK_SHA1_H */
