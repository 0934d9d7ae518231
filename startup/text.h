// Small text helpers shared by the startup scan and its repairs, and the
// one way both read a registry value whole.
#pragma once

#include <cstdint>

#include "util/owner.h"

namespace vxio::startup {

using Text = ZeltaPtr<char>;

// An uninitialised block of size bytes (ZELTA_mymalloc), or an empty Text.
inline Text allocate_text(uint64_t size) noexcept {
    return Text(static_cast<char *>(ZELTA_mymalloc(size)));
}

// Null and "" alike: the records keep empty texts as null fields.
inline bool is_empty(const char *text) noexcept { return !text || !*text; }

// Registry names and data are first asked into buffers of this size.
constexpr DWORD kFirstRegistryRead = 1024;
// The most value data read whole: twice the longest command line the
// system starts a program with (32767 characters, up to two bytes each in
// a double-byte code page), so whatever a start-up entry can run fits.
// Longer data is never read in part (a part cut at the bound could name a
// path that is not there) and never asks for more memory: it is held as
// empty text, while the value's name and type are still read (see
// read_whole).
constexpr DWORD kMaxRegistryData = 64 * 1024;
// Value names are at most 16383 characters, up to two bytes each, and a
// terminator.
constexpr DWORD kMaxValueName = 2 * 16383 + 1;

// A registry name or data buffer: `size` bytes are offered to the system
// and one more is kept for a terminator, since data need not end in one (a
// REG_SZ stored without it, REG_BINARY, REG_DWORD) and is then read as
// text.
class RegistryBuffer {
public:
    bool allocate(DWORD size) noexcept {
        block_ = allocate_text(uint64_t{size} + 1);
        size_ = block_ ? size : 0;
        return static_cast<bool>(block_);
    }
    char *get() const noexcept { return block_.get(); }
    BYTE *bytes() const noexcept { return reinterpret_cast<BYTE *>(block_.get()); }
    DWORD size() const noexcept { return size_; }
    // Ends the text after the length bytes the system wrote, within the
    // bytes held.
    void terminate(DWORD length) noexcept { block_.get()[length < size_ ? length : size_] = '\0'; }

private:
    Text block_;
    DWORD size_ = 0;
};

struct RegistryRead {
    LSTATUS status;
    DWORD length;   // the data's size as the system reported it
    bool noMemory;  // a buffer could not be had (ERROR_NOT_ENOUGH_MEMORY)
};

// One registry read made whole: query(name, nameLength, data, dataLength)
// is asked into buffers of kFirstRegistryRead bytes, and when the system
// answers ERROR_MORE_DATA once more into buffers grown to what it needs:
// the data to the size it reported, the name (of a listing; null `name`:
// a single value) to the longest a value name can be, as the system does
// not report the length of a name that did not fit. Data beyond
// kMaxRegistryData is not asked for the second time (null data and size),
// so that the name and type still come, and is held as "". A value that grows again between
// the two reads fails with ERROR_MORE_DATA. On success both texts are
// terminated within the bytes held.
template <typename Query>
RegistryRead read_whole(Query query, RegistryBuffer &data, RegistryBuffer *name) noexcept {
    const RegistryRead noMemory{ERROR_NOT_ENOUGH_MEMORY, 0, true};
    if (!data.allocate(kFirstRegistryRead) || (name && !name->allocate(kFirstRegistryRead)))
        return noMemory;
    DWORD nameLength = name ? name->size() : 0, dataLength = data.size();
    LSTATUS status = query(name ? name->get() : nullptr, &nameLength, data.bytes(), &dataLength);
    bool leftOut = false;
    if (status == ERROR_MORE_DATA) {
        leftOut = dataLength > kMaxRegistryData;
        // A single value whose data is said to fit cannot be read better.
        if (!name && !leftOut && dataLength <= data.size())
            return {status, dataLength, false};
        if (name && !name->allocate(kMaxValueName)) return noMemory;
        if (!leftOut && dataLength > data.size() && !data.allocate(dataLength)) return noMemory;
        const DWORD reported = dataLength;
        nameLength = name ? name->size() : 0;
        dataLength = data.size();
        status = query(name ? name->get() : nullptr, &nameLength, leftOut ? nullptr : data.bytes(),
                       leftOut ? nullptr : &dataLength);
        if (leftOut) dataLength = reported;
    }
    if (status == ERROR_SUCCESS) {
        data.terminate(leftOut ? 0 : dataLength);
        if (name) name->terminate(nameLength);
    }
    return {status, dataLength, false};
}

}  // namespace vxio::startup
