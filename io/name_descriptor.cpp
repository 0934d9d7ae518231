#include "io/name_descriptor.h"

#include <cstring>

#include "platform/os.h"
#include "vxio/io.h"

namespace vxio::io {

using platform::os;

namespace {

uint64_t from_wide(const wchar_t *text, char *buffer) {
    // The standard conversion into the current 8-bit code page; a name that
    // does not fit the work buffer fails the conversion.
    const int written = os.WideCharToMultiByte(CP_ACP, 0, text, -1, buffer,
                                               static_cast<int>(kWorkBufferSize), nullptr, nullptr);
    return written > 0 ? VXIO_IO_OK : VXIO_IO_BAD_NAME;
}

}  // namespace

uint64_t convert_name(const void *name, uint32_t kind, char *buffer) {
    if (!name || !buffer) return VXIO_IO_BAD_NAME;
    const auto *bytes = static_cast<const uint8_t *>(name);
    switch (kind) {
    case VXIO_NAME_ANSI: {
        // A name that fills the whole buffer would lose its terminator: it
        // is refused rather than copied cut.
        const size_t length = strnlen(static_cast<const char *>(name), kWorkBufferSize);
        if (length >= kWorkBufferSize) return VXIO_IO_BAD_NAME;
        std::memcpy(buffer, name, length + 1);
        return VXIO_IO_OK;
    }
    case VXIO_NAME_WIDE:
        return from_wide(static_cast<const wchar_t *>(name), buffer);
    case VXIO_NAME_COUNTED_ANSI: {
        uint16_t stated;
        std::memcpy(&stated, bytes, sizeof stated);
        if (uint32_t(stated) + 1 > kWorkBufferSize) return VXIO_IO_BAD_NAME;
        // The record holds its stated length of text and the terminator
        // behind it; nothing past those bytes belongs to the name. A text
        // with no terminator there is refused, never read on into
        // whatever follows the record.
        const char *text = reinterpret_cast<const char *>(bytes + 4);
        const size_t length = strnlen(text, size_t(stated) + 1);
        if (length > stated) return VXIO_IO_BAD_NAME;
        std::memcpy(buffer, text, length + 1);
        return VXIO_IO_OK;
    }
    case VXIO_NAME_COUNTED_WIDE: {
        // The stated length counts bytes of UTF-16 text, as the system's
        // own counted strings do: the terminator must lie within the
        // stated characters and the one behind them, for the same reason
        // as above.
        uint16_t stated;
        std::memcpy(&stated, bytes, sizeof stated);
        const size_t characters = stated / sizeof(wchar_t);
        for (size_t i = 0; i <= characters; ++i) {
            wchar_t ch;
            std::memcpy(&ch, bytes + 4 + i * sizeof ch, sizeof ch);
            if (ch == L'\0') return from_wide(reinterpret_cast<const wchar_t *>(bytes + 4), buffer);
        }
        return VXIO_IO_BAD_NAME;
    }
    default:
        return VXIO_IO_BAD_NAME;
    }
}

}  // namespace vxio::io
