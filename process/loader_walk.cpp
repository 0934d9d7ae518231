// The walk of another process's loader list and parameters (see
// loader_walk.h).
#include "process/loader_walk.h"

#include <cstring>

#include "process/native_records.h"
#include "util/bytes.h"

namespace vxio::process {
namespace {


constexpr size_t kEnvBeingDebugged = 0x02;
constexpr size_t kEnvImageBase = 0x10;
constexpr size_t kEnvLoaderData = 0x18;
constexpr size_t kEnvParameters = 0x20;
constexpr size_t kEnvProcessors = 0xB8;
constexpr size_t kEnvGlobalFlag = 0xBC;

constexpr size_t kLoaderDataRead = 72;
constexpr size_t kLoaderLoadOrderList = 0x10;
constexpr size_t kLoaderEntryRead = 156;
constexpr size_t kEntryDllBase = 0x30;
constexpr size_t kEntryEntryPoint = 0x38;
constexpr size_t kEntryImageSize = 0x40;
constexpr size_t kEntryFullName = 0x48;

constexpr size_t kParamDllPath = 0x50;
constexpr size_t kParamImagePath = 0x60;
constexpr size_t kParamCommandLine = 0x70;

// A counted text's length (bytes) is at +0, the address of its characters
// at +8.
constexpr size_t kTextLength = 0;
constexpr size_t kTextBuffer = 8;

// Reads within a budget of bytes: once a read would pass it, that read and
// every larger one fail; a read that fails still spends what it asked for.
class BudgetedRead {
public:
    BudgetedRead(RemoteRead target, size_t budget) noexcept : target_(target), budget_(budget) {}
    bool read(uint64_t address, void *out, size_t size) noexcept {
        if (size > budget_) return false;
        budget_ -= size;
        return target_.read(address, out, size);
    }

private:
    RemoteRead target_;
    size_t budget_;
};

// Reads the counted text described at record + at, up to maxBytes of it,
// into out; its byte count (even), 0 when empty or unreadable. Only the
// bytes kept are read, not the length the target states: a text whose
// tail cannot be read still gives its head.
template <typename Reader>
size_t read_text(Reader &reader, const uint8_t *record, size_t at, size_t maxBytes,
                 Utf16Unit *out) noexcept {
    const size_t stated = load_at<uint16_t>(record, at + kTextLength);
    const uint64_t buffer = load_at<uint64_t>(record, at + kTextBuffer);
    const size_t bytes = (stated < maxBytes ? stated : maxBytes) & ~size_t{1};
    if (bytes == 0 || buffer == 0 || !reader.read(buffer, out, bytes)) return 0;
    return bytes;
}

}  // namespace

bool read_environment_block(RemoteRead target, uint64_t address, EnvironmentBlock &out) noexcept {
    out = EnvironmentBlock{};
    uint8_t block[kEnvironmentBlockRead];
    if (!target.read(address, block, sizeof block)) return false;
    out.beingDebugged = block[kEnvBeingDebugged];
    out.globalFlag = load_at<uint32_t>(block, kEnvGlobalFlag);
    out.processors = load_at<uint32_t>(block, kEnvProcessors);
    out.imageBase = load_at<uint64_t>(block, kEnvImageBase);
    out.loaderData = load_at<uint64_t>(block, kEnvLoaderData);
    out.parameters = load_at<uint64_t>(block, kEnvParameters);
    return true;
}

bool walk_loader_modules(RemoteRead target, uint64_t loaderData, uint64_t *slots,
                         LoaderVisitor &visitor) noexcept {
    BudgetedRead reader(target, kLoaderReadBudget);
    uint8_t loader[kLoaderDataRead];
    if (!reader.read(loaderData, loader, sizeof loader)) return true;
    VisitedSet visited(slots, kLoaderVisitedSlots);

    const uint64_t head = loaderData + kLoaderLoadOrderList;
    uint64_t link = load_at<uint64_t>(loader, kLoaderLoadOrderList);
    LoaderModule module;
    while (link != head && visited.add(link)) {
        uint8_t record[kLoaderEntryRead];
        if (!reader.read(link, record, sizeof record)) break;
        module.entry = link;
        module.imageBase = load_at<uint64_t>(record, kEntryDllBase);
        module.entryPoint = load_at<uint64_t>(record, kEntryEntryPoint);
        module.imageSize = load_at<uint32_t>(record, kEntryImageSize);
        module.pathBytes = read_text(reader, record, kEntryFullName, kModulePathBytes, module.path);
        if (!visitor.module(module)) return false;
        link = load_at<uint64_t>(record, 0);
    }
    return true;
}

bool read_process_texts(RemoteRead target, uint64_t parameters, ProcessTexts &out) noexcept {
    out.dllPathBytes = out.imagePathBytes = out.commandLineBytes = 0;
    uint8_t block[kParametersRead];
    if (!target.read(parameters, block, sizeof block)) return false;
    // The three are bounded by their own sizes, not by the walk's budget.
    out.dllPathBytes = read_text(target, block, kParamDllPath, kDllPathBytes, out.dllPath);
    out.imagePathBytes = read_text(target, block, kParamImagePath, kImagePathBytes, out.imagePath);
    out.commandLineBytes =
        read_text(target, block, kParamCommandLine, kCommandLineBytes, out.commandLine);
    return true;
}

}  // namespace vxio::process
