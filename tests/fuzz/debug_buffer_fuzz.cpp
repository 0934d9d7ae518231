// Fuzz target of the debug buffer: its header and the module block it
// points to. The input is the buffer, held in exactly its size (the bytes
// known to be there). The queried process writes the module pointer; here
// any 8 bytes whose high half is 0x5A5A5A5A stand for "the buffer's
// address + the low half", so that blocks inside, across the end of and
// outside the buffer are all reached. For any buffer:
//  - a module block is found exactly when the pointer is set, the header
//    is whole and the block's count lies inside the part of the buffer in
//    use, committed and held (the smallest of the three);
//  - the block found runs to the end of that part, and every record that
//    its count gives lies inside it, with a terminated path and a file
//    name within the path;
//  - asking again gives the same.
#include <cstdint>
#include <cstring>
#include <memory>

#include "process/native_records.h"
#include "tests/fuzz/fuzz_support.h"

using namespace vxio::process;

namespace {

constexpr const char *kTarget = "debug_buffer";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::unique_ptr<uint8_t[]> held = vxio::fuzz::held_copy(data, size);
    uint8_t *debug = held.get();
    vxio::fuzz::point_tagged_words(debug, size);
    const auto base = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(debug));

    size_t blockSize = 1;
    VXIO_REQUIRE(debug_module_block(nullptr, size, blockSize) == nullptr && blockSize == 0);
    const uint8_t *block = debug_module_block(debug, size, blockSize);
    size_t againSize = 0;
    VXIO_REQUIRE(debug_module_block(debug, size, againSize) == block && againSize == blockSize);

    bool expected = false;
    size_t used = size;
    if (size >= kDebugHeaderSize) {
        const uint64_t pointer = vxio::load_at<uint64_t>(debug, 0x60);
        const uint64_t offsetFree = vxio::load_at<uint64_t>(debug, 0x48);
        const uint64_t commitSize = vxio::load_at<uint64_t>(debug, 0x50);
        if (offsetFree < used) used = static_cast<size_t>(offsetFree);
        if (commitSize < used) used = static_cast<size_t>(commitSize);
        expected = pointer != 0 && pointer >= base && pointer - base <= used &&
                   used - (pointer - base) >= sizeof(uint32_t);
    }
    VXIO_REQUIRE((block != nullptr) == expected);
    if (!block) {
        VXIO_REQUIRE(blockSize == 0);
        return 0;
    }
    VXIO_REQUIRE(block >= debug && block + blockSize == debug + used);

    const uint32_t count = module_count(block, blockSize);
    VXIO_REQUIRE(count <= vxio::load_at<uint32_t>(block, 0));
    VXIO_REQUIRE(count == 0 || kModuleRecordsAt + size_t{count} * kModuleRecordSize <= blockSize);
    for (uint32_t i = 0; i < count; ++i) {
        const ModuleRecord module = read_module(block, i);
        const size_t length = strnlen(module.fullPath, sizeof module.fullPath);
        VXIO_REQUIRE(length <= 256 && module.fileNameAt <= length);
    }
    return 0;
}
