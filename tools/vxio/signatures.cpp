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

int hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

SignatureTable::SignatureTable() : slots_(kFirstCapacity), sizeSlots_(kFirstCapacity) {}

size_t SignatureTable::find_slot(const uint8_t sha1[kSignatureHashSize], uint64_t size) const {
    const size_t mask = slots_.size() - 1;
    // At most half the slots are taken, so the probe meets a free one.
    for (size_t i = key_hash(sha1, size) & mask;; i = (i + 1) & mask) {
        if (slots_[i] == 0) return i;
        const Entry &e = entries_[slots_[i] - 1];
        if (e.size == size && memcmp(e.sha1, sha1, kSignatureHashSize) == 0) return i;
    }
}

size_t SignatureTable::find_size_slot(uint64_t size) const {
    const size_t mask = sizeSlots_.size() - 1;
    for (size_t i = mix(size) & mask;; i = (i + 1) & mask)
        if (sizeSlots_[i] == 0 || sizeSlots_[i] == size + 1) return i;
}

void SignatureTable::grow_entries() {
    std::vector<uint32_t> old(slots_.size() * 2);
    old.swap(slots_);
    for (uint32_t taken : old)
        if (taken) slots_[find_slot(entries_[taken - 1].sha1, entries_[taken - 1].size)] = taken;
}

void SignatureTable::grow_sizes() {
    std::vector<uint64_t> old(sizeSlots_.size() * 2);
    old.swap(sizeSlots_);
    for (uint64_t taken : old)
        if (taken) sizeSlots_[find_size_slot(taken - 1)] = taken;
}

bool SignatureTable::add(const uint8_t sha1[kSignatureHashSize], uint64_t size, std::string name) {
    if (size != kAnySize && size > kSignatureSizeMax) return false;
    size_t slot = find_slot(sha1, size);
    if (slots_[slot] != 0) return true;  // the first of the two stays
    if (entries_.size() >= kSignaturesMax) return false;
    if ((entries_.size() + 1) * 2 > slots_.size()) {
        grow_entries();
        slot = find_slot(sha1, size);
    }
    Entry entry;
    memcpy(entry.sha1, sha1, kSignatureHashSize);
    entry.size = size;
    entry.name = std::move(name);
    entries_.push_back(std::move(entry));
    slots_[slot] = static_cast<uint32_t>(entries_.size());

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

const std::string *SignatureTable::match(const uint8_t sha1[kSignatureHashSize],
                                         uint64_t size) const {
    if (size <= kSignatureSizeMax) {
        const uint32_t taken = slots_[find_slot(sha1, size)];
        if (taken) return &entries_[taken - 1].name;
    }
    if (!anySize_) return nullptr;
    const uint32_t taken = slots_[find_slot(sha1, kAnySize)];
    return taken ? &entries_[taken - 1].name : nullptr;
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
    if (!table_.add(sha1, size, std::string(text + nameStart, length - nameStart)))
        return fail("more signatures than a table holds");
    return true;
}

}  // namespace vxio_tool
