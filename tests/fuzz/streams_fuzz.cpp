// Fuzz target of the stream-list parser. The input is the list buffer as
// the native file query leaves it (held in a block of exactly its size, so
// a read past the end is caught), and the records that come back must keep
// what the stream walk relies on:
//  - the first record starts at offset 0, and each next one at the offset
//    the record before it gives, always further on, so no record comes
//    twice;
//  - every record, header and name, lies wholly inside the input, and its
//    fields are the bytes at their places;
//  - the chain ends exactly where a next-entry offset is 0 or leads to a
//    record that is not whole, and is empty when the first is not whole;
//  - each record read on its own at its offset is the same record;
//  - the bytes after the furthest end of a record change nothing, and
//    parsing again gives the same.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "fs/stream_records.h"
#include "fuzz_support.h"

using vxio::fs::StreamRecord;

namespace {

constexpr const char *kTarget = "streams_fuzz";

uint32_t u32(const std::vector<uint8_t> &bytes, size_t at) {
    uint32_t value;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

uint64_t u64(const std::vector<uint8_t> &bytes, size_t at) {
    uint64_t value;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

// A whole record at offset, worked out in 64 bits.
bool whole(const std::vector<uint8_t> &bytes, uint64_t offset) {
    return offset + 24 <= bytes.size() && offset + 24 + u32(bytes, offset + 4) <= bytes.size();
}

bool same(const StreamRecord &a, const StreamRecord &b) {
    return a.offset == b.offset && a.next == b.next && a.nameOffset == b.nameOffset &&
           a.nameBytes == b.nameBytes && a.streamSize == b.streamSize &&
           a.allocationSize == b.allocationSize;
}

bool same(const std::vector<StreamRecord> &a, const std::vector<StreamRecord> &b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (!same(a[i], b[i])) return false;
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::vector<uint8_t> bytes(data, data + size);
    const uint8_t *list = size ? bytes.data() : nullptr;
    const std::vector<StreamRecord> records = vxio::fs::StreamRecords(list, size);

    VXIO_REQUIRE(records.empty() == !whole(bytes, 0));
    // Records may overlap (a next-entry offset of 1 is taken), but each
    // starts further on and at least 24 bytes before the end.
    VXIO_REQUIRE(records.size() <= (size < 24 ? 0 : size - 23));
    size_t expected = 0, used = 0;
    for (size_t i = 0; i < records.size(); ++i) {
        const StreamRecord &r = records[i];
        VXIO_REQUIRE(r.offset == expected && whole(bytes, r.offset));
        VXIO_REQUIRE(r.nameOffset == r.offset + 24 && r.nameOffset + r.nameBytes <= size);
        VXIO_REQUIRE(r.nameBytes == u32(bytes, r.offset + 4));
        VXIO_REQUIRE(r.streamSize == u64(bytes, r.offset + 8));
        VXIO_REQUIRE(r.allocationSize == u64(bytes, r.offset + 16));
        const uint32_t step = u32(bytes, r.offset);
        const bool last = i + 1 == records.size();
        VXIO_REQUIRE(last == (r.next == 0));
        VXIO_REQUIRE(last == (step == 0 || !whole(bytes, uint64_t{r.offset} + step)));
        if (!last) VXIO_REQUIRE(r.next == r.offset + step && r.next > r.offset);
        expected = r.next;
        used = std::max(used, r.nameOffset + r.nameBytes);  // records may overlap

        StreamRecord alone;
        VXIO_REQUIRE(vxio::fs::StreamRecordAt(list, size, r.offset, alone) && same(alone, r));
        // Every name unit is readable (caught by the sanitizer otherwise).
        std::vector<char16_t> name(r.nameBytes / 2);
        if (!name.empty()) std::memcpy(name.data(), list + r.nameOffset, name.size() * 2);
    }

    // Offsets outside the bytes are refused, however far out.
    StreamRecord none;
    VXIO_REQUIRE(!vxio::fs::StreamRecordAt(list, size, size + 1, none));
    VXIO_REQUIRE(!vxio::fs::StreamRecordAt(list, size, SIZE_MAX, none));

    VXIO_REQUIRE(same(records, vxio::fs::StreamRecords(list, size)));
    if (!records.empty()) {
        const std::vector<uint8_t> cut(bytes.begin(), bytes.begin() + used);
        VXIO_REQUIRE(same(records, vxio::fs::StreamRecords(cut.data(), cut.size())));
    }
    return 0;
}
