#include "fs/stream_records.h"
#include "util/bytes.h"

#include <cstring>

namespace vxio::fs {

namespace {

// True when a whole record (header and name) starts at offset. Written so
// that no sum can wrap, whatever offset and the name length hold.
bool whole_at(const uint8_t *list, size_t size, size_t offset) {
    if (!list || offset > size || size - offset < kStreamRecordHeader) return false;
    return load_at<uint32_t>(list, offset + 4) <= size - offset - kStreamRecordHeader;
}

}  // namespace

bool StreamRecordAt(const uint8_t *list, size_t size, size_t offset, StreamRecord &record) {
    if (!whole_at(list, size, offset)) return false;
    record = StreamRecord{};
    record.offset = offset;
    record.nameBytes = load_at<uint32_t>(list, offset + 4);
    record.nameOffset = offset + kStreamRecordHeader;
    record.streamSize = load_at<uint64_t>(list, offset + 8);
    record.allocationSize = load_at<uint64_t>(list, offset + 16);
    const uint32_t step = load_at<uint32_t>(list, offset);
    // offset lies within size, so offset + step cannot wrap.
    if (step != 0 && whole_at(list, size, offset + step)) record.next = offset + step;
    return true;
}

std::vector<StreamRecord> StreamRecords(const uint8_t *list, size_t size) {
    std::vector<StreamRecord> records;
    StreamRecord record;
    for (size_t offset = 0; StreamRecordAt(list, size, offset, record); offset = record.next) {
        records.push_back(record);
        if (record.next == 0) break;
    }
    return records;
}

}  // namespace vxio::fs
