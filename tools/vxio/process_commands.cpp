// The process commands of vxio.exe that list what the system runs: ps,
// threads, drivers and services, each a thin client of one or two
// process-inspection exports of vxio.dll; and what every process command
// shares (process_support.h).
#include <windows.h>

#include <stdio.h>
#include <string.h>
#include <tlhelp32.h>

#include <string>
#include <utility>

#include "digest.h"
#include "process_support.h"
#include "scan_text.h"
#include "vxio/process.h"
#include "vxio/process_memory.h"

namespace vxio_tool {

const OptionRule kJsonOption{"--json", OptionKind::kFlag};
const OptionRule kNoHeaderOption{"--no-header", OptionKind::kFlag};

List::List() : array_(VOXA_arrNew()) {}
List::~List() {
    if (array_) VOXA_arrFree(array_, 1);
}
uint32_t List::size() const {
    // The count is trusted no further than the slots the list holds.
    if (!array_ || !array_->items) return 0;
    return array_->count <= array_->capacity ? array_->count : array_->capacity;
}

// Parses the command line of a command that takes one PID: -1 to go on
// with *pid set, else the exit code (help printed, or bad usage).
static int parse_pid_command(const char *command, const char *usage, int argc, char **argv,
                             std::vector<OptionRule> rules, ParsedArgs *parsed, uint32_t *pid) {
    const int status = run_options(command, usage, argc, argv, rules, "PID", 1, 1, parsed);
    if (status >= 0) return status;
    uint64_t value = 0;
    if (!parse_number(parsed->operands[0], 0, UINT32_MAX, &value))
        return usage_error(command, "PID takes a number from 0 to 4294967295, not '" +
                                        parsed->operands[0] + "'");
    *pid = static_cast<uint32_t>(value);
    return -1;
}

const char *base_name(const char *path) {
    const char *name = path;
    for (const char *p = path; *p; ++p)
        if (*p == '\\' || *p == '/') name = p + 1;
    return name;
}

std::string ProcessIdentity::described(uint32_t pid) const {
    std::string text = std::to_string(pid) + " (" + (name.empty() ? "?" : name);
    if (!path.empty()) text += ", " + path;
    return text + ")";
}

namespace {

// The process's full image path, when it lets itself be asked.
std::string image_path(uint32_t pid) {
    KernelHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid));
    if (!process.valid()) return "";
    wchar_t path[1024];
    DWORD length = sizeof path / sizeof path[0];
    if (!QueryFullProcessImageNameW(process.get(), 0, path, &length) ||
        length >= sizeof path / sizeof path[0])
        return "";
    return utf8_of(std::wstring(path, length));
}

// Looks pid up in the system's process snapshot: 1 found, 0 absent, -1
// when no snapshot could be had.
int find_in_snapshot(uint32_t pid, std::string *name) {
    FileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot.valid()) return -1;
    PROCESSENTRY32W entry;
    entry.dwSize = sizeof entry;
    // Bounded: no system runs more processes than ids below 2^32 / 4.
    BOOL more = Process32FirstW(snapshot.get(), &entry);
    for (uint32_t seen = 0; more && seen < (1u << 30); ++seen) {
        if (entry.th32ProcessID == pid) {
            entry.szExeFile[MAX_PATH - 1] = L'\0';
            *name = utf8_of(entry.szExeFile);
            return 1;
        }
        more = Process32NextW(snapshot.get(), &entry);
    }
    return 0;
}

}  // namespace

// Whether process pid exists, by the system (its process snapshot, or
// OpenProcess's error when no snapshot can be taken): -1 when it exists
// (identity filled), else 1 after "vxio COMMAND: PID: no such process".
static int require_process(const char *command, uint32_t pid, ProcessIdentity *identity) {
    int found = find_in_snapshot(pid, &identity->name);
    if (found < 0) {
        // Without a snapshot, OpenProcess tells: an id that names no
        // process is an invalid parameter, any other refusal is a process.
        KernelHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid));
        found = process.valid() || GetLastError() != ERROR_INVALID_PARAMETER;
    }
    if (!found) {
        fprintf(stderr, "vxio %s: %u: no such process\n", command, pid);
        return kExitUnreadable;
    }
    identity->path = image_path(pid);
    if (identity->name.empty()) identity->name = base_name(identity->path.c_str());
    return -1;
}

int parse_process_command(const char *command, const char *usage, int argc, char **argv,
                          std::vector<OptionRule> rules, ParsedArgs *parsed, uint32_t *pid,
                          ProcessIdentity *identity) {
    const int status = parse_pid_command(command, usage, argc, argv, std::move(rules), parsed, pid);
    return status >= 0 ? status : require_process(command, *pid, identity);
}

int report_result(const char *command, const std::string &object, int32_t result) {
    const DWORD error = GetLastError();
    const char *why;
    switch (result) {
    case VXIO_PROC_FAILED: why = "a system call failed or is missing"; break;
    case VXIO_PROC_BAD_ARGUMENT: why = "bad argument"; break;
    case -3: why = "access denied"; break;
    case VXIO_PROC_NO_MEMORY: why = "out of memory"; break;
    case -8: why = "its environment block cannot be read"; break;
    case VXIO_PROC_NOT_NT: why = "this system is not of the NT family"; break;
    default: why = "failed"; break;
    }
    fprintf(stderr, "vxio %s: %s: %s (result %d)%s%s\n", command, object.c_str(), why,
            static_cast<int>(result), error ? ": " : "", error ? reason_text(error).c_str() : "");
    return kExitUnreadable;
}

int run_ps(int argc, char **argv) {
    static const char kUsage[] =
        "Usage: vxio ps [--method toolhelp|psapi|native|pdh|brute] [--json] [--no-header]\n"
        "List the running processes: PID, PARENT, NAME, PATH (tab-separated), by one\n"
        "of the system's independent interfaces, so that the methods can be compared.\n"
        "psapi, pdh and brute report no parent (0); pdh and native no path.\n"
        "\n"
        "Options:\n"
        "  --method M   toolhelp (default), psapi, native, pdh or brute\n"
        "  --json       one JSON object a process: pid, parent, name, path\n"
        "  --no-header  leave out the column headers\n"
        "  -h, --help   show this help and exit\n"
        "\n"
        "Exit codes: 0 listed, 1 the system's interface failed, 2 bad usage.\n";
    ParsedArgs args;
    const int status = run_options("ps", kUsage, argc, argv,
                                   {{"--method", OptionKind::kText}, kJsonOption, kNoHeaderOption},
                                   "operand", 0, 0, &args);
    if (status >= 0) return status;
    const std::string chosen = args.has("--method") ? *args.value("--method") : "toolhelp";
    List processes, modules, threads;
    int32_t result;
    SetLastError(0);
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
        return usage_error("ps", "--method takes toolhelp, psapi, native, pdh or brute, not '" +
                                     chosen + "'");
    if (result != VXIO_PROC_OK) return report_result("ps", "the process list (" + chosen + ")", result);
    const bool json = args.has("--json");
    if (!json && !args.has("--no-header")) printf("PID\tPARENT\tNAME\tPATH\n");
    for (uint32_t i = 0; i < processes.size(); ++i) {
        const ProcessEntry *p = processes.at<ProcessEntry>(i);
        if (!p) continue;
        char text[sizeof p->name + 1] = {};
        memcpy(text, p->name, sizeof p->name);
        // The name field holds a path for some methods and a bare name for
        // others; the last part of it is the name either way.
        const char *name = base_name(text);
        const char *path = name != text ? text : "";
        if (json)
            printf("{\"pid\":%u,\"parent\":%u,\"name\":%s,\"path\":%s}\n", p->processId,
                   p->parentOrAux, json_string(name).c_str(), json_string(path).c_str());
        else
            printf("%u\t%u\t%s\t%s\n", p->processId, p->parentOrAux, to_utf8(name).c_str(),
                   to_utf8(path).c_str());
    }
    return kExitOk;
}

int run_threads(int argc, char **argv) {
    static const char kUsage[] =
        "Usage: vxio threads PID [--json] [--no-header]\n"
        "List the threads of process PID (0..4294967295): TID, one a line.\n"
        "\n"
        "Options:\n"
        "  --json       one JSON object a thread: pid, tid\n"
        "  --no-header  leave out the column header\n"
        "  -h, --help   show this help and exit\n"
        "\n"
        "Exit codes: 0 listed, 1 no such process or the system's interface failed,\n"
        "2 bad usage.\n";
    ParsedArgs args;
    uint32_t pid = 0;
    ProcessIdentity identity;
    const int status = parse_process_command("threads", kUsage, argc, argv,
                                             {kJsonOption, kNoHeaderOption}, &args, &pid, &identity);
    if (status >= 0) return status;
    List processes, modules, threads;
    SetLastError(0);
    const int32_t result =
        VOXA_IO_CreateWin32ToolHelpEnumerations(processes.get(), modules.get(), threads.get());
    if (result != VXIO_PROC_OK) return report_result("threads", "the thread list", result);
    const bool json = args.has("--json");
    if (!json && !args.has("--no-header")) printf("TID\n");
    for (uint32_t i = 0; i < threads.size(); ++i) {
        const ThreadEntry *t = threads.at<ThreadEntry>(i);
        if (!t || t->ownerProcessId != pid) continue;
        if (json)
            printf("{\"pid\":%u,\"tid\":%u}\n", pid, t->threadId);
        else
            printf("%u\n", t->threadId);
    }
    return kExitOk;
}

int run_drivers(int argc, char **argv) {
    static const char kUsage[] =
        "Usage: vxio drivers [--json] [--no-header]\n"
        "List the loaded device drivers: NAME, PATH (tab-separated).\n"
        "\n"
        "Options:\n"
        "  --json       one JSON object a driver: name, path\n"
        "  --no-header  leave out the column headers\n"
        "  -h, --help   show this help and exit\n"
        "\n"
        "Exit codes: 0 listed, 1 the system's interface failed, 2 bad usage.\n";
    ParsedArgs args;
    const int status = run_options("drivers", kUsage, argc, argv, {kJsonOption, kNoHeaderOption},
                                   "operand", 0, 0, &args);
    if (status >= 0) return status;
    List drivers;
    SetLastError(0);
    const int32_t result = VOXA_IO_EnumDeviceDrivers(drivers.get());
    if (result != VXIO_PROC_OK) return report_result("drivers", "the driver list", result);
    const bool json = args.has("--json");
    if (!json && !args.has("--no-header")) printf("NAME\tPATH\n");
    for (uint32_t i = 0; i < drivers.size(); ++i) {
        const DriverEntry *d = drivers.at<DriverEntry>(i);
        if (!d) continue;
        char path[sizeof d->path + 1] = {};
        memcpy(path, d->path, sizeof d->path);
        if (json)
            printf("{\"name\":%s,\"path\":%s}\n", json_string(base_name(path)).c_str(),
                   json_string(path).c_str());
        else
            printf("%s\t%s\n", to_utf8(base_name(path)).c_str(), to_utf8(path).c_str());
    }
    return kExitOk;
}

namespace {

const char *state_word(uint32_t state) {
    switch (state) {
    case SERVICE_STOPPED: return "stopped";
    case SERVICE_START_PENDING: return "start pending";
    case SERVICE_STOP_PENDING: return "stop pending";
    case SERVICE_RUNNING: return "running";
    case SERVICE_CONTINUE_PENDING: return "continue pending";
    case SERVICE_PAUSE_PENDING: return "pause pending";
    case SERVICE_PAUSED: return "paused";
    default: return "unknown";
    }
}

// The type is a set of bits: their words joined by ", ", bits without a
// word in hex ("own process, interactive").
std::string type_words(uint32_t type) {
    static const struct {
        uint32_t bits;
        const char *word;
    } kWords[] = {{SERVICE_KERNEL_DRIVER, "kernel driver"},
                  {SERVICE_FILE_SYSTEM_DRIVER, "file system driver"},
                  {0x4, "adapter"},
                  {0x8, "recognizer driver"},
                  {SERVICE_WIN32_OWN_PROCESS, "own process"},
                  {SERVICE_WIN32_SHARE_PROCESS, "share process"},
                  {0x40, "user service"},
                  {0x80, "user service instance"},
                  {SERVICE_INTERACTIVE_PROCESS, "interactive"},
                  {0x200, "package service"}};
    std::string words;
    uint32_t rest = type;
    for (const auto &w : kWords) {
        if (!(type & w.bits)) continue;
        words += (words.empty() ? "" : ", ") + std::string(w.word);
        rest &= ~w.bits;
    }
    if (rest) {
        char hex[16];
        snprintf(hex, sizeof hex, "0x%x", rest);
        words += (words.empty() ? "" : ", ") + std::string(hex);
    }
    return words.empty() ? "none" : words;
}

}  // namespace

int run_services(int argc, char **argv) {
    static const char kUsage[] =
        "Usage: vxio services [--json] [--no-header]\n"
        "List the installed services and drivers: NAME, STATE, TYPE, PID,\n"
        "DISPLAY NAME (tab-separated). STATE is one of stopped, start pending,\n"
        "stop pending, running, continue pending, pause pending, paused; TYPE the\n"
        "words of its bits (kernel driver, file system driver, adapter, recognizer\n"
        "driver, own process, share process, user service, user service instance,\n"
        "interactive, package service) joined by \", \".\n"
        "\n"
        "Options:\n"
        "  --json       one JSON object a service: name, displayName, state,\n"
        "               stateName, type, typeName, pid, controlsAccepted\n"
        "  --no-header  leave out the column headers\n"
        "  -h, --help   show this help and exit\n"
        "\n"
        "Exit codes: 0 listed, 1 the service manager could not be read, 2 bad usage.\n";
    ParsedArgs args;
    const int status = run_options("services", kUsage, argc, argv, {kJsonOption, kNoHeaderOption},
                                   "operand", 0, 0, &args);
    if (status >= 0) return status;
    List services;
    SetLastError(0);
    const int32_t result = VOXA_IO_CreateWin32ServiceList(services.get());
    if (result != VXIO_PROC_OK) return report_result("services", "the service manager", result);
    const bool json = args.has("--json");
    if (!json && !args.has("--no-header")) printf("NAME\tSTATE\tTYPE\tPID\tDISPLAY NAME\n");
    for (uint32_t i = 0; i < services.size(); ++i) {
        const ServiceEntry *s = services.at<ServiceEntry>(i);
        if (!s) continue;
        char name[sizeof s->serviceName + 1] = {}, display[sizeof s->displayName + 1] = {};
        memcpy(name, s->serviceName, sizeof s->serviceName);
        memcpy(display, s->displayName, sizeof s->displayName);
        const std::string type = type_words(s->serviceType);
        if (json)
            printf("{\"name\":%s,\"displayName\":%s,\"state\":%u,\"stateName\":\"%s\",\"type\":%u,"
                   "\"typeName\":\"%s\",\"pid\":%u,\"controlsAccepted\":%u}\n",
                   json_string(name).c_str(), json_string(display).c_str(), s->currentState,
                   state_word(s->currentState), s->serviceType, type.c_str(), s->processId,
                   s->controlsAccepted);
        else
            printf("%s\t%s\t%s\t%u\t%s\n", to_utf8(name).c_str(), state_word(s->currentState),
                   type.c_str(), s->processId, to_utf8(display).c_str());
    }
    return kExitOk;
}

}  // namespace vxio_tool
