#include "support/temp_dir.h"

#include <gtest/gtest.h>

namespace vxio::test {

namespace {

std::wstring widen(const std::string &text) {
    const int units = MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, nullptr, 0);
    std::wstring out(units > 0 ? units - 1 : 0, L'\0');
    if (units > 1) MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, out.data(), units);
    return out;
}

// Wine's Unix name of a Windows path; its last component is kept as it is
// (a link there is not resolved). Empty outside Wine.
std::string unix_name(const std::wstring &path) {
    using ToUnix = char *(CDECL *)(LPCWSTR);
    auto toUnix = reinterpret_cast<ToUnix>(reinterpret_cast<void *>(
        GetProcAddress(GetModuleHandleA("kernel32.dll"), "wine_get_unix_file_name")));
    char *name = toUnix ? toUnix(path.c_str()) : nullptr;
    if (!name) return "";
    std::string out = name;
    HeapFree(GetProcessHeap(), 0, name);
    return out;
}

// Runs a Unix program (Wine starts a non-PE file named by its Unix path as
// a native process) and waits, up to 10 s, until path exists or not as
// wanted: the process handle can be signalled before the program is done.
bool run_unix(std::string command, const std::wstring &path, bool exists) {
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessA(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                        &startup, &process))
        return false;
    WaitForSingleObject(process.hProcess, 10000);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    for (int i = 0; i < 200; ++i, Sleep(50))
        if ((GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES) == exists) return true;
    return false;
}

// Removes a symbolic link or junction itself. On Windows RemoveDirectoryW
// (a directory link) and DeleteFileW do exactly that. Under Wine 8 every
// Windows way of deleting a link (DeleteFileW, RemoveDirectoryW, even a
// delete-on-close handle opened with FILE_FLAG_OPEN_REPARSE_POINT) deletes
// its target instead (an empty target directory, a target file) and leaves
// the link; so there the link is unlinked by /bin/rm -f, which without -r
// can never remove a directory: at worst the link stays behind.
// Wine 8 lists a Unix link to a file as a plain file, which cannot be told
// apart here: tests must not leave one in a TempDir.
void remove_link(const std::wstring &path, bool directory) {
    if (on_wine()) {
        const std::string unixPath = unix_name(path);
        if (!unixPath.empty()) run_unix("/bin/rm -f -- \"" + unixPath + "\"", path, false);
    } else if (directory) {
        RemoveDirectoryW(path.c_str());
    } else {
        DeleteFileW(path.c_str());
    }
}

// Wide functions throughout: a name outside the ANSI code page has no ANSI
// form to delete it by.
void remove_tree(const std::wstring &dir) {
    WIN32_FIND_DATAW found;
    HANDLE find = FindFirstFileW((dir + L"\\*").c_str(), &found);
    if (find != INVALID_HANDLE_VALUE) {
        do {
            const std::wstring name = found.cFileName;
            if (name == L"." || name == L"..") continue;
            const std::wstring full = dir + L"\\" + name;
            const DWORD attributes = found.dwFileAttributes;
            if (attributes & FILE_ATTRIBUTE_REPARSE_POINT) {
                // Never entered, and its attributes are left alone: setting
                // them could reach the target.
                remove_link(full, attributes & FILE_ATTRIBUTE_DIRECTORY);
                continue;
            }
            SetFileAttributesW(full.c_str(), FILE_ATTRIBUTE_NORMAL);  // read-only blocks removal
            if (attributes & FILE_ATTRIBUTE_DIRECTORY)
                remove_tree(full);
            else
                DeleteFileW(full.c_str());
        } while (FindNextFileW(find, &found));
        FindClose(find);
    }
    RemoveDirectoryW(dir.c_str());
}

}  // namespace

bool on_wine() {
    return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
}

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

TempDir::~TempDir() {
    const std::wstring path = widen(path_);
    remove_tree(path);
    if (GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES)
        ADD_FAILURE() << "temporary directory " << path_ << " left behind";
}

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

bool TempDir::link_directory(const std::string &name, const std::string &target) const {
    const std::wstring link = widen(file(name));
    const std::string from = unix_name(widen(target)), to = unix_name(link);
    return !from.empty() && !to.empty() &&
           run_unix("/bin/ln -s -- \"" + from + "\" \"" + to + "\"", link, true);
}

}  // namespace vxio::test
