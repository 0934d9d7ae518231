// The process commands of vxio.exe: ps, modules, threads, handles,
// drivers, services, dump and kill, each a thin client of one or two
// process-inspection exports of vxio.dll.
#include <stdio.h>
#include <string.h>

#include <string>

#include "scan_text.h"
#include "tool.h"
#include "vxio/process.h"
#include "vxio/process_memory.h"

namespace vxio_tool {
namespace {

// A list the library fills; freed with its records.
class List {
  public:
    List() : array_(VOXA_arrNew()) {}
    ~List() {
        if (array_) VOXA_arrFree(array_, 1);
    }
    List(const List &) = delete;
    List &operator=(const List &) = delete;
    DynArray *get() const { return array_; }
    uint32_t size() const { return array_ ? array_->count : 0; }
    template <typename T>
    const T &at(uint32_t i) const { return *static_cast<const T *>(array_->items[i]); }

  private:
    DynArray *array_;
};

// A result other than 0 is reported, in the words of the process family.
int report(const char *command, int32_t result) {
    if (result == VXIO_PROC_OK) return kExitOk;
    const char *why = result == VXIO_PROC_FAILED        ? "a system call failed or is missing"
                      : result == VXIO_PROC_BAD_ARGUMENT ? "bad argument"
                      : result == VXIO_PROC_NO_MEMORY    ? "out of memory"
                      : result == VXIO_PROC_NOT_NT       ? "not a Windows NT system"
                                                         : "failed";
    fprintf(stderr, "vxio %s: %s (%d)\n", command, why, static_cast<int>(result));
    return kExitUnreadable;
}

bool parse_pid(const char *text, uint32_t *pid) {
    unsigned long value = 0;
    if (!text || !parse_count(text, &value)) return false;
    *pid = static_cast<uint32_t>(value);
    return true;
}

bool has_flag(int argc, char **argv, const char *flag) {
    for (int i = 1; i < argc; ++i)
        if (strcmp(argv[i], flag) == 0) return true;
    return false;
}

// The first argument that is not an option, or null.
const char *operand(int argc, char **argv) {
    for (int i = 1; i < argc; ++i) {
        if (argv[i][0] != '-') return argv[i];
        if (strcmp(argv[i], "--method") == 0 || strcmp(argv[i], "--out") == 0) ++i;
    }
    return nullptr;
}

const char *option_value(int argc, char **argv, const char *name) {
    for (int i = 1; i + 1 < argc; ++i)
        if (strcmp(argv[i], name) == 0) return argv[i + 1];
    return nullptr;
}

bool wants_help(int argc, char **argv, const char *usage) {
    if (!has_flag(argc, argv, "--help") && !has_flag(argc, argv, "-h")) return false;
    fputs(usage, stdout);
    return true;
}

}  // namespace

int run_ps(int argc, char **argv) {
    static const char kUsage[] =
        "Usage: vxio ps [--method toolhelp|psapi|native|pdh|brute] [--json]\n"
        "List the running processes: id, parent, name, path (tab-separated), by one\n"
        "of the system's independent interfaces (default: toolhelp), so that the\n"
        "methods can be compared. psapi, pdh and brute report no parent (0).\n";
    if (wants_help(argc, argv, kUsage)) return kExitOk;
    const char *method = option_value(argc, argv, "--method");
    const std::string chosen = method ? method : "toolhelp";
    const bool json = has_flag(argc, argv, "--json");
    List processes, modules, threads;
    int32_t result;
    if (chosen == "toolhelp")
        result = VOXA_IO_CreateWin32ToolHelpEnumerations(processes.get(), modules.get(), threads.get());
    else if (chosen == "psapi")
        result = VOXA_IO_CreateWin32PSAPIProcessList(processes.get());
    else if (chosen == "native")
        result = VOXA_IO_NativeAPIEnumProcessesThreads(processes.get(), threads.get());
    else if (chosen == "pdh")
        result = VOXA_IO_CreateWin32PDHProcessList(processes.get());
    else if (chosen == "brute")
        result = VOXA_IO_CreateWin32BruteForcePIDList(processes.get());
    else
        return usage_error("ps", "--method takes toolhelp, psapi, native, pdh or brute");
    if (result != VXIO_PROC_OK) return report("ps", result);
    for (uint32_t i = 0; i < processes.size(); ++i) {
        const ProcessEntry &p = processes.at<ProcessEntry>(i);
        // The name field holds a path for some methods and a bare name for
        // others; the last part of it is the name either way.
        const char *slash = strrchr(p.name, '\\');
        const char *name = slash ? slash + 1 : p.name;
        if (json)
            printf("{\"pid\":%u,\"parent\":%u,\"name\":%s,\"path\":%s}\n", p.processId,
                   p.parentOrAux, json_string(name).c_str(),
                   json_string(slash ? p.name : "").c_str());
        else
            printf("%u\t%u\t%s\t%s\n", p.processId, p.parentOrAux, to_utf8(name).c_str(),
                   slash ? to_utf8(p.name).c_str() : "");
    }
    return kExitOk;
}

int run_modules(int argc, char **argv) {
    static const char kUsage[] =
        "Usage: vxio modules PID\n"
        "List the modules of process PID: base, size, path (tab-separated).\n";
    if (wants_help(argc, argv, kUsage)) return kExitOk;
    uint32_t pid = 0;
    if (!parse_pid(operand(argc, argv), &pid)) return usage_error("modules", "PID expected");
    List modules;
    const int32_t result = VOXA_IO_CreateWin32PSAPIModulesList(modules.get(), pid);
    if (result != VXIO_PROC_OK) return report("modules", result);
    for (uint32_t i = 0; i < modules.size(); ++i) {
        const ModuleEntry &m = modules.at<ModuleEntry>(i);
        printf("%08x\t%u\t%s\n", m.baseAddress, m.size, to_utf8(m.path).c_str());
    }
    return kExitOk;
}

int run_threads(int argc, char **argv) {
    static const char kUsage[] =
        "Usage: vxio threads PID\n"
        "List the thread ids of process PID, one a line.\n";
    if (wants_help(argc, argv, kUsage)) return kExitOk;
    uint32_t pid = 0;
    if (!parse_pid(operand(argc, argv), &pid)) return usage_error("threads", "PID expected");
    List processes, modules, threads;
    const int32_t result =
        VOXA_IO_CreateWin32ToolHelpEnumerations(processes.get(), modules.get(), threads.get());
    if (result != VXIO_PROC_OK) return report("threads", result);
    for (uint32_t i = 0; i < threads.size(); ++i) {
        const ThreadEntry &t = threads.at<ThreadEntry>(i);
        if (t.ownerProcessId == pid) printf("%u\n", t.threadId);
    }
    return kExitOk;
}

int run_handles(int argc, char **argv) {
    static const char kUsage[] =
        "Usage: vxio handles PID\n"
        "List the open handles of process PID: value, type, name (tab-separated).\n"
        "A handle whose name cannot be had within 500 ms is listed unnamed.\n";
    if (wants_help(argc, argv, kUsage)) return kExitOk;
    uint32_t pid = 0;
    if (!parse_pid(operand(argc, argv), &pid) || pid == 0)
        return usage_error("handles", "PID expected");
    List processes, modules, threads, handles;
    VOXA_IO_CreateWin32ToolHelpEnumerations(processes.get(), modules.get(), threads.get());
    const int32_t result =
        VOXA_IO_EnumerateOpenHandles(nullptr, 0, pid, 0, handles.get(), processes.get());
    if (result != VXIO_PROC_OK) return report("handles", result);
    for (uint32_t i = 0; i < handles.size(); ++i) {
        const HandleEntry &h = handles.at<HandleEntry>(i);
        printf("%llx\t%s\t%s\n", static_cast<unsigned long long>(h.handleValue), h.typeName,
               to_utf8(h.objectName).c_str());
    }
    return kExitOk;
}

int run_drivers(int argc, char **argv) {
    static const char kUsage[] = "Usage: vxio drivers\nList the loaded device drivers' paths.\n";
    if (wants_help(argc, argv, kUsage)) return kExitOk;
    List drivers;
    const int32_t result = VOXA_IO_EnumDeviceDrivers(drivers.get());
    if (result != VXIO_PROC_OK) return report("drivers", result);
    for (uint32_t i = 0; i < drivers.size(); ++i)
        printf("%s\n", to_utf8(drivers.at<DriverEntry>(i).path).c_str());
    return kExitOk;
}

int run_services(int argc, char **argv) {
    static const char kUsage[] =
        "Usage: vxio services\n"
        "List the installed services: name, state (1 stopped .. 4 running), process\n"
        "id, display name (tab-separated).\n";
    if (wants_help(argc, argv, kUsage)) return kExitOk;
    List services;
    const int32_t result = VOXA_IO_CreateWin32ServiceList(services.get());
    if (result != VXIO_PROC_OK) return report("services", result);
    for (uint32_t i = 0; i < services.size(); ++i) {
        const ServiceEntry &s = services.at<ServiceEntry>(i);
        printf("%s\t%u\t%u\t%s\n", to_utf8(s.serviceName).c_str(), s.currentState, s.processId,
               to_utf8(s.displayName).c_str());
    }
    return kExitOk;
}

int run_dump(int argc, char **argv) {
    static const char kUsage[] =
        "Usage: vxio dump PID [--out DIR]\n"
        "Write the module report and the memory dumps of process PID into DIR\n"
        "(default: the current directory): report.txt and one NAME_memDump file a\n"
        "module or memory section. Needs the debug privilege for other users'\n"
        "processes.\n";
    if (wants_help(argc, argv, kUsage)) return kExitOk;
    uint32_t pid = 0;
    if (!parse_pid(operand(argc, argv), &pid) || pid == 0) return usage_error("dump", "PID expected");
    // The dumps write into the current directory ("modules.tmp" among
    // them), so the tool moves there first.
    const char *out = option_value(argc, argv, "--out");
    if (out && !SetCurrentDirectoryA(out)) {
        fprintf(stderr, "vxio: %s: %s\n", out, reason_text(GetLastError()).c_str());
        return kExitUnreadable;
    }
    const int32_t modules = VOXA_IO_DumpWin32ModulesList(pid, "report.txt");
    if (modules < 0) return report("dump", modules);
    const int32_t result = VOXA_IO_DumpCompleteWin32ProcessMemory(pid, "", "report.txt");
    if (result != VXIO_PROC_OK) return report("dump", result);
    printf("%d modules; report.txt and the _memDump files written\n", static_cast<int>(modules));
    return kExitOk;
}

int run_kill(int argc, char **argv) {
    static const char kUsage[] =
        "Usage: vxio kill PID [--yes]\n"
        "Terminate process PID, after asking (unless --yes).\n";
    if (wants_help(argc, argv, kUsage)) return kExitOk;
    uint32_t pid = 0;
    if (!parse_pid(operand(argc, argv), &pid) || pid == 0) return usage_error("kill", "PID expected");
    if (!has_flag(argc, argv, "--yes")) {
        printf("terminate process %u? [y/N] ", pid);
        fflush(stdout);
        char answer[16] = {};
        if (!fgets(answer, sizeof answer, stdin) || (answer[0] != 'y' && answer[0] != 'Y')) {
            printf("nothing done\n");
            return kExitOk;
        }
    }
    if (!VOXA_IO_TerminateWin32Process(pid)) {
        fprintf(stderr, "vxio kill: process %u could not be terminated\n", pid);
        return kExitUnreadable;
    }
    printf("terminated %u\n", pid);
    return kExitOk;
}

}  // namespace vxio_tool
