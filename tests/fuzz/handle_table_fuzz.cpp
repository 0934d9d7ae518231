// Fuzz target of the handle answers: the handle table and the object-name
// and file-name answers. The input is a reported length (4 bytes), a byte
// that picks where the answer lies in this process (an ordinary address,
// 0, or the top of the address space, where an end address would wrap),
// then the answer itself, held in a block of exactly its size so that a
// read past it is caught. The same bytes are read as all three answers.
// For any bytes:
//  - the table's entries lie wholly inside the bytes reported (all of the
//    buffer when none are), and within the buffer; there are no more than
//    it states, and as many as it states when they fit;
//  - every entry keeps its fields at their widths, and a table written
//    again from the entries, with its exact length, reads back the same;
//  - a name text is taken exactly when it lies wholly inside the bytes
//    reported and within the buffer (the text pointer, checked here in
//    128-bit arithmetic, for the object name), and has at least one unit;
//    every unit of it is read here;
//  - reading again gives the same.
#include <cstdint>
#include <cstring>
#include <vector>

#include "process/handle_table.h"
#include "tests/fuzz/fuzz_support.h"

using namespace vxio::process;

namespace {

constexpr const char *kTarget = "handle_table";
using Wide = unsigned __int128;

constexpr uint64_t kAddresses[] = {vxio::fuzz::FuzzedAddressSpace::kBase, 0, ~0ull - 15};

bool same(const HandleTableEntry &a, const HandleTableEntry &b) {
    return a.ownerProcessId == b.ownerProcessId && a.typeIndex == b.typeIndex &&
           a.flags == b.flags && a.handleValue == b.handleValue && a.object == b.object &&
           a.grantedAccess == b.grantedAccess;
}

template <typename T>
void put(std::vector<uint8_t> &bytes, size_t offset, T value) {
    std::memcpy(bytes.data() + offset, &value, sizeof value);
}

// Touches every unit of a text the parser handed out.
uint32_t sum_units(const uint8_t *answer, const AnswerText &text) {
    uint32_t sum = 0;
    for (size_t i = 0; i < text.units; ++i) {
        char16_t unit;
        std::memcpy(&unit, answer + text.offset + 2 * i, sizeof unit);
        sum += unit;
    }
    return sum;
}

void check_table(const uint8_t *answer, size_t size, uint64_t returned) {
    const HandleTable table(answer, size, returned);
    const Wide held = returned && returned < size ? returned : size;
    const Wide end = kHandleTableHeader + Wide(table.size()) * kHandleTableEntry;
    VXIO_REQUIRE(table.size() == 0 || end <= held);
    VXIO_REQUIRE(table.size() <= table.stated());
    VXIO_REQUIRE(table.size() == table.stated() || held < end + kHandleTableEntry);
    if (held >= kHandleTableHeader) {
        uint32_t stated;
        std::memcpy(&stated, answer, sizeof stated);
        VXIO_REQUIRE(table.stated() == stated);
    }

    std::vector<uint8_t> again(kHandleTableHeader + table.size() * kHandleTableEntry, 0xCC);
    put<uint32_t>(again, 0, static_cast<uint32_t>(table.size()));
    for (size_t i = 0; i < table.size(); ++i) {
        const HandleTableEntry e = table[i];
        VXIO_REQUIRE(e.ownerProcessId <= 0xFFFF && e.typeIndex <= 0xFF);
        VXIO_REQUIRE(same(e, table[i]));
        const size_t at = kHandleTableHeader + i * kHandleTableEntry;
        put<uint16_t>(again, at, static_cast<uint16_t>(e.ownerProcessId));
        again[at + 4] = static_cast<uint8_t>(e.typeIndex);
        again[at + 5] = e.flags;
        put<uint16_t>(again, at + 6, e.handleValue);
        put<uint64_t>(again, at + 8, e.object);
        put<uint32_t>(again, at + 16, e.grantedAccess);
    }
    const HandleTable reread(again.data(), again.size(), again.size());
    VXIO_REQUIRE(reread.size() == table.size());
    for (size_t i = 0; i < table.size(); ++i) VXIO_REQUIRE(same(reread[i], table[i]));
}

void check_object_name(const uint8_t *answer, size_t size, uint64_t returned, uint64_t address) {
    AnswerText text;
    const bool found = ObjectNameText(answer, size, returned, address, text);
    const Wide held = returned < size ? returned : size;
    bool fits = false;
    if (held >= kObjectNameHeader) {
        uint64_t pointer;
        uint16_t length;
        std::memcpy(&pointer, answer + 8, sizeof pointer);
        std::memcpy(&length, answer, sizeof length);
        fits = pointer >= address && Wide(pointer) + length <= Wide(address) + held && length >= 2;
        if (found) {
            VXIO_REQUIRE(Wide(address) + text.offset == pointer && text.units == length / 2u);
        }
    }
    VXIO_REQUIRE(found == fits);
    VXIO_REQUIRE(found || (text.offset == 0 && text.units == 0));
    if (found) {
        VXIO_REQUIRE(text.units >= 1 && Wide(text.offset) + 2 * Wide(text.units) <= held);
        AnswerText again;
        VXIO_REQUIRE(ObjectNameText(answer, size, returned, address, again) &&
                     again.offset == text.offset && again.units == text.units);
        (void)sum_units(answer, text);
    }
}

void check_file_name(const uint8_t *answer, size_t size, uint64_t written) {
    AnswerText text;
    const bool found = FileNameText(answer, size, written, text);
    const Wide held = written < size ? written : size;
    bool fits = false;
    if (held >= kFileNameHeader) {
        uint32_t length;
        std::memcpy(&length, answer, sizeof length);
        fits = Wide(kFileNameHeader) + length <= held && length >= 2;
        if (found) VXIO_REQUIRE(text.offset == kFileNameHeader && text.units == length / 2u);
    }
    VXIO_REQUIRE(found == fits);
    if (found) {
        VXIO_REQUIRE(text.units >= 1 && Wide(text.offset) + 2 * Wide(text.units) <= held);
        (void)sum_units(answer, text);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    vxio::fuzz::Cursor cursor(data, size);
    const uint64_t returned = cursor.take<uint32_t>();
    const uint64_t address = kAddresses[cursor.take<uint8_t>() % 3];
    const std::vector<uint8_t> answer(cursor.rest(), cursor.rest() + cursor.left());
    const uint8_t *bytes = answer.empty() ? nullptr : answer.data();

    check_table(bytes, answer.size(), returned);
    check_object_name(bytes, answer.size(), returned, address);
    check_file_name(bytes, answer.size(), returned);
    return 0;
}
