// Fuzz target of how the Custom backend takes a storage module's answers.
// Input: which of the eleven exports the module has (2 bytes, one bit
// each), then a run of calls, each a call byte followed by the module's
// answer to it: a handle (8 bytes) for Open and EnableWrite, a size (4
// bytes) for FileLength, one byte for the yes/no calls. Promises:
//  - a table serves objects exactly when Open, Close, FileLength and Read
//    are there, Exists may be asked exactly when ChangeSize and Exists
//    are, and neither holds for a table of another length or none;
//  - an object's handle is never zero: a zero answer refuses the Open and
//    leaves the handle as it was after EnableWrite, any other replaces it;
//  - every yes/no answer becomes 0 or 207, 0 exactly for a non-zero byte;
//  - every size is the 32-bit answer itself, 0xFFFFFFFF included.
#include <cstdint>

#include "io/storage_answers.h"
#include "tests/fuzz/fuzz_support.h"

using namespace vxio::io::storage;

namespace {

constexpr const char *kTarget = "storage_fuzz";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    vxio::fuzz::Cursor in(data, size);
    const uint16_t present = in.take<uint16_t>();
    static const int anchors[kEntryCount] = {};
    const void *slots[kEntryCount];
    for (size_t i = 0; i < kEntryCount; ++i) slots[i] = present >> i & 1 ? &anchors[i] : nullptr;
    auto has = [&](Entry e) { return (present >> e & 1) != 0; };

    const bool serves = ServesObjects(slots, kEntryCount);
    VXIO_REQUIRE(serves == (has(kOpen) && has(kClose) && has(kFileLength) && has(kRead)));
    VXIO_REQUIRE(MayAskExists(slots, kEntryCount) == (has(kChangeSize) && has(kExists)));
    VXIO_REQUIRE(!ServesObjects(slots, kEntryCount - 1) && !ServesObjects(nullptr, kEntryCount));
    VXIO_REQUIRE(!MayAskExists(slots, kEntryCount + 1) && !MayAskExists(nullptr, kEntryCount));
    for (size_t i = 0; i < kEntryCount; ++i) VXIO_REQUIRE(kEntryNames[i] != nullptr);

    uintptr_t handle = 0;
    const uintptr_t opened = in.take<uint64_t>();
    VXIO_REQUIRE(TakeHandle(opened, &handle) == (opened != 0));
    VXIO_REQUIRE(handle == opened);
    if (!handle) return 0;
    while (in.left() > 0) {
        switch (in.take<uint8_t>() % 3) {
        case 0: {
            const uintptr_t before = handle, answer = in.take<uint64_t>();
            VXIO_REQUIRE(TakeHandle(answer, &handle) == (answer != 0));
            VXIO_REQUIRE(handle == (answer ? answer : before) && handle != 0);
            break;
        }
        case 1: {
            const uint32_t answer = in.take<uint32_t>();
            VXIO_REQUIRE(SizeOf(answer) == answer && SizeOf(answer) <= 0xFFFFFFFFu);
            break;
        }
        default: {
            const uint8_t answer = in.take<uint8_t>();
            const uint64_t status = StatusOf(answer);
            VXIO_REQUIRE(status == (answer ? kDone : kFailed));
            VXIO_REQUIRE(status == 0 || status == 207);
        }
        }
    }
    VXIO_REQUIRE(!TakeHandle(1, nullptr));
    return 0;
}
