#include "process/handle_table.h"
#include "util/bytes.h"

#include <cstring>

namespace vxio::process {

namespace {


// The bytes of an answer to go by: those reported, never past the buffer.
size_t held_of(size_t bufferSize, uint64_t reported) noexcept {
    return reported < bufferSize ? static_cast<size_t>(reported) : bufferSize;
}

}  // namespace

HandleTable::HandleTable(const uint8_t *answer, size_t bufferSize, uint64_t returned) noexcept
    : answer_(answer) {
    const size_t held = returned ? held_of(bufferSize, returned) : bufferSize;
    if (!answer || held < kHandleTableHeader) return;
    stated_ = load_at<uint32_t>(answer, 0);
    const size_t fits = (held - kHandleTableHeader) / kHandleTableEntry;
    count_ = stated_ < fits ? stated_ : fits;
}

HandleTableEntry HandleTable::operator[](size_t index) const noexcept {
    HandleTableEntry entry;
    if (index >= count_) return entry;
    const uint8_t *raw = answer_ + kHandleTableHeader + index * kHandleTableEntry;
    entry.ownerProcessId = load_at<uint16_t>(raw, 0);
    entry.typeIndex = raw[4];
    entry.flags = raw[5];
    entry.handleValue = load_at<uint16_t>(raw, 6);
    entry.object = load_at<uint64_t>(raw, 8);
    entry.grantedAccess = load_at<uint32_t>(raw, 16);
    return entry;
}

bool ObjectNameText(const uint8_t *answer, size_t bufferSize, uint64_t returned,
                    uint64_t answerAddress, AnswerText &text) noexcept {
    text = AnswerText{};
    const size_t held = held_of(bufferSize, returned);
    if (!answer || held < kObjectNameHeader) return false;
    const uint64_t pointer = load_at<uint64_t>(answer, 8);
    const size_t length = load_at<uint16_t>(answer, 0);
    // Offsets only, never an end address: an answer near the top of the
    // address space must not wrap the comparison.
    if (pointer < answerAddress || pointer - answerAddress > held) return false;
    const auto offset = static_cast<size_t>(pointer - answerAddress);
    if (length > held - offset || length < 2) return false;
    text.offset = offset;
    text.units = length / 2;
    return true;
}

bool FileNameText(const uint8_t *answer, size_t bufferSize, uint64_t written,
                  AnswerText &text) noexcept {
    text = AnswerText{};
    const size_t held = held_of(bufferSize, written);
    if (!answer || held < kFileNameHeader) return false;
    const uint32_t length = load_at<uint32_t>(answer, 0);
    if (length > held - kFileNameHeader || length < 2) return false;
    text.offset = kFileNameHeader;
    text.units = length / 2;
    return true;
}

}  // namespace vxio::process
