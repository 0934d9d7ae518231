// Texts of "vxio scan".
#include "scan_text.h"

#include <stdio.h>

#include <vector>

namespace vxio_tool {

char preferred_separator(const std::string &given) {
    return given.find('/') != std::string::npos && given.find('\\') == std::string::npos ? '/'
                                                                                          : '\\';
}

namespace {
bool is_separator(char c) { return c == '/' || c == '\\'; }
}  // namespace

std::string trim_separators(const std::string &path) {
    std::string trimmed = path;
    while (trimmed.size() > 1 && is_separator(trimmed.back())) {
        // "C:\" names the drive's root; "C:" would name its current folder.
        if (trimmed.size() == 3 && trimmed[1] == ':') break;
        trimmed.pop_back();
    }
    return trimmed;
}

std::string join(const std::string &dir, char separator, const std::string &name) {
    if (!dir.empty() && is_separator(dir.back())) return dir + name;
    return dir + separator + name;
}

std::string stream_name(const std::string &suffix) {
    std::string name = suffix;
    if (!name.empty() && name[0] == ':') name.erase(0, 1);
    static const std::string kData = ":$DATA";
    if (name.size() >= kData.size() &&
        name.compare(name.size() - kData.size(), kData.size(), kData) == 0) {
        name.erase(name.size() - kData.size());
    }
    return name;
}

namespace {
char fold(char c) {
    if (c >= 'A' && c <= 'Z') return static_cast<char>(c - 'A' + 'a');
    return c == '\\' ? '/' : c;
}
}  // namespace

// Iterative matching with one back-track point (the last '*'): linear in
// practice and never recursive, whatever the pattern.
bool glob_matches(const std::string &pattern, const std::string &text) {
    size_t p = 0, t = 0, star = std::string::npos, resume = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            resume = t;
        } else if (p < pattern.size() && (pattern[p] == '?' || fold(pattern[p]) == fold(text[t]))) {
            ++p;
            ++t;
        } else if (star != std::string::npos) {
            p = star + 1;
            t = ++resume;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') ++p;
    return p == pattern.size();
}

std::string to_utf8(const std::string &text) {
    if (text.empty()) return text;
    const int units = MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()),
                                          nullptr, 0);
    if (units <= 0) return std::string(text.size(), '?');
    std::vector<wchar_t> wide(static_cast<size_t>(units));
    MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), wide.data(), units);
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, nullptr, 0, nullptr,
                                          nullptr);
    if (bytes <= 0) return std::string(text.size(), '?');
    std::string utf8(static_cast<size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, &utf8[0], bytes, nullptr, nullptr);
    return utf8;
}

std::string json_string(const std::string &text) { return json_utf8_string(to_utf8(text)); }

std::string json_utf8_string(const std::string &text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (c < 0x20) {
                char escaped[8];
                snprintf(escaped, sizeof escaped, "\\u%04x", c);
                out += escaped;
            } else {
                out += static_cast<char>(c);
            }
        }
    }
    return out + "\"";
}

std::string json_line(const std::string &path, const char *kind, const uint64_t *size,
                      const std::string &sha1, DWORD attributes, const std::string &error) {
    std::string line =
        "{\"path\":" + json_utf8_string(path) + ",\"kind\":\"" + kind + "\",\"size\":";
    line += size ? std::to_string(*size) : "null";
    line += ",\"sha1\":" + (sha1.empty() ? std::string("null") : "\"" + sha1 + "\"");
    if (attributes != INVALID_FILE_ATTRIBUTES)
        line += ",\"attributes\":" + std::to_string(attributes);
    if (!error.empty()) line += ",\"error\":" + json_utf8_string(error);
    return line + "}\n";
}

}  // namespace vxio_tool
