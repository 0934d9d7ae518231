// Handle backend on real files: transfers through the caller's handle and
// its shared file pointer, short reads, SetEnd both ways, the 32-bit size,
// the handle surviving Close, and failures of the system calls.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/os.h"
#include "support/heap_ledger.h"
#include "support/temp_dir.h"
#include "vxio/io.h"

using vxio::platform::OsTable;
using vxio::platform::SeamEntry;
using vxio::test::HeapLedger;
using vxio::test::TempDir;

namespace {

const uint8_t kCallerData[16] = {};

std::string pattern(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>('a' + i % 26);
    return s;
}

uint64_t file_pointer(HANDLE h) {
    LARGE_INTEGER zero{}, at{};
    SetFilePointerEx(h, zero, &at, FILE_CURRENT);
    return static_cast<uint64_t>(at.QuadPart);
}

uint64_t true_size(HANDLE h) {
    LARGE_INTEGER size{};
    GetFileSizeEx(h, &size);
    return static_cast<uint64_t>(size.QuadPart);
}

struct HandleObject : ::testing::Test {
    TempDir dir;
    HeapLedger ledger;
    std::string path;
    HANDLE file = INVALID_HANDLE_VALUE;
    IoObject *object = nullptr;

    void open(DWORD access = GENERIC_READ | GENERIC_WRITE, size_t size = 1000) {
        path = dir.write("data.bin", pattern(size));
        file = CreateFileA(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                           OPEN_EXISTING, 0, nullptr);
        ASSERT_NE(file, INVALID_HANDLE_VALUE);
        object = VOXA_HANDLE_Open("data.bin", 9, 77, file, kCallerData, 16);
        ASSERT_NE(object, nullptr);
    }
    void TearDown() override {
        VOXA_HANDLE_Close(object);
        if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
        EXPECT_EQ(ledger.live(), 0u);
    }
};

TEST_F(HandleObject, ReadsAndWritesAtOffsetsThroughTheSharedFilePointer) {
    open();
    const std::string content = pattern(1000);
    char buffer[64];
    EXPECT_EQ(VOXA_HANDLE_Read(object, 500, buffer, 64), 0u);
    EXPECT_EQ(std::string(buffer, 64), content.substr(500, 64));
    EXPECT_EQ(file_pointer(file), 564u) << "the caller sees the pointer at the end of the transfer";
    EXPECT_EQ(VOXA_IO_Changed(object), 0);

    EXPECT_EQ(VOXA_HANDLE_Write(object, 998, "XYZ", 3), 0u) << "writes may extend the file";
    EXPECT_EQ(VOXA_IO_Changed(object), 1);
    EXPECT_EQ(true_size(file), 1001u);
    EXPECT_EQ(VOXA_HANDLE_Read(object, 997, buffer, 4), 0u);
    EXPECT_EQ(std::string(buffer, 4), content.substr(997, 1) + "XYZ");

    EXPECT_EQ(VOXA_HANDLE_PositionFile(object, 123), 1);
    EXPECT_EQ(file_pointer(file), 123u);

    // Close leaves the handle to the caller, still open and usable.
    VOXA_HANDLE_Close(object);
    object = nullptr;
    DWORD done = 0;
    SetFilePointer(file, 0, nullptr, FILE_BEGIN);
    EXPECT_TRUE(ReadFile(file, buffer, 3, &done, nullptr));
    EXPECT_EQ(std::string(buffer, done), "abc");
}

TEST_F(HandleObject, ShortReadAtTheEndFailsButKeepsTheBytes) {
    open();
    std::vector<char> buffer(100, '#');
    EXPECT_EQ(VOXA_HANDLE_Read(object, 990, buffer.data(), 100), 207u);
    EXPECT_EQ(std::string(buffer.data(), 10), pattern(1000).substr(990, 10));
    EXPECT_EQ(buffer[10], '#');
    EXPECT_EQ(VOXA_HANDLE_Read(object, 5000, buffer.data(), 1), 207u) << "past the end";
    EXPECT_EQ(VOXA_HANDLE_Read(object, 0, buffer.data(), 0), 0u) << "nothing asked, nothing short";
}

TEST_F(HandleObject, SetEndExtendsAndShrinksAndSizeIsReportedModulo4GiB) {
    open();
    const uint64_t beyond = (uint64_t{4} << 30) + 5;  // sparse under Wine: costs nothing
    ASSERT_EQ(VOXA_HANDLE_SetEnd(object, beyond), 0u);
    ASSERT_EQ(true_size(file), beyond);
    EXPECT_EQ(VOXA_IO_Changed(object), 1);
    uint64_t size = 0;
    EXPECT_EQ(VOXA_HANDLE_GetSize(object, &size), 0u);
    EXPECT_EQ(size, 5u);
    // Positions themselves are 64-bit.
    EXPECT_EQ(VOXA_HANDLE_Write(object, beyond - 4, "hi", 2), 0u);
    char back[2];
    EXPECT_EQ(VOXA_HANDLE_Read(object, beyond - 4, back, 2), 0u);
    EXPECT_EQ(std::string(back, 2), "hi");
    EXPECT_EQ(VOXA_HANDLE_SetEnd(object, 10), 0u);
    EXPECT_EQ(VOXA_HANDLE_GetSize(object, &size), 0u);
    EXPECT_EQ(size, 10u);
}

TEST_F(HandleObject, WritesThroughAReadOnlyHandleFailAndChangeNothing) {
    open(GENERIC_READ);
    EXPECT_EQ(VOXA_HANDLE_Write(object, 0, "zz", 2), 207u);
    EXPECT_EQ(VOXA_HANDLE_SetEnd(object, 1), 207u);
    EXPECT_EQ(VOXA_IO_Changed(object), 0);
    EXPECT_EQ(true_size(file), 1000u);
}

TEST_F(HandleObject, FailingSystemCallsGive207) {
    open();
    char buffer[4] = {};
    {
        SeamEntry seek(&OsTable::SetFilePointerEx,
                       +[](HANDLE, LARGE_INTEGER, PLARGE_INTEGER, DWORD) -> BOOL {
                           SetLastError(ERROR_NEGATIVE_SEEK);
                           return FALSE;
                       });
        EXPECT_EQ(VOXA_HANDLE_Read(object, 0, buffer, 4), 207u);
        EXPECT_EQ(VOXA_HANDLE_Write(object, 0, "abcd", 4), 207u);
        EXPECT_EQ(VOXA_HANDLE_SetEnd(object, 4), 207u);
        EXPECT_EQ(VOXA_HANDLE_PositionFile(object, 4), 0);
    }
    {
        SeamEntry set_end(&OsTable::SetEndOfFile, +[](HANDLE) -> BOOL {
            SetLastError(ERROR_DISK_FULL);
            return FALSE;
        });
        EXPECT_EQ(VOXA_HANDLE_SetEnd(object, 4), 207u);
    }
    {
        // The system takes one byte less than asked.
        SeamEntry write(&OsTable::WriteFile,
                        +[](HANDLE h, LPCVOID data, DWORD length, LPDWORD done, LPOVERLAPPED o) -> BOOL {
                            return vxio::platform::real_os.WriteFile(h, data, length ? length - 1 : 0, done, o);
                        });
        EXPECT_EQ(VOXA_HANDLE_Write(object, 0, "abcd", 4), 207u);
    }
    EXPECT_EQ(VOXA_IO_Changed(object), 0) << "no failed operation marks the object changed";
}

TEST(HandleOpen, RequiredArgumentsNullNameAndNoMemory) {
    TempDir dir;
    HeapLedger ledger;
    const std::string path = dir.write("f", "x");
    HANDLE file = CreateFileA(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);

    EXPECT_EQ(VOXA_HANDLE_Open("f", 0, 0, nullptr, kCallerData, 16), nullptr);
    EXPECT_EQ(VOXA_HANDLE_Open("f", 0, 0, file, nullptr, 16), nullptr);

    IoObject *o = VOXA_HANDLE_Open(nullptr, 0, 0, file, kCallerData, 16);
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(VOXA_IO_GetNamePointer(o), nullptr);
    EXPECT_EQ(o->kind, VXIO_KIND_HANDLE);
    EXPECT_EQ(reinterpret_cast<IoHandleObject *>(o)->handle, file);
    VOXA_HANDLE_Close(o);

    vxio::test::each_allocation_fails([&](HeapLedger &l) {
        IoObject *obj = VOXA_HANDLE_Open("named", 0, 0, file, kCallerData, 16);
        EXPECT_EQ(obj == nullptr, l.failed());
        VOXA_HANDLE_Close(obj);
    });
    CloseHandle(file);
    EXPECT_EQ(ledger.live(), 0u);
}

}  // namespace
