// I/O tables and the accessors shared by every object.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/heap_ledger.h"
#include "support/temp_dir.h"
#include "vxio/io.h"

using vxio::test::HeapLedger;

namespace {

void *E(uintptr_t v) { return reinterpret_cast<void *>(v); }

const uint8_t kCallerData[16] = {};
uint8_t g_block[8];
uint64_t g_blockSize = sizeof g_block;

// The table a backend's builder must fill, caller entries left zero.
#define OPERATIONS(KIND)                                                                       \
    {nullptr, nullptr, nullptr, nullptr, VOXA_##KIND##_Read, VOXA_##KIND##_Write,              \
     VOXA_##KIND##_GetSize, VOXA_##KIND##_SetEnd, VOXA_##KIND##_MakeWriteable,                 \
     VOXA_##KIND##_FileSystemFileExists, VOXA_##KIND##_FileSystemOpen,                         \
     VOXA_##KIND##_FileSystemClose, VOXA_##KIND##_FileSystemDelete, VOXA_##KIND##_FileSystemRename}

struct Backend {
    const char *name;
    IoTable *(*build)(IoCallerEntry, IoCallerEntry, IoCallerEntry, IoCallerEntry);
    void (*free)(IoTable *);
    IoTable operations;
    IoObject *(*open)(HANDLE file);  // an object on a scratch file; null where one needs more
    void (*close)(IoObject *);
};

const Backend kBackends[] = {
    {"memory", VOXA_IO_GetTableForMemIO, VOXA_IO_FreeTableForMemIO, OPERATIONS(MEM),
     [](HANDLE) { return VOXA_MEM_Open("m", 0, 0, g_block, &g_blockSize, kCallerData, 16); },
     VOXA_MEM_Close},
    {"handle", VOXA_IO_GetTableForHandleIO, VOXA_IO_FreeTableForHandleIO, OPERATIONS(HANDLE),
     [](HANDLE file) { return VOXA_HANDLE_Open("h", 0, 0, file, kCallerData, 16); },
     VOXA_HANDLE_Close},
    {"file", VOXA_IO_GetTableForFileIO, VOXA_IO_FreeTableForFileIO, OPERATIONS(FILE), nullptr, nullptr},
    {"custom", VOXA_IO_GetTableForCustomIO, VOXA_IO_FreeTableForCustomIO, OPERATIONS(CUSTOM), nullptr,
     nullptr},
    {"physical", VOXA_IO_GetTableForPhysicalIO, VOXA_IO_FreeTableForPhysicalIO, OPERATIONS(PHYSICAL),
     nullptr, nullptr},
};

TEST(IoTable, BuildersStoreCallerEntriesThenTheOperationsAndDemandTheFirstThree) {
    for (const Backend &b : kBackends) {
        HeapLedger ledger;
        for (void *fourth : {E(4), static_cast<void *>(nullptr)}) {
            IoTable *t = b.build(E(1), E(2), E(3), fourth);
            ASSERT_NE(t, nullptr) << b.name;
            IoTable want = b.operations;
            want.entry1 = E(1);
            want.entry2 = E(2);
            want.entry3 = E(3);
            want.entry4 = fourth;
            EXPECT_EQ(std::memcmp(t, &want, sizeof want), 0) << b.name;
            b.free(t);
        }
        const int allocations = ledger.allocations();
        EXPECT_EQ(b.build(nullptr, E(2), E(3), E(4)), nullptr) << b.name;
        EXPECT_EQ(b.build(E(1), nullptr, E(3), E(4)), nullptr) << b.name;
        EXPECT_EQ(b.build(E(1), E(2), nullptr, E(4)), nullptr) << b.name;
        EXPECT_EQ(ledger.allocations(), allocations) << b.name << ": refused before allocating";
        b.free(nullptr);

        ledger.fail_allocation(1);
        EXPECT_EQ(b.build(E(1), E(2), E(3), E(4)), nullptr) << b.name;
        EXPECT_EQ(ledger.live(), 0u) << b.name;
    }
}

// What every table operation gives for null arguments, and the fixed
// results of the operations a backend does not support.
TEST(IoTable, OperationsRefuseNullArgumentsAndUnsupportedOperationsAreFixed) {
    vxio::test::TempDir dir;
    const std::string path = dir.write("scratch", "12345678");
    HANDLE file = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                              OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    for (const Backend &b : kBackends) {
        if (!b.open) continue;
        HeapLedger ledger;
        IoTable *t = b.build(E(1), E(2), E(3), nullptr);
        IoObject *o = b.open(file);
        ASSERT_NE(o, nullptr) << b.name;
        uint8_t byte = 0;
        uint64_t size = 0;
        EXPECT_EQ(t->Read(nullptr, 0, &byte, 1), 207u) << b.name;
        EXPECT_EQ(t->Read(o, 0, nullptr, 1), 207u) << b.name;
        EXPECT_EQ(t->Write(nullptr, 0, &byte, 1), 207u) << b.name;
        EXPECT_EQ(t->Write(o, 0, nullptr, 1), 207u) << b.name;
        EXPECT_EQ(t->GetSize(nullptr, &size), 207u) << b.name;
        EXPECT_EQ(t->GetSize(o, nullptr), 207u) << b.name;
        EXPECT_EQ(t->SetEnd(nullptr, 0), 207u) << b.name;

        EXPECT_EQ(t->MakeWriteable(o), 0u) << b.name;
        EXPECT_EQ(t->FileSystemFileExists(o, path.c_str(), 0), 207u) << b.name;
        EXPECT_EQ(t->FileSystemOpen(o, path.c_str(), 0, 0), nullptr) << b.name;
        EXPECT_EQ(t->FileSystemClose(nullptr, o), 207u) << b.name << ": must not close";
        EXPECT_EQ(t->FileSystemDelete(o, path.c_str(), 0), 207u) << b.name;
        EXPECT_EQ(t->FileSystemRename(o, path.c_str(), "renamed", 0), 207u) << b.name;
        EXPECT_NE(GetFileAttributesA(path.c_str()), INVALID_FILE_ATTRIBUTES) << b.name;
        EXPECT_EQ(VOXA_IO_Changed(o), 0) << b.name;

        b.close(o);
        b.close(nullptr);
        b.free(t);
        EXPECT_EQ(ledger.live(), 0u) << b.name;
    }
    EXPECT_EQ(VOXA_MEM_PositionFile(nullptr, 0), 0);
    EXPECT_EQ(VOXA_HANDLE_PositionFile(nullptr, 0), 0);
    CloseHandle(file);
}

TEST(IoObjectAccessors, ReadAndReplaceTheHeaderAndTolerateNull) {
    char name[] = "x.bin";
    IoObject o{};
    o.userPointer = 7;
    o.changed = 1;
    o.name = name;
    EXPECT_EQ(VOXA_IO_SetUserPointer(&o, 8), 7u);
    EXPECT_EQ(VOXA_IO_GetUserPointer(&o), 8u);
    EXPECT_EQ(o.userPointer, 8u);
    EXPECT_EQ(VOXA_IO_Changed(&o), 1);
    EXPECT_EQ(VOXA_IO_GetNamePointer(&o), name);

    EXPECT_EQ(VOXA_IO_GetUserPointer(nullptr), 0u);
    EXPECT_EQ(VOXA_IO_SetUserPointer(nullptr, 5), 0u);
    EXPECT_EQ(VOXA_IO_Changed(nullptr), 0);
    EXPECT_EQ(VOXA_IO_GetNamePointer(nullptr), nullptr);
}

}  // namespace
