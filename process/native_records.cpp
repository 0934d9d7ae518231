// Checked parsers of process-inspection records (see native_records.h).
#include "process/native_records.h"
#include "util/bytes.h"

#include <cstring>

namespace vxio::process {
namespace {


// True when [at, at + length) lies inside [base, base + size).
bool inside(const uint8_t *base, size_t size, uint64_t at, uint64_t length) noexcept {
    const auto start = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(base));
    return at >= start && at - start <= size && length <= size - (at - start);
}

constexpr size_t kRecordNext = 0x00;
constexpr size_t kRecordThreads = 0x04;
constexpr size_t kRecordNameLength = 0x38;
constexpr size_t kRecordNameBuffer = 0x40;
constexpr size_t kRecordProcessId = 0x50;
constexpr size_t kRecordParentId = 0x58;
constexpr size_t kThreadProcessId = 0x28;
constexpr size_t kThreadThreadId = 0x30;

constexpr size_t kModuleBase = 0x10;
constexpr size_t kModuleSize = 0x18;
constexpr size_t kModuleFileName = 0x26;
constexpr size_t kModulePath = 0x28;
constexpr size_t kModulePathSize = 256;

constexpr size_t kDebugOffsetFree = 0x48;
constexpr size_t kDebugCommitSize = 0x50;
constexpr size_t kDebugModules = 0x60;

}  // namespace

bool read_process_record(const uint8_t *answer, size_t size, size_t offset,
                         ProcessRecord &out) noexcept {
    out = ProcessRecord{};
    if (!answer || offset > size || size - offset < kProcessFixedPart) return false;
    const uint8_t *record = answer + offset;
    out.processId = load_at<uint64_t>(record, kRecordProcessId);
    out.parentId = load_at<uint64_t>(record, kRecordParentId);

    // The next record must start past this one's fixed part and have room
    // for its own; the threads end where it begins.
    size_t end = size;
    const uint32_t next = load_at<uint32_t>(record, kRecordNext);
    if (next >= kProcessFixedPart && next <= size - offset - kProcessFixedPart) {
        out.next = offset + next;
        end = out.next;
    }
    out.threads = offset + kProcessFixedPart;
    const size_t room = (end - out.threads) / kThreadRecordSize;
    const uint32_t stated = load_at<uint32_t>(record, kRecordThreads);
    out.threadCount = stated < room ? stated : static_cast<uint32_t>(room);

    // The name's characters must lie inside the answer, its length counted
    // rather than taken up to a terminator that may not be there.
    const size_t length = load_at<uint16_t>(record, kRecordNameLength) & ~size_t{1};
    const uint64_t at = load_at<uint64_t>(record, kRecordNameBuffer);
    if (at != 0 && inside(answer, size, at, length)) {
        out.name = answer + (at - reinterpret_cast<uintptr_t>(answer));
        out.nameBytes = length;
    }
    return true;
}

ThreadIds read_thread(const uint8_t *answer, const ProcessRecord &record,
                      uint32_t index) noexcept {
    const uint8_t *thread = answer + record.threads + size_t{index} * kThreadRecordSize;
    return {load_at<uint64_t>(thread, kThreadProcessId), load_at<uint64_t>(thread, kThreadThreadId)};
}

bool read_basic_process_info(const uint8_t *answer, size_t size, BasicProcessInfo &out) noexcept {
    out = BasicProcessInfo{};
    if (!answer || size < kBasicProcessInfoSize) return false;
    out.exitStatus = load_at<int32_t>(answer, 0x00);
    out.environmentBlock = load_at<uint64_t>(answer, 0x08);
    out.processId = load_at<uint64_t>(answer, 0x20);
    out.parentId = load_at<uint64_t>(answer, 0x28);
    return true;
}

uint32_t module_count(const uint8_t *block, size_t size) noexcept {
    if (!block || size < sizeof(uint32_t)) return 0;
    const uint32_t stated = load_at<uint32_t>(block, 0);
    const size_t room = size > kModuleRecordsAt ? (size - kModuleRecordsAt) / kModuleRecordSize : 0;
    return stated < room ? stated : static_cast<uint32_t>(room);
}

ModuleRecord read_module(const uint8_t *block, uint32_t index) noexcept {
    const uint8_t *module = block + kModuleRecordsAt + size_t{index} * kModuleRecordSize;
    ModuleRecord out;
    out.imageBase = load_at<uint64_t>(module, kModuleBase);
    out.imageSize = load_at<uint32_t>(module, kModuleSize);
    std::memcpy(out.fullPath, module + kModulePath, kModulePathSize);
    out.fullPath[kModulePathSize] = '\0';
    const size_t length = std::strlen(out.fullPath);
    const size_t nameAt = load_at<uint16_t>(module, kModuleFileName);
    out.fileNameAt = nameAt < length ? nameAt : length;
    return out;
}

const uint8_t *debug_module_block(const uint8_t *debug, size_t held, size_t &size) noexcept {
    size = 0;
    if (!debug || held < kDebugHeaderSize) return nullptr;
    const uint64_t block = load_at<uint64_t>(debug, kDebugModules);
    if (block == 0) return nullptr;
    size_t used = held;
    const uint64_t offsetFree = load_at<uint64_t>(debug, kDebugOffsetFree);
    const uint64_t commitSize = load_at<uint64_t>(debug, kDebugCommitSize);
    if (offsetFree < used) used = static_cast<size_t>(offsetFree);
    if (commitSize < used) used = static_cast<size_t>(commitSize);
    // At least the count must be there.
    if (!inside(debug, used, block, sizeof(uint32_t))) return nullptr;
    const size_t at = static_cast<size_t>(block - reinterpret_cast<uintptr_t>(debug));
    size = used - at;
    return debug + at;
}

VisitedSet::VisitedSet(uint64_t *slots, uint32_t slotCount) noexcept
    : slots_(slots), mask_(slotCount ? slotCount - 1 : 0) {
    if (!slots_ || slotCount < 2 || (slotCount & mask_) != 0) slots_ = nullptr;
}

bool VisitedSet::add(uint64_t address) noexcept {
    if (!slots_ || address == 0 || held_ >= (mask_ + 1) / 2) return false;
    // Entries are 8-aligned: the low bits carry nothing.
    uint32_t slot = static_cast<uint32_t>(((address >> 3) * 0x9E3779B97F4A7C15ull) >> 32) & mask_;
    while (slots_[slot] != 0) {
        if (slots_[slot] == address) return false;
        slot = (slot + 1) & mask_;
    }
    slots_[slot] = address;
    ++held_;
    return true;
}

}  // namespace vxio::process
