// Black-box: vxio.dll loaded by name and every export resolved by name, as
// the engine does it. The export table must hold exactly the names of
// vxio.def (no decorated or stray names), and each family must work
// through the resolved pointers alone.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstring>
#include <set>
#include <string>

#include "vxio/vxio.h"

extern "C" int vxio_headers_compile_as_c(void);

namespace {

const char *const kExpectedNames[] = {
#include "export_names.inc"
};

class Dll : public ::testing::Test {
protected:
    static void SetUpTestSuite() { module_ = LoadLibraryA("vxio.dll"); }
    static void TearDownTestSuite() {
        if (module_) FreeLibrary(module_);
    }
    void SetUp() override { ASSERT_NE(module_, nullptr) << "vxio.dll did not load: " << GetLastError(); }

    template <typename Fn>
    static Fn get(const char *name) {
        auto *p = reinterpret_cast<Fn>(reinterpret_cast<void *>(GetProcAddress(module_, name)));
        EXPECT_NE(p, nullptr) << name;
        return p;
    }
#define VXIO_GET(name) get<decltype(&name)>(#name)

    // The names in the loaded image's export directory.
    static std::set<std::string> exported_names() {
        auto *base = reinterpret_cast<const uint8_t *>(module_);
        auto *dos = reinterpret_cast<const IMAGE_DOS_HEADER *>(base);
        auto *nt = reinterpret_cast<const IMAGE_NT_HEADERS64 *>(base + dos->e_lfanew);
        const IMAGE_DATA_DIRECTORY &dir =
            nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
        auto *exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY *>(base + dir.VirtualAddress);
        auto *names = reinterpret_cast<const DWORD *>(base + exports->AddressOfNames);
        std::set<std::string> out;
        for (DWORD i = 0; i < exports->NumberOfNames; ++i)
            out.insert(reinterpret_cast<const char *>(base + names[i]));
        return out;
    }

    static HMODULE module_;
};

HMODULE Dll::module_ = nullptr;

TEST_F(Dll, ExportsExactlyTheInterfaceNames) {
    std::set<std::string> expected(std::begin(kExpectedNames), std::end(kExpectedNames));
    EXPECT_EQ(exported_names(), expected);
    for (const char *name : kExpectedNames)
        EXPECT_NE(GetProcAddress(module_, name), nullptr) << name;
    EXPECT_GT(vxio_headers_compile_as_c(), 0);
}

TEST_F(Dll, MemoryObjectThroughTheTable) {
    auto getTable = VXIO_GET(VOXA_IO_GetTableForMemIO);
    auto freeTable = VXIO_GET(VOXA_IO_FreeTableForMemIO);
    auto open = VXIO_GET(VOXA_MEM_Open);
    auto close = VXIO_GET(VOXA_MEM_Close);
    auto position = VXIO_GET(VOXA_MEM_PositionFile);
    auto changed = VXIO_GET(VOXA_IO_Changed);
    auto name = VXIO_GET(VOXA_IO_GetNamePointer);
    auto setUser = VXIO_GET(VOXA_IO_SetUserPointer);
    auto getUser = VXIO_GET(VOXA_IO_GetUserPointer);

    int entries[3];
    IoTable *table = getTable(&entries[0], &entries[1], &entries[2], nullptr);
    ASSERT_NE(table, nullptr);
    char data[] = "hello, world";
    uint64_t size = 12;
    const uint8_t callerData[16] = {};
    IoObject *o = open("greeting", 0, 5, data, &size, callerData, 16);
    ASSERT_NE(o, nullptr);
    EXPECT_STREQ(name(o), "greeting");
    EXPECT_EQ(setUser(o, 6), 5u);
    EXPECT_EQ(getUser(o), 6u);

    char buffer[5] = {};
    EXPECT_EQ(table->Read(o, 7, buffer, 5), 0u);
    EXPECT_EQ(std::string(buffer, 5), "world");
    EXPECT_EQ(table->Write(o, 0, "H", 1), 0u);
    EXPECT_EQ(changed(o), 1);
    EXPECT_EQ(table->SetEnd(o, 5), 0u);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(position(o, 5), 0);
    EXPECT_EQ(table->MakeWriteable(o), 0u);
    EXPECT_EQ(table->FileSystemOpen(o, "x", 0, 0), nullptr);
    EXPECT_EQ(std::string(data, 5), "Hello");
    close(o);
    freeTable(table);
}

TEST_F(Dll, Sha1AndNameCacheByName) {
    auto reset = VXIO_GET(SHA1Reset);
    auto input = VXIO_GET(SHA1Input);
    auto finish = VXIO_GET(SHA1Result);
    SHA1Context context;
    uint8_t digest[20];
    EXPECT_EQ(reset(&context), 0);
    EXPECT_EQ(input(&context, reinterpret_cast<const uint8_t *>("abc"), 3), 0);
    EXPECT_EQ(finish(&context, digest), 0);
    const uint8_t abc[20] = {0xA9, 0x99, 0x3E, 0x36, 0x47, 0x06, 0x81, 0x6A, 0xBA, 0x3E,
                             0x25, 0x71, 0x78, 0x50, 0xC2, 0x6C, 0x9C, 0xD0, 0xD8, 0x9D};
    EXPECT_EQ(std::memcmp(digest, abc, 20), 0);
    EXPECT_EQ(input(&context, digest, 1), 3);

    auto open = VXIO_GET(VOXA_IO_OpenNameCache);
    auto add = VXIO_GET(VOXA_IO_AddNameToCache);
    auto getResult = VXIO_GET(VOXA_IO_GetResultOfCacheFile);
    auto setResult = VXIO_GET(VOXA_IO_SetResultOfCacheFile);
    auto getName = VXIO_GET(VOXA_IO_GetNameFromCache);
    auto close = VXIO_GET(VOXA_IO_CloseNameCache);
    auto release = VXIO_GET(ZELTA_myfree);

    DynArray *cache = open();
    ASSERT_NE(cache, nullptr);
    uint32_t index = 99;
    EXPECT_EQ(add(cache, "c:\\b.exe", &index), 0xFFFFFFF8u);
    EXPECT_EQ(add(cache, "c:\\a.exe", &index), 0xFFFFFFF8u);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(add(cache, "c:\\b.exe", &index), 0u);
    EXPECT_EQ(index, 1u);
    EXPECT_EQ(setResult(cache, 1, 42), 0u);
    uint32_t value = 0;
    EXPECT_EQ(getResult(cache, 1, &value), 0u);
    EXPECT_EQ(value, 42u);
    char *name = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(getName(cache, 1, &name, &length), 0u);
    EXPECT_STREQ(name, "c:\\b.exe");
    EXPECT_EQ(length, 10u);
    release(name);
    EXPECT_EQ(close(cache), 0u);
}

// The sample storage module driven through vxio.dll's exports alone, as an
// engine would: resolve, open, transfer, resize, test a name, delete.
// Its variant without SpecialIO_ChangeSize never has a name tested, even
// though it exports SpecialIO_Exists.
TEST_F(Dll, CustomModuleThroughTheExports) {
    auto getCustom = VXIO_GET(VOXA_IO_GetCustomIO);
    auto freeCustom = VXIO_GET(VOXA_IO_FreeCustomIO);
    auto open = VXIO_GET(VOXA_CUSTOM_Open);
    auto close = VXIO_GET(VOXA_CUSTOM_Close);
    auto read = VXIO_GET(VOXA_CUSTOM_Read);
    auto write = VXIO_GET(VOXA_CUSTOM_Write);
    auto getSize = VXIO_GET(VOXA_CUSTOM_GetSize);
    auto setEnd = VXIO_GET(VOXA_CUSTOM_SetEnd);
    auto makeWriteable = VXIO_GET(VOXA_CUSTOM_MakeWriteable);
    auto exists = VXIO_GET(VOXA_CUSTOM_FileSystemFileExists);
    auto remove = VXIO_GET(VOXA_CUSTOM_FileSystemDelete);
    auto changed = VXIO_GET(VOXA_IO_Changed);
    const uint8_t callerData[16] = {};

    for (const char *dllName : {"storage_module.dll", "storage_module_no_changesize.dll"}) {
        SCOPED_TRACE(dllName);
        const bool hasChangeSize = std::strcmp(dllName, "storage_module.dll") == 0;
        HMODULE dll = LoadLibraryA(dllName);
        ASSERT_NE(dll, nullptr);
        auto createContainer = reinterpret_cast<uintptr_t (*)()>(
            reinterpret_cast<void *>(GetProcAddress(dll, "StorageModule_CreateContainer")));
        auto destroyContainer = reinterpret_cast<void (*)(uintptr_t)>(
            reinterpret_cast<void *>(GetProcAddress(dll, "StorageModule_DestroyContainer")));
        ASSERT_TRUE(createContainer && destroyContainer);
        SpecialIoModule *table = getCustom(dll);
        ASSERT_NE(table, nullptr);
        const uintptr_t store = createContainer();

        IoObject *o = open(store, "doc.txt", 3, 7, table, callerData, 16);  // create, writeable
        ASSERT_NE(o, nullptr);
        EXPECT_EQ(write(o, 0, "abcdef", 6), 0u);
        EXPECT_EQ(changed(o), 0);  // the module keeps its own record
        uint64_t size = 0;
        EXPECT_EQ(getSize(o, &size), 0u);
        EXPECT_EQ(size, 6u);
        EXPECT_EQ(setEnd(o, 4), hasChangeSize ? 0u : 207u);
        char text[8] = {};
        EXPECT_EQ(read(o, 1, text, 3), 0u);
        EXPECT_STREQ(text, "bcd");
        EXPECT_EQ(makeWriteable(o), 0u);
        EXPECT_EQ(exists(o, "doc.txt", VXIO_NAME_ANSI), hasChangeSize ? 0u : 207u);
        EXPECT_EQ(exists(o, L"doc.txt", VXIO_NAME_WIDE), hasChangeSize ? 0u : 207u);
        EXPECT_EQ(remove(o, nullptr, 0), 0u);
        EXPECT_EQ(getSize(o, &size), 0u);
        EXPECT_EQ(size, 0u);  // the module's answer for a deleted object
        close(o);
        EXPECT_EQ(open(store, "doc.txt", 0, 0, table, callerData, 16), nullptr);

        destroyContainer(store);
        freeCustom(table);
        FreeLibrary(dll);
    }
}

}  // namespace
