// Custom backend: every operation forwarded with its arguments and its
// answer turned into a status (against a recording module in this file),
// the entry lookup and the four required entries, the ChangeSize/Exists
// pairing, the 32-bit size, Open's failure paths, and the sample storage
// module DLLs end to end.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "platform/os.h"
#include "support/heap_ledger.h"
#include "vxio/io.h"

using vxio::platform::OsTable;
using vxio::platform::SeamEntry;
using vxio::test::HeapLedger;

namespace {

const uint8_t kCallerData[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
uint8_t g_buffer[8];

// The recording module: each entry writes its name and arguments (in hex;
// "buf" for g_buffer) to g_log and answers g_answer.
std::string g_log;
uint8_t g_answer = 1;
uintptr_t g_openHandle = 0x51;
uint32_t g_length = 0;
int g_closes = 0;

std::string hex(uint64_t v) {
    char text[20];
    std::snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(v));
    return text;
}
std::string buf(const void *b) { return b == g_buffer ? "buf" : "?"; }

uintptr_t f_open(uintptr_t c, const char *name, uint32_t flags, uint64_t user) {
    g_log = "Open " + hex(c) + " " + (name ? name : "(null)") + " " + hex(flags) + " " + hex(user);
    return g_openHandle;
}
void f_close(uintptr_t h) { g_log = "Close " + hex(h), ++g_closes; }
uint32_t f_length(uintptr_t h) { return g_log = "FileLength " + hex(h), g_length; }
uint8_t f_read(uintptr_t h, uint64_t o, void *b, uint32_t n) {
    return g_log = "Read " + hex(h) + " " + hex(o) + " " + buf(b) + " " + hex(n), g_answer;
}
uint8_t f_write(uintptr_t h, uint64_t o, const void *b, uint32_t n) {
    return g_log = "Write " + hex(h) + " " + hex(o) + " " + buf(b) + " " + hex(n), g_answer;
}
uint8_t f_delete(uintptr_t h) { return g_log = "DeleteFile " + hex(h), g_answer; }
uint8_t f_change(uintptr_t h, uint64_t s) { return g_log = "ChangeSize " + hex(h) + " " + hex(s), g_answer; }
uintptr_t f_enable(uintptr_t c) { return g_log = "EnableWrite " + hex(c), g_answer ? 0x61 : 0; }
uint8_t f_exists(const char *path) { return g_log = std::string("Exists ") + path, g_answer; }

template <typename Fn>
void *fn(Fn f) { return reinterpret_cast<void *>(f); }
SpecialIoModule recorder() {
    return {fn(f_open), nullptr, fn(f_close), fn(f_length), fn(f_read), fn(f_write), nullptr,
            fn(f_delete), fn(f_change), fn(f_enable), fn(f_exists)};
}

IoCustomObject *as_custom(IoObject *o) { return reinterpret_cast<IoCustomObject *>(o); }

template <typename Fn>
Fn proc(HMODULE dll, const char *name) {
    return reinterpret_cast<Fn>(reinterpret_cast<void *>(GetProcAddress(dll, name)));
}

struct CustomObject : ::testing::Test {
    HeapLedger ledger;
    SpecialIoModule module = recorder();
    IoObject *object = nullptr;

    void SetUp() override {
        g_answer = 1, g_openHandle = 0x51, g_closes = 0;
        object = VOXA_CUSTOM_Open(0xC0, "in/a.bin", 0x33, 0x77, &module, kCallerData, 16);
        ASSERT_NE(object, nullptr);
        EXPECT_EQ(g_log, "Open c0 in/a.bin 33 77");
    }
    void TearDown() override {
        VOXA_CUSTOM_Close(object);
        EXPECT_EQ(ledger.live(), 0u);
    }
};

TEST_F(CustomObject, OpenFillsTheRecordAndCloseHandsTheHandleBack) {
    const IoCustomObject *c = as_custom(object);
    EXPECT_EQ(object->userPointer, 0x77u);
    EXPECT_EQ(object->kind, VXIO_KIND_CUSTOM);
    EXPECT_EQ(object->changed, 0);
    EXPECT_EQ(std::memcmp(object->callerData, kCallerData, 16), 0);
    EXPECT_EQ(c->module, &module);
    EXPECT_EQ(c->moduleHandle, 0x51u);
    EXPECT_EQ(c->container, 0xC0u);
    EXPECT_STREQ(object->name, "in/a.bin");
    EXPECT_EQ(VOXA_CUSTOM_FileSystemClose(nullptr, object), 0u);
    object = nullptr;
    EXPECT_EQ(g_log, "Close 51");
}

TEST_F(CustomObject, OperationsForwardArgumentsAndAnswers) {
    const wchar_t wide[] = L"d\\x.txt";
    const std::pair<std::function<uint64_t()>, const char *> cases[] = {
        {[&] { return VOXA_CUSTOM_Read(object, 1ull << 40, g_buffer, 7); }, "Read 51 10000000000 buf 7"},
        {[&] { return VOXA_CUSTOM_Write(object, 9, g_buffer, ~0u); }, "Write 51 9 buf ffffffff"},
        {[&] { return VOXA_CUSTOM_SetEnd(object, 1ull << 33); }, "ChangeSize 51 200000000"},
        {[&] { return VOXA_CUSTOM_FileSystemDelete(object, "x", 0); }, "DeleteFile 51"},
        {[&] { return VOXA_CUSTOM_FileSystemFileExists(object, wide, VXIO_NAME_WIDE); }, "Exists d\\x.txt"},
        {[&] { return VOXA_CUSTOM_MakeWriteable(object); }, "EnableWrite c0"},  // 0x61 from now on
    };
    for (uint8_t answer : {0, 1}) {
        for (const auto &[call, log] : cases) {
            g_answer = answer;
            EXPECT_EQ(call(), answer ? 0u : 207u) << log;
            EXPECT_EQ(g_log, log);
        }
    }
    // The handle from EnableWrite replaced the old one, which stays open;
    // Write left changed alone (the module keeps its own record).
    EXPECT_EQ(VOXA_CUSTOM_FileSystemDelete(object, "x", 0), 0u);
    EXPECT_EQ(g_log, "DeleteFile 61");
    EXPECT_EQ(g_closes, 0);
    EXPECT_EQ(VOXA_IO_Changed(object), 0);
    // Every 32-bit size is a size, the largest one included.
    uint64_t size = 0;
    g_length = 0xFFFFFFFFu;
    EXPECT_EQ(VOXA_CUSTOM_GetSize(object, &size), 0u);
    EXPECT_EQ(size, 4294967295u);
    EXPECT_EQ(VOXA_CUSTOM_GetSize(object, nullptr), 207u);
}

TEST_F(CustomObject, ExistsIsAskedOnlyWhenChangeSizeIsThere) {
    g_log.clear();
    EXPECT_EQ(VOXA_CUSTOM_FileSystemFileExists(object, "b", 9), 50u);  // unknown name kind
    {
        HeapLedger noBuffer;
        noBuffer.fail_allocation(1);
        EXPECT_EQ(VOXA_CUSTOM_FileSystemFileExists(object, "b", VXIO_NAME_ANSI), 200u);
    }
    module.ChangeSize = nullptr;
    EXPECT_EQ(VOXA_CUSTOM_FileSystemFileExists(object, "b", VXIO_NAME_ANSI), 207u);
    EXPECT_EQ(g_log, "");
    module.ChangeSize = fn(f_change);
    module.Exists = nullptr;
    EXPECT_EQ(VOXA_CUSTOM_FileSystemFileExists(object, "b", VXIO_NAME_ANSI), 207u);
    EXPECT_EQ(VOXA_CUSTOM_PositionFile(object, 0), 0);
    EXPECT_EQ(VOXA_CUSTOM_FileSystemOpen(object, "b", 0, 0), nullptr);
    EXPECT_EQ(VOXA_CUSTOM_FileSystemRename(object, "b", "c", 0), 207u);
    EXPECT_EQ(g_log, "");
}

TEST(CustomBackend, BadArgumentsNeverReachTheModule) {
    HeapLedger ledger;
    SpecialIoModule module = recorder(), noOpen = recorder();
    noOpen.Open = nullptr;
    g_log.clear();
    EXPECT_EQ(VOXA_CUSTOM_Open(0, "a", 0, 0, &module, kCallerData, 16), nullptr);
    EXPECT_EQ(VOXA_CUSTOM_Open(1, "a", 0, 0, nullptr, kCallerData, 16), nullptr);
    EXPECT_EQ(VOXA_CUSTOM_Open(1, "a", 0, 0, &noOpen, kCallerData, 16), nullptr);
    EXPECT_EQ(VOXA_CUSTOM_Open(1, "a", 0, 0, &module, nullptr, 16), nullptr);
    IoCustomObject orphan{};  // no module table
    uint64_t size;
    for (IoObject *o : {static_cast<IoObject *>(nullptr), &orphan.header}) {
        for (uint64_t status :
             {VOXA_CUSTOM_Read(o, 0, g_buffer, 1), VOXA_CUSTOM_Write(o, 0, g_buffer, 1),
              VOXA_CUSTOM_GetSize(o, &size), VOXA_CUSTOM_SetEnd(o, 0), VOXA_CUSTOM_MakeWriteable(o),
              VOXA_CUSTOM_FileSystemFileExists(o, "a", 0), VOXA_CUSTOM_FileSystemDelete(o, "a", 0)})
            EXPECT_EQ(status, 207u);
    }
    VOXA_CUSTOM_Close(nullptr);
    EXPECT_EQ(g_log, "");
    g_openHandle = 0;  // the module refuses
    EXPECT_EQ(VOXA_CUSTOM_Open(1, "a", 0, 0, &module, kCallerData, 16), nullptr);
    EXPECT_EQ(ledger.allocations(), 0);
    g_openHandle = 0x51;
    IoObject *o = VOXA_CUSTOM_Open(1, nullptr, 0, 0, &module, kCallerData, 8);
    ASSERT_NE(o, nullptr);
    EXPECT_STREQ(o->name, "");
    VOXA_CUSTOM_Close(o);
    EXPECT_EQ(ledger.live(), 0u);
}

TEST(CustomBackend, OpenHandsTheHandleBackWhenAnAllocationFails) {
    SpecialIoModule module = recorder();
    g_openHandle = 0x51;
    vxio::test::each_allocation_fails([&](HeapLedger &ledger) {
        g_closes = 0;
        IoObject *o = VOXA_CUSTOM_Open(1, "name", 0, 0, &module, kCallerData, 16);
        EXPECT_EQ(o == nullptr, ledger.failed());
        EXPECT_EQ(g_closes, ledger.failed() ? 1 : 0);
        VOXA_CUSTOM_Close(o);
        EXPECT_EQ(g_log, "Close 51");
    });
}

// GetCustomIO asks for the eleven names in table order and keeps each
// answer in its entry; a missing required one refuses the module.
const char *g_missing = nullptr;
std::vector<std::string> g_asked;
FARPROC WINAPI fake_lookup(HMODULE module, LPCSTR name) {
    EXPECT_EQ(module, reinterpret_cast<HMODULE>(0x4000));
    g_asked.push_back(name);
    if (g_missing && g_asked.back() == g_missing) return nullptr;
    return reinterpret_cast<FARPROC>(static_cast<uintptr_t>(0x100 * g_asked.size()));
}

TEST(CustomBackend, GetCustomIOLooksTheNamesUpInTableOrder) {
    const std::vector<std::string> names = {
        "SpecialIO_Open",  "SpecialIO_Create",     "SpecialIO_Close",    "SpecialIO_FileLength",
        "SpecialIO_Read",  "SpecialIO_Write",      "SpecialIO_Write_at", "SpecialIO_DeleteFile",
        "SpecialIO_ChangeSize", "SpecialIO_EnableWrite", "SpecialIO_Exists"};
    const bool required[11] = {1, 0, 1, 1, 1};
    SeamEntry lookup(&OsTable::GetProcAddress, &fake_lookup);
    for (int missing = -1; missing < 11; ++missing) {
        HeapLedger ledger;
        g_asked.clear();
        g_missing = missing < 0 ? nullptr : names[missing].c_str();
        SpecialIoModule *table = VOXA_IO_GetCustomIO(reinterpret_cast<void *>(0x4000));
        EXPECT_EQ(g_asked, names);
        EXPECT_EQ(table == nullptr, missing >= 0 && required[missing]) << missing;
        for (int i = 0; table && i < 11; ++i)
            EXPECT_EQ(reinterpret_cast<void **>(table)[i],
                      reinterpret_cast<void *>(i == missing ? 0u : 0x100u * (i + 1)));
        VOXA_IO_FreeCustomIO(table);
        EXPECT_EQ(ledger.live(), 0u);
    }
}

// The sample module DLLs, loaded as the engine loads them.
struct ModuleDll {
    HeapLedger ledger;
    HMODULE dll;
    SpecialIoModule *table;
    uintptr_t store = 0;
    explicit ModuleDll(const char *name)
        : dll(LoadLibraryA(name)), table(VOXA_IO_GetCustomIO(dll)) {
        EXPECT_NE(dll, nullptr) << name;
        if (auto create = proc<uintptr_t (*)()>(dll, "StorageModule_CreateContainer"))
            store = create();
    }
    ~ModuleDll() {
        if (auto destroy = proc<void (*)(uintptr_t)>(dll, "StorageModule_DestroyContainer"))
            destroy(store);
        VOXA_IO_FreeCustomIO(table);
        FreeLibrary(dll);
        EXPECT_EQ(ledger.live(), 0u);
    }
};

TEST(StorageModule, RoundTripThroughTheBackend) {
    ModuleDll m("storage_module.dll");
    ASSERT_NE(m.table, nullptr);
    EXPECT_EQ(VOXA_CUSTOM_Open(m.store, "a.bin", 0, 0, m.table, kCallerData, 16), nullptr);  // absent
    IoObject *o = VOXA_CUSTOM_Open(m.store, "a.bin", 2, 0, m.table, kCallerData, 16);  // create, read-only
    ASSERT_NE(o, nullptr);
    char text[8] = {};
    EXPECT_EQ(VOXA_CUSTOM_Write(o, 0, "hello", 5), 207u);
    EXPECT_EQ(VOXA_CUSTOM_MakeWriteable(o), 0u);
    EXPECT_EQ(VOXA_CUSTOM_Write(o, 2, "hello", 5), 0u);
    EXPECT_EQ(VOXA_CUSTOM_Read(o, 2, text, 5), 0u);
    EXPECT_STREQ(text, "hello");
    EXPECT_EQ(VOXA_CUSTOM_FileSystemFileExists(o, "a.bin", VXIO_NAME_ANSI), 0u);
    EXPECT_EQ(VOXA_CUSTOM_FileSystemDelete(o, nullptr, 0), 0u);
    EXPECT_EQ(VOXA_CUSTOM_FileSystemFileExists(o, "a.bin", VXIO_NAME_ANSI), 207u);
    VOXA_CUSTOM_Close(o);
}

TEST(StorageModule, OptionalEntriesMissingGiveFailureAndReadMissingRefuses) {
    EXPECT_EQ(ModuleDll("storage_module_no_read.dll").table, nullptr);
    ModuleDll m("storage_module_minimal.dll");
    ASSERT_NE(m.table, nullptr);
    IoObject *o = VOXA_CUSTOM_Open(m.store, "a", 3, 0, m.table, kCallerData, 16);
    ASSERT_NE(o, nullptr);
    for (uint64_t status : {VOXA_CUSTOM_Write(o, 0, "x", 1), VOXA_CUSTOM_SetEnd(o, 0),
                            VOXA_CUSTOM_MakeWriteable(o), VOXA_CUSTOM_FileSystemFileExists(o, "a", 0),
                            VOXA_CUSTOM_FileSystemDelete(o, "a", 0)})
        EXPECT_EQ(status, 207u);
    VOXA_CUSTOM_Close(o);
}

}  // namespace
