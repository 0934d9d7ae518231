// Memory of other processes: one heap range, the image of one module, the
// private memory outside every module, and a complete dump of the address
// space into files with a text report.
//
// Three exports walk the target's regions into a region table: one 1 MiB
// reservation, committed a page at a time as the table grows, so that a
// target with very many regions costs address space and not heap. Reports
// are written as a C runtime text stream would write them ("\n" becomes
// "\r\n"); dump files are raw bytes. The module index "modules.tmp" lives
// in the current directory from the module report to the end of a complete
// dump.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "fs/native_path.h"
#include "platform/library.h"
#include "platform/os.h"
#include "process/dump_index.h"
#include "process/gate.h"
#include "util/owner.h"
#include "vxio/process_memory.h"

namespace vxio::process {

using platform::os;
using platform::RuntimeLibrary;

namespace {

constexpr const char *kModuleIndex = "modules.tmp";

// ---------------------------------------------------------------- regions

constexpr SIZE_T kTableReservation = 0x100000;
constexpr SIZE_T kTablePage = 4096;
constexpr SIZE_T kEntryStride = 324;  // the region record, then cleared room

class RegionTable {
public:
    RegionTable() noexcept
        : base_(static_cast<uint8_t *>(
              os.VirtualAlloc(nullptr, kTableReservation, MEM_RESERVE, PAGE_NOACCESS))) {}
    ~RegionTable() {
        if (!base_) return;
        os.VirtualFree(base_, kTableReservation, MEM_DECOMMIT);
        os.VirtualFree(base_, 0, MEM_RELEASE);
    }
    RegionTable(const RegionTable &) = delete;
    RegionTable &operator=(const RegionTable &) = delete;

    // Walks the process from address 0 to the highest application address.
    int32_t build(HANDLE process) noexcept {
        if (!base_) return kNoMemory;
        SYSTEM_INFO system{};
        os.GetSystemInfo(&system);
        const auto highest = reinterpret_cast<uintptr_t>(system.lpMaximumApplicationAddress);
        uintptr_t address = 0;
        while (address < highest) {
            MEMORY_BASIC_INFORMATION region{};
            if (os.VirtualQueryEx(process, reinterpret_cast<LPCVOID>(address), &region,
                                  sizeof region) == 0)
                return kFailed;
            const size_t end = (count_ + 1) * kEntryStride;
            if (end > kTableReservation) return kNoMemory;
            while (committed_ < end) {
                if (!os.VirtualAlloc(base_ + committed_, kTablePage, MEM_COMMIT, PAGE_READWRITE))
                    return kNoMemory;
                committed_ += kTablePage;
            }
            std::memcpy(base_ + count_ * kEntryStride, &region, sizeof region);
            ++count_;
            const uintptr_t next =
                reinterpret_cast<uintptr_t>(region.BaseAddress) + region.RegionSize;
            if (next <= address) return kFailed;  // a walk that does not advance
            address = next;
        }
        return kOk;
    }

    size_t size() const noexcept { return count_; }
    const MEMORY_BASIC_INFORMATION &operator[](size_t i) const noexcept {
        return *reinterpret_cast<const MEMORY_BASIC_INFORMATION *>(base_ + i * kEntryStride);
    }

private:
    uint8_t *base_;
    size_t committed_ = 0;  // fresh pages are zero: the rest of each entry is cleared
    size_t count_ = 0;
};

uintptr_t base_of(const MEMORY_BASIC_INFORMATION &r) noexcept {
    return reinterpret_cast<uintptr_t>(r.BaseAddress);
}

const char *state_text(DWORD state) noexcept {
    switch (state) {
        case MEM_COMMIT: return "Commit";
        case MEM_RESERVE: return "Resrve";
        case MEM_FREE: return "Free  ";
        default: return "STATE_UNKN ";
    }
}

const char *type_text(DWORD type) noexcept {
    switch (type) {
        case MEM_PRIVATE: return "Private ";
        case MEM_MAPPED: return "Mapped  ";
        case MEM_IMAGE: return "Image   ";
        default: return " -      ";
    }
}

// Six characters: the codes of the set bits in a fixed order, padded and
// cut.
void protection_text(DWORD protect, char (&text)[8]) noexcept {
    static const struct {
        DWORD bit;
        const char *code;
    } kCodes[] = {{0x2, "RO "},  {0x4, "RW "},  {0x8, "WC "}, {0x10, "x  "}, {0x20, "XR "},
                  {0x40, "XRW"}, {0x80, "XWC"}, {0x100, "G "}, {0x1, "NA"},  {0x200, "NC"}};
    char work[64] = "-";
    size_t length = 0;
    for (const auto &code : kCodes) {
        if (!(protect & code.bit)) continue;
        std::memcpy(work + length, code.code, std::strlen(code.code) + 1);
        length += std::strlen(code.code);
    }
    size_t n = std::strlen(work);
    while (n < 6) work[n++] = ' ';
    work[6] = '\0';
    std::memcpy(text, work, 7);
}

// Reads a whole region into a fresh block; null when the read fails.
ZeltaPtr<uint8_t> read_region(HANDLE process, const MEMORY_BASIC_INFORMATION &region,
                              SIZE_T &read, bool &noMemory) noexcept {
    read = 0;
    ZeltaPtr<uint8_t> block(static_cast<uint8_t *>(ZELTA_mymalloc(region.RegionSize)));
    noMemory = !block;
    if (!block) return block;
    if (!os.ReadProcessMemory(process, region.BaseAddress, block.get(), region.RegionSize, &read))
        block.reset();
    return block;
}

// ---------------------------------------------------------------- files

// A file opened in one of the C runtime's modes through the seam: "w"
// (create or truncate), "a+" (append, create when missing) and "r" (read),
// text mode unless the mode has "b".
class StreamFile {
public:
    StreamFile(const char *path, const char *mode) noexcept
        : text_(!std::strchr(mode, 'b')), append_(mode[0] == 'a') {
        const DWORD access = mode[0] == 'r' ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE;
        const DWORD disposition =
            mode[0] == 'w' ? CREATE_ALWAYS : mode[0] == 'a' ? OPEN_ALWAYS : OPEN_EXISTING;
        file_.reset(os.CreateFileA(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                   disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
    }
    explicit operator bool() const noexcept { return static_cast<bool>(file_); }

    bool write(const void *data, size_t size) noexcept {
        if (append_) {
            LARGE_INTEGER zero{};
            os.SetFilePointerEx(file_.get(), zero, nullptr, FILE_END);
        }
        const auto *bytes = static_cast<const uint8_t *>(data);
        while (size > 0) {
            const DWORD chunk = size > 0x40000000 ? 0x40000000 : static_cast<DWORD>(size);
            DWORD written = 0;
            if (!os.WriteFile(file_.get(), bytes, chunk, &written, nullptr) || written != chunk)
                return false;
            bytes += chunk;
            size -= chunk;
        }
        return true;
    }

    bool print(const char *format, ...) noexcept __attribute__((format(printf, 2, 3))) {
        char line[1024];
        va_list args;
        va_start(args, format);
        const int n = std::vsnprintf(line, sizeof line, format, args);
        va_end(args);
        if (n < 0) return false;
        const size_t length = static_cast<size_t>(n) < sizeof line ? n : sizeof line - 1;
        if (!text_) return write(line, length);
        char translated[2 * sizeof line];
        size_t out = 0;
        for (size_t i = 0; i < length; ++i) {
            if (line[i] == '\n') translated[out++] = '\r';
            translated[out++] = line[i];
        }
        return write(translated, out);
    }

    // The whole file (up to 1 MiB) into a fresh block; length: the bytes
    // read.
    ZeltaPtr<char> read_all(size_t &length) noexcept {
        length = 0;
        const DWORD size = os.GetFileSize(file_.get(), nullptr);
        if (size == INVALID_FILE_SIZE || size > (1u << 20)) return {};
        ZeltaPtr<char> text(static_cast<char *>(ZELTA_mymalloc(size + 1)));
        DWORD read = 0;
        if (!text || !os.ReadFile(file_.get(), text.get(), size, &read, nullptr)) return {};
        length = read < size ? read : size;
        return text;
    }

private:
    UniqueFile file_;
    bool text_;
    bool append_;
};

// The records of the module index text, in order, into a fresh block
// (count: how many). Null only when the block cannot be had.
ZeltaPtr<DumpIndexRecord> index_records(const char *text, size_t length, size_t &count) noexcept {
    count = 0;
    DumpIndexRecord record;
    for (DumpIndexReader reader(text, length); reader.next(record);) ++count;
    ZeltaPtr<DumpIndexRecord> records(
        static_cast<DumpIndexRecord *>(ZELTA_mymalloc((count ? count : 1) * sizeof record)));
    if (!records) return records;
    DumpIndexReader reader(text, length);
    for (size_t i = 0; i < count && reader.next(record); ++i) records.get()[i] = record;
    return records;
}

// prefix + section + "_memDump", not extended past 259 characters.
void dump_file_name(const char *prefix, const char *section, char (&name)[260]) noexcept {
    name[0] = '\0';
    for (const char *piece : {prefix, section, "_memDump"}) {
        const size_t have = std::strlen(name);
        std::snprintf(name + have, sizeof name - have, "%s", piece);
    }
}

// ---------------------------------------------------------------- modules

struct ModuleSpan {
    uintptr_t base;
    uintptr_t size;
};

using Kernel32Snapshot = decltype(&::CreateToolhelp32Snapshot);
using Module32Walk = decltype(&::Module32First);

struct ModuleWalker {
    RuntimeLibrary kernel{"KERNEL32.DLL"};
    Kernel32Snapshot snapshot = kernel.get<Kernel32Snapshot>("CreateToolhelp32Snapshot");
    Module32Walk first = kernel.get<Module32Walk>("Module32First");
    Module32Walk next = kernel.get<Module32Walk>("Module32Next");
    bool usable() const noexcept { return snapshot && first && next; }
};

// The module spans of a process by the tool-help module walk.
int32_t module_spans(uint32_t processId, DynArray *spans) noexcept {
    ModuleWalker walker;
    if (!walker.kernel.loaded()) return kNoMemory;
    if (!walker.usable()) return kFailed;
    UniqueFile snapshot(walker.snapshot(TH32CS_SNAPMODULE | TH32CS_SNAPMODULE32, processId));
    if (!snapshot) return kFailed;
    MODULEENTRY32 module{};
    module.dwSize = sizeof module;
    if (!walker.first(snapshot.get(), &module)) return kFailed;
    do {
        ZeltaPtr<ModuleSpan> span(static_cast<ModuleSpan *>(ZELTA_mymalloc(sizeof(ModuleSpan))));
        if (!span) return kNoMemory;
        span->base = reinterpret_cast<uintptr_t>(module.modBaseAddr);
        span->size = module.modBaseSize;
        // A module left out of the list would have its regions gathered as
        // private memory: a failed append fails the walk.
        if (!VOXA_arrAdd(spans, span.get())) return kNoMemory;
        span.release();
    } while (walker.next(snapshot.get(), &module));
    return kOk;
}

struct ArrayOwner {
    DynArray *array;
    ~ArrayOwner() {
        if (array) VOXA_arrFree(array, 1);
    }
};

// ---------------------------------------------------------------- exports' work

int32_t read_module_memory(uint32_t processId, uint32_t moduleBase, uint32_t moduleSize,
                           void **outBuffer, uint64_t *outCount) noexcept {
    UniqueHandle process(OpenProcessToRead(processId));
    if (!process) return kFailed;
    RegionTable regions;
    if (const int32_t built = regions.build(process.get()); built != kOk) return built;

    // Several regions can share the low 32 bits of the base (a private
    // block a multiple of 4 GiB away from an image, put there by the target
    // to be scanned in its place): the region that starts an image mapping
    // is the module; without one the first match is taken, as the engine
    // knows it.
    size_t first = regions.size();
    for (size_t i = 0; i < regions.size(); ++i) {
        const MEMORY_BASIC_INFORMATION &region = regions[i];
        if (low32(base_of(region)) != moduleBase) continue;
        if (region.Type == MEM_IMAGE && region.BaseAddress == region.AllocationBase) {
            first = i;
            break;
        }
        if (first == regions.size()) first = i;
    }
    if (first == regions.size()) return kOk;
    // The caller knows the base by its low 32 bits only: the module ends at
    // the full address of the region found plus the size.
    const uintptr_t end = base_of(regions[first]) + moduleSize;
    size_t last = first;
    uint64_t total = 0;
    for (; last < regions.size() && base_of(regions[last]) <= end; ++last)
        if (regions[last].State == MEM_COMMIT) total += regions[last].RegionSize;

    ZeltaPtr<uint8_t> out(static_cast<uint8_t *>(ZELTA_mymalloc(total)));
    if (!out) return kNoMemory;
    uint64_t position = 0;
    for (size_t i = first; i < last; ++i) {
        if (regions[i].State != MEM_COMMIT) continue;
        // Each region is read straight into its place in the result: a copy
        // through a block of its own would cost a third of the read time.
        // An unreadable region is skipped and the next one takes its place,
        // so its share of the buffer stays uninitialised at the end.
        SIZE_T read = 0;
        if (!os.ReadProcessMemory(process.get(), regions[i].BaseAddress, out.get() + position,
                                  regions[i].RegionSize, &read))
            continue;
        position += read;
    }
    *outBuffer = out.release();
    *outCount = total;
    return kOk;
}

int32_t read_private_memory(void **outBuffer, uint64_t *outCount, uint32_t processId) noexcept {
    UniqueHandle process(OpenProcessToRead(processId));
    if (!process) return kFailed;
    RegionTable regions;
    if (const int32_t built = regions.build(process.get()); built != kOk) return built;
    ArrayOwner spans{VOXA_arrNew()};
    if (!spans.array) return kNoMemory;
    if (const int32_t walked = module_spans(processId, spans.array); walked != kOk)
        return walked == kNoMemory ? kNoMemory : kFailed;

    // Which regions lie outside every module: a region at a module's base
    // enters it; a region at a module's end leaves it after that region.
    // When one module ends where the next begins, entering wins, so that
    // adjacent modules are not taken for private memory.
    ZeltaPtr<uint8_t> outside(static_cast<uint8_t *>(ZELTA_mymalloc(regions.size() + 1)));
    if (!outside) return kNoMemory;
    bool inside = false;
    for (size_t i = 0; i < regions.size(); ++i) {
        const uintptr_t base = base_of(regions[i]);
        bool enters = false, leaves = false;
        for (uint32_t m = 0; m < spans.array->count; ++m) {
            const auto *span = static_cast<const ModuleSpan *>(spans.array->items[m]);
            enters = enters || span->base == base;
            leaves = leaves || span->base + span->size == base;
        }
        if (enters) inside = true;
        outside.get()[i] = !inside && regions[i].State == MEM_COMMIT;
        if (leaves && !enters) inside = false;
    }

    // The output is sized by the regions' sizes. A region that cannot be
    // read (no access, guard, or freed by the target since the walk) still
    // counts and its share stays uninitialised at the end: one such page
    // must not hide the rest of the process from the scan, so no read has
    // to prove a region readable first.
    uint64_t total = 0;
    for (size_t i = 0; i < regions.size(); ++i)
        if (outside.get()[i]) total += regions[i].RegionSize;
    ZeltaPtr<uint8_t> out(static_cast<uint8_t *>(ZELTA_mymalloc(total)));
    if (!out) return kNoMemory;
    uint64_t position = 0;
    for (size_t i = 0; i < regions.size(); ++i) {
        if (!outside.get()[i]) continue;
        SIZE_T read = 0;
        bool noMemory = false;
        ZeltaPtr<uint8_t> block = read_region(process.get(), regions[i], read, noMemory);
        if (noMemory) return kNoMemory;
        if (!block) continue;
        if (position + read > total) {
            *outCount = 0;
            return kFailed;
        }
        std::memcpy(out.get() + position, block.get(), read);
        position += read;
    }
    *outBuffer = out.release();
    *outCount = total;
    return kOk;
}

int32_t dump_modules(uint32_t processId, const char *reportPath) noexcept {
    ModuleWalker walker;
    if (!walker.usable()) return kFailed;
    DebugPrivilegeBracket bracket;
    UniqueFile snapshot(walker.snapshot(TH32CS_SNAPMODULE | TH32CS_SNAPMODULE32, processId));
    if (!snapshot) return kFailed;
    MODULEENTRY32 module{};
    module.dwSize = sizeof module;
    if (!walker.first(snapshot.get(), &module)) return kFailed;
    StreamFile report(reportPath, "w");
    if (!report) return kFailed;
    StreamFile index(kModuleIndex, "w");
    if (!index) return kFailed;

    char path[MAX_PATH];
    std::snprintf(path, sizeof path, "%s", module.szExePath);
    fs::NormalizeNativePath(path);
    report.print("\n Process Name = %s \n Process ID = %d \n\n |---> *** MODULES *** <---|", path,
                 static_cast<int>(processId));
    int32_t count = 0;
    do {
        std::snprintf(path, sizeof path, "%s", module.szExePath);
        fs::NormalizeNativePath(path);
        const uint32_t base = low32(reinterpret_cast<uintptr_t>(module.modBaseAddr));
        report.print("\n\n     MODULE NAME:     %s", module.szModule);
        report.print("\n     Exe Path       = %s", path);
        report.print("\n     Image Base     = 0x%X", base);
        report.print("\n     Image Size     = 0x%X", static_cast<unsigned>(module.modBaseSize));
        index.print("%s\n%x\n%x\n", module.szModule, base, static_cast<unsigned>(module.modBaseSize));
        ++count;
    } while (walker.next(snapshot.get(), &module));
    index.print("END\n%x\n%x", 65535u, 65535u);
    return count;
}

// Appends one region to its section's dump file; false when the export
// must fail: only on our own side (no memory, a dump file that cannot be
// written). A region of the target that cannot be read is left out of the
// file and still gets its report line, whatever its protection.
bool dump_region(HANDLE process, const MEMORY_BASIC_INFORMATION &region, const char *prefix,
                 const char *section) noexcept {
    if (region.State != MEM_COMMIT) return true;
    SIZE_T read = 0;
    bool noMemory = false;
    ZeltaPtr<uint8_t> block = read_region(process, region, read, noMemory);
    if (noMemory) return false;
    if (!block) return true;
    char name[260];
    dump_file_name(prefix, section, name);
    StreamFile dump(name, "a+b");
    return dump && dump.write(block.get(), read);
}

int32_t dump_pages(uint32_t processId, const char *prefix, const char *reportPath) noexcept {
    DebugPrivilegeBracket bracket;
    UniqueHandle process(OpenProcessToRead(processId));
    if (!process) return kFailed;
    RegionTable regions;
    if (regions.build(process.get()) != kOk || regions.size() == 0) return kFailed;
    StreamFile report(reportPath, "a+");
    if (!report) return kFailed;
    // The index is read once; each region is then looked up in its
    // records from the first on, as the engine re-reads the file for it.
    size_t modules = 0;
    ZeltaPtr<DumpIndexRecord> index;
    {
        StreamFile file(kModuleIndex, "r");
        if (!file) return kFailed;
        size_t length = 0;
        ZeltaPtr<char> text = file.read_all(length);
        if (!text) return kFailed;
        index = index_records(text.get(), length, modules);
        if (!index) return kFailed;
    }
    report.print("\n\n\n |---> *** PAGE DUMPS *** <---| \n\n");

    char module[26] = "";
    bool inModule = false, moduleEnds = false, inUnknown = false;
    int unknownRun = 0;
    for (size_t i = 0; i < regions.size(); ++i) {
        const MEMORY_BASIC_INFORMATION &region = regions[i];
        const uint32_t base = low32(base_of(region));
        char line[280];
        int length = std::snprintf(line, sizeof line, "%08X ", base);

        for (size_t m = 0; m < modules; ++m) {
            const DumpIndexRecord &record = index.get()[m];
            if (record.base == base) {
                if (inUnknown) {
                    report.print(" UNKNOWN-%d  End...\n", unknownRun++);
                    inUnknown = false;
                }
                report.print("\n Module = %s  Start...\n", record.name);
                std::memcpy(module, record.name, sizeof module);
                inModule = true;
                break;
            }
            if (record.base + record.size == base) {
                moduleEnds = true;
                break;
            }
        }

        char section[40];
        if (inModule) {
            std::snprintf(section, sizeof section, "%s", module);
        } else {
            if (!inUnknown) {
                report.print("\n UNKNOWN-%d  Start...\n", unknownRun);
                inUnknown = true;
            }
            std::snprintf(section, sizeof section, "UNKNOWN-%d", unknownRun);
        }
        if (!dump_region(process.get(), region, prefix, section)) return kFailed;

        char protect[8], allocationProtect[8];
        protection_text(region.Protect, protect);
        protection_text(region.AllocationProtect, allocationProtect);
        std::snprintf(line + length, sizeof line - length, "%s %s %08X %08X %s %s",
                      state_text(region.State), protect, low32(region.RegionSize),
                      low32(reinterpret_cast<uintptr_t>(region.AllocationBase)),
                      type_text(region.Type), allocationProtect);
        report.print("%s\n", line);
        if (moduleEnds) {
            report.print(" Module = %s  End...\n\n", module);
            inModule = moduleEnds = false;
        }
    }
    if (inUnknown) report.print(" UNKNOWN-%d  End...\n", unknownRun);
    os.DeleteFileA(kModuleIndex);
    return kOk;
}

}  // namespace
}  // namespace vxio::process

using namespace vxio;
using namespace vxio::process;

extern "C" int32_t VOXA_IO_ReadWin32ProcessHeaps(uint32_t processId, uint32_t address,
                                                 uint32_t size, void **buffer,
                                                 uint32_t *count) noexcept {
    if (!processId || !address || !size || !buffer || !*buffer || !count) return kFailed;
    RuntimeLibrary kernel("KERNEL32.DLL");
    if (!kernel.loaded()) return kNoMemory;
    auto toolhelpRead = kernel.get<decltype(&::Toolhelp32ReadProcessMemory)>(
        "Toolhelp32ReadProcessMemory");
    if (!toolhelpRead) return kFailed;
    DebugPrivilegeBracket bracket;
    ZeltaPtr<uint8_t> scratch(static_cast<uint8_t *>(ZELTA_mymalloc(size)));
    if (!scratch) return kNoMemory;
    const auto from = reinterpret_cast<LPCVOID>(static_cast<uintptr_t>(address));
    SIZE_T read = 0;
    if (!toolhelpRead(processId, from, scratch.get(), size, &read)) {
        // The fallback's process handle is closed like every other: leaving
        // it open would cost the caller a handle per call.
        UniqueHandle process(OpenProcessToRead(processId));
        if (!process || !os.ReadProcessMemory(process.get(), from, scratch.get(), size, &read))
            return kFailed;
    }
    if (read <= size) std::memcpy(*buffer, scratch.get(), read);
    *count = static_cast<uint32_t>(read);
    return kOk;
}

extern "C" int32_t VOXA_IO_ReadWin32ProcessModuleMemory(uint32_t processId, uint32_t moduleBase,
                                                        uint32_t moduleSize, void **outBuffer,
                                                        uint64_t *outCount) noexcept {
    if (!processId || !moduleBase || !moduleSize || !outBuffer || !outCount) return kBadArgument;
    DebugPrivilegeBracket bracket;
    return read_module_memory(processId, moduleBase, moduleSize, outBuffer, outCount);
}

extern "C" int32_t VOXA_IO_ReadWin32ProcessVirtualAllocMemory(void **outBuffer, uint64_t *outCount,
                                                              uint32_t processId) noexcept {
    if (!processId || !outBuffer || !outCount) return kFailed;
    DebugPrivilegeBracket bracket;
    return read_private_memory(outBuffer, outCount, processId);
}

extern "C" int32_t VOXA_IO_DumpWin32ModulesList(uint32_t processId, const char *reportPath) noexcept {
    if (!processId || !reportPath) return kFailed;
    return dump_modules(processId, reportPath);
}

extern "C" int32_t VOXA_IO_DumpCompleteWin32ProcessMemory(uint32_t processId, const char *prefix,
                                                          const char *reportPath) noexcept {
    if (!processId || !prefix || !reportPath) return kFailed;
    return dump_pages(processId, prefix, reportPath);
}
