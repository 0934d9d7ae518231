// The cuts of a command text: the texts that the startup scan tries as
// paths, taken out of a registry value's data or name, a subkey's name or a
// joined file definition.
//
// The text is cut into tokens twice: once at ";,/-", double quote and line
// feed, and, when it holds a space, once more at space, ";,", double quote
// and line feed. Each pass yields the whole text first, then its tokens in
// order; tokens made only of blanks (bytes 9 to 13, space and 160) are
// skipped, and every candidate comes without its trailing spaces and tabs.
// For example the lower-cased value
//   "c:\tools\agent.exe" /run
// yields, in the first pass, the whole text, then  c:\tools\agent.exe
// (the blank token between the closing quote and the "/" is skipped) and
// run; in the second pass the whole text, then c:\tools\agent.exe and /run.
//
// Nothing here looks at the system: the caller lower-cases the text first
// (the C runtime's lower-casing in the current locale), then expands the
// macros of each candidate and tests whether it exists. Every candidate is
// a piece of the bytes given, so it builds and is fuzzed natively.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vxio::startup {

enum CommandPass : uint8_t {
    kFirstPass = 0,   // cut at ";,/-", double quote and line feed
    kSecondPass = 1,  // cut at space, ";,", double quote and line feed
};

// The separators of a pass, as a C string.
const char *CommandSeparators(CommandPass pass) noexcept;

// The length of the first `length` bytes of text without the spaces and
// tabs at their end.
size_t WithoutTrailingBlanks(const char *text, size_t length) noexcept;

// One text to try as a path: bytes [offset, offset + length) of the text,
// never empty.
struct CommandCandidate {
    size_t offset = 0;
    size_t length = 0;
    CommandPass pass = kFirstPass;
    bool whole = false;  // the whole text, tried before the pass's tokens
};

// Walks the candidates of the bytes [text, text + size) in the order they
// are tried. The text need not be terminated; a zero byte is an ordinary
// byte here (the scan passes C strings, which hold none). An empty text
// has no candidates.
class CommandCuts {
public:
    CommandCuts(const char *text, size_t size) noexcept;

    // The next candidate, or false after the last one.
    bool next(CommandCandidate &out) noexcept;

    // True when the text holds a space: the second pass runs, and the scan
    // counts only what that pass finds.
    bool has_second_pass() const noexcept { return secondPass_; }

private:
    bool next_token(CommandCandidate &out) noexcept;

    const char *text_;
    size_t size_;
    bool secondPass_;
    CommandPass pass_ = kFirstPass;
    bool wholeDone_ = false;
    bool done_ = false;
    size_t cursor_ = 0;
};

}  // namespace vxio::startup
