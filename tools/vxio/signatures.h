// Lists of known-bad file hashes for "vxio scan --signatures" and "vxio
// startup --signatures": the parser of the list and the table a scan asks.
// The parser and the table touch no system object (the list is outside
// input, so they are fuzzed natively); only load_signatures reads a file.
//
// The list holds one signature a line, SHA1HEX:SIZE:NAME:
//   # known bad (a comment; blank lines are skipped too)
//   3395856ce81f2b7382dee72602f798b642f14140:68:Eicar-Test-Signature
//   da39a3ee5e6b4b0d3255bfef95601890afd80709:*:Empty-File
// SHA1HEX is 40 hex digits (either case), SIZE the file's size in bytes
// in decimal or * for any size, NAME the rest of the line (not empty,
// printable ASCII; colons allowed). Lines may end in CR LF, and
// a UTF-8 byte-order mark may open the list. Any other line is bad, and a
// bad line rejects the whole list.
#ifndef VXIO_TOOL_SIGNATURES_H
#define VXIO_TOOL_SIGNATURES_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace vxio_tool {

constexpr size_t kSignatureHashSize = 20;
// Longest line taken (its line end left out): a name of a few hundred
// bytes is already far beyond what lists hold; the bound keeps a list
// without line breaks from growing the parser's pending line.
constexpr size_t kSignatureLineMax = 4096;
// Most signatures one table holds (about 4 GiB of memory at the limit).
constexpr size_t kSignaturesMax = size_t(1) << 26;
// File sizes are signed 64-bit numbers to the system, so no larger SIZE
// can match anything.
constexpr uint64_t kSignatureSizeMax = 0x7FFFFFFFFFFFFFFFull;

// The signatures of one list. A file is first asked about by size alone
// (wants), so that only files some signature could match are hashed;
// match then finds the signature of (hash, size) in constant time.
class SignatureTable {
  public:
    SignatureTable();

    // Adds a signature for files of size bytes (kAnySize: any size). Of
    // two with the same hash and size the first is kept. False when the
    // table is full or size is above kSignatureSizeMax.
    static constexpr uint64_t kAnySize = ~0ull;
    bool add(const uint8_t sha1[kSignatureHashSize], uint64_t size, const char *name,
             size_t nameLength);
    // Room for about count signatures, so that a long list is not copied
    // as it grows; a hint only (held to kSignaturesMax).
    void reserve(size_t count);

    // True when some signature is for files of size bytes.
    bool wants(uint64_t size) const;
    // The name of the signature of a file with this digest and size (ends
    // in a NUL), or null. The name lives as long as the table, unchanged
    // while nothing is added.
    const char *match(const uint8_t sha1[kSignatureHashSize], uint64_t size) const;

    size_t count() const { return entries_.size(); }

  private:
    // Plain records, so that growing the list copies bytes: the names live
    // apart, one after the other, each ending in a NUL.
    struct Entry {
        uint8_t sha1[kSignatureHashSize];
        uint32_t nameOffset;
        uint64_t size;
    };
    size_t find_slot(uint64_t hash, const uint8_t sha1[kSignatureHashSize], uint64_t size) const;
    size_t find_size_slot(uint64_t size) const;
    void grow_entries(size_t capacity);
    void grow_sizes();

    std::vector<Entry> entries_;
    std::vector<char> names_;
    // Open addressing, capacity a power of two, at most half full. A slot
    // holds the key's hash in its high half, so that a probe compares
    // entries only when their hashes agree (a list is far larger than the
    // processor's caches), and entry index + 1 in its low half (0: free).
    // The size slots hold size + 1 (0: free).
    std::vector<uint64_t> slots_;
    std::vector<uint64_t> sizeSlots_;
    size_t sizeCount_ = 0;
    bool anySize_ = false;
};

// Reads a list given in pieces of any length (as they come from a file),
// adding each signature to the table. After the first bad line it takes
// nothing more, and line() and reason() tell where and why.
class SignatureParser {
  public:
    explicit SignatureParser(SignatureTable &table) : table_(table) {}
    bool feed(const char *data, size_t size);
    // The end of the list: takes a last line that has no line end.
    bool finish();

    uint64_t line() const { return line_; }
    const std::string &reason() const { return reason_; }

  private:
    bool take_line(const char *text, size_t length);
    bool fail(const char *reason);

    SignatureTable &table_;
    std::string pending_;  // the start of a line whose end has not come yet
    uint64_t line_ = 0;
    std::string reason_;
};

// Reads the list in the file at path (through the File backend, as the
// tool reads every file) into out, which is emptied first. On failure,
// error says why: "PATH: No such file or directory", or for a bad line
// "PATH:LINE: bad signature line (the size is not a byte count or *)";
// shown, when given, is the name printed for PATH (the user's, in UTF-8).
bool load_signatures(const std::string &path, SignatureTable &out, std::string &error,
                     const std::string &shown = std::string());

}  // namespace vxio_tool

#endif  // VXIO_TOOL_SIGNATURES_H
