// PLACEHOLDER (being written): replaced by the real SHA-1.
#include "vxio/lock_sha1.h"
extern "C" int32_t SHA1Reset(SHA1Context *) noexcept { return shaNull; }
extern "C" int32_t SHA1Input(SHA1Context *, const uint8_t *, uint32_t) noexcept { return shaNull; }
extern "C" int32_t SHA1Result(SHA1Context *, uint8_t *) noexcept { return shaNull; }
