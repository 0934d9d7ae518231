// Test support: a private directory under the temporary folder, removed
// with everything in it when the test ends.
#pragma once

#include <windows.h>

#include <string>

namespace vxio::test {

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

private:
    std::string path_;
};

}  // namespace vxio::test
