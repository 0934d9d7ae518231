// Security-descriptor listing against the plain calls it is made of, in the
// same run: a tree of 2,000 files (20 directories of 100) is listed as SDDL
// DACL records into a file
//  - by one VOXA_ACLs_ExecCommand "List" with "--recursion>>fileRecurse";
//  - by a loop over the same files calling GetNamedSecurityInfoA and
//    ConvertSecurityDescriptorToStringSecurityDescriptorA, writing the same
//    record lines with WriteFile.
// Both write the same lines (checked once, in any order: the walk's order
// is the directory's). Figures are the best of a few alternated passes;
// the ratio is ours / reference in objects per second, so 1.0 means "as
// fast as the plain calls".
#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "bench_util.h"
#include "vxio/acl.h"

namespace {

constexpr int kDirectories = 20;
constexpr int kFilesPerDirectory = 100;
constexpr int kObjects = kDirectories * kFilesPerDirectory;
constexpr int kRounds = 5;
constexpr double kTarget = 0.8;

// The listed tree is "tree" in a directory of its own under the temporary
// directory; the two output files sit beside it there, so that the walk
// does not list them.
struct Tree {
    std::string base;
    std::string root;  // no trailing backslash
    std::vector<std::string> directories;
    std::vector<std::string> files;
};

bool make_tree(Tree &tree) {
    char temp[MAX_PATH];
    if (!GetTempPathA(MAX_PATH, temp)) return false;
    tree.base = std::string(temp) + "vxio-acl-bench-" + std::to_string(GetCurrentProcessId());
    tree.root = tree.base + "\\tree";
    if (!CreateDirectoryA(tree.base.c_str(), nullptr)) return false;
    if (!CreateDirectoryA(tree.root.c_str(), nullptr)) return false;
    char name[32];
    for (int d = 0; d < kDirectories; ++d) {
        std::snprintf(name, sizeof name, "\\d%02d", d);
        const std::string directory = tree.root + name;
        if (!CreateDirectoryA(directory.c_str(), nullptr)) return false;
        tree.directories.push_back(directory);
        for (int f = 0; f < kFilesPerDirectory; ++f) {
            std::snprintf(name, sizeof name, "\\f%03d.txt", f);
            const std::string path = directory + name;
            HANDLE file = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
            if (file == INVALID_HANDLE_VALUE) return false;
            CloseHandle(file);
            tree.files.push_back(path);
        }
    }
    return true;
}

void remove_tree(const Tree &tree, const std::vector<std::string> &extra) {
    for (const std::string &path : tree.files) DeleteFileA(path.c_str());
    for (const std::string &path : extra) DeleteFileA(path.c_str());
    for (const std::string &path : tree.directories) RemoveDirectoryA(path.c_str());
    RemoveDirectoryA(tree.root.c_str());
    RemoveDirectoryA(tree.base.c_str());
}

// The reference: what a listing has to do per object at the least, with
// the record line the engine writes ("path",1,"sddl">>> and CR CR LF).
bool reference_listing(const std::vector<std::string> &files, const std::string &out) {
    HANDLE file = CreateFileA(out.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                              CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    bool ok = true;
    std::string line;
    for (const std::string &path : files) {
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        char *sddl = nullptr;
        if (GetNamedSecurityInfoA(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION,
                                  nullptr, nullptr, nullptr, nullptr,
                                  &descriptor) != ERROR_SUCCESS ||
            !ConvertSecurityDescriptorToStringSecurityDescriptorA(
                descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &sddl, nullptr)) {
            LocalFree(descriptor);
            ok = false;
            break;
        }
        line.assign("\"").append(path).append("\",1,\"").append(sddl).append("\">>>\r\r\n");
        LocalFree(sddl);
        LocalFree(descriptor);
        DWORD done = 0;
        if (!WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &done, nullptr) ||
            done != line.size()) {
            ok = false;
            break;
        }
    }
    CloseHandle(file);
    return ok;
}

std::vector<std::string> sorted_lines(const std::string &path) {
    std::vector<std::string> lines;
    HANDLE file = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                              OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return lines;
    std::string text;
    char chunk[65536];
    DWORD done = 0;
    while (ReadFile(file, chunk, sizeof chunk, &done, nullptr) && done) text.append(chunk, done);
    CloseHandle(file);
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find('\n', at);
        if (end == std::string::npos) end = text.size() - 1;
        lines.push_back(text.substr(at, end + 1 - at));
        at = end + 1;
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

void report(const char *what, double ours, double reference) {
    std::printf("%-22s %9.0f obj/s  reference %9.0f obj/s  ratio %.3f (target >= %.2f)\n", what,
                kObjects / ours, kObjects / reference, reference / ours, kTarget);
}

bool run(const Tree &tree, const std::string &oursOut, const std::string &referenceOut) {
    const std::string command = "--objectName>>" + tree.root +
                                ">>--objectType>>file>>--recursion>>fileRecurse"
                                ">>--action>>List>>sddl>>dacl>>No>>Yes>>" + oursOut;
    std::vector<char> text(8320);
    bool ok = true;
    auto ours = [&] {
        text[0] = '\0';
        ok &= VOXA_ACLs_ExecCommand(command.c_str(), text.data(),
                                    static_cast<uint32_t>(text.size())) == 1;
    };
    auto reference = [&] { ok &= reference_listing(tree.files, referenceOut); };

    // One pass of each first: both must list every file, with the same
    // lines, or the figures compare different work.
    ours();
    reference();
    const std::vector<std::string> oursLines = sorted_lines(oursOut);
    if (!ok || oursLines.size() != size_t{kObjects} || oursLines != sorted_lines(referenceOut)) {
        std::fprintf(stderr, "acl_bench: the listings differ (%zu lines against %d files)\n",
                     oursLines.size(), kObjects);
        return false;
    }
    const bench::PairTimes t = bench::best_pair(ours, reference, kRounds);
    if (!ok) return false;
    report("List sddl dacl, files", t.a, t.b);
    return true;
}

}  // namespace

int main() {
    Tree tree;
    const bool made = make_tree(tree);
    const std::string oursOut = tree.base + "\\ours.txt";
    const std::string referenceOut = tree.base + "\\reference.txt";
    const bool ok = made && run(tree, oursOut, referenceOut);
    if (!made) std::fprintf(stderr, "acl_bench: the file tree could not be made\n");
    remove_tree(tree, {oursOut, referenceOut});
    return ok ? 0 : 1;
}
