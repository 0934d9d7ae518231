// Memory backend: all-or-nothing transfers inside the caller's block, the
// position moved by a failing transfer, shrink-only SetEnd written through
// the caller's size variable, and the fixed results.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "support/heap_ledger.h"
#include "vxio/io.h"

using vxio::test::HeapLedger;

namespace {

const uint8_t kCallerData[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

struct MemoryObject : ::testing::Test {
    std::vector<uint8_t> block = std::vector<uint8_t>(100);
    uint64_t size = 100;
    HeapLedger ledger;
    IoObject *object = nullptr;

    void SetUp() override {
        for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<uint8_t>(i);
        object = VOXA_MEM_Open("mem:test", 0x55, 0x1234, block.data(), &size, kCallerData, 16);
        ASSERT_NE(object, nullptr);
    }
    void TearDown() override {
        VOXA_MEM_Close(object);
        EXPECT_EQ(ledger.live(), 0u) << "the object and its name were not freed";
    }
    uint64_t position() const { return reinterpret_cast<IoMemoryObject *>(object)->position; }
};

TEST_F(MemoryObject, OpenFillsTheRecord) {
    auto *m = reinterpret_cast<IoMemoryObject *>(object);
    EXPECT_EQ(object->kind, VXIO_KIND_MEMORY);
    EXPECT_EQ(object->userPointer, 0x1234u);
    EXPECT_EQ(object->changed, 0);
    EXPECT_STREQ(VOXA_IO_GetNamePointer(object), "mem:test");
    EXPECT_EQ(std::memcmp(object->callerData, kCallerData, 16), 0);
    EXPECT_EQ(m->data, block.data());
    EXPECT_EQ(m->sizeVariable, &size);
    EXPECT_EQ(m->position, 0u);
    EXPECT_EQ(m->flags, 0x55u);
}

TEST_F(MemoryObject, TransfersAreAllOrNothingAndMoveThePosition) {
    struct Case {
        uint64_t offset;
        uint32_t length;
        uint64_t status;
        uint64_t position_after;  // starting from 77
    };
    // The failures first: until a write succeeds nothing marks the object
    // changed, and after it nothing resets the flag.
    const Case cases[] = {
        {100, 1, 207, 77},   // at the end: refused before moving
        {500, 1, 207, 77},   // far past the end
        {95, 10, 207, 95},   // runs past the end: refused after moving
        {10, 0, 207, 77},    // zero length
        {0, 0xFFFFFFFFu, 207, 0},
        {99, 1, 0, 100},     // the last byte
        {0, 100, 0, 100},    // everything
    };
    bool written = false;
    for (const Case &k : cases) {
        for (bool write : {false, true}) {
            // The 4 GiB case fails its range test before any copy.
            std::vector<uint8_t> buffer(std::clamp<uint32_t>(k.length, 1, 200), 0xEE);
            const std::vector<uint8_t> before = block;
            const char *op = write ? "write " : "read ";
            ASSERT_EQ(VOXA_MEM_PositionFile(object, 77), 1);
            const uint64_t status =
                write ? VOXA_MEM_Write(object, k.offset, buffer.data(), k.length)
                      : VOXA_MEM_Read(object, k.offset, buffer.data(), k.length);
            EXPECT_EQ(status, k.status) << op << k.offset << "+" << k.length;
            EXPECT_EQ(position(), k.position_after) << op << k.offset;
            written = written || (write && status == 0);
            EXPECT_EQ(VOXA_IO_Changed(object), int{written}) << op << k.offset;
            if (status == 0) {
                if (write) {
                    EXPECT_EQ(block[k.offset], 0xEE);
                } else {
                    EXPECT_EQ(std::memcmp(buffer.data(), block.data() + k.offset, k.length), 0);
                }
            } else {
                EXPECT_EQ(block, before) << "a failed transfer copied bytes";
                EXPECT_EQ(buffer[0], 0xEE) << "a failed read wrote into the buffer";
            }
            block.assign(before.begin(), before.end());
        }
    }
}

TEST_F(MemoryObject, SetEndOnlyShrinksThroughTheCallersVariable) {
    EXPECT_EQ(VOXA_MEM_SetEnd(object, 101), 207u);
    EXPECT_EQ(VOXA_IO_Changed(object), 0);
    EXPECT_EQ(VOXA_MEM_SetEnd(object, 100), 0u) << "the same size is allowed";
    EXPECT_EQ(VOXA_IO_Changed(object), 1);
    EXPECT_EQ(VOXA_MEM_SetEnd(object, 40), 0u);
    EXPECT_EQ(size, 40u);
    EXPECT_EQ(position(), 40u);
    EXPECT_EQ(block[60], 60) << "bytes beyond the new end stay in the block";

    uint8_t byte;
    EXPECT_EQ(VOXA_MEM_Read(object, 39, &byte, 1), 0u);
    EXPECT_EQ(VOXA_MEM_Read(object, 40, &byte, 1), 207u);
    EXPECT_EQ(VOXA_MEM_PositionFile(object, 39), 1);
    EXPECT_EQ(VOXA_MEM_PositionFile(object, 40), 0) << "just past the last byte";
    EXPECT_EQ(position(), 39u);

    size = 70;  // the caller may change its variable between calls
    uint64_t reported = 0;
    EXPECT_EQ(VOXA_MEM_GetSize(object, &reported), 0u);
    EXPECT_EQ(reported, 70u);
    EXPECT_EQ(VOXA_MEM_Read(object, 60, &byte, 1), 0u);

    EXPECT_EQ(VOXA_MEM_SetEnd(object, 0), 0u);
    EXPECT_EQ(VOXA_MEM_Read(object, 0, &byte, 1), 207u);
    EXPECT_EQ(VOXA_MEM_PositionFile(object, 0), 0);
}

TEST(MemoryOpen, RequiredArgumentsNamelessObjectsCallerDataLengthAndNoMemory) {
    HeapLedger ledger;
    uint8_t data[4] = {};
    uint64_t size = 4;
    EXPECT_EQ(VOXA_MEM_Open("n", 0, 0, nullptr, &size, kCallerData, 16), nullptr);
    EXPECT_EQ(VOXA_MEM_Open("n", 0, 0, data, nullptr, kCallerData, 16), nullptr);
    EXPECT_EQ(VOXA_MEM_Open("n", 0, 0, data, &size, nullptr, 16), nullptr);

    IoObject *o = VOXA_MEM_Open(nullptr, 0, 0, data, &size, kCallerData, 8);
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(VOXA_IO_GetNamePointer(o), nullptr);
    const uint8_t cleared[16] = {};
    EXPECT_EQ(std::memcmp(o->callerData, cleared, 16), 0)
        << "callerData is taken only with a stated length of 16";
    VOXA_MEM_Close(o);
    EXPECT_EQ(ledger.live(), 0u);

    vxio::test::each_allocation_fails([&](HeapLedger &ledger) {
        IoObject *o = VOXA_MEM_Open("named", 0, 0, data, &size, kCallerData, 16);
        EXPECT_EQ(o == nullptr, ledger.failed());
        VOXA_MEM_Close(o);
    });
}

}  // namespace
