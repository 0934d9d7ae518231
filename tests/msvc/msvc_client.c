/* A client as an MSVC developer builds it: compiled by clang in MSVC mode
 * with every warning an error, linked by lld-link against vxio.lib alone.
 * It has no C runtime at all (no main, no CRT startup, no default
 * libraries), so it can only work if vxio.lib alone resolves what it calls
 * and the loader then finds vxio.dll. Its exit status is 0 when every
 * check holds, otherwise the number of the first failing check. Its stack
 * stays small, so the compiler needs no stack-probe helper. */
#include <vxio/vxio.h>

enum {
    kOk = 0,
    kShaReset = 10,
    kShaInput,
    kShaResult,
    kShaDigest,
    kMallocNull = 20,
    kMallocBlock,
    kFree,
    kArrNew = 30,
    kArrAdd,
    kArrCount,
    kArrFree
};

/* The C runtime's startup is replaced by this entry point (/entry:); what
 * it returns becomes the process's exit status. */
int vxio_client_entry(void);

int vxio_client_entry(void) {
    /* RFC 3174's first test vector: SHA-1 of "abc". */
    static const uint8_t message[3] = {'a', 'b', 'c'};
    static const uint8_t expected[SHA1HashSize] = {
        0xa9, 0x99, 0x3e, 0x36, 0x47, 0x06, 0x81, 0x6a, 0xba, 0x3e,
        0x25, 0x71, 0x78, 0x50, 0xc2, 0x6c, 0x9c, 0xd0, 0xd8, 0x9d};
    SHA1Context context;
    uint8_t digest[SHA1HashSize];
    unsigned char *block;
    DynArray *array;
    int i;

    if (SHA1Reset(&context) != 0) return kShaReset;
    if (SHA1Input(&context, message, sizeof message) != 0) return kShaInput;
    if (SHA1Result(&context, digest) != 0) return kShaResult;
    for (i = 0; i < SHA1HashSize; i++)
        if (digest[i] != expected[i]) return kShaDigest;

    /* A block from the library's heap, written end to end and freed. */
    block = (unsigned char *)ZELTA_mymalloc(64);
    if (block == NULL) return kMallocNull;
    for (i = 0; i < 64; i++) block[i] = (unsigned char)i;
    for (i = 0; i < 64; i++)
        if (block[i] != (unsigned char)i) return kMallocBlock;
    if (ZELTA_myfree(block) == 0) return kFree;  /* HeapFree: non-zero on success */

    array = VOXA_arrNew();
    if (array == NULL) return kArrNew;
    if (VOXA_arrAdd(array, (void *)&message) != 1) return kArrAdd;
    if (array->count != 1 || array->items[0] != (void *)&message) return kArrCount;
    if (VOXA_arrFree(array, 0) != 0) return kArrFree;
    return kOk;
}
