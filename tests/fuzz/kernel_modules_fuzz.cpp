// Fuzz target of the module block (class 11 of the system query): the
// input is the block, held in exactly its size. For any block:
//  - the count is the stated one cut to the whole records there are room
//    for (none without a count), so every record read lies inside;
//  - each record's path is the record's bytes up to their first NUL, at
//    most 256 of them, always terminated;
//  - the file-name offset lies within the path (the stated one when it
//    does);
//  - base and size are the record's, and reading again gives the same.
#include <cstdint>
#include <cstring>
#include <memory>

#include "process/native_records.h"
#include "tests/fuzz/fuzz_support.h"

using namespace vxio::process;

namespace {

constexpr const char *kTarget = "kernel_modules";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::unique_ptr<uint8_t[]> held = vxio::fuzz::held_copy(data, size);
    uint8_t *block = held.get();

    VXIO_REQUIRE(module_count(nullptr, size) == 0);
    const uint32_t count = module_count(block, size);
    const uint32_t stated = size >= 4 ? vxio::load_at<uint32_t>(block, 0) : 0;
    const size_t room = size > kModuleRecordsAt ? (size - kModuleRecordsAt) / kModuleRecordSize : 0;
    VXIO_REQUIRE(count == (stated < room ? stated : room));
    VXIO_REQUIRE(count == 0 || kModuleRecordsAt + size_t{count} * kModuleRecordSize <= size);

    for (uint32_t i = 0; i < count; ++i) {
        const ModuleRecord module = read_module(block, i);
        const uint8_t *record = block + kModuleRecordsAt + size_t{i} * kModuleRecordSize;
        const size_t length = strnlen(module.fullPath, sizeof module.fullPath);
        VXIO_REQUIRE(length <= 256);
        VXIO_REQUIRE(std::memcmp(module.fullPath, record + 0x28, length) == 0);
        VXIO_REQUIRE(length == 256 || record[0x28 + length] == 0);
        const size_t nameAt = vxio::load_at<uint16_t>(record, 0x26);
        VXIO_REQUIRE(module.fileNameAt == (nameAt < length ? nameAt : length));
        VXIO_REQUIRE(module.imageBase == vxio::load_at<uint64_t>(record, 0x10));
        VXIO_REQUIRE(module.imageSize == vxio::load_at<uint32_t>(record, 0x18));
        const ModuleRecord again = read_module(block, i);
        VXIO_REQUIRE(std::memcmp(&module, &again, sizeof module) == 0);
    }
    return 0;
}
