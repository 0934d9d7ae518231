// vxio.exe: the command-line client of vxio.dll. "vxio COMMAND ARGS..."
// looks COMMAND up in the table below and hands the rest to its handler; a
// new command is one more row and one more handler file.
#include <errno.h>
#include <fcntl.h>
#include <io.h>
#include <stdio.h>
#include <string.h>

#include "tool.h"
#include "vxio/base.h"

// Names are taken as given: the runtime must not expand wildcards in the
// arguments, since "[" and "]" are legal in Windows file names.
extern "C" {
int _dowildcard = 0;
}

namespace vxio_tool {
namespace {

const Command kCommands[] = {
    {"scan", "walk directory trees and print the SHA-1 of every file and stream", run_scan},
    {"sha1", "print the SHA-1 digest of files (or standard input), one line each", run_sha1},
    {"startup", "list the files started from autostart locations; repair one on request",
     run_startup},
    {"ps", "list the running processes by one of five system interfaces", run_ps},
    {"modules", "list the modules of a process", run_modules},
    {"threads", "list the threads of a process", run_threads},
    {"handles", "list the open handles of a process", run_handles},
    {"drivers", "list the loaded device drivers", run_drivers},
    {"services", "list the installed services", run_services},
    {"dump", "write the module report and memory dumps of a process", run_dump},
    {"kill", "terminate a process (asks first)", run_kill},
    {"acl", "run one security-descriptor command (list, clear, change, restore)", run_acl},
    {"boot", "list the boot sectors of a drive or disk image with their SHA-1", run_boot},
};

void print_help(FILE *out) {
    fputs("Usage: vxio COMMAND [ARGUMENTS...]\n"
          "       vxio --help | --version\n"
          "\n"
          "Commands:\n",
          out);
    for (const Command &command : kCommands) fprintf(out, "  %-8s %s\n", command.name, command.summary);
    fputs("\n"
          "Options:\n"
          "  -h, --help  show this help and exit\n"
          "  --version   print the version and exit\n"
          "\n"
          "'vxio COMMAND --help' shows the usage of one command.\n"
          "\n"
          "Exit codes:\n"
          "  0  success\n"
          "  1  some file could not be read\n"
          "  2  bad usage (unknown command or option)\n",
          out);
}

const Command *find_command(const char *name) {
    for (const Command &command : kCommands) {
        if (strcmp(command.name, name) == 0) return &command;
    }
    return nullptr;
}

}  // namespace

void end_if_output_closed() {
    const DWORD error = GetLastError();
    if (!ferror(stdout)) return;
    // The runtime reports a closed pipe as EPIPE or as a plain EINVAL; the
    // system's error says which (Wine gives ERROR_PIPE_NOT_CONNECTED).
    const HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
    const bool closedPipe =
        errno == EPIPE || (GetFileType(out) == FILE_TYPE_PIPE &&
                           (error == ERROR_NO_DATA || error == ERROR_BROKEN_PIPE ||
                            error == ERROR_PIPE_NOT_CONNECTED));
    if (!closedPipe) return;
    // Nothing more can reach the reader, and the threads of a scan need
    // not finish their work for nobody: the process ends here, at once.
    fflush(stderr);
    TerminateProcess(GetCurrentProcess(), kExitOk);
}

}  // namespace vxio_tool

int main(int argc, char **argv) {
    using namespace vxio_tool;
    // Lines end in "\n" alone, as on the systems whose checkers read them;
    // text mode would turn each into "\r\n". Messages follow suit, so that
    // a script sees one line ending from both streams.
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);

    if (argc < 2) {
        print_help(stderr);
        return kExitUsage;
    }
    const char *first = argv[1];
    int status;
    if (strcmp(first, "--help") == 0 || strcmp(first, "-h") == 0) {
        print_help(stdout);
        status = kExitOk;
    } else if (strcmp(first, "--version") == 0) {
        printf("vxio %s\n", VXIO_VERSION_STRING);
        status = kExitOk;
    } else if (first[0] == '-') {
        return usage_error(nullptr, std::string("unknown option '") + first + "'");
    } else if (const Command *command = find_command(first)) {
        status = command->run(argc - 1, argv + 1);
    } else {
        return usage_error(nullptr, std::string("unknown command '") + first + "'");
    }

    // A reader that stopped reading (vxio scan . | head -1) has what it
    // wanted: that ends the command quietly. Any other line that never
    // arrived (a full disk) is a failure the caller must hear about.
    fflush(stdout);
    end_if_output_closed();
    if (ferror(stdout)) {
        fputs("vxio: write error on standard output\n", stderr);
        if (status == kExitOk) status = kExitUnreadable;
    }
    return status;
}
