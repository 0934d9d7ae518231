// Named data streams and the token helpers behind them. Wine refuses the
// stream query (class 22), so NtQueryInformationFile is served through the
// seam's GetProcAddress with recorded FILE_STREAM_INFORMATION answers, for
// real files opened by the real CreateFileA. Every test ends with no
// library block left.
#include <gtest/gtest.h>
#include <windows.h>
#include <winternl.h>

#include <cstring>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "fs/token_privilege.h"
#include "platform/os.h"
#include "support/heap_ledger.h"
#include "support/temp_dir.h"
#include "vxio/fs.h"

using namespace vxio::platform;
using vxio::test::HeapLedger;

namespace {

constexpr uint32_t kNo = 77, kStream = VXIO_ENTRY_STREAM;  // kNo: kind left as it was
constexpr uint64_t kNoSize = 0x5A5A5A5A5A5A5A5Aull;
using Records = std::vector<std::pair<std::wstring, int64_t>>;  // name, size

template <typename Fn>
FARPROC as_farproc(Fn fn) {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void *>(fn));
}

// Records laid out as the system writes them: 8-byte aligned, each
// next-entry offset pointing at the following record, the last one 0.
std::vector<uint8_t> stream_list(const Records &streams) {
    std::vector<uint8_t> out;
    size_t previous = 0;
    for (const auto &[name, size] : streams) {
        const size_t at = (out.size() + 7) & ~size_t{7};
        const uint32_t length = uint32_t(name.size() * 2), step = uint32_t(at - previous);
        out.resize(at + 24 + length);
        if (at) std::memcpy(&out[previous], &step, 4);
        std::memcpy(&out[at + 4], &length, 4);
        std::memcpy(&out[at + 8], &size, 8);
        std::memcpy(&out[at + 24], name.data(), length);
        previous = at;
    }
    return out;
}

struct Query {
    std::vector<uint8_t> list;  // empty: success without a record
    NTSTATUS status = 0;        // answered when not 0
    bool endless = false;       // overflow whatever the buffer
    std::vector<ULONG> lengths;
} *query;

// The list is written whenever it fits, even under a failing status, which
// alone must decide.
NTSTATUS NTAPI served_query(HANDLE, PIO_STATUS_BLOCK io, void *buffer, ULONG length, ULONG) {
    query->lengths.push_back(length);
    const bool fits = query->list.size() <= length;
    if (fits && !query->list.empty()) std::memcpy(buffer, query->list.data(), query->list.size());
    io->Information = fits ? query->list.size() : 0;
    if (query->status) return io->Status = query->status;
    return io->Status = query->endless || !fits ? static_cast<NTSTATUS>(0x80000005) : 0;
}

std::map<std::string, FARPROC> served;  // by name; null hides the entry point

FARPROC WINAPI serve_entry(HMODULE module, LPCSTR name) {
    const auto found = HIWORD(reinterpret_cast<uintptr_t>(name)) ? served.find(name) : served.end();
    return found != served.end() ? found->second : real_os.GetProcAddress(module, name);
}

// result, name after the path ("" when untouched), kind, size
using Listed = std::tuple<bool, std::string, uint32_t, uint64_t>;

struct Streams : ::testing::Test {
    HeapLedger ledger;
    vxio::test::TempDir dir;
    Query answers;
    SeamEntry<decltype(OsTable::GetProcAddress)> seam{&OsTable::GetProcAddress, serve_entry};
    const std::string file = dir.write("data.bin", "hello");

    Streams() { query = &answers, served = {{"NtQueryInformationFile", as_farproc(served_query)}}; }
    void TearDown() override { EXPECT_EQ(ledger.live(), 0u) << "library blocks left"; }
    // One listing call into a 1024-byte buffer, outSize of it given.
    Listed list(StreamsContext *context, uint32_t outSize = 1024) {
        char name[1024];
        std::memset(name, 'X', sizeof name);
        Listed l{false, "", kNo, kNoSize};
        auto &[result, written, kind, size] = l;
        result = VOXA_Streams_Enumerate(context, &kind, &size, name, outSize, 1, 0);
        if (name[0] != 'X') written = std::string(name).substr(file.size());
        if (outSize < 1023) { EXPECT_EQ(name[outSize], 'X') << "written past outSize"; }
        return l;
    }
};

// Replays the stream lists NTFS gives: for a file with data and no named
// stream; for one with a named stream; for a directory with a named stream
// (no unnamed one), at the edge of the buffer it needs; for a file with a
// stream name of 294 bytes between two short ones.
TEST_F(Streams, RecordedListsAreWalkedOneNamedStreamPerCall) {
    const std::wstring longName = L":" + std::wstring(140, L'L') + L":$DATA";
    const uint32_t path = static_cast<uint32_t>(file.size());
    using Calls = std::vector<std::pair<uint32_t, Listed>>;  // outSize, answer
    const std::pair<Records, Calls> cases[] = {
        {{{L"::$DATA", 5}},  // its name is left on the way past it
         {{1024, {false, "::$DATA", kNo, kNoSize}}, {1024, {false, "::$DATA", kNo, kNoSize}}}},
        {{{L"::$DATA", 5}, {L":a:$DATA", 12345}},
         {{1024, {true, ":a:$DATA", kStream, 12345}}, {1024, {false, "", kNo, kNoSize}}}},
        {{{L":a:$DATA", 7}},  // needs path + 16 + 2 bytes though its text takes path + 9
         {{path + 17, {false, "", kNo, kNoSize}}, {path + 18, {true, ":a:$DATA", kStream, 7}}}},
        {{{L"::$DATA", 5}, {L":a:$DATA", 1}, {longName, 2}, {L":b:$DATA", 3}},
         {{1024, {true, ":a:$DATA", kStream, 1}},
          {path + 295, {false, "", kNo, kNoSize}},  // too small for the long record
          {path + 296, {true, "", kNo, kNoSize}},   // passed over without an answer
          {1024, {true, ":b:$DATA", kStream, 3}},
          {1024, {false, "", kNo, kNoSize}}}},
    };
    for (const auto &[streams, calls] : cases) {
        answers.list = stream_list(streams), answers.lengths.clear();
        StreamsContext *context = VOXA_Streams_Init(file.c_str(), 1, 0);
        EXPECT_TRUE(VOXA_Streams_Enumerate(context, nullptr, nullptr, nullptr, 0, 0, 1))
            << "the existence query, which moves nothing";
        for (size_t i = 0; i < calls.size(); ++i)
            EXPECT_EQ(list(context, calls[i].first), calls[i].second) << streams.size() << " " << i;
        EXPECT_EQ(answers.lengths, std::vector<ULONG>{16384}) << "read once per context";
        VOXA_Streams_Release(context);
    }
}

// Replays failing answers: access denied, Wine's refusal of class 22 (not
// implemented), success without a record, a first record without a name,
// and overflow for ever (given up after 64 queries, the last of 1 MiB).
// Each looks like no stream, and each call asks again.
TEST_F(Streams, FailedOrEmptyAnswersMeanNoStreams) {
    const std::vector<uint8_t> named = stream_list({{L":a:$DATA", 1}});
    const std::tuple<uint32_t, std::vector<uint8_t>, bool> cases[] = {
        {0xC0000022, named, false}, {0xC0000002, named, false}, {0, {}, false},
        {0, stream_list({{L"", 0}}), false}, {0, named, true}};
    for (const auto &[status, records, endless] : cases) {
        answers.status = status, answers.list = records, answers.endless = endless;
        answers.lengths.clear();
        StreamsContext *context = VOXA_Streams_Init(file.c_str(), 1, 1);
        EXPECT_FALSE(VOXA_Streams_Enumerate(context, nullptr, nullptr, nullptr, 0, 0, 1));
        EXPECT_FALSE(std::get<0>(list(context)));
        EXPECT_EQ(answers.lengths.size(), endless ? 128u : 2u) << status;
        EXPECT_EQ(answers.lengths.back(), endless ? 64u * 16384 : 16384u);
        VOXA_Streams_Release(context);
    }
}

TEST_F(Streams, NullArgumentsAndNoFlags) {
    answers.list = stream_list({{L":a:$DATA", 1}});
    EXPECT_EQ(VOXA_Streams_Init(file.c_str(), 0, 0), nullptr);
    uint32_t kind = 0;
    char name[MAX_PATH];
    EXPECT_FALSE(VOXA_Streams_Enumerate(nullptr, &kind, nullptr, name, sizeof name, 1, 1));
    VOXA_Streams_Release(nullptr);
    StreamsContext *context = VOXA_Streams_Init(file.c_str(), 1, 0);
    EXPECT_FALSE(VOXA_Streams_Enumerate(context, &kind, nullptr, name, sizeof name, 0, 0));
    EXPECT_TRUE(answers.lengths.empty()) << "nothing asked without a flag";
    EXPECT_FALSE(VOXA_Streams_Enumerate(context, &kind, nullptr, nullptr, sizeof name, 1, 0));
    EXPECT_TRUE(VOXA_Streams_Enumerate(context, nullptr, nullptr, name, sizeof name, 1, 0));
    EXPECT_EQ(name, file + ":a:$DATA");
    VOXA_Streams_Release(context);
}

// AdjustTokenPrivileges as it answers for an account without the
// privilege: it succeeds and sets ERROR_NOT_ALL_ASSIGNED, here on the first
// or the second call of each switch.
int adjustCalls, failingCall;
BOOL WINAPI adjust(HANDLE, BOOL, PTOKEN_PRIVILEGES, DWORD, PTOKEN_PRIVILEGES, PDWORD) {
    if (adjustCalls++ % 2 + 1 == failingCall) SetLastError(ERROR_NOT_ALL_ASSIGNED);
    return TRUE;
}

BOOL WINAPI failing_revert() { return SetLastError(ERROR_ACCESS_DENIED), FALSE; }

// Replays a system without each token entry point, the answer above, and
// RevertToSelf failing or missing. Without the privilege no context is made
// and a first Enumerate reads nothing; one whose RevertToSelf fails keeps
// what it read. Either way a later call lists.
TEST_F(Streams, TokenFailures) {
    answers.list = stream_list({{L":a:$DATA", 1}});
    const std::tuple<const char *, FARPROC, int> cases[] = {
        {"OpenProcessToken", nullptr, 0},      {"LookupPrivilegeValueA", nullptr, 0},
        {"AdjustTokenPrivileges", nullptr, 0}, {"AdjustTokenPrivileges", as_farproc(adjust), 1},
        {"AdjustTokenPrivileges", as_farproc(adjust), 2},
        {"RevertToSelf", as_farproc(failing_revert), 0}, {"RevertToSelf", nullptr, 0}};
    for (const auto &[entry, replacement, failing] : cases) {
        SCOPED_TRACE(std::string(entry) + " " + std::to_string(failing));
        const bool token = std::strcmp(entry, "RevertToSelf") != 0;
        StreamsContext *context = VOXA_Streams_Init(file.c_str(), 1, 0);
        served[entry] = replacement, adjustCalls = 0, failingCall = failing;
        answers.lengths.clear();
        EXPECT_EQ(vxio::fs::EnableTokenPrivilege("SeBackupPrivilege"), !token);
        StreamsContext *other = VOXA_Streams_Init(file.c_str(), 1, 0);
        EXPECT_EQ(other == nullptr, token);
        VOXA_Streams_Release(other);
        EXPECT_FALSE(std::get<0>(list(context)));
        EXPECT_EQ(answers.lengths.size(), token ? 0u : 1u);
        served.erase(entry);
        EXPECT_EQ(std::get<1>(list(context)), ":a:$DATA");
        EXPECT_EQ(answers.lengths.size(), 1u) << "read once";
        VOXA_Streams_Release(context);
    }
    served["AdjustTokenPrivileges"] = as_farproc(adjust), failingCall = 0;
    EXPECT_TRUE(vxio::fs::EnableTokenPrivilege("SeBackupPrivilege")) << "the replacement itself";
}

// Replays the overflow status the system answers while the buffer is too
// small, for a list of about 35 KiB: it is asked again in larger buffers.
// Then each allocation failing in turn.
TEST_F(Streams, OverflowAndEachAllocationFailing) {
    Records streams{{L"::$DATA", 5}};  // and 200 named ones: about 35 KiB
    for (int i = 0; i < 200; ++i)
        streams.push_back({L":" + std::wstring(70, L'x') + std::to_wstring(i), i});
    answers.list = stream_list(streams);
    vxio::test::each_allocation_fails([&](HeapLedger &inner) {
        answers.lengths.clear();
        StreamsContext *context = VOXA_Streams_Init(file.c_str(), 1, 0);
        const Listed first = list(context);
        EXPECT_TRUE(std::get<3>(first) == 0 || inner.failed()) << "the first named stream";
        if (!inner.failed()) {
            for (int i = 1; i < 200; ++i) EXPECT_EQ(std::get<3>(list(context)), uint64_t(i));
            EXPECT_FALSE(std::get<0>(list(context)));
            EXPECT_EQ(answers.lengths, (std::vector<ULONG>{16384, 32768, 49152}));
        }
        VOXA_Streams_Release(context);
    });
}

}  // namespace
