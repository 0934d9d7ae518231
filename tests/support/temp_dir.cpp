#include "support/temp_dir.h"

#include <gtest/gtest.h>

namespace vxio::test {

namespace {

void remove_tree(const std::string &dir) {
    WIN32_FIND_DATAA found;
    HANDLE find = FindFirstFileA((dir + "\\*").c_str(), &found);
    if (find != INVALID_HANDLE_VALUE) {
        do {
            const std::string name = found.cFileName;
            if (name == "." || name == "..") continue;
            const std::string full = dir + "\\" + name;
            if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
                remove_tree(full);
            } else {
                SetFileAttributesA(full.c_str(), FILE_ATTRIBUTE_NORMAL);
                DeleteFileA(full.c_str());
            }
        } while (FindNextFileA(find, &found));
        FindClose(find);
    }
    RemoveDirectoryA(dir.c_str());
}

}  // namespace

TempDir::TempDir() {
    char base[MAX_PATH];
    GetTempPathA(MAX_PATH, base);
    static unsigned counter = 0;
    for (int attempt = 0; attempt < 100; ++attempt) {
        path_ = std::string(base) + "vxio-test-" + std::to_string(GetCurrentProcessId()) + "-" +
                std::to_string(++counter);
        if (CreateDirectoryA(path_.c_str(), nullptr)) return;
    }
    ADD_FAILURE() << "cannot create a temporary directory under " << base;
}

TempDir::~TempDir() { remove_tree(path_); }

std::string TempDir::file(const std::string &name) const { return path_ + "\\" + name; }

std::string TempDir::write(const std::string &name, const std::string &contents) const {
    const std::string full = file(name);
    HANDLE h = CreateFileA(full.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    EXPECT_NE(h, INVALID_HANDLE_VALUE) << full;
    DWORD done = 0;
    if (!contents.empty()) WriteFile(h, contents.data(), DWORD(contents.size()), &done, nullptr);
    CloseHandle(h);
    return full;
}

}  // namespace vxio::test
