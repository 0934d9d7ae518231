// The cuts of a command text (see command_text.h).
#include "startup/command_text.h"

#include <cstring>

namespace vxio::startup {
namespace {

// A double quote separates as the others do: the system starts
// "C:\Program Files\a.exe" /s as that path, which the quotes would hide.
constexpr char kFirstSeparators[] = ";,/-\n\"";
constexpr char kSecondSeparators[] = " ;,\n\"";

bool is_separator(char c, const char *separators) noexcept {
    return c != '\0' && std::strchr(separators, c) != nullptr;
}

// A token of nothing but white space (bytes 9 to 13, space, and 160, the
// no-break space of the usual code pages) names nothing.
bool is_blank(const char *text, size_t length) noexcept {
    for (size_t i = 0; i < length; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (!((c >= 9 && c <= 13) || c == ' ' || c == 160)) return false;
    }
    return true;
}

}  // namespace

// Blanks at the end of a path are no part of the file's name: the system
// drops trailing spaces when it opens a file, so "c:\a.exe " (a token cut
// before "/s") is c:\a.exe.
size_t WithoutTrailingBlanks(const char *text, size_t length) noexcept {
    while (length > 0 && (text[length - 1] == ' ' || text[length - 1] == '\t')) --length;
    return length;
}

const char *CommandSeparators(CommandPass pass) noexcept {
    return pass == kFirstPass ? kFirstSeparators : kSecondSeparators;
}

CommandCuts::CommandCuts(const char *text, size_t size) noexcept
    : text_(text), size_(text ? size : 0),
      secondPass_(text && std::memchr(text, ' ', size_) != nullptr) {
    done_ = size_ == 0;
}

bool CommandCuts::next(CommandCandidate &out) noexcept {
    while (!done_) {
        if (!wholeDone_) {
            wholeDone_ = true;
            const size_t length = WithoutTrailingBlanks(text_, size_);
            if (length == 0) continue;
            out = CommandCandidate{0, length, pass_, true};
            return true;
        }
        if (next_token(out)) return true;
        // The pass is over: the second one, if any, starts from the top.
        if (pass_ == kFirstPass && secondPass_) {
            pass_ = kSecondPass;
            wholeDone_ = false;
            cursor_ = 0;
        } else {
            done_ = true;
        }
    }
    return false;
}

// The next token of the pass that is not blank: runs of separators are
// skipped (there are no empty tokens), and a token ends at the next
// separator or at the end of the text.
bool CommandCuts::next_token(CommandCandidate &out) noexcept {
    const char *separators = CommandSeparators(pass_);
    while (cursor_ < size_) {
        while (cursor_ < size_ && is_separator(text_[cursor_], separators)) ++cursor_;
        const size_t start = cursor_;
        while (cursor_ < size_ && !is_separator(text_[cursor_], separators)) ++cursor_;
        if (cursor_ == start || is_blank(text_ + start, cursor_ - start)) continue;
        out = CommandCandidate{start, WithoutTrailingBlanks(text_ + start, cursor_ - start),
                               pass_, false};
        return true;
    }
    return false;
}

}  // namespace vxio::startup
