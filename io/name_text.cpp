#include "io/name_text.h"

#include <cstring>

namespace vxio::io {

namespace {

constexpr uint32_t kAnsi = 0, kWide = 1, kCountedAnsi = 2, kCountedWide = 3;
constexpr size_t kHead = 4;  // 16-bit length and two bytes before a counted text

// Index of the first zero byte among the first `limit` bytes, or limit.
// Byte by byte: nothing past the terminator is touched.
size_t ansi_length(const uint8_t *text, size_t limit) {
    for (size_t i = 0; i < limit; ++i)
        if (text[i] == 0) return i;
    return limit;
}

// Index of the first zero unit among the first `limit` units, or limit.
size_t utf16_length(const uint8_t *text, size_t limit) {
    for (size_t i = 0; i < limit; ++i)
        if (text[2 * i] == 0 && text[2 * i + 1] == 0) return i;
    return limit;
}

NameText found(NameForm form, const uint8_t *text, size_t units) {
    NameText name;
    name.form = form;
    name.text = text;
    name.units = units;
    return name;
}

uint16_t stated_length(const uint8_t *bytes) {
    uint16_t stated;
    std::memcpy(&stated, bytes, sizeof stated);
    return stated;
}

}  // namespace

size_t LargestNameSize(uint32_t kind) {
    switch (kind) {
    case kAnsi: return kLargestAnsiName;
    case kWide: return kLargestWideName;
    case kCountedAnsi: return kLargestCountedAnsiName;
    case kCountedWide: return kLargestCountedWideName;
    default: return 0;
    }
}

NameText LocateNameText(const uint8_t *bytes, size_t size, uint32_t kind) {
    if (!bytes) return {};
    switch (kind) {
    case kAnsi: {
        // A name that fills the whole buffer would lose its terminator: it
        // is refused rather than copied cut.
        const size_t limit = size < kWorkBufferSize ? size : kWorkBufferSize;
        const size_t length = ansi_length(bytes, limit);
        if (length >= limit) return {};
        return found(NameForm::Ansi, bytes, length);
    }
    case kWide: {
        // The conversion decides whether the text fits; here it must only
        // end within the bytes that can be read.
        const size_t length = utf16_length(bytes, size / 2);
        if (length >= size / 2) return {};
        return found(NameForm::Utf16, bytes, length);
    }
    case kCountedAnsi: {
        if (size < kHead) return {};
        const uint16_t stated = stated_length(bytes);
        if (uint32_t{stated} + 1 > kWorkBufferSize) return {};
        // The record holds its stated length of text and the terminator
        // behind it; nothing past those bytes belongs to the name. A text
        // with no terminator there is refused, never read on into
        // whatever follows the record.
        const size_t held = size - kHead;
        const size_t limit = size_t{stated} + 1 < held ? size_t{stated} + 1 : held;
        const size_t length = ansi_length(bytes + kHead, limit);
        if (length >= limit) return {};
        return found(NameForm::Ansi, bytes + kHead, length);
    }
    case kCountedWide: {
        // The stated length counts bytes of UTF-16 text, as the system's
        // own counted strings do: the terminator must lie within the
        // stated characters and the one behind them, for the same reason
        // as above.
        if (size < kHead) return {};
        const size_t units = size_t{stated_length(bytes)} / 2 + 1;
        const size_t held = (size - kHead) / 2;
        const size_t limit = units < held ? units : held;
        const size_t length = utf16_length(bytes + kHead, limit);
        if (length >= limit) return {};
        return found(NameForm::Utf16, bytes + kHead, length);
    }
    default:
        return {};
    }
}

}  // namespace vxio::io
