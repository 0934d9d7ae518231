// What the process commands of vxio.exe share: the library's lists and
// their results in words, the PID operand, and what the system itself
// says about a process (does it exist, its name and path).
#ifndef VXIO_TOOL_PROCESS_SUPPORT_H
#define VXIO_TOOL_PROCESS_SUPPORT_H

#include <stdint.h>

#include <string>
#include <vector>

#include "tool.h"
#include "vxio/alloc.h"

namespace vxio_tool {

// A list the library fills; freed with its records. Every record is
// reached through at(), which checks the index against the count.
class List {
  public:
    List();
    ~List();
    List(const List &) = delete;
    List &operator=(const List &) = delete;
    DynArray *get() const { return array_; }
    uint32_t size() const;
    template <typename T>
    const T *at(uint32_t i) const {
        return i < size() ? static_cast<const T *>(array_->items[i]) : nullptr;
    }

  private:
    DynArray *array_;
};

// Owner of a handle that is null when invalid (processes, duplicates).
struct KernelHandleTraits {
    using Value = HANDLE;
    static HANDLE invalid() { return nullptr; }
    static void close(HANDLE handle) { CloseHandle(handle); }
};
using KernelHandle = Owned<KernelHandleTraits>;

// The options every listing command takes.
extern const OptionRule kJsonOption;
extern const OptionRule kNoHeaderOption;

// A process as the system knows it: the name from its snapshot, the full
// image path when the process can be asked for it.
struct ProcessIdentity {
    std::string name;  // UTF-8
    std::string path;  // UTF-8, empty when it could not be had
    // "1234 (name.exe, C:\dir\name.exe)", for questions and results.
    std::string described(uint32_t pid) const;
};

// The command line of a command that takes the PID of an existing
// process: -1 to go on with *pid and *identity set, else the exit code
// (help printed, bad usage, or "vxio COMMAND: PID: no such process" after
// the system's own process snapshot said so; never judged from an empty
// list).
int parse_process_command(const char *command, const char *usage, int argc, char **argv,
                          std::vector<OptionRule> rules, ParsedArgs *parsed, uint32_t *pid,
                          ProcessIdentity *identity);

// A library result other than VXIO_PROC_OK, as a sentence naming object,
// with the system's message when the thread's last error (cleared by the
// caller before the call) holds one. Returns 1.
int report_result(const char *command, const std::string &object, int32_t result);

// The last part of a path (after '\\' or '/').
const char *base_name(const char *path);

}  // namespace vxio_tool

#endif  // VXIO_TOOL_PROCESS_SUPPORT_H
