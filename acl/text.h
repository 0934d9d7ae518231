// Letter case in the command engine's texts. Commands, names and paths are
// ANSI-code-page text; only the ASCII letters are folded (a lead byte of a
// double-byte character is never below 0x80, so byte-wise comparisons agree
// with the multibyte rules for the ASCII keywords and separators that the
// engine looks for). Builds without Windows headers.
#pragma once

#include <string>
#include <string_view>

namespace vxio::acl {

inline char fold_ascii(char c) { return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c; }

inline std::string folded(std::string text) {
    for (char &c : text) c = fold_ascii(c);
    return text;
}

inline bool begins_with_ignoring_case(std::string_view text, std::string_view prefix) {
    if (text.size() < prefix.size()) return false;
    for (size_t i = 0; i < prefix.size(); ++i)
        if (fold_ascii(text[i]) != fold_ascii(prefix[i])) return false;
    return true;
}

inline bool equals_ignoring_case(std::string_view a, std::string_view b) {
    return a.size() == b.size() && begins_with_ignoring_case(a, b);
}

}  // namespace vxio::acl
