// Starts vxio_child.exe (built beside the test and bench programs) with its
// input and output on pipes, reads its "ready" line, and ends it again.
//
// The child runs in a job that is killed when the last handle to the job
// closes: should the program that started it die or hang and be killed,
// the child goes with it instead of holding the program's output (the
// test runner's pipe) open for ever.
#pragma once

#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace vxio::test {

inline std::string beside_program(const char *name) {
    char self[MAX_PATH];
    GetModuleFileNameA(nullptr, self, MAX_PATH);
    std::string dir(self);
    return dir.substr(0, dir.find_last_of('\\') + 1) + name;
}

class ChildProcess {
public:
    PROCESS_INFORMATION info{};
    DWORD pid = 0;
    uint64_t buffer = 0;  // address of the known buffer in the child
    uint64_t size = 0;

    // kib: size of the child's buffer; files: opened and held by the child.
    explicit ChildProcess(unsigned kib = 64, const std::vector<std::string> &files = {}) {
        job_ = CreateJobObjectA(nullptr, nullptr);
        JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
        limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
        if (job_) SetInformationJobObject(job_, JobObjectExtendedLimitInformation, &limits, sizeof limits);

        SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
        HANDLE inRead, outRead, outWrite;
        if (!CreatePipe(&inRead, &input_, &inherit, 0)) return;
        if (!CreatePipe(&outRead, &outWrite, &inherit, 0)) {
            CloseHandle(inRead);
            return;
        }
        SetHandleInformation(input_, HANDLE_FLAG_INHERIT, 0);
        SetHandleInformation(outRead, HANDLE_FLAG_INHERIT, 0);
        STARTUPINFOA startup{};
        startup.cb = sizeof startup;
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = inRead;
        startup.hStdOutput = outWrite;
        startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
        const std::string exe = beside_program("vxio_child.exe");
        const std::string dir = exe.substr(0, exe.find_last_of('\\'));
        std::string command = "\"" + exe + "\" " + std::to_string(kib);
        for (const auto &f : files) command += " \"" + f + "\"";
        // Suspended until it is in the job, so nothing it does escapes it.
        const bool started = CreateProcessA(nullptr, &command[0], nullptr, nullptr, TRUE, CREATE_SUSPENDED,
                                            nullptr, dir.c_str(), &startup, &info);
        CloseHandle(inRead);
        CloseHandle(outWrite);
        if (started) {
            if (job_) AssignProcessToJobObject(job_, info.hProcess);
            ResumeThread(info.hThread);
            std::string line;
            char c;
            DWORD got = 0;
            while (line.size() < 200 && ReadFile(outRead, &c, 1, &got, nullptr) && got == 1 && c != '\n')
                line += c;
            unsigned long id = 0;
            unsigned long long address = 0, bytes = 0;
            if (std::sscanf(line.c_str(), "ready %lu %llx %llu", &id, &address, &bytes) == 3) {
                pid = id;
                buffer = address;
                size = bytes;
            }
        }
        CloseHandle(outRead);
    }

    ~ChildProcess() {
        if (input_) CloseHandle(input_);
        if (info.hProcess) {
            // A child that was suspended or stopped does not see its input
            // close.
            if (WaitForSingleObject(info.hProcess, 5000) != WAIT_OBJECT_0) TerminateProcess(info.hProcess, 1);
            CloseHandle(info.hThread);
            CloseHandle(info.hProcess);
        }
        if (job_) CloseHandle(job_);
    }

    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

private:
    HANDLE input_ = nullptr;  // closing it ends the child
    HANDLE job_ = nullptr;
};

}  // namespace vxio::test
