// Fuzz target of the module index reader. The input bytes are the index
// text (held in a block of exactly that size, so a read past it is
// caught). For any bytes:
//  - every name has 1 to 25 bytes, none of them white space, is
//    terminated after them and is not "END";
//  - each record takes 3 bytes of the text at least, and the reader never
//    stands past the text's end; once it has ended it stays ended;
//  - the records are those the C library's own scan ("%25s" then "%08x"
//    twice, over the same bytes as a stream) reads, up to "END" or the
//    first failed conversion. glibc takes "0x" with no digit after it as
//    the number 0 where the conversion fails by the C standard (and in the
//    engine's runtime): such a text is left out of this comparison;
//  - writing the records out again as the module report writes them, with
//    its "END" group, reads back the very same records.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "process/dump_index.h"
#include "tests/fuzz/fuzz_support.h"

using namespace vxio::process;

namespace {

constexpr const char *kTarget = "dump_index";

bool same(const DumpIndexRecord &a, const DumpIndexRecord &b) {
    return a.length == b.length && std::memcmp(a.name, b.name, a.length) == 0 && a.base == b.base &&
           a.size == b.size;
}

bool same(const std::vector<DumpIndexRecord> &a, const std::vector<DumpIndexRecord> &b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (!same(a[i], b[i])) return false;
    return true;
}

std::vector<DumpIndexRecord> read_all(const char *text, size_t size, size_t &position) {
    std::vector<DumpIndexRecord> records;
    DumpIndexReader reader(text, size);
    DumpIndexRecord record;
    while (reader.next(record)) records.push_back(record);
    position = reader.position();
    if (reader.next(record)) records.clear(), position = size + 1;  // an ended reader went on
    return records;
}

// The records as glibc's fscanf reads them from a stream of the bytes;
// false when glibc's "0x" reading makes the comparison moot.
bool scanned(const uint8_t *data, size_t size, std::vector<DumpIndexRecord> &records) {
    if (size == 0) return true;
    FILE *stream = fmemopen(const_cast<uint8_t *>(data), size, "r");
    if (!stream) return false;
    bool decided = true;
    for (;;) {
        DumpIndexRecord record;
        char name[kDumpIndexNameMax + 1] = {};
        int from = -1, to = -1;
        const long at = std::ftell(stream);
        if (std::fscanf(stream, " %n%25s%n", &from, name, &to) != 1 || from < 0 || to < from) break;
        record.length = static_cast<size_t>(to - from);
        std::memcpy(record.name, data + at + from, record.length);
        if (std::strcmp(record.name, "END") == 0) break;
        bool converted = true;
        for (uint32_t *value : {&record.base, &record.size}) {
            const long start = std::ftell(stream);
            unsigned number = 0;
            int end = -1;
            if (std::fscanf(stream, "%08x%n", &number, &end) != 1 || end <= 0) {
                converted = false;
                break;
            }
            const char last = static_cast<char>(data[start + end - 1]);
            if (last == 'x' || last == 'X') decided = false;
            *value = number;
        }
        if (!converted || !decided) break;
        records.push_back(record);
    }
    std::fclose(stream);
    return decided;
}

std::vector<char> written(const std::vector<DumpIndexRecord> &records) {
    std::vector<char> out;
    for (const DumpIndexRecord &r : records) {
        out.insert(out.end(), r.name, r.name + r.length);
        char numbers[32];
        const int n = std::snprintf(numbers, sizeof numbers, "\n%x\n%x\n", r.base, r.size);
        out.insert(out.end(), numbers, numbers + n);
    }
    static const char kEnd[] = "END\nffff\nffff";
    out.insert(out.end(), kEnd, kEnd + sizeof kEnd - 1);
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::vector<char> text(data, data + size);
    size_t position = 0;
    const std::vector<DumpIndexRecord> records = read_all(size ? text.data() : nullptr, size, position);

    VXIO_REQUIRE(position <= size);
    VXIO_REQUIRE(records.size() * 3 <= position);
    for (const DumpIndexRecord &r : records) {
        VXIO_REQUIRE(r.length >= 1 && r.length <= kDumpIndexNameMax && r.name[r.length] == '\0');
        for (size_t i = 0; i < r.length; ++i)
            VXIO_REQUIRE(r.name[i] != ' ' && (r.name[i] < '\t' || r.name[i] > '\r'));
        VXIO_REQUIRE(std::strcmp(r.name, "END") != 0);
    }

    std::vector<DumpIndexRecord> expected;
    if (scanned(data, size, expected)) VXIO_REQUIRE(same(records, expected));

    const std::vector<char> again = written(records);
    size_t end = 0;
    VXIO_REQUIRE(same(read_all(again.data(), again.size(), end), records));
    VXIO_REQUIRE(end == again.size() - 10);  // stopped right after "END"
    return 0;
}
