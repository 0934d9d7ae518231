// Test support: a private directory under the temporary folder, removed
// with everything in it when the test ends. Links found in it are removed
// as links: the cleanup never enters or deletes what they point to.
#pragma once

#include <windows.h>

#include <string>

namespace vxio::test {

// True when the tests run under Wine.
bool on_wine();

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const std::string &path() const { return path_; }
    // path() + "\\" + name
    std::string file(const std::string &name) const;
    // Writes a file of the given contents; returns its path.
    std::string write(const std::string &name, const std::string &contents) const;
    // Under Wine, makes file(name) a Unix symbolic link to the directory
    // target, which Wine lists as a directory reparse point. False elsewhere
    // or when it fails.
    bool link_directory(const std::string &name, const std::string &target) const;

private:
    std::string path_;
};

}  // namespace vxio::test
