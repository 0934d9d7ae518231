// vxio.exe: what the command handlers share. The tool is a client of the
// exported interface only (include/vxio/*.h and vxio.dll), plus the Win32
// calls it needs to open files and reach the console.
#ifndef VXIO_TOOL_TOOL_H
#define VXIO_TOOL_TOOL_H

#include <windows.h>

#include <string>

#include "options.h"

namespace vxio_tool {

enum ExitCode : int {
    kExitOk = 0,
    kExitUnreadable = 1,  // some file could not be read (the others were done)
    kExitUsage = 2,       // unknown command or option
};

// A handler gets the arguments from the command name on: argv[0] is the
// command's own name, argv[argc] is null. It returns an ExitCode.
using CommandHandler = int (*)(int argc, char **argv);

struct Command {
    const char *name;
    const char *summary;  // one line, shown by "vxio --help"
    CommandHandler run;
};

int run_sha1(int argc, char **argv);
int run_acl(int argc, char **argv);
int run_boot(int argc, char **argv);
int run_scan(int argc, char **argv);
int run_startup(int argc, char **argv);
int run_ps(int argc, char **argv);
int run_modules(int argc, char **argv);
int run_threads(int argc, char **argv);
int run_handles(int argc, char **argv);
int run_drivers(int argc, char **argv);
int run_services(int argc, char **argv);
int run_dump(int argc, char **argv);
int run_kill(int argc, char **argv);


// Ends the process with status 0 when standard output has become a closed
// pipe (its reader has gone); checked after the lines of long listings.
void end_if_output_closed();

// The reason a file could not be used, in the words a shell user expects:
// "No such file or directory" for 2 and 3, "Permission denied" for 5,
// otherwise "error N".
std::string reason_text(DWORD error);

// Owner of one resource: move-only; closing keeps the thread's last error,
// so a failure can still be read after the cleanup that follows it. Traits
// give the value type, the invalid value and the close function.
template <typename Traits>
class Owned {
  public:
    using Value = typename Traits::Value;

    Owned() = default;
    explicit Owned(Value value) : value_(value) {}
    Owned(Owned &&other) noexcept : value_(other.release()) {}
    Owned &operator=(Owned &&other) noexcept {
        reset(other.release());
        return *this;
    }
    Owned(const Owned &) = delete;
    Owned &operator=(const Owned &) = delete;
    ~Owned() { reset(); }

    Value get() const { return value_; }
    bool valid() const { return value_ != Traits::invalid(); }
    Value release() {
        Value value = value_;
        value_ = Traits::invalid();
        return value;
    }
    void reset(Value value = Traits::invalid()) {
        if (valid()) {
            const DWORD error = GetLastError();
            Traits::close(value_);
            SetLastError(error);
        }
        value_ = value;
    }

  private:
    Value value_ = Traits::invalid();
};

struct FileHandleTraits {
    using Value = HANDLE;
    static HANDLE invalid() { return INVALID_HANDLE_VALUE; }
    static void close(HANDLE handle) { CloseHandle(handle); }
};
using FileHandle = Owned<FileHandleTraits>;

}  // namespace vxio_tool

#endif  // VXIO_TOOL_TOOL_H
