// vxio dump and vxio kill: the commands that act on a process (write its
// memory out, end it), each after making sure the process exists and
// naming it.
#include <stdio.h>
#include <string.h>

#include <string>

#include "process_support.h"
#include "vxio/process.h"
#include "vxio/process_memory.h"

namespace vxio_tool {
namespace {

// DIR ready to receive the dump: created when missing (one level: its
// parent must exist), refused when it is a file. -1 to go on, else the
// exit code after the message.
int prepare_directory(const std::string &dir) {
    const DWORD attributes = GetFileAttributesA(dir.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES) {
        if (attributes & FILE_ATTRIBUTE_DIRECTORY) return -1;
        fprintf(stderr, "vxio dump: %s: not a directory\n", dir.c_str());
        return kExitUnreadable;
    }
    const DWORD error = GetLastError();
    if ((error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) &&
        CreateDirectoryA(dir.c_str(), nullptr))
        return -1;
    fprintf(stderr, "vxio dump: %s: %s\n", dir.c_str(), reason_text(GetLastError()).c_str());
    return kExitUnreadable;
}

}  // namespace

int run_dump(int argc, char **argv) {
    static const char kUsage[] =
        "Usage: vxio dump PID [--out DIR]\n"
        "Write the module report and the memory dumps of process PID\n"
        "(0..4294967295) into DIR: report.txt and one NAME_memDump file a module\n"
        "or memory section. Needs the debug privilege for other users' processes.\n"
        "\n"
        "Options:\n"
        "  --out DIR   the directory to write into (default: the current one);\n"
        "              created when missing (its parent must exist)\n"
        "  -h, --help  show this help and exit\n"
        "\n"
        "Exit codes: 0 written, 1 no such process, DIR unusable or the dump\n"
        "failed, 2 bad usage.\n";
    ParsedArgs args;
    uint32_t pid = 0;
    ProcessIdentity identity;
    int status = parse_process_command("dump", kUsage, argc, argv,
                                       {{"--out", OptionKind::kText}}, &args, &pid, &identity);
    if (status >= 0) return status;
    const std::string *out = args.value("--out");
    if (out && (status = prepare_directory(*out)) >= 0) return status;
    // The dumps write into the current directory ("modules.tmp" among
    // them), so the tool moves there first.
    if (out && !SetCurrentDirectoryA(out->c_str())) {
        fprintf(stderr, "vxio dump: %s: %s\n", out->c_str(), reason_text(GetLastError()).c_str());
        return kExitUnreadable;
    }
    const std::string object = "process " + identity.described(pid);
    SetLastError(0);
    const int32_t modules = VOXA_IO_DumpWin32ModulesList(pid, "report.txt");
    if (modules < 0) return report_result("dump", object, modules);
    SetLastError(0);
    const int32_t result = VOXA_IO_DumpCompleteWin32ProcessMemory(pid, "", "report.txt");
    if (result != VXIO_PROC_OK) return report_result("dump", object, result);
    printf("process %s: %d modules; report.txt and the _memDump files written\n",
           identity.described(pid).c_str(), static_cast<int>(modules));
    return kExitOk;
}

int run_kill(int argc, char **argv) {
    static const char kUsage[] =
        "Usage: vxio kill PID [--yes]\n"
        "Terminate process PID (0..4294967295), after asking (unless --yes); the\n"
        "question and the result name the process and its image path.\n"
        "\n"
        "Options:\n"
        "  --yes       do not ask\n"
        "  -h, --help  show this help and exit\n"
        "\n"
        "Exit codes: 0 terminated or nothing done (answered no), 1 no such process\n"
        "or it could not be terminated, 2 bad usage.\n";
    ParsedArgs args;
    uint32_t pid = 0;
    ProcessIdentity identity;
    const int status = parse_process_command("kill", kUsage, argc, argv,
                                             {{"--yes", OptionKind::kFlag}}, &args, &pid, &identity);
    if (status >= 0) return status;
    const std::string described = identity.described(pid);
    if (!args.has("--yes")) {
        printf("terminate process %s? [y/N] ", described.c_str());
        fflush(stdout);
        char answer[16] = {};
        if (!fgets(answer, sizeof answer, stdin) || (answer[0] != 'y' && answer[0] != 'Y')) {
            printf("nothing done\n");
            return kExitOk;
        }
    }
    SetLastError(0);
    if (!VOXA_IO_TerminateWin32Process(pid)) {
        const DWORD error = GetLastError();
        fprintf(stderr, "vxio kill: process %s: could not be terminated%s%s\n", described.c_str(),
                error ? ": " : "", error ? reason_text(error).c_str() : "");
        return kExitUnreadable;
    }
    printf("terminated process %s\n", described.c_str());
    return kExitOk;
}

}  // namespace vxio_tool
