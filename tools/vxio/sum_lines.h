// The lines of a digest list, as "vxio sha1" and "vxio scan" print them
// and as "vxio sha1 -c" / "vxio scan --check" read them back. Pure text:
// no system call, so that it can be fuzzed natively.
//
// A line is 40 hex digits (either case), one space, a mode mark (' ' for
// text, '*' for binary: both are hashed alike) and the name:
//   a9993e364706816aba3e25717850c26c9cd0d89d  notes.txt
//   a9993e364706816aba3e25717850c26c9cd0d89d *notes.txt
// A leading backslash says the name is escaped: "\\" stands for a
// backslash, "\n" for a line feed, "\r" for a carriage return; any other
// escape makes the line improperly formatted:
//   \1e82e3a50aeb13bf950ec638695bc70760c56fdc  logs\\today.log
// A line may end in CR LF. A named data stream printed by "vxio scan" is
// "path:stream", e.g. "sample/a.txt:Zone.Identifier".
#ifndef VXIO_TOOL_SUM_LINES_H
#define VXIO_TOOL_SUM_LINES_H

#include <stddef.h>
#include <stdint.h>

#include <string>

namespace vxio_tool {

constexpr size_t kSumDigestSize = 20;
constexpr size_t kSumHexDigits = 2 * kSumDigestSize;

// The longest line a list may hold. The longest path the system knows,
// 32,767 UTF-16 units, is at most 98,301 bytes of UTF-8 and twice that
// escaped: a longer line is not one the tool wrote, and is never held
// whole.
constexpr size_t kMaxSumLine = 256 * 1024;

struct SumLine {
    uint8_t digest[kSumDigestSize];
    std::string name;  // unescaped, never empty, never holding a NUL
    bool binary;       // written with '*'
};

// Parses one line, without its line feed (a trailing carriage return is
// dropped here). False when it is not a digest line.
bool parse_sum_line(const char *text, size_t length, SumLine *line);

// Cuts a byte stream into lines: bytes go in with feed(), whole lines come
// out of next() without their line feed. A line longer than kMaxSumLine is
// never held whole: it comes out once, as overlong and empty, and the rest
// of it up to its line feed is dropped. finish() says the stream ended, so
// that a last line without a line feed comes out too.
class SumLineSplitter {
  public:
    void feed(const char *data, size_t size);
    void finish();
    // True when a line was taken; *overlong says it was cut (line is then
    // empty).
    bool next(std::string *line, bool *overlong);

  private:
    std::string pending_;    // bytes of lines not yet taken
    size_t start_ = 0;       // where the next line begins in pending_
    bool skipping_ = false;  // inside an overlong line: drop up to '\n'
    bool overlong_ = false;  // an overlong line waits to be reported
    bool finished_ = false;
};

// The parts of "path:stream" when name ends in a named stream: the stream
// is after the first ':' of the last path component (a name cannot hold a
// ':' otherwise), not counting a drive's "C:". Both parts non-empty; false
// for a plain name.
bool split_stream_name(const std::string &name, std::string *path, std::string *stream);

// The name as a check result prints it: verbatim, unless it holds a line
// break; then "\\", "\n" and "\r" are escaped and the caller puts a
// backslash before the line (*escaped true), so that every result is one
// line.
std::string shown_check_name(const std::string &name, bool *escaped);

}  // namespace vxio_tool

#endif  // VXIO_TOOL_SUM_LINES_H
