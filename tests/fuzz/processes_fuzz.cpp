// Fuzz target of the system process information (class 5) records: the
// input is the answer, held in a block of exactly its size. The system
// points each image name into its own answer (its records need not be
// aligned); here any 8 bytes whose high half is 0x5A5A5A5A stand for "the
// answer's address + the low half", so that names inside, across the end
// of and outside the answer are all reached. For any answer:
//  - the chain only moves forward, each record's fixed part inside, the
//    next one leaving room for its own, so it ends after at most one
//    record per 256 bytes;
//  - a record's threads lie between its fixed part and the next record,
//    and are as many as stated when they fit, else as many as fit;
//  - a name is kept exactly when its counted characters lie inside, and
//    then it is the stated length (even) at the stated place;
//  - reading a record again gives the same, and an offset past the end
//    gives none;
//  - the same bytes read as basic process information give its fields
//    exactly when the 48 bytes are held.
#include <cstdint>
#include <cstring>
#include <memory>

#include "process/native_records.h"
#include "tests/fuzz/fuzz_support.h"

using namespace vxio::process;

namespace {

constexpr const char *kTarget = "processes";

bool same(const ProcessRecord &a, const ProcessRecord &b) {
    return a.processId == b.processId && a.parentId == b.parentId && a.name == b.name &&
           a.nameBytes == b.nameBytes && a.threadCount == b.threadCount &&
           a.threads == b.threads && a.next == b.next;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::unique_ptr<uint8_t[]> held = vxio::fuzz::held_copy(data, size);
    uint8_t *answer = held.get();
    vxio::fuzz::point_tagged_words(answer, size);
    const auto base = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(answer));

    ProcessRecord record, again;
    VXIO_REQUIRE(!read_process_record(nullptr, size, 0, record));
    VXIO_REQUIRE(!read_process_record(answer, size, size + 1, record));
    VXIO_REQUIRE(read_process_record(answer, size, 0, record) == (size >= kProcessFixedPart));

    size_t offset = 0, records = 0, threads = 0;
    while (read_process_record(answer, size, offset, record)) {
        ++records;
        VXIO_REQUIRE(records <= size / kProcessFixedPart);
        VXIO_REQUIRE(offset + kProcessFixedPart <= size);
        VXIO_REQUIRE(record.next == 0 || (record.next >= offset + kProcessFixedPart &&
                                          record.next + kProcessFixedPart <= size));
        VXIO_REQUIRE(read_process_record(answer, size, offset, again) && same(record, again));
        const uint8_t *fixed = answer + offset;
        VXIO_REQUIRE(record.processId == vxio::load_at<uint64_t>(fixed, 0x50));
        VXIO_REQUIRE(record.parentId == vxio::load_at<uint64_t>(fixed, 0x58));

        const size_t end = record.next ? record.next : size;
        VXIO_REQUIRE(record.threads == offset + kProcessFixedPart);
        const size_t room = (end - record.threads) / kThreadRecordSize;
        const uint32_t stated = vxio::load_at<uint32_t>(fixed, 4);
        VXIO_REQUIRE(record.threadCount == (stated < room ? stated : room));
        for (uint32_t t = 0; t < record.threadCount; ++t) {
            const ThreadIds ids = read_thread(answer, record, t);
            const uint8_t *thread = answer + record.threads + size_t{t} * kThreadRecordSize;
            VXIO_REQUIRE(ids.processId == vxio::load_at<uint64_t>(thread, 0x28));
            VXIO_REQUIRE(ids.threadId == vxio::load_at<uint64_t>(thread, 0x30));
        }
        threads += record.threadCount;
        VXIO_REQUIRE(threads <= size / kThreadRecordSize);

        const size_t length = vxio::load_at<uint16_t>(fixed, 0x38) & ~size_t{1};
        const uint64_t text = vxio::load_at<uint64_t>(fixed, 0x40);
        const bool inside = text != 0 && text >= base && text - base <= size &&
                            length <= size - (text - base);
        VXIO_REQUIRE((record.name != nullptr) == inside);
        if (record.name) {
            VXIO_REQUIRE(record.name == answer + (text - base) && record.nameBytes == length);
            // Every byte of the name is read, so one outside is caught.
            unsigned sum = 0;
            for (size_t i = 0; i < record.nameBytes; ++i) sum += record.name[i];
            (void)sum;
        } else {
            VXIO_REQUIRE(record.nameBytes == 0);
        }

        if (record.next == 0) break;
        offset = record.next;
    }

    BasicProcessInfo basic;
    const bool whole = read_basic_process_info(answer, size, basic);
    VXIO_REQUIRE(whole == (size >= kBasicProcessInfoSize));
    if (whole) {
        VXIO_REQUIRE(basic.exitStatus == vxio::load_at<int32_t>(answer, 0) &&
                     basic.environmentBlock == vxio::load_at<uint64_t>(answer, 8) &&
                     basic.processId == vxio::load_at<uint64_t>(answer, 32) &&
                     basic.parentId == vxio::load_at<uint64_t>(answer, 40));
    } else {
        VXIO_REQUIRE(basic.processId == 0 && basic.environmentBlock == 0);
    }
    return 0;
}
