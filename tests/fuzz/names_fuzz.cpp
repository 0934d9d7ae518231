// Fuzz target of the name-descriptor locator. Input: the name kind (1
// byte: 0-3 the kinds, anything else an unknown one), then the descriptor's
// bytes, held in a block of exactly their size so that a read past them is
// caught. Promises:
//  - an unknown kind is unreadable and has no largest size;
//  - kinds 0 and 2 give 8-bit text, 1 and 3 UTF-16 text, or unreadable;
//  - the text starts where its kind puts it (byte 0, or byte 4 behind a
//    counted head), holds no zero unit, and is followed by its zero
//    terminator inside the bytes given;
//  - 8-bit text fits the work buffer with its terminator, counted text
//    fits its stated length;
//  - unreadable exactly when no terminator lies where the kind needs one;
//  - nothing past the terminator is read: the bytes cut right behind it
//    give the same text; and the same bytes give the same text again.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "io/name_text.h"
#include "tests/fuzz/fuzz_support.h"

using namespace vxio::io;

namespace {

constexpr const char *kTarget = "names_fuzz";

bool same(const NameText &a, const NameText &b) {
    return a.form == b.form && a.text == b.text && a.units == b.units;
}

// Index of the first zero unit of `width` bytes among the first `limit`
// units, or limit.
size_t first_zero(const uint8_t *p, size_t limit, size_t width) {
    for (size_t i = 0; i < limit; ++i) {
        bool zero = true;
        for (size_t b = 0; b < width; ++b) zero = zero && p[i * width + b] == 0;
        if (zero) return i;
    }
    return limit;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const uint32_t kind = data[0];
    std::vector<uint8_t> held(data + 1, data + size);
    const uint8_t *bytes = held.empty() ? data : held.data();  // never null
    const size_t n = held.size();

    const NameText name = LocateNameText(bytes, n, kind);
    VXIO_REQUIRE(same(name, LocateNameText(bytes, n, kind)));
    if (kind > 3) {
        VXIO_REQUIRE(name.form == NameForm::Unreadable && LargestNameSize(kind) == 0);
        return 0;
    }
    VXIO_REQUIRE(LargestNameSize(kind) >= kWorkBufferSize);

    const bool counted = kind >= 2;
    const size_t width = kind % 2 ? 2 : 1;
    const size_t head = counted ? 4 : 0;
    uint16_t stated = 0;
    if (counted && n >= 4) std::memcpy(&stated, bytes, 2);

    // Where the terminator must lie, in units from the text's start.
    size_t limit = n >= head ? (n - head) / width : 0;
    if (kind == 0 && limit > kWorkBufferSize) limit = kWorkBufferSize;
    if (kind == 2) limit = stated + 1u > kWorkBufferSize ? 0 : std::min<size_t>(limit, stated + 1u);
    if (kind == 3) limit = std::min<size_t>(limit, stated / 2 + 1u);
    const size_t zero = n >= head ? first_zero(bytes + head, limit, width) : 0;
    const bool readable = zero < limit;
    VXIO_REQUIRE((name.form != NameForm::Unreadable) == readable);
    if (!readable) return 0;

    VXIO_REQUIRE(name.form == (width == 1 ? NameForm::Ansi : NameForm::Utf16));
    VXIO_REQUIRE(name.text == bytes + head && name.units == zero);
    const size_t end = head + (name.units + 1) * width;
    VXIO_REQUIRE(end <= n);
    VXIO_REQUIRE(first_zero(name.text, name.units, width) == name.units);
    for (size_t b = 0; b < width; ++b) VXIO_REQUIRE(name.text[name.units * width + b] == 0);
    if (width == 1) VXIO_REQUIRE(name.units + 1 <= kWorkBufferSize);
    if (counted) VXIO_REQUIRE(name.units * width <= stated);

    const std::vector<uint8_t> cut(bytes, bytes + end);
    const NameText again = LocateNameText(cut.data(), cut.size(), kind);
    VXIO_REQUIRE(again.form == name.form && again.units == name.units &&
                 again.text == cut.data() + head);
    return 0;
}
