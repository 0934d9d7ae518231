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

using Builder = IoTable *(*)(IoCallerEntry, IoCallerEntry, IoCallerEntry, IoCallerEntry);
using Freer = void (*)(IoTable *);

using Opener = IoObject *(*)(HANDLE file);
using Closer = void (*)(IoObject *);

const uint8_t kCallerData[16] = {};
uint8_t g_block[8];
uint64_t g_blockSize = sizeof g_block;

struct Backend {
    const char *name;
    Builder build;
    Freer free;
    IoTable expected_operations;  // caller entries left zero
    Opener open;                  // an object of this backend on a scratch file
    Closer close;
};

const Backend kBackends[] = {
    {"memory", VOXA_IO_GetTableForMemIO, VOXA_IO_FreeTableForMemIO,
     {nullptr, nullptr, nullptr, nullptr, VOXA_MEM_Read, VOXA_MEM_Write, VOXA_MEM_GetSize,
      VOXA_MEM_SetEnd, VOXA_MEM_MakeWriteable, VOXA_MEM_FileSystemFileExists,
      VOXA_MEM_FileSystemOpen, VOXA_MEM_FileSystemClose, VOXA_MEM_FileSystemDelete,
      VOXA_MEM_FileSystemRename},
     [](HANDLE) { return VOXA_MEM_Open("m", 0, 0, g_block, &g_blockSize, kCallerData, 16); },
     VOXA_MEM_Close},
    {"handle", VOXA_IO_GetTableForHandleIO, VOXA_IO_FreeTableForHandleIO,
     {nullptr, nullptr, nullptr, nullptr, VOXA_HANDLE_Read, VOXA_HANDLE_Write,
      VOXA_HANDLE_GetSize, VOXA_HANDLE_SetEnd, VOXA_HANDLE_MakeWriteable,
      VOXA_HANDLE_FileSystemFileExists, VOXA_HANDLE_FileSystemOpen,
      VOXA_HANDLE_FileSystemClose, VOXA_HANDLE_FileSystemDelete,
      VOXA_HANDLE_FileSystemRename},
     [](HANDLE file) { return VOXA_HANDLE_Open("h", 0, 0, file, kCallerData, 16); },
     VOXA_HANDLE_Close},
};

TEST(IoTable, BuildersStoreCallerEntriesThenTheBackendOperationsInOrder) {
    for (const Backend &b : kBackends) {
        HeapLedger ledger;
        for (void *fourth : {E(4), static_cast<void *>(nullptr)}) {
            IoTable *t = b.build(E(1), E(2), E(3), fourth);
            ASSERT_NE(t, nullptr) << b.name;
            IoTable want = b.expected_operations;
            want.entry1 = E(1);
            want.entry2 = E(2);
            want.entry3 = E(3);
            want.entry4 = fourth;
            EXPECT_EQ(std::memcmp(t, &want, sizeof want), 0) << b.name;
            b.free(t);
        }
        EXPECT_EQ(ledger.live(), 0u) << b.name;
    }
}

// The backends whose objects need a file, a module or a device to open:
// only the order of their operations is checked here.
const Backend kOtherBackends[] = {
    {"file", VOXA_IO_GetTableForFileIO, VOXA_IO_FreeTableForFileIO,
     {nullptr, nullptr, nullptr, nullptr, VOXA_FILE_Read, VOXA_FILE_Write, VOXA_FILE_GetSize,
      VOXA_FILE_SetEnd, VOXA_FILE_MakeWriteable, VOXA_FILE_FileSystemFileExists,
      VOXA_FILE_FileSystemOpen, VOXA_FILE_FileSystemClose, VOXA_FILE_FileSystemDelete,
      VOXA_FILE_FileSystemRename},
     nullptr, nullptr},
    {"custom", VOXA_IO_GetTableForCustomIO, VOXA_IO_FreeTableForCustomIO,
     {nullptr, nullptr, nullptr, nullptr, VOXA_CUSTOM_Read, VOXA_CUSTOM_Write,
      VOXA_CUSTOM_GetSize, VOXA_CUSTOM_SetEnd, VOXA_CUSTOM_MakeWriteable,
      VOXA_CUSTOM_FileSystemFileExists, VOXA_CUSTOM_FileSystemOpen,
      VOXA_CUSTOM_FileSystemClose, VOXA_CUSTOM_FileSystemDelete,
      VOXA_CUSTOM_FileSystemRename},
     nullptr, nullptr},
    {"physical", VOXA_IO_GetTableForPhysicalIO, VOXA_IO_FreeTableForPhysicalIO,
     {nullptr, nullptr, nullptr, nullptr, VOXA_PHYSICAL_Read, VOXA_PHYSICAL_Write,
      VOXA_PHYSICAL_GetSize, VOXA_PHYSICAL_SetEnd, VOXA_PHYSICAL_MakeWriteable,
      VOXA_PHYSICAL_FileSystemFileExists, VOXA_PHYSICAL_FileSystemOpen,
      VOXA_PHYSICAL_FileSystemClose, VOXA_PHYSICAL_FileSystemDelete,
      VOXA_PHYSICAL_FileSystemRename},
     nullptr, nullptr},
};

TEST(IoTable, EveryBackendsOperationsStandInTableOrder) {
    for (const Backend &b : kOtherBackends) {
        HeapLedger ledger;
        IoTable *t = b.build(E(1), E(2), E(3), nullptr);
        ASSERT_NE(t, nullptr) << b.name;
        IoTable want = b.expected_operations;
        want.entry1 = E(1);
        want.entry2 = E(2);
        want.entry3 = E(3);
        EXPECT_EQ(std::memcmp(t, &want, sizeof want), 0) << b.name;
        EXPECT_EQ(b.build(E(1), nullptr, E(3), nullptr), nullptr) << b.name;
        b.free(t);
        b.free(nullptr);
        EXPECT_EQ(ledger.live(), 0u) << b.name;
    }
}

TEST(IoTable, BuildersDemandTheFirstThreeEntriesAndSurviveNoMemory) {
    for (const Backend &b : kBackends) {
        HeapLedger ledger;
        EXPECT_EQ(b.build(nullptr, E(2), E(3), E(4)), nullptr) << b.name;
        EXPECT_EQ(b.build(E(1), nullptr, E(3), E(4)), nullptr) << b.name;
        EXPECT_EQ(b.build(E(1), E(2), nullptr, E(4)), nullptr) << b.name;
        EXPECT_EQ(ledger.allocations(), 0) << b.name;
        b.free(nullptr);

        ledger.fail_allocation(1);
        EXPECT_EQ(b.build(E(1), E(2), E(3), E(4)), nullptr) << b.name;
        EXPECT_EQ(ledger.live(), 0u);
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
    IoObject o{};
    o.userPointer = 7;
    o.changed = 1;
    char name[] = "x.bin";
    o.name = name;
    EXPECT_EQ(VOXA_IO_GetUserPointer(&o), 7u);
    EXPECT_EQ(VOXA_IO_SetUserPointer(&o, 8), 7u);
    EXPECT_EQ(VOXA_IO_SetUserPointer(&o, 9), 8u);
    EXPECT_EQ(o.userPointer, 9u);
    EXPECT_EQ(VOXA_IO_Changed(&o), 1);
    EXPECT_EQ(VOXA_IO_GetNamePointer(&o), name);

    EXPECT_EQ(VOXA_IO_GetUserPointer(nullptr), 0u);
    EXPECT_EQ(VOXA_IO_SetUserPointer(nullptr, 5), 0u);
    EXPECT_EQ(VOXA_IO_Changed(nullptr), 0);
    EXPECT_EQ(VOXA_IO_GetNamePointer(nullptr), nullptr);
}

}  // namespace
