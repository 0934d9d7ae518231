/* vxio: declarations shared by every family header.
 *
 * The library exports plain C functions (names pinned by vxio.def, no
 * decoration on x64). Every export is noexcept when seen from C++: no
 * exception ever crosses the interface. */
#ifndef VXIO_BASE_H
#define VXIO_BASE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define VXIO_EXTERN_C_BEGIN extern "C" {
#define VXIO_EXTERN_C_END }
#define VXIO_NOEXCEPT noexcept
#define VXIO_STATIC_ASSERT(cond, name) static_assert(cond, #name)
#else
#define VXIO_EXTERN_C_BEGIN
#define VXIO_EXTERN_C_END
#define VXIO_NOEXCEPT
/* C99 has no _Static_assert: a negative array size stops the build. The
 * name says what is checked and keeps the typedefs apart. */
#define VXIO_STATIC_ASSERT(cond, name) typedef char vxio_layout_##name[(cond) ? 1 : -1]
#endif

/* Clients import from vxio.dll, so that the address of an export (as the
 * I/O tables hold them) is the DLL's own and not a local thunk. The library
 * itself, and code linked with its static form, define VXIO_BUILDING. */
#if defined(_WIN32) && !defined(VXIO_BUILDING)
#define VXIO_API __declspec(dllimport)
#else
#define VXIO_API
#endif

/* VXIO_VERSION_MAJOR, _MINOR, _PATCH and VXIO_VERSION_STRING: made by the
 * build from the project version, and installed beside this header. */
#include "vxio/version.h"

#endif /* VXIO_BASE_H */
