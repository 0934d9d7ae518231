// SHA-1 inside the library: the two compression functions and the switch
// that picks between them. Shared by util/sha1.cpp, util/sha1_ni.cpp and the
// white-box tests; nothing here is exported.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vxio::sha1 {

// A compression function folds count consecutive 64-byte blocks into the
// five intermediate hash words. Blocks may be unaligned.
using CompressFn = void (*)(uint32_t state[5], const uint8_t *blocks, size_t count) noexcept;

// Plain C++, any x86-64.
void compress_portable(uint32_t state[5], const uint8_t *blocks, size_t count) noexcept;

// The x86 SHA extensions. Call only when cpu_has_sha_extensions() is true.
void compress_accelerated(uint32_t state[5], const uint8_t *blocks, size_t count) noexcept;

// CPUID: SHA (leaf 7, EBX bit 29), SSE4.1 and SSSE3 (leaf 1, ECX bits 19
// and 9). Asks the processor on every call.
bool cpu_has_sha_extensions() noexcept;

// Auto follows CPUID; the others pin a path (tests use Portable to reach
// the fallback on a processor that has the extensions).
enum class Path { Auto, Portable, Accelerated };

// Sets the choice and returns the path now in effect, which is Portable
// when Accelerated is asked for on a processor without the extensions.
Path force_path(Path path) noexcept;

// The path that compression uses now: Portable or Accelerated, never Auto.
Path active_path() noexcept;

// The compression function of the active path. The Auto choice is made on
// first use and kept; any thread may make it, and all reach the same one.
CompressFn compressor() noexcept;

}  // namespace vxio::sha1
