// vxio boot: the boot sectors of a drive, one line each with the byte
// offset and the SHA-1 of its 512 bytes, so that a changed boot sector
// shows up as a changed line between two runs.
//
// "vxio boot DRIVE" asks vxio.dll: the physical backend in boot-sector mode
// walks the boot offsets, and each read at offset 0 steps to the next one.
// "vxio boot --image FILE" reads a disk image made with dd or a similar
// tool. The tool is only a client of the DLL and cannot serve an image to
// the backend's device calls, so it reads the image's partition table
// itself and applies the backend's rules to it: each of the four primary
// entries of the master boot record that has a type, a start of at least
// one sector and a length of at least one sector is a candidate, and it is
// listed when its first sector ends in 0xAA55. The master boot record
// itself is never listed (its start is 0), nor is the header sector behind
// a protective 0xEE entry of a GPT disk (no signature there). Logical
// drives inside an extended partition are not followed; a live disk
// reports them in its layout, an image read here does not.
#include <stdio.h>

#include <string>
#include <vector>

#include "scan_text.h"
#include "tool.h"
#include "vxio/io.h"
#include "vxio/lock_sha1.h"

namespace vxio_tool {
namespace {

constexpr uint32_t kSector = 512;
constexpr uint8_t kBootSectorMode = 1;
constexpr uint32_t kPartitionTable = 446;  // four 16-byte entries, then 0x55 0xAA
constexpr uint32_t kPartitionEntry = 16;

const char kUsage[] =
    "Usage: vxio boot [--json] [--no-header] DRIVE\n"
    "       vxio boot [--json] [--no-header] --image FILE\n"
    "List the boot sectors of a drive: one line per sector, OFFSET (its byte\n"
    "offset, decimal) and SHA1 (of its 512 bytes), separated by a tab.\n"
    "DRIVE is a number from 0 to 255: 0 is A:, 2 is C: (a volume lists its\n"
    "first sector), 128 is physical drive 0 up to 137 for drive 9 (a disk\n"
    "lists every partition whose first sector ends in 0xAA55).\n"
    "\n"
    "Options:\n"
    "  --image FILE  read a raw disk image instead of a drive: its master boot\n"
    "                record is read with the same rules as a physical drive\n"
    "                (primary partitions only)\n"
    "  --json        one JSON object a sector: {\"offset\":N,\"sha1\":\"...\"}\n"
    "  --no-header   leave out the column headers\n"
    "  -h, --help    show this help and exit\n"
    "\n"
    "Exit codes: 0 listed, 1 the drive or image could not be read (or one of\n"
    "its boot sectors), 2 bad usage.\n";

struct PhysicalObjectTraits {
    using Value = IoObject *;
    static IoObject *invalid() { return nullptr; }
    static void close(IoObject *object) { VOXA_PHYSICAL_Close(object); }
};
using PhysicalObject = Owned<PhysicalObjectTraits>;

// How the listing is printed: a table with its header, or JSON lines.
struct Output {
    bool json = false;
    bool header = true;

    void start() const {
        if (!json && header) printf("OFFSET\tSHA1\n");
    }
    void line(uint64_t offset, const uint8_t *sector) const {
        SHA1Context context;
        uint8_t digest[SHA1HashSize];
        SHA1Reset(&context);
        SHA1Input(&context, sector, kSector);
        SHA1Result(&context, digest);
        char hex[2 * SHA1HashSize + 1];
        for (int i = 0; i < SHA1HashSize; ++i) snprintf(hex + 2 * i, 3, "%02x", digest[i]);
        if (json)
            printf("{\"offset\":%llu,\"sha1\":\"%s\"}\n", static_cast<unsigned long long>(offset), hex);
        else
            printf("%llu\t%s\n", static_cast<unsigned long long>(offset), hex);
    }
};

// The thread's last error in words, or fallback when the system left none.
std::string last_error_or(const char *fallback) {
    const DWORD last = GetLastError();
    return last == ERROR_SUCCESS ? fallback : reason_text(last);
}

std::string open_failure(uint32_t error) {
    if (error == 209) return "not a system of the NT family";
    if (error == 999) return "access denied, even with the debug privilege";
    return last_error_or("the drive cannot be opened");
}

int list_drive(uint32_t drive, const Output &output) {
    static const uint8_t kNoCallerData[16] = {};
    uint32_t error = 0;
    SetLastError(ERROR_SUCCESS);
    PhysicalObject object(VOXA_PHYSICAL_Open(drive, 0, 0, kBootSectorMode, kNoCallerData,
                                             sizeof kNoCallerData, &error));
    if (!object.valid()) {
        fprintf(stderr, "vxio boot: drive %u: %s\n", drive, open_failure(error).c_str());
        return kExitUnreadable;
    }
    // The offsets are in the object's public record; the reads return the
    // sectors in the same order. The count the library reports is checked
    // against the list it points to before any offset is read.
    const auto *disk = reinterpret_cast<const IoPhysicalObject *>(object.get());
    const DynArray *offsets = disk->bootOffsets;
    uint32_t count = VOXA_PHYSICAL_GetNumberOfBootOffsets(object.get());
    if (!offsets || !offsets->items) count = 0;
    if (offsets && count > offsets->count) count = offsets->count;
    output.start();
    uint8_t sector[kSector];
    int status = kExitOk;
    for (uint32_t i = 0; i < count; ++i) {
        const auto *at = static_cast<const uint64_t *>(offsets->items[i]);
        if (!at) continue;
        const uint64_t offset = *at;
        // A floppy is read plainly even in boot-sector mode: ask for the
        // offset itself, which is 0 for a volume.
        SetLastError(ERROR_SUCCESS);
        if (VOXA_PHYSICAL_Read(object.get(), 0, sector, kSector) != 0) {
            fprintf(stderr, "vxio boot: drive %u: the sector at %llu: %s\n", drive,
                    static_cast<unsigned long long>(offset),
                    last_error_or("it cannot be read").c_str());
            status = kExitUnreadable;
            continue;
        }
        output.line(offset, sector);
    }
    return status;
}

// One 512-byte sector of the image; false when it cannot be read whole
// (the reason is the thread's last error, or none past the end).
bool read_sector(HANDLE image, uint64_t offset, uint8_t *sector) {
    LARGE_INTEGER to;
    to.QuadPart = static_cast<LONGLONG>(offset);
    DWORD got = 0;
    SetLastError(ERROR_SUCCESS);
    return SetFilePointerEx(image, to, nullptr, FILE_BEGIN) &&
           ReadFile(image, sector, kSector, &got, nullptr) && got == kSector;
}

uint32_t little32(const uint8_t *bytes) {
    return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

bool has_boot_signature(const uint8_t *sector) {
    return sector[kSector - 2] == 0x55 && sector[kSector - 1] == 0xAA;
}

int list_image(const std::string &path, const Output &output) {
    FileHandle image(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                 nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!image.valid()) {
        fprintf(stderr, "vxio boot: %s: %s\n", to_utf8(path).c_str(),
                reason_text(GetLastError()).c_str());
        return kExitUnreadable;
    }
    uint8_t mbr[kSector];
    if (!read_sector(image.get(), 0, mbr)) {
        fprintf(stderr, "vxio boot: %s: %s\n", to_utf8(path).c_str(),
                last_error_or("shorter than one sector").c_str());
        return kExitUnreadable;
    }
    std::vector<uint64_t> offsets;
    for (uint32_t i = 0; i < 4; ++i) {
        const uint8_t *entry = mbr + kPartitionTable + i * kPartitionEntry;
        const uint8_t type = entry[4];
        const uint32_t first = little32(entry + 8), sectors = little32(entry + 12);
        // An empty slot (type 0) is what the system leaves out of a layout.
        if (type == 0 || first < 1 || sectors < 1) continue;
        const uint64_t offset = uint64_t{first} * kSector;
        uint8_t sector[kSector];
        if (read_sector(image.get(), offset, sector) && has_boot_signature(sector))
            offsets.push_back(offset);
    }
    output.start();
    int status = kExitOk;
    for (uint64_t offset : offsets) {
        uint8_t sector[kSector];
        if (!read_sector(image.get(), offset, sector)) {
            fprintf(stderr, "vxio boot: %s: the sector at %llu: %s\n", to_utf8(path).c_str(),
                    static_cast<unsigned long long>(offset),
                    last_error_or("it cannot be read").c_str());
            status = kExitUnreadable;
            continue;
        }
        output.line(offset, sector);
    }
    return status;
}

}  // namespace

int run_boot(int argc, char **argv) {
    static const std::vector<OptionRule> kOptions = {
        {"--image", OptionKind::kText}, {"--json", OptionKind::kFlag},
        {"--no-header", OptionKind::kFlag}};
    ParsedArgs args;
    const int status = run_options("boot", kUsage, argc, argv, kOptions, "DRIVE", 0, 1, &args);
    if (status >= 0) return status;
    Output output;
    output.json = args.has("--json");
    output.header = !args.has("--no-header");
    const std::string *image = args.value("--image");
    if (image && !args.operands.empty())
        return usage_error("boot", "DRIVE and --image do not go together");
    if (image) return list_image(*image, output);
    if (args.operands.empty()) return usage_error("boot", "missing DRIVE (or --image FILE)");
    uint64_t drive = 0;
    if (!parse_number(args.operands[0], 0, 255, &drive))
        return usage_error("boot", "DRIVE is a number from 0 to 255, not '" + args.operands[0] + "'");
    return list_drive(static_cast<uint32_t>(drive), output);
}

}  // namespace vxio_tool
