// vxio acl: runs one command of the security-descriptor language through
// VOXA_ACLs_ExecCommand and prints the listing it returns, or "ok" /
// "failed".
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "tool.h"
#include "vxio/acl.h"

namespace vxio_tool {
namespace {

// The engine's text buffer: listings and restore texts up to 8319
// characters.
constexpr size_t kTextSize = 8320;

const char kUsage[] =
    "Usage: vxio acl [--in FILE] COMMAND\n"
    "Run one security-descriptor command: arguments separated by \">>\".\n"
    "\n"
    "  --objectName>>NAME  --objectType>>file|registry|service|printer|share\n"
    "  --recursion>>fileDirNoRecurse|regNoRecurse|dirRecurse|regRecurse|fileRecurse|fileDirRecurse\n"
    "  --filter>>TEXT  (objects whose path contains TEXT are left out)   --ignoreErrors\n"
    "  --action>>List>>sddl|csl|tab>>dacl,sacl,owner,primary_group>>Yes|No (explicit)>>No|Yes|Both (inherited)>>FILE|None\n"
    "  --action>>Clear>>dacl|sacl        --action>>SetProtection>>daclNoChange|daclNotProtected|daclProtectCopy|daclProtectNoCopy>>sacl...\n"
    "  --action>>SetOwner>>NAME>>IsName|IsSID   --action>>SetGroup>>NAME>>IsName|IsSID\n"
    "  --action>>ACE>>TRUSTEE>>IsName|IsSID>>WORDS>>sub-objects,sub-containers,...>>audit_success|audit_fail|revoke>>sacl\n"
    "  --action>>Trustee>>FIND>>IsName|IsSID>>PUT>>IsName|IsSID>>replaceTrustee|removeTrustee|copyTrustee>>dacl|sacl\n"
    "  --action>>Domain>>FIND>>PUT>>replaceDomain|removeDomain|copyDomain>>dacl|sacl\n"
    "  --action>>ResetPermissions>>dacl|sacl   --action>>Restore>>FILE|FromVOXAStruct\n"
    "\n"
    "With --in FILE, the file's text is the command's input (the records that\n"
    "Restore>>FromVOXAStruct writes back). Otherwise a listing is printed.\n"
    "\n"
    "Examples:\n"
    "  list a file as SDDL:\n"
    "    vxio acl \"--objectName>>C:\\data\\a.txt>>--objectType>>file>>--action>>List>>sddl>>dacl,owner>>No>>Yes>>None\"\n"
    "  make a directory tree's DACL protected (inherited entries copied):\n"
    "    vxio acl \"--objectName>>C:\\data>>--objectType>>file>>--recursion>>fileDirRecurse>>--action>>SetProtection>>daclProtectCopy>>saclNoChange\"\n"
    "  restore from a saved SDDL listing:\n"
    "    vxio acl --in saved.txt \"--objectName>>C:\\data\\a.txt>>--objectType>>file>>--action>>Restore>>FromVOXAStruct\"\n"
    "\n"
    "Exit codes: 0 the command ran, 1 it failed, 2 bad usage.\n";

bool read_text_file(const char *path, std::string &text) {
    FILE *in = fopen(path, "rb");
    if (!in) return false;
    char chunk[4096];
    size_t n;
    while ((n = fread(chunk, 1, sizeof chunk, in)) > 0) text.append(chunk, n);
    fclose(in);
    return true;
}

}  // namespace

int run_acl(int argc, char **argv) {
    const char *input = nullptr;
    const char *command = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0) {
            fputs(kUsage, stdout);
            return kExitOk;
        }
        if (strcmp(argv[i], "--in") == 0) {
            if (++i >= argc) return usage_error("acl", "--in needs a file name");
            input = argv[i];
        } else if (!command) {
            command = argv[i];
        } else {
            return usage_error("acl", "one command only (quote it)");
        }
    }
    if (!command) return usage_error("acl", "no command given");

    std::vector<char> text(kTextSize, '\0');
    uint32_t size = kTextSize;
    if (input) {
        std::string given;
        if (!read_text_file(input, given)) {
            fprintf(stderr, "vxio: %s: cannot be read\n", input);
            return kExitUnreadable;
        }
        if (given.empty() || given.size() + 1 >= kTextSize) {
            fprintf(stderr, "vxio: %s: empty, or longer than %zu characters\n", input, kTextSize - 2);
            return kExitUnreadable;
        }
        // The engine takes a text as input when its stated size is its
        // length (a full-size buffer would not be taken).
        memcpy(text.data(), given.c_str(), given.size() + 1);
        size = static_cast<uint32_t>(given.size());
    }
    if (!VOXA_ACLs_ExecCommand(command, text.data(), size)) {
        puts("failed");
        return kExitUnreadable;
    }
    if (!input && text[0] != '\0') {
        fputs(text.data(), stdout);
        fputs("\n", stdout);
    } else {
        puts("ok");
    }
    return kExitOk;
}

}  // namespace vxio_tool
