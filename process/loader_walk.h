// The walk through another process's memory that names its modules and
// its own texts: environment block -> loader data -> the load-order list
// of loader entries -> each entry's full name; environment block ->
// process parameters -> the DLL search path, the image path and the
// command line. Bytes in, plain records out: no system call and no
// Windows header, so that it can be fuzzed natively. The target's memory
// is reached only through the reader it is given; a pointer read from the
// target is never dereferenced here.
//
// Everything the target holds may lie: lists that loop without coming
// back to their head, links into the middle of an entry, texts that claim
// 64 KiB and stop being readable after a few bytes. The walk takes each
// entry once, at most kLoaderModuleLimit entries and kLoaderReadBudget
// bytes, and of each text reads only the bytes that will be converted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "platform/plain_types.h"

namespace vxio::process {

// Reads size bytes at address in the target into out; true only when all
// of them were read. Any object with that read member can be passed.
class RemoteRead {
public:
    // Not a copy: a reader of readers would point at a copy that may be gone.
    template <typename Reader,
              typename = std::enable_if_t<!std::is_same_v<std::decay_t<Reader>, RemoteRead>>>
    explicit RemoteRead(Reader &reader) noexcept
        : context_(&reader), read_([](void *context, uint64_t address, void *out, size_t size) {
              return static_cast<Reader *>(context)->read(address, out, size);
          }) {}
    bool read(uint64_t address, void *out, size_t size) const {
        return read_(context_, address, out, size);
    }

private:
    void *context_;
    bool (*read_)(void *, uint64_t, void *, size_t);
};

// The environment block (64-bit layout, the first 644 bytes are read):
//   +0x002 being-debugged flag   +0x010 image base   +0x018 loader data
//   +0x020 process parameters    +0x0B8 processor count   +0x0BC global flag
constexpr size_t kEnvironmentBlockRead = 644;

struct EnvironmentBlock {
    uint8_t beingDebugged = 0;
    uint32_t globalFlag = 0;
    uint32_t processors = 0;
    uint64_t imageBase = 0;
    uint64_t loaderData = 0;
    uint64_t parameters = 0;
};

// False (out cleared) when the block cannot be read whole.
bool read_environment_block(RemoteRead target, uint64_t address, EnvironmentBlock &out) noexcept;

// The loader data (72 bytes read) holds the head of the load-order list at
// +0x10. Each loader entry (156 bytes read) starts with its forward link,
// and holds the image base at +0x30, the entry point at +0x38, the image
// size at +0x40 and the full name (a counted UTF-16 text: 16-bit length in
// bytes, then at +0x50 the address of its characters) at +0x48. A name is
// read up to 258 bytes: the 129 characters the engine keeps of a path.
// A process of the real world has a few hundred modules, each costing one
// entry and one path, far within the entries and bytes the walk allows.
constexpr uint32_t kLoaderModuleLimit = 8192;
constexpr size_t kLoaderReadBudget = 2u << 20;
constexpr size_t kModulePathBytes = 258;
// The visited set's slots the walk needs (see VisitedSet): the caller
// provides them, as it allocates its own way.
constexpr uint32_t kLoaderVisitedSlots = 2 * kLoaderModuleLimit;

struct LoaderModule {
    uint64_t entry = 0;  // the entry's address in the target
    uint64_t imageBase = 0;
    uint64_t entryPoint = 0;
    uint32_t imageSize = 0;
    size_t pathBytes = 0;  // even; 0 when the name is empty or unreadable
    Utf16Unit path[kModulePathBytes / 2] = {};
};

// Takes each module in load order; returning false stops the walk.
class LoaderVisitor {
public:
    virtual bool module(const LoaderModule &module) noexcept = 0;

protected:
    ~LoaderVisitor() = default;
};

// Walks the list of the loader data at loaderData. The walk ends where the
// list comes back to its head, at the first entry already taken, at a null
// or unreadable link, or when the entries or bytes allowed are spent; a
// name that cannot be read (or is past the budget) leaves its module
// unnamed. slots: kLoaderVisitedSlots zeroed words. False only when the
// visitor stopped the walk.
bool walk_loader_modules(RemoteRead target, uint64_t loaderData, uint64_t *slots,
                         LoaderVisitor &visitor) noexcept;

// The process parameters (832 bytes read) hold three counted texts: the
// DLL search path at +0x50, the image path at +0x60 and the command line
// at +0x70, read up to 8190, 258 and 4094 bytes (the fields the engine
// keeps them in). A text that cannot be read is empty.
constexpr size_t kParametersRead = 832;
constexpr size_t kDllPathBytes = 8190;
constexpr size_t kImagePathBytes = 258;
constexpr size_t kCommandLineBytes = 4094;

struct ProcessTexts {
    size_t dllPathBytes = 0, imagePathBytes = 0, commandLineBytes = 0;  // even
    Utf16Unit dllPath[kDllPathBytes / 2] = {};
    Utf16Unit imagePath[kImagePathBytes / 2] = {};
    Utf16Unit commandLine[kCommandLineBytes / 2] = {};
};

// False (out cleared) when the parameters cannot be read whole.
bool read_process_texts(RemoteRead target, uint64_t parameters, ProcessTexts &out) noexcept;

}  // namespace vxio::process
