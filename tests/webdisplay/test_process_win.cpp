// test_process_win.cpp - Windows half of test_process.h. Linux half: test_process_linux.cpp.
#include <windows.h>

#include <tlhelp32.h>

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <fstream>

#include "loam/wide_text.h"
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

// The shell knows nothing of one process's folders. scripts/test-windows writes the name of the
// first variable into the setting that the shell reads, so that it answers each process with its
// own value.
void use_folders(const std::string& data, const std::string& temporary) {
    _wputenv_s(L"PENNYWORT_TEST_DATA", loam::wide_text(data).c_str());
    _wputenv_s(L"TMP", loam::wide_text(temporary).c_str());
}

// Written over the text that the system answers with, which is the process's own and longer.
void use_arguments(const std::vector<std::string>& words) {
    std::wstring line;
    for (const std::string& word : words) line += loam::wide_text(word) + L' ';
    wchar_t* const text = GetCommandLineW();
    line.resize(std::min(line.size(), std::wcslen(text)));
    std::wmemcpy(text, line.c_str(), line.size() + 1);
}

// The system runs what is a program by its content, whatever the rights of the file.
void make_unrunnable(const std::string& path) { std::ofstream(path) << "no program"; }

void mark_as_used(const std::string& folder) {
    CreateFileW(loam::wide_text(folder + "/lockfile").c_str(), GENERIC_WRITE, 0, nullptr,
                CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
}
bool is_marked_as_used(const std::string& folder) {
    return GetFileAttributesW(loam::wide_text(folder + "/lockfile").c_str()) !=
           INVALID_FILE_ATTRIBUTES;
}

// The command interpreter takes the outermost quotes away.
int run(const std::string& command) { return std::system(("\"" + command + "\"").c_str()); }

}  // namespace test_process
