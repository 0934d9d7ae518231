// Checking digest lists against the objects they name, read again through
// the File backend (see check.h).
#include "check.h"

#include <stdio.h>
#include <string.h>

#include "digest.h"
#include "sum_lines.h"
#include "tool.h"

namespace vxio_tool {
namespace {

struct Counts {
    unsigned long long lines = 0, improper = 0, unreadable = 0, mismatched = 0;
};

struct Checker {
    FileTable table;
    std::vector<uint8_t> buffer;
    bool streams = false;
    Counts counts;
};

// Hashes the object a line names. Returns "" or the reason of failure.
std::string hash_listed(Checker &checker, const std::string &name, uint8_t digest[SHA1HashSize]) {
    std::string path, stream, opened;
    uint64_t size = 0;
    if (checker.streams && split_stream_name(name, &path, &stream)) {
        // The owner must exist (a file or a directory: both hold streams);
        // the stream is then opened as the data stream it was listed as.
        std::string failure, streamAnsi;
        const std::string owner = library_name_of(path, &failure);
        if (owner.empty()) return failure;
        if (!exact_ansi(wide_of_utf8(stream), &streamAnsi) || streamAnsi.empty())
            return reason_text(ERROR_FILE_NOT_FOUND);
        if (GetFileAttributesA(owner.c_str()) == INVALID_FILE_ATTRIBUTES)
            return reason_text(GetLastError());
        opened = owner + ":" + streamAnsi;
        if (streamAnsi.find(':') == std::string::npos) opened += ":$DATA";
        return hash_named_object(*checker.table.get(), checker.buffer, opened.c_str(), true,
                                 digest, &size);
    }
    std::string failure;
    opened = library_name_of(name, &failure);
    if (opened.empty()) return failure;
    return hash_named_object(*checker.table.get(), checker.buffer, opened.c_str(), false, digest,
                             &size);
}

void check_line(Checker &checker, const SumLine &line) {
    uint8_t digest[SHA1HashSize];
    const std::string failure = hash_listed(checker, line.name, digest);
    bool escaped = false;
    const std::string shown = shown_check_name(line.name, &escaped);
    const char *verdict = "OK";
    if (!failure.empty()) {
        fflush(stdout);  // the reason comes before its result, as on a terminal
        fprintf(stderr, "vxio: %s: %s\n", shown.c_str(), failure.c_str());
        verdict = "FAILED open or read";
        ++checker.counts.unreadable;
    } else if (memcmp(digest, line.digest, SHA1HashSize) != 0) {
        verdict = "FAILED";
        ++checker.counts.mismatched;
    }
    printf("%s%s: %s\n", escaped ? "\\" : "", shown.c_str(), verdict);
}

void warn(unsigned long long count, const char *one, const char *many) {
    if (count > 0) fprintf(stderr, "vxio: WARNING: %llu %s\n", count, count == 1 ? one : many);
}

// Reads one list to its end and checks its lines. False when the list
// itself could not be read.
bool check_list(Checker &checker, const std::string &list) {
    const bool isStdin = list == "-";
    FileHandle owned;
    HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    if (!isStdin) {
        // The list's own name is UTF-8 too.
        owned.reset(CreateFileW(wide_of_utf8(list).c_str(), GENERIC_READ,
                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
        if (!owned.valid()) {
            fflush(stdout);
            fprintf(stderr, "vxio: %s: %s\n", list.c_str(), open_failure(list.c_str()).c_str());
            return false;
        }
        input = owned.get();
    } else if (input == nullptr || input == INVALID_HANDLE_VALUE) {
        fputs("vxio: -: no standard input\n", stderr);
        return false;
    }
    SumLineSplitter splitter;
    std::vector<char> chunk(64 * 1024);
    std::string text;
    SumLine line;
    for (bool done = false; !done;) {
        DWORD got = 0;
        if (!ReadFile(input, chunk.data(), static_cast<DWORD>(chunk.size()), &got, nullptr)) {
            // The writer closing its end is how a pipe ends.
            if (GetLastError() != ERROR_BROKEN_PIPE) {
                const std::string reason = read_failure();
                fflush(stdout);
                fprintf(stderr, "vxio: %s: %s\n", list.c_str(), reason.c_str());
                return false;
            }
            got = 0;
        }
        if (got == 0) {
            splitter.finish();
            done = true;
        } else {
            splitter.feed(chunk.data(), got);
        }
        for (bool overlong = false; splitter.next(&text, &overlong);) {
            // Empty lines separate, as in lists edited by hand: not counted.
            if (!overlong && (text.empty() || text == "\r")) continue;
            if (!overlong && parse_sum_line(text.data(), text.size(), &line)) {
                ++checker.counts.lines;
                check_line(checker, line);
            } else {
                ++checker.counts.improper;
            }
        }
    }
    fflush(stdout);
    if (checker.counts.lines == 0) {
        fprintf(stderr, "vxio: %s: no properly formatted checksum lines found\n",
                isStdin ? "'standard input'" : list.c_str());
        return false;
    }
    warn(checker.counts.improper, "line is improperly formatted",
         "lines are improperly formatted");
    warn(checker.counts.unreadable, "listed file could not be read",
         "listed files could not be read");
    warn(checker.counts.mismatched, "computed checksum did NOT match",
         "computed checksums did NOT match");
    return checker.counts.unreadable == 0 && checker.counts.mismatched == 0;
}

}  // namespace

int run_check(const std::vector<std::string> &files_or_dash, bool streams) {
    Checker checker;
    checker.streams = streams;
    checker.table.reset(VXIO_TOOL_TABLE(VOXA_IO_GetTableForFileIO));
    if (!checker.table.valid()) {
        fputs("vxio: cannot build the I/O table\n", stderr);
        return kExitUnreadable;
    }
    checker.buffer.resize(kChunk);
    int status = kExitOk;
    for (const std::string &list : files_or_dash.empty() ? std::vector<std::string>{"-"}
                                                         : files_or_dash) {
        checker.counts = Counts();
        if (!check_list(checker, list)) status = kExitUnreadable;
    }
    return status;
}

}  // namespace vxio_tool
