// The version as Windows and the engine's installer see it: the VERSIONINFO
// resources of vxio.dll and vxio.exe (beside this program), read back with
// the system's version API, "vxio --version" and the header's
// VXIO_VERSION_*, all against the project version that the build passes
// in (VXIO_TEST_VERSION*, from project() in CMakeLists.txt).
#include <windows.h>

#include <gtest/gtest.h>
#include <stdio.h>
#include <wchar.h>

#include <string>
#include <vector>

#include "vxio/base.h"

namespace {

const wchar_t kVersion[] = L"" VXIO_TEST_VERSION;

std::wstring beside_this_program(const wchar_t *name) {
    wchar_t path[MAX_PATH];
    DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) return name;
    std::wstring dir(path, length);
    return dir.substr(0, dir.find_last_of(L'\\') + 1) + name;
}

// The whole version block of FILE, or nothing when it has none.
std::vector<BYTE> version_block(const std::wstring &file) {
    DWORD ignored = 0;
    DWORD size = GetFileVersionInfoSizeW(file.c_str(), &ignored);
    std::vector<BYTE> block(size);
    if (size == 0 || !GetFileVersionInfoW(file.c_str(), 0, size, block.data())) block.clear();
    return block;
}

// A string of the U.S. English, UTF-16 table; "<none>" when it is missing.
// The length the system reports bounds the read.
std::wstring string_field(std::vector<BYTE> &block, const std::wstring &name) {
    std::wstring key = L"\\StringFileInfo\\040904b0\\" + name;
    void *value = nullptr;
    UINT length = 0;
    if (block.empty() || !VerQueryValueW(block.data(), key.c_str(), &value, &length) || !value)
        return L"<none>";
    return std::wstring(static_cast<const wchar_t *>(value), wcsnlen(static_cast<const wchar_t *>(value), length));
}

std::string narrow(const std::wstring &text) { return std::string(text.begin(), text.end()); }

struct Binary {
    const wchar_t *file;
    const wchar_t *description;
    DWORD fileType;
};
const Binary kBinaries[] = {
    {L"vxio.dll", L"vxio I/O library for scanning engines", VFT_DLL},
    {L"vxio.exe", L"vxio command-line tool", VFT_APP},
};

TEST(VersionResource, StringsAndNumbersAreTheProjectVersion) {
    const DWORD versionMS = MAKELONG(VXIO_TEST_VERSION_MINOR, VXIO_TEST_VERSION_MAJOR);
    const DWORD versionLS = MAKELONG(0, VXIO_TEST_VERSION_PATCH);
    for (const Binary &binary : kBinaries) {
        SCOPED_TRACE(narrow(binary.file));
        std::vector<BYTE> block = version_block(beside_this_program(binary.file));
        ASSERT_FALSE(block.empty()) << "no version resource";
        const struct {
            const wchar_t *name;
            std::wstring want;
        } fields[] = {
            {L"FileVersion", kVersion},
            {L"ProductVersion", kVersion},
            {L"ProductName", L"vxio"},
            {L"FileDescription", binary.description},
            {L"LegalCopyright", L"Copyright (c) 2026 the vxio authors"},
            {L"OriginalFilename", binary.file},
            {L"InternalName", L"vxio"},
        };
        for (const auto &field : fields)
            EXPECT_EQ(narrow(field.want), narrow(string_field(block, field.name))) << narrow(field.name);

        void *value = nullptr;
        UINT length = 0;
        ASSERT_TRUE(VerQueryValueW(block.data(), L"\\", &value, &length));
        ASSERT_TRUE(value != nullptr && length >= sizeof(VS_FIXEDFILEINFO));
        const VS_FIXEDFILEINFO *fixed = static_cast<const VS_FIXEDFILEINFO *>(value);
        EXPECT_EQ(0xFEEF04BDu, fixed->dwSignature);
        EXPECT_EQ(versionMS, fixed->dwFileVersionMS);
        EXPECT_EQ(versionLS, fixed->dwFileVersionLS);
        EXPECT_EQ(versionMS, fixed->dwProductVersionMS);
        EXPECT_EQ(versionLS, fixed->dwProductVersionLS);
        EXPECT_EQ(binary.fileType, fixed->dwFileType);
    }
}

TEST(VersionResource, HeaderAndToolSayTheSame) {
    EXPECT_STREQ(VXIO_TEST_VERSION, VXIO_VERSION_STRING);
    EXPECT_EQ(VXIO_TEST_VERSION_MAJOR, VXIO_VERSION_MAJOR);
    EXPECT_EQ(VXIO_TEST_VERSION_MINOR, VXIO_VERSION_MINOR);
    EXPECT_EQ(VXIO_TEST_VERSION_PATCH, VXIO_VERSION_PATCH);

    std::wstring command = L"\"" + beside_this_program(L"vxio.exe") + L"\" --version";
    FILE *tool = _wpopen(command.c_str(), L"rt");
    ASSERT_TRUE(tool != nullptr);
    char line[128] = "";
    if (!fgets(line, sizeof line, tool)) line[0] = '\0';
    EXPECT_EQ(0, _pclose(tool));
    EXPECT_EQ(std::string("vxio ") + VXIO_TEST_VERSION + "\n", line);
}

}  // namespace
