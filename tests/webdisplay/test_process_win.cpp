// test_process_win.cpp - Windows half of test_process.h. Linux half: test_process_linux.cpp.
#include <windows.h>

#include <tlhelp32.h>

#include <cstdlib>

#include "tests/webdisplay/test_process.h"

namespace test_process {

void set_variable(const char* name, const std::string& value) { _putenv_s(name, value.c_str()); }
void clear_variable(const char* name) { _putenv_s(name, ""); }

std::string program() {
    char path[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    return path;
}

int threads() {
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    int count = 0;
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
        if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++count;
    }
    CloseHandle(snapshot);
    return count;
}

int descriptors() {
    DWORD count = 0;
    GetProcessHandleCount(GetCurrentProcess(), &count);
    return static_cast<int>(count);
}

int exit_code(int status) { return status; }

}  // namespace test_process
