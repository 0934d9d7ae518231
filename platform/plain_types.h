// The few Windows types that the parsers of outside bytes name, for code
// that must also build natively (the fuzz targets, on Linux, with clang).
// On Windows they are the system's own; elsewhere they are declared here
// with the same widths. UTF-16 text is always handled as char16_t units,
// never as wchar_t, which is 4 bytes wide outside Windows.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(_WIN32)
#include <windows.h>
#else
using BYTE = uint8_t;
using USHORT = uint16_t;
using WORD = uint16_t;
using DWORD = uint32_t;
using ULONG = uint32_t;
using LONG = int32_t;
using ULONGLONG = uint64_t;
using ULONG_PTR = uintptr_t;
using SIZE_T = size_t;
#endif

namespace vxio {
// One UTF-16 code unit, as the system's native texts store them.
using Utf16Unit = char16_t;
static_assert(sizeof(Utf16Unit) == 2, "UTF-16 units are two bytes");
}  // namespace vxio
