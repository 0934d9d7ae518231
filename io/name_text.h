// Where the text of a name descriptor lies, as plain records: the name
// kinds of name_descriptor.h taken apart over bytes of a known size,
// without converting anything (no Windows headers here), so that it builds
// and is fuzzed natively. name_descriptor.cpp converts what this finds.
//   kind 0: an 8-bit string;
//   kind 1: a UTF-16 string;
//   kind 2: a counted record: 16-bit length, two bytes, 8-bit text from
//           byte 4 (e.g. 05 00 00 00 'a' '.' 't' 'x' 't' 00);
//   kind 3: the same head with UTF-16 text from byte 4, the length in
//           bytes (e.g. 0A 00 00 00 'a' 0 '.' 0 't' 0 'x' 0 't' 0 0 0).
#pragma once

#include <cstddef>
#include <cstdint>

namespace vxio::io {

// The work buffer a name is converted into.
constexpr uint32_t kWorkBufferSize = 10240;

// The most bytes each kind can ask to be read; the engine hands a name
// over as a bare pointer, so these are the sizes taken as held.
//   kind 0: the work buffer (a longer text cannot fit it);
//   kind 1: two units for every byte of the work buffer (even a text of
//           pairs that each convert to one byte cannot be longer);
//   kind 2: the head, the longest stated text the buffer takes, and its
//           terminator;
//   kind 3: the head, the longest stated text and its terminator.
constexpr size_t kLargestAnsiName = kWorkBufferSize;
constexpr size_t kLargestWideName = 2 * 2 * size_t{kWorkBufferSize};
constexpr size_t kLargestCountedAnsiName = 4 + kWorkBufferSize;
constexpr size_t kLargestCountedWideName = 4 + 2 * (0xFFFF / 2 + 1);

enum class NameForm : uint8_t {
    Unreadable,  // status 50: the descriptor cannot be read
    Ansi,        // 8-bit text
    Utf16,       // UTF-16 text, two bytes a unit, in the system's byte order
};

struct NameText {
    NameForm form = NameForm::Unreadable;
    const uint8_t *text = nullptr;  // first byte of the text, inside the bytes given
    size_t units = 0;               // text units before the terminator (which follows them)
};

// The largest size a descriptor of this kind can take; 0 for an unknown
// kind.
size_t LargestNameSize(uint32_t kind);

// Finds the text of a name descriptor of `kind` in `size` bytes: the
// terminator must lie within them (and, for kinds 2 and 3, within the
// stated length and one terminator behind it), and an 8-bit text must fit
// the work buffer with its terminator. Nothing at or past the terminator
// is read. Unreadable for null bytes, an unknown kind, or a text that does
// not end where it must.
NameText LocateNameText(const uint8_t *bytes, size_t size, uint32_t kind);

}  // namespace vxio::io
