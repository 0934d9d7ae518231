// PLACEHOLDER (being written): replaced by the real name cache.
#include "vxio/name_cache.h"
extern "C" DynArray *VOXA_IO_OpenNameCache(void) noexcept { return nullptr; }
extern "C" uint32_t VOXA_IO_AddNameToCache(DynArray *, const char *, uint32_t *) noexcept { return VXIO_CACHE_BAD_ARGUMENT; }
extern "C" uint32_t VOXA_IO_GetResultOfCacheFile(DynArray *, uint32_t, uint32_t *) noexcept { return 1; }
extern "C" uint32_t VOXA_IO_SetResultOfCacheFile(DynArray *, uint32_t, uint32_t) noexcept { return VXIO_CACHE_NOT_FOUND; }
extern "C" uint32_t VOXA_IO_GetNameFromCache(DynArray *, uint32_t, char **, uint32_t *) noexcept { return VXIO_CACHE_NOT_FOUND; }
extern "C" uint32_t VOXA_IO_CloseNameCache(DynArray *) noexcept { return 0; }
