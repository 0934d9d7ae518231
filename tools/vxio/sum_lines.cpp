// Parsing digest lists: see sum_lines.h for the line format.
#include "sum_lines.h"

#include <string.h>

namespace vxio_tool {
namespace {

int hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool is_separator(char c) { return c == '/' || c == '\\'; }

bool is_drive(const std::string &name, size_t at) {
    const char c = name[at];
    return name.size() >= at + 2 && name[at + 1] == ':' &&
           ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'));
}

}  // namespace

bool parse_sum_line(const char *text, size_t length, SumLine *line) {
    if (length > 0 && text[length - 1] == '\r') --length;
    size_t at = 0;
    const bool escaped = length > 0 && text[0] == '\\';
    if (escaped) at = 1;
    // Digits, the space, the mode mark and at least one byte of name.
    if (length < at + kSumHexDigits + 3) return false;
    for (size_t i = 0; i < kSumDigestSize; ++i) {
        const int high = hex_value(text[at + 2 * i]);
        const int low = hex_value(text[at + 2 * i + 1]);
        if (high < 0 || low < 0) return false;
        line->digest[i] = static_cast<uint8_t>(high << 4 | low);
    }
    at += kSumHexDigits;
    if (text[at] != ' ' || (text[at + 1] != ' ' && text[at + 1] != '*')) return false;
    line->binary = text[at + 1] == '*';
    at += 2;
    if (memchr(text + at, '\0', length - at) != nullptr) return false;
    line->name.clear();
    if (!escaped) {
        line->name.assign(text + at, length - at);
        return true;
    }
    for (; at < length; ++at) {
        if (text[at] != '\\') {
            line->name += text[at];
            continue;
        }
        if (++at == length) return false;  // a lone backslash at the end
        switch (text[at]) {
        case '\\': line->name += '\\'; break;
        case 'n': line->name += '\n'; break;
        case 'r': line->name += '\r'; break;
        default: return false;
        }
    }
    return true;
}

void SumLineSplitter::feed(const char *data, size_t size) {
    if (skipping_) {
        const void *end = memchr(data, '\n', size);
        if (end == nullptr) return;
        skipping_ = false;
        const size_t used = static_cast<size_t>(static_cast<const char *>(end) - data) + 1;
        data += used;
        size -= used;
    }
    // Taken lines are dropped before the buffer grows, so that it holds at
    // most one overlong line's worth of bytes plus what was fed.
    if (start_ > 0) {
        pending_.erase(0, start_);
        start_ = 0;
    }
    pending_.append(data, size);
}

void SumLineSplitter::finish() { finished_ = true; }

bool SumLineSplitter::next(std::string *line, bool *overlong) {
    line->clear();
    *overlong = false;
    const size_t newline = pending_.find('\n', start_);
    size_t end = newline;
    if (newline == std::string::npos) {
        const size_t held = pending_.size() - start_;
        if (held > kMaxSumLine) {
            // The rest of this line, up to its line feed, is never kept.
            pending_.clear();
            start_ = 0;
            skipping_ = !finished_;
            *overlong = true;
            return true;
        }
        if (!finished_ || held == 0) return false;
        end = pending_.size();
    }
    if (end - start_ > kMaxSumLine) {
        *overlong = true;
    } else {
        line->assign(pending_, start_, end - start_);
    }
    start_ = newline == std::string::npos ? pending_.size() : newline + 1;
    return true;
}

bool split_stream_name(const std::string &name, std::string *path, std::string *stream) {
    const size_t last = name.find_last_of("/\\");
    size_t component = last == std::string::npos ? 0 : last + 1;
    // "C:name" and "\\?\C:" hold a drive, not a stream.
    const bool rooted = component == 0 || (component == 4 && is_separator(name[0]) &&
                                           is_separator(name[1]) && is_separator(name[3]));
    if (rooted && is_drive(name, component)) component += 2;
    const size_t colon = name.find(':', component);
    if (colon == std::string::npos || colon == component || colon + 1 == name.size())
        return false;
    path->assign(name, 0, colon);
    stream->assign(name, colon + 1, std::string::npos);
    return true;
}

std::string shown_check_name(const std::string &name, bool *escaped) {
    *escaped = name.find_first_of("\n\r") != std::string::npos;
    if (!*escaped) return name;
    std::string shown;
    for (const char c : name) {
        switch (c) {
        case '\\': shown += "\\\\"; break;
        case '\n': shown += "\\n"; break;
        case '\r': shown += "\\r"; break;
        default: shown += c; break;
        }
    }
    return shown;
}

}  // namespace vxio_tool
