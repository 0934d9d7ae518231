/* A C client of vxio.dll: calls every export of the runtime utilities, the
 * I/O table, the memory and handle backends and the name cache, and prints
 * what it saw. Exit code 0 when every answer was the expected one. */
#include <windows.h>

#include <stdio.h>
#include <string.h>

#include <vxio/vxio.h>

static int failures = 0;
#define CHECK(cond)                                                  \
    do {                                                             \
        if (!(cond)) {                                               \
            printf("FAILED: %s (line %d)\n", #cond, __LINE__);      \
            ++failures;                                              \
        }                                                            \
    } while (0)

static void entry(void) {}

static void allocation_and_arrays(void) {
    void *block = ZELTA_mymalloc(16);
    DynArray *array = VOXA_arrNew();
    CHECK(block != NULL);
    block = ZELTA_myrealloc(block, 32, 16);
    block = ZELTA_myreallocarray(block, 8, 8, 32);
    CHECK(block != NULL);
    CHECK(ZELTA_mymallocarray((uint64_t)1 << 63, 2) == NULL);
    CHECK(VOXA_arrAdd(array, block) == 1);
    CHECK(VOXA_arrInsert(array, 0, ZELTA_mymallocarray(4, 4)) == 1);
    CHECK(VOXA_arrRemove(array, 1, 1) == 1);
    CHECK(VOXA_arrClear(array, 1) == 1);
    CHECK(VOXA_arrFree(array, 1) == 0);
    CHECK(ZELTA_myfree(ZELTA_mymalloc(1)) != 0);
}

static void lock_and_sha1(void) {
    static const uint8_t abc_digest[20] = {0xA9, 0x99, 0x3E, 0x36, 0x47, 0x06, 0x81,
                                           0x6A, 0xBA, 0x3E, 0x25, 0x71, 0x78, 0x50,
                                           0xC2, 0x6C, 0x9C, 0xD0, 0xD8, 0x9D};
    OwnedLock *lock = VOXA_InitCriticalSection();
    SHA1Context context;
    uint8_t digest[20];
    CHECK(VOXA_EnterCriticalSection(lock) == VXIO_LOCK_OK);
    CHECK(VOXA_TryEnterCriticalSection(lock) == VXIO_LOCK_REFUSED);
    VOXA_LeaveCriticalSection(lock);
    VOXA_DestroyCriticalSection(lock);

    CHECK(SHA1Reset(&context) == shaSuccess);
    CHECK(SHA1Input(&context, (const uint8_t *)"abc", 3) == shaSuccess);
    CHECK(SHA1Result(&context, digest) == shaSuccess);
    CHECK(memcmp(digest, abc_digest, 20) == 0);
}

static void memory_object(void) {
    static const uint8_t caller_data[16] = {0};
    char data[] = "0123456789";
    uint64_t size = 10, reported = 0;
    char buffer[4];
    IoTable *table = VOXA_IO_GetTableForMemIO((void *)entry, (void *)entry, (void *)entry, NULL);
    IoObject *object = VOXA_MEM_Open("block", 0, 1, data, &size, caller_data, 16);
    CHECK(table != NULL && object != NULL);
    CHECK(table->Read == VOXA_MEM_Read && table->FileSystemRename == VOXA_MEM_FileSystemRename);
    CHECK(VOXA_MEM_PositionFile(object, 9) == 1);
    CHECK(VOXA_MEM_Read(object, 6, buffer, 4) == VXIO_IO_OK && memcmp(buffer, "6789", 4) == 0);
    CHECK(VOXA_MEM_Write(object, 0, "ab", 2) == VXIO_IO_OK);
    CHECK(VOXA_MEM_GetSize(object, &reported) == VXIO_IO_OK && reported == 10);
    CHECK(VOXA_MEM_SetEnd(object, 4) == VXIO_IO_OK && size == 4);
    CHECK(VOXA_MEM_MakeWriteable(object) == VXIO_IO_OK);
    CHECK(VOXA_MEM_FileSystemFileExists(object, "x", 0) == VXIO_IO_FAILED);
    CHECK(VOXA_MEM_FileSystemOpen(object, "x", 0, 0) == NULL);
    CHECK(VOXA_MEM_FileSystemClose(NULL, object) == VXIO_IO_FAILED);
    CHECK(VOXA_MEM_FileSystemDelete(object, "x", 0) == VXIO_IO_FAILED);
    CHECK(VOXA_MEM_FileSystemRename(object, "x", "y", 0) == VXIO_IO_FAILED);
    CHECK(VOXA_IO_Changed(object) == 1);
    CHECK(strcmp(VOXA_IO_GetNamePointer(object), "block") == 0);
    CHECK(VOXA_IO_SetUserPointer(object, 2) == 1 && VOXA_IO_GetUserPointer(object) == 2);
    VOXA_MEM_Close(object);
    VOXA_IO_FreeTableForMemIO(table);
}

static void handle_object(void) {
    static const uint8_t caller_data[16] = {0};
    char path[MAX_PATH];
    char buffer[5];
    uint64_t size = 0;
    HANDLE file;
    IoTable *table = VOXA_IO_GetTableForHandleIO((void *)entry, (void *)entry, (void *)entry, NULL);
    IoObject *object;
    GetTempPathA(MAX_PATH, path);
    strcat(path, "vxio-c-client.bin");
    file = CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, NULL, CREATE_ALWAYS,
                       FILE_FLAG_DELETE_ON_CLOSE, NULL);
    object = VOXA_HANDLE_Open(path, 0, 0, file, caller_data, 16);
    CHECK(table != NULL && object != NULL);
    CHECK(VOXA_HANDLE_Write(object, 0, "hello", 5) == VXIO_IO_OK);
    CHECK(VOXA_HANDLE_Read(object, 0, buffer, 5) == VXIO_IO_OK && memcmp(buffer, "hello", 5) == 0);
    CHECK(VOXA_HANDLE_Read(object, 1, buffer, 5) == VXIO_IO_FAILED);
    CHECK(VOXA_HANDLE_PositionFile(object, 2) == 1);
    CHECK(VOXA_HANDLE_SetEnd(object, 3) == VXIO_IO_OK);
    CHECK(VOXA_HANDLE_GetSize(object, &size) == VXIO_IO_OK && size == 3);
    CHECK(VOXA_HANDLE_MakeWriteable(object) == VXIO_IO_OK);
    CHECK(VOXA_HANDLE_FileSystemFileExists(object, path, 0) == VXIO_IO_FAILED);
    CHECK(VOXA_HANDLE_FileSystemOpen(object, path, 0, 0) == NULL);
    CHECK(VOXA_HANDLE_FileSystemClose(NULL, object) == VXIO_IO_FAILED);
    CHECK(VOXA_HANDLE_FileSystemDelete(object, path, 0) == VXIO_IO_FAILED);
    CHECK(VOXA_HANDLE_FileSystemRename(object, path, "y", 0) == VXIO_IO_FAILED);
    VOXA_HANDLE_Close(object);
    VOXA_IO_FreeTableForHandleIO(table);
    CloseHandle(file);
}

static void name_cache(void) {
    DynArray *cache = VOXA_IO_OpenNameCache();
    uint32_t index = 0, result = 0, length = 0;
    char *name = NULL;
    CHECK(VOXA_IO_AddNameToCache(cache, "c:\\windows\\notepad.exe", &index) == VXIO_CACHE_ADDED);
    CHECK(VOXA_IO_SetResultOfCacheFile(cache, index, 7) == VXIO_CACHE_OK);
    CHECK(VOXA_IO_GetResultOfCacheFile(cache, index, &result) == VXIO_CACHE_OK && result == 7);
    CHECK(VOXA_IO_GetNameFromCache(cache, index, &name, &length) == VXIO_CACHE_OK);
    CHECK(name != NULL && strcmp(name, "c:\\windows\\notepad.exe") == 0);
    ZELTA_myfree(name);
    CHECK(VOXA_IO_CloseNameCache(cache) == 0);
}

int main(void) {
    allocation_and_arrays();
    lock_and_sha1();
    memory_object();
    handle_object();
    name_cache();
    printf("%s: %d failure(s)\n", failures ? "FAILED" : "ok", failures);
    return failures ? 1 : 0;
}
