// Named data streams of one file: the stream list is read once
// per context with NtQueryInformationFile (class 22, FileStreamInformation)
// under the backup privilege, then walked one named stream per call.
//
// Kept as the engine knows it:
// - Init and the first Enumerate enable SeBackupPrivilege in the process
//   token (never switched off again) and call RevertToSelf, which ends any
//   impersonation of the calling thread.
// - A file without streams, one that cannot be opened and a failed query
//   look alike; the list is fetched again on each call until one is had.
// - A RevertToSelf failure after the fetch fails that call only; the list
//   is kept for the next ones.
// - The existence query answers from the first record and moves nothing.
// - A listing call converts the unnamed stream "::$DATA" into outName on
//   its way past it, so a false answer can leave "path::$DATA" there.
// - A record whose name is longer than 260 bytes is passed over by a call
//   that returns true without writing any output.
// - A buffer too small for the record at the cursor fails every call the
//   same way: the cursor does not move.
#include <cstring>

#include "fs/stream_records.h"
#include "fs/token_privilege.h"
#include "process/privileges.h"
#include "platform/os.h"
#include "util/owner.h"
#include "vxio/fs.h"

using vxio::platform::os;

namespace {

constexpr ULONG kFileStreamInformation = 22;
constexpr LONG kStatusBufferOverflow = static_cast<LONG>(0x80000005);
constexpr DWORD kBackupSemantics = 0x2000000;  // FILE_FLAG_BACKUP_SEMANTICS

// The list buffer grows in steps of 16384 bytes while the query answers
// STATUS_BUFFER_OVERFLOW. Bounded: after 64 queries (a last buffer of
// 1 MiB, far more than the names of any file need) the list counts as not
// fetched, so a query that never stops asking for more cannot loop forever
// or exhaust the heap.
constexpr uint32_t kBufferStep = 16384;
constexpr int kMaxQueries = 64;

// Names up to 260 bytes (130 UTF-16 units) are converted, through a stack
// buffer of 264 units.
constexpr uint32_t kMaxNameBytes = 260;
constexpr size_t kNameUnits = 264;

constexpr size_t kPathCapacity = sizeof(StreamsContext::path);  // 260

// IO_STATUS_BLOCK, and the native query's signature.
struct StatusBlock {
    union {
        LONG Status;
        void *Pointer;
    };
    ULONG_PTR Information;
};
using QueryInformationFile = LONG(NTAPI *)(HANDLE, StatusBlock *, void *, ULONG, ULONG);

// The record at the cursor, which only ever points at a whole record of
// the list (fs/stream_records.h checks each one against the buffer); were
// it ever not, the empty record given instead ends the walk.
vxio::fs::StreamRecord record_at(const StreamsContext *context, const uint8_t *at) {
    vxio::fs::StreamRecord record;
    vxio::fs::StreamRecordAt(context->streamBuffer, context->bufferSize,
                             static_cast<size_t>(at - context->streamBuffer), record);
    return record;
}

// The record after this one, or null when this is the last.
uint8_t *next_record(const StreamsContext *context, const vxio::fs::StreamRecord &record) {
    return record.next ? context->streamBuffer + record.next : nullptr;
}

// Opens the path and reads its stream list into a new buffer (setting
// bufferSize); null when the file cannot be opened, the query is missing
// or fails, memory runs out, or the list is empty.
uint8_t *fetch_list(StreamsContext *context) {
    vxio::UniqueFile file(os.CreateFileA(context->path, GENERIC_READ,
                                         FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                         OPEN_EXISTING, kBackupSemantics, nullptr));
    auto query = reinterpret_cast<QueryInformationFile>(context->queryInformationFile);
    if (!file || !query) return nullptr;

    context->bufferSize = kBufferStep;
    vxio::ZeltaPtr<uint8_t> buffer;
    StatusBlock status{};
    LONG result = kStatusBufferOverflow;
    for (int round = 1; result == kStatusBufferOverflow; ++round) {
        if (round > 1) {
            buffer.reset();
            if (round > kMaxQueries) return nullptr;
            context->bufferSize += kBufferStep;
        }
        buffer.reset(static_cast<uint8_t *>(ZELTA_mymalloc(context->bufferSize)));
        if (!buffer) return nullptr;
        // A query that succeeds without writing (a directory with no
        // stream at all) leaves the buffer as it was: its first record is
        // cleared so that it reads as an empty list, never as heap garbage.
        std::memset(buffer.get(), 0, vxio::fs::kStreamRecordHeader);
        status = StatusBlock{};
        result = query(file.get(), &status, buffer.get(), context->bufferSize,
                       kFileStreamInformation);
    }
    file.reset();

    // Success needs a status that is not negative and a first record with a
    // name (of which the query must have written at least the header).
    if (result < 0 || status.Information < vxio::fs::kStreamRecordHeader) return nullptr;
    vxio::fs::StreamRecord first;
    if (!vxio::fs::StreamRecordAt(buffer.get(), context->bufferSize, 0, first) ||
        first.nameBytes == 0)
        return nullptr;
    return buffer.release();
}

// Writes outName as the path followed by the record's name in the ANSI code
// page (the caller has checked that pathLength + name length + 2 <= outSize,
// which leaves room for the converted name, at most one byte per UTF-16 byte,
// and its terminator). False when the name cannot be converted.
bool compose(const StreamsContext *context, const vxio::fs::StreamRecord &record, char *outName,
             uint32_t outSize) {
    const uint32_t length = record.nameBytes;
    wchar_t name[kNameUnits];
    std::memcpy(name, context->streamBuffer + record.nameOffset, length);
    const int units = static_cast<int>(length / sizeof(wchar_t));
    name[units] = L'\0';
    std::memcpy(outName, context->path, context->pathLength);
    const int room = static_cast<int>(outSize - context->pathLength - 1);
    const int written = units == 0 ? 0
                                   : os.WideCharToMultiByte(CP_ACP, 0, name, units,
                                                            outName + context->pathLength,
                                                            room, nullptr, nullptr);
    outName[context->pathLength + (written > 0 ? written : 0)] = '\0';
    return written > 0;
}

bool fits(const StreamsContext *context, const vxio::fs::StreamRecord &record, uint32_t outSize) {
    return uint64_t{context->pathLength} + record.nameBytes + 2 <= outSize;
}

}  // namespace

extern "C" StreamsContext *VOXA_Streams_Init(const char *path, uint8_t listStreams,
                                             uint8_t existenceOnly) noexcept {
    if (!listStreams && !existenceOnly) return nullptr;
    if (!vxio::fs::EnableTokenPrivilege("SeBackupPrivilege")) return nullptr;
    vxio::process::RevertImpersonation();  // the answer is of no interest here

    vxio::ZeltaPtr<StreamsContext> context = vxio::zelta_new<StreamsContext>();
    if (!context) return nullptr;
    context->queryInformationFile = nullptr;
    context->ntdll = nullptr;
    context->streamBuffer = nullptr;
    context->cursor = nullptr;
    context->bufferSize = 0;
    std::memset(context->path, 0, kPathCapacity);
    const size_t length = path ? std::strlen(path) : 0;
    context->pathLength = length > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(length);
    // A path of 260 bytes or more does not fit: the context keeps an empty
    // path (no file is opened by that name) and its true length.
    if (path && length < kPathCapacity) std::memcpy(context->path, path, length);

    HMODULE ntdll = os.LoadLibraryA("ntdll.dll");
    if (!ntdll) return nullptr;
    context->ntdll = ntdll;
    context->queryInformationFile =
        reinterpret_cast<void *>(os.GetProcAddress(ntdll, "NtQueryInformationFile"));
    return context.release();
}

extern "C" uint8_t VOXA_Streams_Enumerate(StreamsContext *context, uint32_t *outKind,
                                          uint64_t *outStreamSize, char *outName,
                                          uint32_t outSize, uint8_t listStreams,
                                          uint8_t existenceOnly) noexcept {
    if ((!listStreams && !existenceOnly) || !context) return 0;

    if (!context->streamBuffer) {
        if (!vxio::fs::EnableTokenPrivilege("SeBackupPrivilege")) return 0;
        uint8_t *list = fetch_list(context);
        context->streamBuffer = list;
        context->cursor = list;
        if (!vxio::process::RevertImpersonation()) return 0;
    }
    if (!context->streamBuffer || !context->cursor) return 0;

    // The existence query wins when both flags are set.
    if (existenceOnly) return record_at(context, context->streamBuffer).nameBytes != 0 ? 1 : 0;

    // Listing. A context whose path did not fit (260 bytes or more) names
    // no file: it has nothing to write in front of a stream name, so it
    // lists nothing (its fetch cannot open an empty path anyway).
    if (!outName || context->pathLength >= kPathCapacity) return 0;
    vxio::fs::StreamRecord record = record_at(context, context->cursor);
    if (!fits(context, record, outSize)) return 0;

    bool answered = false;
    if (record.nameBytes <= kMaxNameBytes) {
        for (;;) {
            // A name that cannot be converted (an empty one) is passed over
            // like a long one, without an answer: a bare path must never be
            // reported as a stream.
            if (!compose(context, record, outName, outSize)) break;
            if (std::strcmp(outName + context->pathLength, "::$DATA") != 0) {
                answered = true;
                break;
            }
            // The unnamed stream: move on to the next record.
            uint8_t *next = next_record(context, record);
            if (!next) return 0;
            context->cursor = next;
            record = record_at(context, next);
            if (record.nameBytes > kMaxNameBytes) break;
            // Only the record at the start of the call was checked against
            // outSize; a later one is held to the same test, and a call it
            // fails returns false with the cursor on it, exactly as the
            // next call would (the name is never written past outSize).
            if (!fits(context, record, outSize)) return 0;
        }
    }
    if (answered) {
        if (outStreamSize) *outStreamSize = record.streamSize;
        if (outKind) *outKind = VXIO_ENTRY_STREAM;
    }
    context->cursor = next_record(context, record);
    return 1;
}

extern "C" void VOXA_Streams_Release(StreamsContext *context) noexcept {
    if (!context) return;  // callers must not pass null; nothing to do then
    if (context->streamBuffer) ZELTA_myfree(context->streamBuffer);
    if (context->ntdll) os.FreeLibrary(static_cast<HMODULE>(context->ntdll));
    ZELTA_myfree(context);
}
