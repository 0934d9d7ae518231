// Removal of detected files under Wine (tool code over vxio.dll): a plain
// file, a read-only one, one held open by another handle (scheduled for
// the restart; Wine's registry record of it is put back), a missing one;
// and the single question asked before removing.
#include <gtest/gtest.h>

#include <windows.h>

#include <stdio.h>

#include <string>

#include "tools/vxio/remove.h"
#include "support/pending_renames.h"

using vxio_tool::confirm_once;
using vxio_tool::remove_detected;
using vxio_tool::RemoveOutcome;

namespace {

TEST(Remove, EachOutcomeAndItsMessage) {
    char temp[MAX_PATH];
    ASSERT_GT(GetTempPathA(MAX_PATH, temp), 0u);
    const std::string base = std::string(temp) + "vxio_remove_" + std::to_string(GetCurrentProcessId());
    enum Setup { kPlain, kReadOnly, kHeld, kMissing };
    struct Case {
        Setup setup;
        RemoveOutcome::Kind kind;
        const char *message;  // its start
        bool stays;
    } cases[] = {
        {kPlain, RemoveOutcome::kRemoved, "removed", false},
        {kReadOnly, RemoveOutcome::kRemoved, "removed", false},
        {kHeld, RemoveOutcome::kAtRestart, "in use, will be removed at the next restart", true},
        {kMissing, RemoveOutcome::kFailed, "not removed (", false},
    };
    const vxio::test::PendingRenamesKept kept;
    for (const Case &c : cases) {
        const std::string path = base + "_" + std::to_string(c.setup);
        HANDLE held = INVALID_HANDLE_VALUE;
        if (c.setup != kMissing) {
            HANDLE file = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                      c.setup == kReadOnly ? FILE_ATTRIBUTE_READONLY : 0, nullptr);
            ASSERT_NE(file, INVALID_HANDLE_VALUE);
            CloseHandle(file);
        }
        if (c.setup == kHeld)
            held = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0,
                               nullptr);
        const RemoveOutcome outcome = remove_detected(path);
        EXPECT_EQ(outcome.kind, c.kind) << c.setup;
        EXPECT_EQ(outcome.message.rfind(c.message, 0), 0u) << c.setup << ": " << outcome.message;
        EXPECT_EQ(GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES, c.stays) << c.setup;
        if (held != INVALID_HANDLE_VALUE) CloseHandle(held);
        DeleteFileA(path.c_str());
    }
}

TEST(Remove, AsksOnceUnlessYes) {
    struct Case {
        const char *input;
        bool yes, granted;
        const char *asked;
    } cases[] = {
        {"y\n", false, true, "remove 2 detected files? [y/N] "},
        {"YES\r\n", false, true, "remove 2 detected files? [y/N] "},
        {"n\n", false, false, "remove 2 detected files? [y/N] "},
        {"yess\n", false, false, "remove 2 detected files? [y/N] "},
        {"", false, false, "remove 2 detected files? [y/N] "},
        {"n\n", true, true, ""},
    };
    for (const Case &c : cases) {
        FILE *in = tmpfile(), *err = tmpfile();
        ASSERT_TRUE(in && err);
        fputs(c.input, in);
        rewind(in);
        EXPECT_EQ(confirm_once(2, c.yes, in, err), c.granted) << c.input;
        char asked[64] = {};
        rewind(err);
        fgets(asked, sizeof asked, err);
        EXPECT_STREQ(asked, c.asked) << c.input;
        fclose(in);
        fclose(err);
    }
}

}  // namespace
