// I/O tables and the accessors shared by every object.
#include <gtest/gtest.h>

#include <cstring>

#include "support/heap_ledger.h"
#include "vxio/io.h"

using vxio::test::HeapLedger;

namespace {

void *E(uintptr_t v) { return reinterpret_cast<void *>(v); }

using Builder = IoTable *(*)(IoCallerEntry, IoCallerEntry, IoCallerEntry, IoCallerEntry);
using Freer = void (*)(IoTable *);

struct Backend {
    const char *name;
    Builder build;
    Freer free;
    IoTable expected_operations;  // caller entries left zero
};

const Backend kBackends[] = {
    {"memory", VOXA_IO_GetTableForMemIO, VOXA_IO_FreeTableForMemIO,
     {nullptr, nullptr, nullptr, nullptr, VOXA_MEM_Read, VOXA_MEM_Write, VOXA_MEM_GetSize,
      VOXA_MEM_SetEnd, VOXA_MEM_MakeWriteable, VOXA_MEM_FileSystemFileExists,
      VOXA_MEM_FileSystemOpen, VOXA_MEM_FileSystemClose, VOXA_MEM_FileSystemDelete,
      VOXA_MEM_FileSystemRename}},
    {"handle", VOXA_IO_GetTableForHandleIO, VOXA_IO_FreeTableForHandleIO,
     {nullptr, nullptr, nullptr, nullptr, VOXA_HANDLE_Read, VOXA_HANDLE_Write,
      VOXA_HANDLE_GetSize, VOXA_HANDLE_SetEnd, VOXA_HANDLE_MakeWriteable,
      VOXA_HANDLE_FileSystemFileExists, VOXA_HANDLE_FileSystemOpen,
      VOXA_HANDLE_FileSystemClose, VOXA_HANDLE_FileSystemDelete,
      VOXA_HANDLE_FileSystemRename}},
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
