// vxio scan: walks directory trees through the library's own directory and
// stream enumeration, reads every file and named stream through the File
// backend and prints its SHA-1 in sha1sum's line format (or as JSON lines).
//
// Three kinds of thread share one ordered list of objects: the walker
// appends what it finds, the hashers take the next object not yet taken,
// and the main thread prints each object as soon as it and every object
// before it are done, so the output keeps the walk order whatever the
// number of hashers.
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "check.h"
#include "digest.h"
#include "remove.h"
#include "scan_text.h"
#include "signatures.h"
#include "tool.h"
#include "vxio/fs.h"

namespace vxio_tool {
namespace {

const char kUsage[] =
    "Usage: vxio scan [OPTION]... PATH...\n"
    "       vxio scan --check FILE\n"
    "Walk each PATH (a directory tree or a file), read every file and every\n"
    "named data stream through vxio's File backend and print its SHA-1 in the\n"
    "line format of sha1sum: 40 hex digits, two spaces, the path. Streams are\n"
    "printed as PATH:STREAM, in UTF-8, so that 'sha1sum -c' accepts the lines\n"
    "of plain files. Paths keep the separator PATH was given with: a PATH with\n"
    "'/' only (as 'dir/' from a Unix shell under Wine) prints '/', any other\n"
    "prints the system's '\\'.\n"
    "\n"
    "Options:\n"
    "  --exclude GLOB  skip entries matching GLOB (* any run, ? one character,\n"
    "                  case ignored); a GLOB without / or \\ is matched against\n"
    "                  each entry's name, one with a separator against its\n"
    "                  whole path; an excluded directory is not entered.\n"
    "                  May be given several times\n"
    "  --max-depth N   descend at most N levels below each PATH, 0..1048576 (1:\n"
    "                  only the entries directly in it; 0: only PATHs that are\n"
    "                  files)\n"
    "  --jobs N        hash with N threads, 1..64 (default: the number of\n"
    "                  processors); the output keeps the walk order\n"
    "  --json          one JSON object per line instead: path, kind (file,\n"
    "                  stream, link, offline), size, sha1, attributes, and\n"
    "                  error for an unreadable object\n"
    "  --no-streams    do not look for named data streams (they are not looked\n"
    "                  for either on volumes whose file system has none)\n"
    "  --summary       counts, bytes, time and throughput on stderr at the end\n"
    "  --signatures FILE  compare every file and stream with the known-bad\n"
    "                  hashes in FILE, one SHA1HEX:SIZE:NAME a line (SIZE in\n"
    "                  bytes, or * for any; # starts a comment); print\n"
    "                  'PATH: NAME FOUND' for each match instead of digests.\n"
    "                  A file whose size no signature has is not read\n"
    "  --remove        with --signatures: delete every detected file, asking\n"
    "                  once first; a file in use is deleted at the next restart\n"
    "  --yes           with --remove: do not ask\n"
    "  --check FILE    check a saved scan (FILE, or - for standard input): every\n"
    "                  file and stream listed is hashed again and reported as\n"
    "                  'NAME: OK' or 'NAME: FAILED'; no PATH is given\n"
    "  -h, --help      show this help and exit\n"
    "  --              end of options: what follows is a PATH\n"
    "Options take their value as the next argument or after '=' (--jobs=2).\n"
    "\n"
    "Junctions and symbolic links to directories are listed but never entered,\n"
    "so a walk cannot loop. A progress line is shown on stderr when it is a\n"
    "terminal.\n"
    "\n"
    "Every name is printed as it is, in UTF-8, also outside the ANSI code page;\n"
    "files named like devices (nul.txt, con, com1.exe) are read as files, and\n"
    "paths longer than 260 characters and \\\\?\\ PATHs are walked. A directory\n"
    "that cannot be listed, an object that cannot be read or that is not a\n"
    "regular file (a pipe, a device) is reported on stderr with the reason,\n"
    "counted as unreadable and never hashed.\n"
    "\n"
    "Exit codes: 0 every object read, 1 some object or directory could not be\n"
    "read (the scan goes on and reports each on stderr), 2 bad usage.\n"
    "With --signatures, as scanners do: 0 nothing found, 1 something found,\n"
    "2 errors (an unreadable object or directory, a bad list, a file not\n"
    "removed) or bad usage. With --check: 0 every line matched, 1 some line\n"
    "did not match or could not be read.\n";

// Room for any composed name: ReadDir drops an entry whose name does not
// fit (and reports it like the end of the listing), so the buffer is far
// larger than the paths the system's 8-bit calls can open.
constexpr uint32_t kNameBuffer = 32768;
// A file with more named streams than this is cut short: the stream list
// is the file system's and never endless, but the walk must end anyway.
constexpr int kMaxStreams = 65536;

enum class Kind { File, Stream, Link, Offline, Unlistable };

const char *kind_name(Kind kind) {
    switch (kind) {
    case Kind::File: return "file";
    case Kind::Stream: return "stream";
    case Kind::Link: return "link";
    case Kind::Offline: return "offline";
    case Kind::Unlistable: return "directory";
    }
    return "";
}

struct Options {
    std::vector<std::wstring> roots;    // as typed, characters outside ANSI kept
    std::vector<std::string> excludes;  // UTF-8, as the names they match
    int maxDepth = -1;  // no limit
    unsigned jobs = 0;  // 0: one per processor
    bool json = false;
    bool summary = false;
    bool streams = true;
    std::string signatureList;            // --signatures FILE, as typed (UTF-8)
    std::string signaturePath;            // its name for the library (ANSI)
    bool remove = false, yes = false;     // --remove, --yes
    std::vector<std::string> checkLists;  // --check FILE (UTF-8)
};

// One object of the walk, in walk order. The walker fills the first part;
// a hasher fills the rest and then sets done (under the list's lock).
struct Item {
    std::string path;   // the name the library opens (ANSI)
    std::string shown;  // the name printed (UTF-8)
    Kind kind = Kind::File;
    uint64_t listedSize = 0;
    bool knownFile = false;  // the walk listed it as a file or stream
    bool done = false;
    std::string failure;  // empty when read
    uint8_t digest[SHA1HashSize] = {};
    uint64_t size = 0;
    DWORD attributes = INVALID_FILE_ATTRIBUTES;
    bool passedBySize = false;  // no signature has its size: never read
    const char *detection = nullptr;  // the signature it matched
};

bool needs_hashing(const Item &item) {
    return item.kind == Kind::File || item.kind == Kind::Stream;
}

// The shared, ordered list of objects. It holds only the objects between
// the last one printed and the walk's front, and the walk waits while that
// span is full, so the memory of a scan does not grow with the files it
// walks. Objects are numbered from the start of the walk; the list holds
// numbers [base_, base_ + items_.size()).
class WorkList {
  public:
    // Far more than the hashers can have in hand, so they never run dry
    // while the walk is only blocked.
    static constexpr size_t kMaxPending = 8192;

    void add(Item item) {
        {
            std::unique_lock<std::mutex> lock(mutex_);
            room_.wait(lock, [&] { return items_.size() < kMaxPending; });
            // An object already known to be unreadable is reported as it is.
            if (!needs_hashing(item) || !item.failure.empty()) item.done = true;
            items_.push_back(std::move(item));
        }
        changed_.notify_all();
    }
    void finish_walk() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            walkDone_ = true;
        }
        changed_.notify_all();
    }
    // The next object to hash, or null when the walk is over and every
    // object has been taken. Items never move: a deque keeps references
    // valid while it grows at the end and shrinks at the front, and only
    // printed objects, which no hasher holds, leave it.
    Item *take() {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            nextToHash_ = std::max(nextToHash_, base_);
            while (nextToHash_ < end() && at(nextToHash_).done) ++nextToHash_;
            if (nextToHash_ < end()) return &at(nextToHash_++);
            if (walkDone_) return nullptr;
            changed_.wait(lock);
        }
    }
    void complete(Item *item) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            item->done = true;
        }
        changed_.notify_all();
    }
    // The next object to print once it is done; End when the list ended
    // before it, Waiting when wait passes first (the caller then shows its
    // progress).
    enum class Next { Ready, End, Waiting };
    Next wait_for_front(std::chrono::milliseconds wait, Item **item) {
        std::unique_lock<std::mutex> lock(mutex_);
        const auto ready = [&] {
            return (!items_.empty() && items_.front().done) || (walkDone_ && items_.empty());
        };
        if (!changed_.wait_for(lock, wait, ready)) return Next::Waiting;
        if (items_.empty()) return Next::End;
        *item = &items_.front();
        return Next::Ready;
    }
    // The front object is printed: it leaves the list, making room for
    // the walk.
    void release_front() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            items_.pop_front();
            ++base_;
        }
        room_.notify_one();
    }

  private:
    size_t end() const { return base_ + items_.size(); }
    Item &at(size_t number) { return items_[number - base_]; }

    std::mutex mutex_;
    std::condition_variable changed_, room_;
    std::deque<Item> items_;
    size_t base_ = 0;        // the number of the front object
    size_t nextToHash_ = 0;  // the number of the next object to look at
    bool walkDone_ = false;
};

struct DirTraits {
    using Value = DirHandle *;
    static DirHandle *invalid() { return nullptr; }
    static void close(DirHandle *dir) { VOXA_IO_CloseDir(dir); }
};
using Dir = Owned<DirTraits>;

std::wstring join_wide(const std::wstring &dir, const std::wstring &name) {
    return !dir.empty() && dir.back() == L'\\' ? dir + name : dir + L"\\" + name;
}

// One entry of a directory as the system lists it by wide names: its real
// name, the name the library's 8-bit listing gives for it (the ANSI name,
// or the short name when the ANSI code page cannot show the real one) and
// whether the library's listing gave it.
struct WideEntry {
    std::wstring name;
    std::wstring shortName;
    std::string key;
    DWORD attributes = 0;
    uint64_t size = 0;
    bool listed = false;
};

// The entry kinds as the library's listing tells them.
uint32_t entry_kind(DWORD attributes) {
    if (attributes & FILE_ATTRIBUTE_REPARSE_POINT) return VXIO_ENTRY_REPARSE;
    if (attributes & FILE_ATTRIBUTE_OFFLINE) return VXIO_ENTRY_OFFLINE;
    return attributes & FILE_ATTRIBUTE_DIRECTORY ? VXIO_ENTRY_DIRECTORY : VXIO_ENTRY_FILE;
}

// Every entry of the directory at path (a "\\?\" path) but "." and "..";
// ERROR_SUCCESS or the error that stopped the listing. The library's
// listing ends the same way on an error as at the end, so this listing is
// what tells an unlistable directory from an empty one.
DWORD list_wide(const std::wstring &path, std::vector<WideEntry> *entries) {
    WIN32_FIND_DATAW found;
    const std::wstring pattern = join_wide(path, L"*");
    FindHandle find(FindFirstFileExW(pattern.c_str(), FindExInfoStandard, &found,
                                     FindExSearchNameMatch, nullptr, 0));
    if (!find.valid()) {
        const DWORD error = GetLastError();
        return error == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : error;
    }
    do {
        const std::wstring name = found.cFileName;
        if (name == L"." || name == L"..") continue;
        WideEntry entry;
        entry.name = name;
        entry.shortName = found.cAlternateFileName;
        entry.attributes = found.dwFileAttributes;
        entry.size = uint64_t{found.nFileSizeHigh} << 32 | found.nFileSizeLow;
        const int bytes = WideCharToMultiByte(CP_ACP, 0, name.data(), static_cast<int>(name.size()),
                                              nullptr, 0, nullptr, nullptr);
        if (bytes > 0) {
            entry.key.assign(static_cast<size_t>(bytes), '\0');
            WideCharToMultiByte(CP_ACP, 0, name.data(), static_cast<int>(name.size()),
                                &entry.key[0], bytes, nullptr, nullptr);
        }
        if (entry.key.find('?') != std::string::npos) entry.key = utf8_of(entry.shortName);
        entries->push_back(std::move(entry));
    } while (FindNextFileW(find.get(), &found));
    const DWORD error = GetLastError();
    return error == ERROR_NO_MORE_FILES ? ERROR_SUCCESS : error;
}

// The walk: directories through VOXA_IO_OpenDir/ReadDir, streams through
// the same calls in stream mode. Beside each library listing, the same
// directory is listed by wide names: they give the real name to print, and
// an entry the library leaves out (a name it cannot give, a name it takes
// for "." or "..") is still walked, or reported, never lost.
class Walker {
  public:
    Walker(const Options &options, WorkList &list) : options_(options), list_(list) {}

    void walk_root(const std::wstring &given) {
        const std::string shown = utf8_of(given);
        const std::wstring wide = full_path(given);
        if (wide.empty()) {
            unreadable("", shown, Kind::File, reason_text(GetLastError()));
            return;
        }
        WIN32_FILE_ATTRIBUTE_DATA data{};
        if (!GetFileAttributesExW(wide.c_str(), GetFileExInfoStandard, &data)) {
            unreadable("", shown, Kind::File, reason_text(GetLastError()));
            return;
        }
        const bool directory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        std::string failure;
        const std::string path = library_name(wide, directory, &failure);
        if (path.empty()) {
            unreadable("", shown, directory ? Kind::Unlistable : Kind::File, failure);
            return;
        }
        // Links are never entered, so the whole walk stays on this volume.
        streams_ = options_.streams && volume_holds_streams(wide);
        const char separator = preferred_separator(shown);
        if (directory) {
            if (options_.maxDepth == 0) return;
            walk_directory(path, wide, trim_separators(shown), separator, 1);
        } else {
            add_file(path, shown, 0, false);
        }
    }

  private:
    void walk_directory(const std::string &path, const std::wstring &wide,
                        const std::string &shown, char separator, int depth) {
        std::vector<WideEntry> entries;
        const DWORD listError = list_wide(wide, &entries);
        if (listError != ERROR_SUCCESS && entries.empty()) {
            unreadable(path, shown, Kind::Unlistable, reason_text(listError));
            return;
        }
        Dir dir(VOXA_IO_OpenDir(path.c_str(), 0, 0));
        if (!dir.valid()) {
            unreadable(path, shown, Kind::Unlistable, reason_text(GetLastError()));
            return;
        }
        if (streams_) add_streams(path, shown);
        // The library's names in a table, so that a listing of n entries
        // costs n look-ups, not n squared.
        std::unordered_multimap<std::string, size_t> byKey;
        byKey.reserve(entries.size());
        // The short name too: where the system's 8-bit conversion differs
        // from ours, the library gave that name.
        for (size_t i = 0; i < entries.size(); ++i) {
            byKey.emplace(entries[i].key, i);
            const std::string shortKey = utf8_of(entries[i].shortName);
            if (!shortKey.empty() && shortKey != entries[i].key) byKey.emplace(shortKey, i);
        }
        std::vector<char> name(kNameBuffer);
        uint32_t kind = 0;
        uint64_t size = 0;
        const size_t prefix = path.size() + 1;  // the stored path and "\"
        // Only the directory's own handle ends this loop: ReadDir reports
        // the end of a listing (also one cut short by an error) as false.
        while (VOXA_IO_ReadDir(dir.get(), name.data(), kNameBuffer, &kind, &size, nullptr)) {
            const std::string full(name.data());
            if (full.size() < prefix) continue;
            const std::string entry = full.substr(prefix);
            auto match = byKey.find(entry);
            while (match != byKey.end() && entries[match->second].listed) {
                byKey.erase(match);
                match = byKey.find(entry);
            }
            if (match != byKey.end()) {
                WideEntry &known = entries[match->second];
                byKey.erase(match);
                known.listed = true;
                visit(path, full, wide, known, kind, size, shown, separator, depth);
            } else {
                // Created after the wide listing: the library's name is all
                // there is.
                WideEntry late;
                late.name = wide_of_ansi(entry);
                late.key = entry;
                visit(path, full, wide, late, kind, size, shown, separator, depth);
            }
        }
        for (const WideEntry &missed : entries) {
            if (missed.listed) continue;
            std::string named;
            if (!exact_ansi(missed.name, &named)) named = utf8_of(missed.shortName);
            visit(path, named.empty() ? std::string() : path + "\\" + named, wide, missed,
                  entry_kind(missed.attributes), missed.size, shown, separator, depth);
        }
        if (listError != ERROR_SUCCESS)
            unreadable(path, shown, Kind::Unlistable,
                       "listing cut short: " + reason_text(listError));
    }

    // One entry of a directory: full is the name the library gave for it
    // ("" when it has none), kind and size what its listing said.
    void visit(const std::string &dirPath, std::string full, const std::wstring &dirWide,
               const WideEntry &entry, uint32_t kind, uint64_t size, const std::string &dirShown,
               char separator, int depth) {
        const std::string entryShown = join(dirShown, separator, utf8_of(entry.name));
        if (excluded(utf8_of(entry.name), entryShown)) return;
        const std::string shortForm =
            entry.shortName.empty() ? std::string() : dirPath + "\\" + utf8_of(entry.shortName);
        const size_t limit =
            kind == VXIO_ENTRY_DIRECTORY ? kLibraryDirectoryLimit : kLibraryFileLimit;
        // A name the library's calls cannot take is given by its short name.
        std::string exact;
        const bool exactName = exact_ansi(entry.name, &exact);
        if (full.empty() || full.size() > limit || !exactName) full = shortForm;
        if (full.empty() || full.size() > limit) {
            unreadable("", entryShown, kind == VXIO_ENTRY_DIRECTORY ? Kind::Unlistable : Kind::File,
                       exactName ? reason_text(ERROR_FILENAME_EXCED_RANGE)
                                 : "the name has no form in the ANSI code page, nor a short name");
            return;
        }
        switch (kind) {
        case VXIO_ENTRY_FILE:
            add_file(full, entryShown, size, true);
            break;
        case VXIO_ENTRY_DIRECTORY:
            if (options_.maxDepth < 0 || depth < options_.maxDepth)
                walk_directory(full, join_wide(dirWide, entry.name), entryShown, separator,
                               depth + 1);
            break;
        case VXIO_ENTRY_REPARSE:
            // Never entered: a link may lead back up the tree.
            add_skipped(full, entryShown, Kind::Link);
            break;
        case VXIO_ENTRY_OFFLINE:
            // Reading would fetch the file back from remote storage.
            add_skipped(full, entryShown, Kind::Offline);
            break;
        default:
            break;
        }
    }

    void add_file(const std::string &path, const std::string &shown, uint64_t size,
                  bool listed) {
        Item item;
        item.path = path;
        item.shown = shown;
        item.kind = Kind::File;
        item.listedSize = size;
        item.knownFile = listed;
        list_.add(std::move(item));
        if (streams_) add_streams(path, shown);
    }

    // The named streams of one file or directory, as "path:name:$DATA"
    // (opened so) and "shown:name" (printed so).
    void add_streams(const std::string &path, const std::string &shown) {
        Dir streams(VOXA_IO_OpenDir(path.c_str(), 0, 1));
        if (!streams.valid()) return;
        std::vector<char> name(kNameBuffer);
        uint32_t kind = 0;
        uint64_t size = 0;
        for (int count = 0; count < kMaxStreams; ++count) {
            name[0] = '\0';
            if (!VOXA_IO_ReadDir(streams.get(), name.data(), kNameBuffer, &kind, &size, nullptr))
                break;
            // A stream whose name is too long to convert comes back
            // unnamed; it cannot be opened by name either.
            const std::string full(name.data());
            if (full.size() <= path.size() || kind != VXIO_ENTRY_STREAM) continue;
            Item item;
            item.path = full;
            item.shown = shown + ":" + stream_name(full.substr(path.size()));
            item.kind = Kind::Stream;
            item.listedSize = size;
            item.knownFile = true;
            list_.add(std::move(item));
        }
    }

    void add_skipped(const std::string &path, const std::string &shown, Kind kind) {
        Item item;
        item.path = path;
        item.shown = shown;
        item.kind = kind;
        list_.add(std::move(item));
    }

    void unreadable(const std::string &path, const std::string &shown, Kind kind,
                    const std::string &reason) {
        Item item;
        item.path = path;
        item.shown = shown;
        item.kind = kind;
        item.failure = reason;
        list_.add(std::move(item));
    }

    bool excluded(const std::string &entry, const std::string &shown) const {
        for (const std::string &glob : options_.excludes) {
            const bool wholePath = glob.find_first_of("/\\") != std::string::npos;
            if (glob_matches(glob, wholePath ? shown : entry)) return true;
        }
        return false;
    }

    // Looking for streams costs a privilege change, an open and a query per
    // object; a volume whose file system keeps no named streams has none
    // to find. When the volume cannot be asked, every object is looked at.
    static bool volume_holds_streams(const std::wstring &path) {
        FileHandle object(CreateFileW(path.c_str(), 0,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
        DWORD flags = 0;
        if (!object.valid() || !GetVolumeInformationByHandleW(object.get(), nullptr, 0, nullptr,
                                                              nullptr, &flags, nullptr, 0))
            return true;
        return (flags & FILE_NAMED_STREAMS) != 0;
    }

    const Options &options_;
    WorkList &list_;
    bool streams_ = false;  // look for named streams under the current root
};

// A hasher thread: takes objects until the list runs dry. With a
// signature list, sizes come first: a listed file whose size no signature
// has is not read at all. A PATH given as a file has no listed size and is
// always read.
void hash_objects(WorkList &list, const IoTable &table, const SignatureTable *signatures,
                  bool wantAttributes) {
    std::vector<uint8_t> buffer(kChunk);
    while (Item *item = list.take()) {
        if (signatures && item->knownFile && !signatures->wants(item->listedSize)) {
            item->passedBySize = true;
            item->size = item->listedSize;
        } else {
            item->failure = hash_named_object(table, buffer, item->path.c_str(), item->knownFile,
                                              item->digest, &item->size);
            if (signatures && item->failure.empty())
                item->detection = signatures->match(item->digest, item->size);
        }
        if (wantAttributes) {
            // A stream has its file's attributes.
            const std::string owner = item->kind == Kind::Stream
                                          ? item->path.substr(0, item->path.find(':', 2))
                                          : item->path;
            item->attributes = GetFileAttributesA(owner.c_str());
        }
        list.complete(item);
    }
}

struct Totals {
    uint64_t files = 0, streams = 0, skipped = 0, unreadable = 0, bytes = 0;
    uint64_t scanned = 0, infected = 0;  // compared with the signatures
};

// A detected object to remove once the scan is over: only detections are
// kept, so the memory of a scan does not grow with the files it prints.
struct Detected {
    std::string path;   // the library's name: what is deleted
    std::string shown;  // the UTF-8 name printed
};

void print_item(const Item &item, const Options &options, Totals &totals) {
    const bool failed = !item.failure.empty();
    if (failed) {
        ++totals.unreadable;
        fflush(stdout);  // keep lines and messages in order on a shared terminal
        fprintf(stderr, "vxio: %s: %s\n", item.shown.c_str(), item.failure.c_str());
    } else if (item.kind == Kind::File) {
        ++totals.files;
    } else if (item.kind == Kind::Stream) {
        ++totals.streams;
    } else {
        ++totals.skipped;
    }
    const bool compared = !failed && needs_hashing(item);
    const bool signatures = !options.signatureList.empty();
    if (compared && !item.passedBySize) totals.bytes += item.size;
    if (compared && signatures) ++totals.scanned;
    if (item.detection) ++totals.infected;

    std::string line;
    if (options.json) {
        line = json_line(item.shown, kind_name(item.kind),
                         failed ? nullptr : (needs_hashing(item) ? &item.size : &item.listedSize),
                         compared && !item.passedBySize ? hex_digest(item.digest) : std::string(),
                         item.attributes, item.failure);
        // Signature names are printable ASCII: the list's grammar allows
        // nothing else.
        if (item.detection)
            line.insert(line.size() - 2, ",\"detection\":" + json_string(item.detection));
    } else if (item.detection) {
        line = item.shown + ": " + item.detection + " FOUND\n";
    } else if (compared && !signatures) {
        line = digest_line(item.digest, item.shown.c_str());
    }
    fwrite(line.data(), 1, line.size(), stdout);
}

class Progress {
  public:
    Progress() {
        const HANDLE err = GetStdHandle(STD_ERROR_HANDLE);
        shown_ = err != nullptr && err != INVALID_HANDLE_VALUE && GetFileType(err) == FILE_TYPE_CHAR;
    }
    void show(const Totals &totals) {
        if (!shown_) return;
        const auto now = std::chrono::steady_clock::now();
        if (now - last_ < std::chrono::milliseconds(250)) return;
        last_ = now;
        fprintf(stderr, "\rvxio scan: %llu objects, %.1f MB ",
                static_cast<unsigned long long>(totals.files + totals.streams + totals.skipped +
                                                totals.unreadable),
                static_cast<double>(totals.bytes) / 1e6);
        dirty_ = true;
    }
    void clear() {
        if (dirty_) fputs("\r                                                  \r", stderr);
        dirty_ = false;
    }

  private:
    bool shown_ = false;
    bool dirty_ = false;
    std::chrono::steady_clock::time_point last_{};
};

// Parses the options; returns -1 to go on, else the exit code. Names are
// taken in UTF-8 from the wide command line, so that a PATH or a pattern
// outside the ANSI code page is kept.
int parse_options(int argc, char **argv, Options &options) {
    ParsedArgs args;
    const int parsed = run_options("scan", kUsage, utf8_arguments(argc, argv),
                                   {{"--exclude", OptionKind::kText},
                                    {"--max-depth", OptionKind::kNumber, 0, 1u << 20},
                                    {"--jobs", OptionKind::kNumber, 1, 64},
                                    {"--json", OptionKind::kFlag},
                                    {"--summary", OptionKind::kFlag},
                                    {"--no-streams", OptionKind::kFlag},
                                    {"--signatures", OptionKind::kText},
                                    {"--remove", OptionKind::kFlag},
                                    {"--yes", OptionKind::kFlag},
                                    {"--check", OptionKind::kText}},
                                   "PATH", 0, SIZE_MAX, &args);
    if (parsed >= 0) return parsed;
    for (const std::string &root : args.operands) options.roots.push_back(wide_of_utf8(root));
    options.excludes = args.values("--exclude");
    options.maxDepth =
        args.has("--max-depth") ? static_cast<int>(args.number("--max-depth", 0)) : -1;
    options.jobs = static_cast<unsigned>(args.number("--jobs", 0));
    options.json = args.has("--json");
    options.summary = args.has("--summary");
    options.streams = !args.has("--no-streams");
    options.remove = args.has("--remove");
    options.yes = args.has("--yes");
    options.checkLists = args.values("--check");
    if (const std::string *list = args.value("--signatures")) {
        // The library opens the list by its ANSI name.
        std::string failure;
        options.signatureList = *list;
        options.signaturePath = library_name_of(*list, &failure);
        if (options.signaturePath.empty()) {
            fprintf(stderr, "vxio: %s: %s\n", list->c_str(), failure.c_str());
            return kExitUsage;
        }
    }
    if (!options.checkLists.empty()) {
        if (!options.roots.empty()) return usage_error("scan", "--check takes no PATH");
        if (!options.signatureList.empty())
            return usage_error("scan", "--check does not go with --signatures");
        return -1;
    }
    if (options.remove && options.signatureList.empty())
        return usage_error("scan", "--remove needs --signatures");
    if (options.yes && !options.remove) return usage_error("scan", "--yes goes with --remove");
    if (options.roots.empty()) return usage_error("scan", "no PATH given");
    if (options.jobs == 0) {
        SYSTEM_INFO info{};
        GetSystemInfo(&info);
        options.jobs = std::max<DWORD>(1, std::min<DWORD>(info.dwNumberOfProcessors, 64));
    }
    return -1;
}

}  // namespace

int run_scan(int argc, char **argv) {
    Options options;
    const int parsed = parse_options(argc, argv, options);
    if (parsed >= 0) return parsed;
    if (!options.checkLists.empty()) return run_check(options.checkLists, true);

    // A bad list stops the run before anything is scanned. The table is
    // only read once loaded, so the hashers share it.
    SignatureTable signatureTable;
    const SignatureTable *signatures = nullptr;
    if (!options.signatureList.empty()) {
        std::string error;
        if (!load_signatures(options.signaturePath, signatureTable, error,
                             options.signatureList)) {
            fprintf(stderr, "vxio: %s\n", error.c_str());
            return kExitUsage;
        }
        signatures = &signatureTable;
    }

    FileTable table(VXIO_TOOL_TABLE(VOXA_IO_GetTableForFileIO));
    if (!table.valid()) {
        fputs("vxio: cannot build the I/O table\n", stderr);
        return kExitUnreadable;
    }
    const auto started = std::chrono::steady_clock::now();
    WorkList list;
    std::thread walker([&] {
        Walker walk(options, list);
        for (const std::wstring &root : options.roots) walk.walk_root(root);
        list.finish_walk();
    });
    std::vector<std::thread> hashers;
    for (unsigned i = 0; i < options.jobs; ++i)
        hashers.emplace_back(hash_objects, std::ref(list), std::cref(*table.get()), signatures,
                             options.json);

    Totals totals;
    std::vector<Detected> detected;
    Progress progress;
    for (;;) {
        Item *item = nullptr;
        const WorkList::Next next = list.wait_for_front(std::chrono::milliseconds(250), &item);
        if (next == WorkList::Next::End) break;
        if (next == WorkList::Next::Ready) {
            progress.clear();
            print_item(*item, options, totals);
            if (options.remove && item->detection) detected.push_back({item->path, item->shown});
            list.release_front();
            end_if_output_closed();
        }
        progress.show(totals);
    }
    progress.clear();
    walker.join();
    for (std::thread &hasher : hashers) hasher.join();
    fflush(stdout);

    bool notRemoved = false;
    if (!detected.empty()) {
        if (confirm_once(detected.size(), options.yes)) {
            for (const Detected &object : detected) {
                const RemoveOutcome outcome = remove_detected(object.path);
                printf("%s: %s\n", object.shown.c_str(), outcome.message.c_str());
                notRemoved = notRemoved || outcome.kind == RemoveOutcome::kFailed;
            }
            fflush(stdout);
        } else {
            fputs("vxio scan: nothing removed\n", stderr);
        }
    }

    if (options.summary) {
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        fprintf(stderr,
                "vxio scan: %llu files, %llu streams, %llu skipped, %llu unreadable; "
                "%llu bytes in %.2f s, %.1f MB/s",
                static_cast<unsigned long long>(totals.files),
                static_cast<unsigned long long>(totals.streams),
                static_cast<unsigned long long>(totals.skipped),
                static_cast<unsigned long long>(totals.unreadable),
                static_cast<unsigned long long>(totals.bytes), seconds,
                seconds > 0 ? static_cast<double>(totals.bytes) / seconds / 1e6 : 0.0);
        if (signatures)
            fprintf(stderr, "; %llu scanned, %llu infected",
                    static_cast<unsigned long long>(totals.scanned),
                    static_cast<unsigned long long>(totals.infected));
        fputc('\n', stderr);
    }
    // With signatures the scanners' convention: an error leaves the
    // verdict incomplete, so it outranks a detection.
    if (signatures)
        return totals.unreadable || notRemoved ? kExitUsage
               : totals.infected                ? kExitUnreadable
                                                : kExitOk;
    return totals.unreadable ? kExitUnreadable : kExitOk;
}

}  // namespace vxio_tool
