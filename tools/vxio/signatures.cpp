// The signature list's parser and the table of its signatures. No system
// call here: this is the part of the list handling that outside bytes
// reach, fuzzed natively (tests/fuzz/signatures_fuzz.cpp).
#include "signatures.h"

#include <string.h>

#include <utility>

namespace vxio_tool {
namespace {

constexpr size_t kFirstCapacity = 1024;

// The digests are the list's own bytes, so a list could be made of hashes
// that share their first bytes: every byte of the key is mixed in.
uint64_t mix(uint64_t x) {
    x ^= x >> 30;
    x *= 0xbf58476d1ce4e5b9ull;
    x ^= x >> 27;
    x *= 0x94d049bb133111ebull;
    return x ^ (x >> 31);
}

uint64_t key_hash(const uint8_t sha1[kSignatureHashSize], uint64_t size) {
    uint64_t words[3] = {};
    memcpy(words, sha1, kSignatureHashSize);
    return mix(mix(mix(words[0] ^ size) ^ words[1]) ^ words[2]);
}

// Hex digit values, -1 for any other byte: a list of a million lines has
// forty million digits.
struct HexDigits {
    int8_t value[256];
    constexpr HexDigits() : value() {
        for (int c = 0; c < 256; ++c)
            value[c] = c >= '0' && c <= '9'   ? int8_t(c - '0')
                       : c >= 'a' && c <= 'f' ? int8_t(c - 'a' + 10)
                       : c >= 'A' && c <= 'F' ? int8_t(c - 'A' + 10)
                                              : int8_t(-1);
    }
};
constexpr HexDigits kHex;

int hex_value(char c) { return kHex.value[static_cast<unsigned char>(c)]; }

}  // namespace

SignatureTable::SignatureTable() : slots_(kFirstCapacity), sizeSlots_(kFirstCapacity) {}

size_t SignatureTable::find_slot(uint64_t hash, const uint8_t sha1[kSignatureHashSize],
                                 uint64_t size) const {
    const size_t mask = slots_.size() - 1;
    const uint64_t tag = hash >> 32;
    // At most half the slots are taken, so the probe meets a free one.
    for (size_t i = hash & mask;; i = (i + 1) & mask) {
        const uint64_t slot = slots_[i];
        if (slot == 0) return i;
        if (slot >> 32 != tag) continue;
        const Entry &e = entries_[(slot & 0xFFFFFFFFu) - 1];
        if (e.size == size && memcmp(e.sha1, sha1, kSignatureHashSize) == 0) return i;
    }
}

size_t SignatureTable::find_size_slot(uint64_t size) const {
    const size_t mask = sizeSlots_.size() - 1;
    for (size_t i = mix(size) & mask;; i = (i + 1) & mask)
        if (sizeSlots_[i] == 0 || sizeSlots_[i] == size + 1) return i;
}

// Entries are all different, so they go back in order of the list, read
// from front to back, without comparing any two.
void SignatureTable::grow_entries(size_t capacity) {
    std::vector<uint64_t> fresh(capacity);
    const size_t mask = capacity - 1;
    for (size_t n = 0; n < entries_.size(); ++n) {
        const uint64_t hash = key_hash(entries_[n].sha1, entries_[n].size);
        size_t i = hash & mask;
        while (fresh[i] != 0) i = (i + 1) & mask;
        fresh[i] = (hash >> 32) << 32 | (n + 1);
    }
    slots_.swap(fresh);
}

void SignatureTable::grow_sizes() {
    std::vector<uint64_t> old(sizeSlots_.size() * 2);
    old.swap(sizeSlots_);
    for (uint64_t taken : old)
        if (taken) sizeSlots_[find_size_slot(taken - 1)] = taken;
}

void SignatureTable::reserve(size_t count) {
    count = count < kSignaturesMax ? count : kSignaturesMax;
    entries_.reserve(count);
    size_t capacity = slots_.size();
    while (capacity < count * 2) capacity *= 2;
    if (capacity > slots_.size()) grow_entries(capacity);
}

bool SignatureTable::add(const uint8_t sha1[kSignatureHashSize], uint64_t size, const char *name,
                         size_t nameLength) {
    if (size != kAnySize && size > kSignatureSizeMax) return false;
    const uint64_t hash = key_hash(sha1, size);
    size_t slot = find_slot(hash, sha1, size);
    if (slots_[slot] != 0) return true;  // the first of the two stays
    // Offsets are 32-bit: the names of a full table stay far below 4 GiB
    // (lines are at most 4 KiB, and a list that large is refused here).
    if (entries_.size() >= kSignaturesMax || names_.size() + nameLength + 1 > 0xFFFFFFFFu)
        return false;
    if ((entries_.size() + 1) * 2 > slots_.size()) {
        grow_entries(slots_.size() * 2);
        slot = find_slot(hash, sha1, size);
    }
    Entry entry;
    memcpy(entry.sha1, sha1, kSignatureHashSize);
    entry.nameOffset = static_cast<uint32_t>(names_.size());
    entry.size = size;
    names_.insert(names_.end(), name, name + nameLength);
    names_.push_back('\0');
    entries_.push_back(entry);
    slots_[slot] = (hash >> 32) << 32 | entries_.size();

    if (size == kAnySize) {
        anySize_ = true;
    } else if (sizeSlots_[find_size_slot(size)] == 0) {
        if ((sizeCount_ + 1) * 2 > sizeSlots_.size()) grow_sizes();
        sizeSlots_[find_size_slot(size)] = size + 1;
        ++sizeCount_;
    }
    return true;
}

bool SignatureTable::wants(uint64_t size) const {
    if (anySize_) return true;
    return size <= kSignatureSizeMax && sizeSlots_[find_size_slot(size)] != 0;
}

const char *SignatureTable::match(const uint8_t sha1[kSignatureHashSize], uint64_t size) const {
    for (const uint64_t asked : {size, kAnySize}) {
        if (asked == kAnySize ? !anySize_ : asked > kSignatureSizeMax) continue;
        const uint64_t taken = slots_[find_slot(key_hash(sha1, asked), sha1, asked)];
        if (taken) return &names_[entries_[(taken & 0xFFFFFFFFu) - 1].nameOffset];
    }
    return nullptr;
}

bool SignatureParser::fail(const char *reason) {
    reason_ = reason;
    return false;
}

bool SignatureParser::feed(const char *data, size_t size) {
    if (!reason_.empty()) return false;
    const char *const end = data + size;
    while (data < end) {
        const char *lineEnd = static_cast<const char *>(memchr(data, '\n', end - data));
        const size_t length = (lineEnd ? lineEnd : end) - data;
        // + 4: a byte-order mark and a CR, which take_line strips.
        if (pending_.size() + length > kSignatureLineMax + 4) {
            ++line_;
            return fail("longer than 4096 bytes");
        }
        if (!lineEnd) {
            pending_.append(data, length);
            return true;
        }
        if (pending_.empty()) {
            if (!take_line(data, length)) return false;
        } else {
            pending_.append(data, length);
            if (!take_line(pending_.data(), pending_.size())) return false;
            pending_.clear();
        }
        data = lineEnd + 1;
    }
    return true;
}

bool SignatureParser::finish() {
    if (!reason_.empty()) return false;
    if (pending_.empty()) return true;
    const std::string last = std::move(pending_);
    pending_.clear();
    return take_line(last.data(), last.size());
}

bool SignatureParser::take_line(const char *text, size_t length) {
    ++line_;
    if (line_ == 1 && length >= 3 && memcmp(text, "\xEF\xBB\xBF", 3) == 0) text += 3, length -= 3;
    if (length && text[length - 1] == '\r') --length;
    if (length > kSignatureLineMax) return fail("longer than 4096 bytes");
    size_t blanks = 0;
    while (blanks < length && (text[blanks] == ' ' || text[blanks] == '\t')) ++blanks;
    if (blanks == length || text[0] == '#') return true;

    uint8_t sha1[kSignatureHashSize];
    if (length < 2 * kSignatureHashSize + 1 || text[2 * kSignatureHashSize] != ':')
        return fail("the hash is not 40 hex digits");
    for (size_t i = 0; i < kSignatureHashSize; ++i) {
        const int high = hex_value(text[2 * i]), low = hex_value(text[2 * i + 1]);
        if (high < 0 || low < 0) return fail("the hash is not 40 hex digits");
        sha1[i] = static_cast<uint8_t>(high << 4 | low);
    }

    size_t at = 2 * kSignatureHashSize + 1;
    const size_t sizeStart = at;
    while (at < length && text[at] != ':') ++at;
    if (at == length) return fail("no name");
    uint64_t size = 0;
    if (at - sizeStart == 1 && text[sizeStart] == '*') {
        size = SignatureTable::kAnySize;
    } else {
        if (at == sizeStart) return fail("the size is not a byte count or *");
        for (size_t i = sizeStart; i < at; ++i) {
            const char c = text[i];
            if (c < '0' || c > '9' || size > (kSignatureSizeMax - (c - '0')) / 10)
                return fail("the size is not a byte count or *");
            size = size * 10 + static_cast<uint64_t>(c - '0');
        }
    }

    const size_t nameStart = at + 1;
    if (nameStart >= length) return fail("no name");
    for (size_t i = nameStart; i < length; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        // The name is printed on the detection's line and in JSON as it
        // is: a control character could forge output, and bytes beyond
        // ASCII would need an encoding the list does not state.
        if (c < 0x20 || c > 0x7E) return fail("the name is not printable ASCII");
    }
    if (!table_.add(sha1, size, text + nameStart, length - nameStart))
        return fail("more signatures than a table holds");
    return true;
}

}  // namespace vxio_tool
