#include "process/dump_index.h"

#include <cstring>

namespace vxio::process {

namespace {

constexpr size_t kNumberWidth = 8;  // "%08x": a field of at most 8 characters

bool space(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

int hex_digit(char c) noexcept {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

DumpIndexReader::DumpIndexReader(const char *text, size_t size) noexcept
    : text_(text), at_(text), end_(text ? text + size : text), ended_(!text) {}

void DumpIndexReader::skip_space() noexcept {
    while (at_ < end_ && space(*at_)) ++at_;
}

bool DumpIndexReader::scan_name(DumpIndexRecord &record) noexcept {
    skip_space();
    size_t n = 0;
    while (at_ < end_ && !space(*at_) && n < kDumpIndexNameMax) record.name[n++] = *at_++;
    record.name[n] = '\0';
    record.length = n;
    return n > 0;
}

bool DumpIndexReader::scan_hex(uint32_t &value) noexcept {
    skip_space();
    size_t width = kNumberWidth;
    bool negative = false;
    if (at_ < end_ && (*at_ == '+' || *at_ == '-')) {
        negative = *at_ == '-';
        ++at_;
        --width;
    }
    if (end_ - at_ >= 2 && at_[0] == '0' && (at_[1] == 'x' || at_[1] == 'X')) {
        at_ += 2;
        width -= 2;
    }
    uint32_t v = 0;
    size_t digits = 0;
    for (int d; digits < width && at_ < end_ && (d = hex_digit(*at_)) >= 0; ++digits, ++at_)
        v = v * 16 + static_cast<uint32_t>(d);
    if (digits == 0) return false;
    value = negative ? 0u - v : v;
    return true;
}

bool DumpIndexReader::next(DumpIndexRecord &record) noexcept {
    if (ended_) return false;
    DumpIndexRecord read;
    // The engine compares the name as a string: a NUL it holds ends it.
    ended_ = !scan_name(read) || std::strcmp(read.name, "END") == 0 || !scan_hex(read.base) ||
             !scan_hex(read.size);
    if (ended_) return false;
    record = read;
    return true;
}

}  // namespace vxio::process
