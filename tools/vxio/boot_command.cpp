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
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

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
    "Usage: vxio boot DRIVE\n"
    "       vxio boot --image FILE\n"
    "List the boot sectors of a drive: one line per sector, its byte offset\n"
    "in decimal, two spaces, and the SHA-1 of its 512 bytes.\n"
    "DRIVE is a number: 0 is A:, 2 is C: (a volume lists its first sector),\n"
    "128 is physical drive 0 up to 137 for drive 9 (a disk lists every\n"
    "partition whose first sector ends in 0xAA55).\n"
    "With --image, FILE is a raw disk image; its master boot record is read\n"
    "with the same rules as a physical drive (primary partitions only).\n"
    "\n"
    "Options:\n"
    "  -h, --help  show this help and exit\n"
    "\n"
    "Exit codes: 0 listed, 1 the drive or image could not be read, 2 bad usage.\n";

struct PhysicalObjectTraits {
    using Value = IoObject *;
    static IoObject *invalid() { return nullptr; }
    static void close(IoObject *object) { VOXA_PHYSICAL_Close(object); }
};
using PhysicalObject = Owned<PhysicalObjectTraits>;

void print_line(uint64_t offset, const uint8_t *sector) {
    SHA1Context context;
    uint8_t digest[SHA1HashSize];
    SHA1Reset(&context);
    SHA1Input(&context, sector, kSector);
    SHA1Result(&context, digest);
    char hex[2 * SHA1HashSize + 1];
    for (int i = 0; i < SHA1HashSize; ++i) snprintf(hex + 2 * i, 3, "%02x", digest[i]);
    printf("%llu  %s\n", static_cast<unsigned long long>(offset), hex);
}

std::string open_failure(uint32_t error) {
    if (error == 209) return "not a system of the NT family";
    if (error == 999) return "access denied, even with the debug privilege";
    const DWORD last = GetLastError();
    return last == ERROR_SUCCESS ? "cannot open the drive" : reason_text(last);
}

int list_drive(const char *argument) {
    char *end = nullptr;
    const unsigned long drive = strtoul(argument, &end, 10);
    if (*argument < '0' || *argument > '9' || *end != '\0' || drive > 0xFFFFFFFFul)
        return usage_error("boot", std::string("not a drive number: '") + argument + "'");

    static const uint8_t kNoCallerData[16] = {};
    uint32_t error = 0;
    SetLastError(ERROR_SUCCESS);
    PhysicalObject object(VOXA_PHYSICAL_Open(static_cast<uint32_t>(drive), 0, 0, kBootSectorMode,
                                             kNoCallerData, sizeof kNoCallerData, &error));
    if (!object.valid()) {
        fprintf(stderr, "vxio boot: drive %lu: %s\n", drive, open_failure(error).c_str());
        return kExitUnreadable;
    }
    // The offsets are in the object's public record; the reads return the
    // sectors in the same order.
    const auto *disk = reinterpret_cast<const IoPhysicalObject *>(object.get());
    const uint32_t count = VOXA_PHYSICAL_GetNumberOfBootOffsets(object.get());
    uint8_t sector[kSector];
    int status = kExitOk;
    for (uint32_t i = 0; i < count; ++i) {
        const uint64_t offset = *static_cast<const uint64_t *>(disk->bootOffsets->items[i]);
        // A floppy is read plainly even in boot-sector mode: ask for the
        // offset itself, which is 0 for a volume.
        if (VOXA_PHYSICAL_Read(object.get(), 0, sector, kSector) != 0) {
            fprintf(stderr, "vxio boot: drive %lu: cannot read the sector at %llu\n", drive,
                    static_cast<unsigned long long>(offset));
            status = kExitUnreadable;
            continue;
        }
        print_line(offset, sector);
    }
    return status;
}

// One 512-byte sector of the image; false when the image ends before it.
bool read_sector(FILE *image, uint64_t offset, uint8_t *sector) {
    if (_fseeki64(image, static_cast<__int64>(offset), SEEK_SET) != 0) return false;
    return fread(sector, 1, kSector, image) == kSector;
}

uint32_t little32(const uint8_t *bytes) {
    return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

bool has_boot_signature(const uint8_t *sector) {
    return sector[kSector - 2] == 0x55 && sector[kSector - 1] == 0xAA;
}

int list_image(const char *path) {
    FILE *image = fopen(path, "rb");
    if (!image) {
        fprintf(stderr, "vxio boot: %s: %s\n", path, strerror(errno));
        return kExitUnreadable;
    }
    uint8_t mbr[kSector];
    if (!read_sector(image, 0, mbr)) {
        fclose(image);
        fprintf(stderr, "vxio boot: %s: shorter than one sector\n", path);
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
        if (read_sector(image, offset, sector) && has_boot_signature(sector))
            offsets.push_back(offset);
    }
    int status = kExitOk;
    for (uint64_t offset : offsets) {
        uint8_t sector[kSector];
        if (!read_sector(image, offset, sector)) {
            status = kExitUnreadable;
            continue;
        }
        print_line(offset, sector);
    }
    fclose(image);
    return status;
}

}  // namespace

int run_boot(int argc, char **argv) {
    if (argc == 2 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
        fputs(kUsage, stdout);
        return kExitOk;
    }
    if (argc == 3 && strcmp(argv[1], "--image") == 0) return list_image(argv[2]);
    if (argc == 2 && argv[1][0] != '-') return list_drive(argv[1]);
    if (argc >= 2 && argv[1][0] == '-' && strcmp(argv[1], "--image") != 0)
        return usage_error("boot", std::string("unknown option '") + argv[1] + "'");
    return usage_error("boot", "expected DRIVE or --image FILE");
}

}  // namespace vxio_tool
