// Fuzz target of the restore records of the security-descriptor engine.
// The input bytes are taken both as the descriptor text handed to
// "Restore" and as the bytes of a restore file. For any bytes:
//  - split as a text, the records are the runs between the '>'
//    characters, in order: none empty, none holding '>', and every byte of
//    the input is in a record or a run of '>';
//  - split as a file, every byte is in a record, a run of '>' or a CR
//    dropped before an LF; no record holds '>', an LF only at its end, or a
//    CR that stood before an LF; and records end only at a '>', an LF, the
//    end, or where a line reaches 4095 characters (a dropped CR uncounted);
//  - a parsed record's name ends before the first '",' of the record
//    (behind its leading quote), its SDDL text is the record's tail, the
//    type text between them holds no ',"', and the type is the leading
//    digits held at 4294967295; a malformed record lacks one of the two
//    pairs; "nothing" is a record of line ends alone;
//  - an "sddl" record that "List" builds from a name, type and SDDL text
//    taken from the input parses back to them, from a text of two such
//    records and from a file of two such lines;
//  - splitting and parsing again give the same.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "acl/records.h"
#include "tests/fuzz/fuzz_support.h"

using namespace vxio::acl;

namespace {

constexpr const char *kTarget = "restore_records";

// Walks the text split: records and '>' runs must make up the input.
void check_text_split(std::string_view in, const std::vector<std::string> &records) {
    const size_t size = in.size();
    VXIO_REQUIRE(records.size() <= (size + 1) / 2);
    size_t at = 0;
    for (const std::string &r : records) {
        while (at < size && in[at] == '>') ++at;
        VXIO_REQUIRE(!r.empty() && r.find('>') == std::string::npos);
        VXIO_REQUIRE(in.substr(at, r.size()) == r);
        at += r.size();
        VXIO_REQUIRE(at == size || in[at] == '>');
    }
    while (at < size && in[at] == '>') ++at;
    VXIO_REQUIRE(at == size);
}

// Walks the file split against the raw bytes, counting each line's
// characters as the reader does.
void check_file_split(std::string_view in, const std::vector<std::string> &records) {
    const size_t size = in.size();
    size_t at = 0, line = 0;
    auto dropped_cr = [&](size_t k) { return in[k] == '\r' && k + 1 < size && in[k + 1] == '\n'; };
    auto skip_separators = [&] {
        while (at < size && in[at] == '>') {
            ++at;
            if (++line == kRestoreLineLength) line = 0;
        }
    };
    for (const std::string &r : records) {
        skip_separators();
        VXIO_REQUIRE(!r.empty() && r.find('>') == std::string::npos);
        const bool endsLine = r.back() == '\n';
        const std::string_view body(r.data(), r.size() - (endsLine ? 1 : 0));
        VXIO_REQUIRE(body.find('\n') == std::string_view::npos);
        VXIO_REQUIRE(in.substr(at, body.size()) == body);
        for (size_t k = at; k < at + body.size(); ++k) VXIO_REQUIRE(!dropped_cr(k));
        at += body.size();
        line += r.size();
        VXIO_REQUIRE(line <= kRestoreLineLength);
        if (endsLine) {
            if (at < size && dropped_cr(at)) ++at;
            VXIO_REQUIRE(at < size && in[at] == '\n');
            ++at;
            line = 0;
        } else if (line == kRestoreLineLength) {
            line = 0;  // cut where the line is full
        } else {
            VXIO_REQUIRE(at == size || in[at] == '>');
        }
    }
    skip_separators();
    VXIO_REQUIRE(at == size);
}

uint32_t held_decimal(std::string_view text) {
    uint64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') break;
        value = value * 10 + static_cast<uint64_t>(c - '0');
        if (value > UINT32_MAX) return UINT32_MAX;
    }
    return static_cast<uint32_t>(value);
}

void check_parse(const std::string &record, size_t size) {
    RestoreRecord out, again;
    const RestoreParse parsed = parse_restore_record(record, out);
    VXIO_REQUIRE(parse_restore_record(record, again) == parsed);
    if (parsed == RestoreParse::kNothing) {
        VXIO_REQUIRE(record.find_first_not_of("\r\n") == std::string::npos);
        return;
    }
    VXIO_REQUIRE(record.find_first_not_of("\r\n") != std::string::npos);
    // The record as the fields are looked for in it.
    std::string_view body(record);
    if (!body.empty() && body.back() == '\n') body.remove_suffix(1);
    if (!body.empty() && body.back() == '\r') body.remove_suffix(1);
    if (!body.empty() && body.back() == '"') body.remove_suffix(1);
    if (!body.empty() && body.front() == '"') body.remove_prefix(1);
    const size_t nameEnd = body.find("\",");
    if (parsed == RestoreParse::kMalformed) {
        VXIO_REQUIRE(nameEnd == std::string_view::npos ||
                     body.find(",\"", nameEnd + 2) == std::string_view::npos);
        return;
    }
    VXIO_REQUIRE(parsed == RestoreParse::kRecord);
    VXIO_REQUIRE(out.objectName.size() == nameEnd && body.substr(0, nameEnd) == out.objectName);
    const size_t typeStart = nameEnd + 2;
    VXIO_REQUIRE(out.sddl.size() + 2 + typeStart <= body.size());
    const size_t typeEnd = body.size() - out.sddl.size() - 2;
    VXIO_REQUIRE(body.substr(typeEnd) == ",\"" + out.sddl);
    const std::string_view type = body.substr(typeStart, typeEnd - typeStart);
    VXIO_REQUIRE(type.find(",\"") == std::string_view::npos);
    VXIO_REQUIRE(out.objectType == held_decimal(type));
    VXIO_REQUIRE(again.objectName == out.objectName && again.objectType == out.objectType &&
                 again.sddl == out.sddl);
}

// Name, type and SDDL text out of the input: a 4-byte type, then the name
// up to the first zero byte, then the SDDL text.
void check_round_trip(const uint8_t *data, size_t size) {
    vxio::fuzz::Cursor cursor(data, size);
    const uint32_t type = cursor.take<uint32_t>();
    const std::string rest(reinterpret_cast<const char *>(cursor.rest()), cursor.left());
    const size_t zero = rest.find('\0');
    if (zero == std::string::npos) return;
    const std::string name = rest.substr(0, zero), sddl = rest.substr(zero + 1);
    // What "List" can write and read back: a quoted name, no '>' anywhere.
    if (name.empty() || name[0] == '"' || name.find("\",") != std::string::npos ||
        name.find('>') != std::string::npos || sddl.find('>') != std::string::npos)
        return;
    AclCommand command;
    command.listFormat = kFormatSddl;
    const std::string record = list_record(command, name, type, sddl, DescriptorView());
    const std::string expected = "\"" + name + "\"," + std::to_string(type) + ",\"" + sddl + "\"";
    if (record != expected + ">>>") return;  // too long: the pieces that did not fit are left out

    auto same = [&](const RestoreRecord &r) {
        return r.objectName == name && r.objectType == type && r.sddl == sddl;
    };
    const std::vector<std::string> pieces = split_restore_text(record + record);
    VXIO_REQUIRE(pieces.size() == 2);
    for (const std::string &piece : pieces) {
        RestoreRecord out;
        VXIO_REQUIRE(parse_restore_record(piece, out) == RestoreParse::kRecord && same(out));
    }
    // A listing file: each record on a line of its own.
    if ((name + sddl).find_first_of("\r\n") != std::string::npos ||
        record.size() + 1 > kRestoreLineLength)
        return;
    const std::vector<std::string> lines = split_restore_file(record + "\r\n" + record + "\r\n");
    VXIO_REQUIRE(lines.size() == 4);
    for (size_t i = 0; i < lines.size(); ++i) {
        RestoreRecord out;
        const RestoreParse parsed = parse_restore_record(lines[i], out);
        VXIO_REQUIRE(i % 2 ? parsed == RestoreParse::kNothing
                           : parsed == RestoreParse::kRecord && same(out));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // Exactly size bytes, without a terminator behind them.
    const std::vector<char> bytes(data, data + size);
    const std::string_view in(bytes.data(), size);

    const std::vector<std::string> text = split_restore_text(in);
    check_text_split(in, text);
    VXIO_REQUIRE(split_restore_text(in) == text);
    for (const std::string &r : text) check_parse(r, size);

    const std::vector<std::string> file = split_restore_file(in);
    check_file_split(in, file);
    VXIO_REQUIRE(split_restore_file(in) == file);
    for (const std::string &r : file) check_parse(r, size);

    check_round_trip(data, size);
    return 0;
}
