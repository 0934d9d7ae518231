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

/* Exports are resolved through the import library or GetProcAddress; no
 * dllimport decoration is needed for functions. */
#define VXIO_API

#define VXIO_VERSION_MAJOR 0
#define VXIO_VERSION_MINOR 1
#define VXIO_VERSION_PATCH 0
#define VXIO_VERSION_STRING "0.1.0"

#endif /* VXIO_BASE_H */
