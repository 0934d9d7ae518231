#include "io/name_descriptor.h"

#include <cstring>

#include "platform/os.h"
#include "vxio/io.h"

namespace vxio::io {

using platform::os;

uint64_t convert_name(const void *name, uint32_t kind, char *buffer) {
    if (!name || !buffer) return VXIO_IO_BAD_NAME;
    // The engine hands a bare pointer: the largest record of the kind is
    // taken as held, and the text is read no further than its terminator.
    const NameText text =
        LocateNameText(static_cast<const uint8_t *>(name), LargestNameSize(kind), kind);
    switch (text.form) {
    case NameForm::Ansi:
        if (text.units >= kWorkBufferSize) return VXIO_IO_BAD_NAME;
        std::memcpy(buffer, text.text, text.units);
        buffer[text.units] = '\0';
        return VXIO_IO_OK;
    case NameForm::Utf16: {
        // The standard conversion into the current 8-bit code page, the
        // terminator included; a name that does not fit the work buffer
        // fails the conversion.
        const int written = os.WideCharToMultiByte(
            CP_ACP, 0, reinterpret_cast<const wchar_t *>(text.text),
            static_cast<int>(text.units + 1), buffer, static_cast<int>(kWorkBufferSize), nullptr,
            nullptr);
        return written > 0 ? VXIO_IO_OK : VXIO_IO_BAD_NAME;
    }
    default:
        return VXIO_IO_BAD_NAME;
    }
}

}  // namespace vxio::io
