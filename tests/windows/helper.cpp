// helper.cpp - stands for the runtime's helper program. Copies of it do what their names say:
// status3 ends with that status, crash crashes, any other is well.
#include <windows.h>

#include <cwchar>

int main(int argc, char** argv) {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    if (argc != 2 || lstrcmpA(argv[1], "--self-check") != 0) return 9;
    if (std::wcsstr(path, L"status3")) return 3;
    // As an access to memory that is not there ends a program, but without a debugger being asked.
    if (std::wcsstr(path, L"crash")) TerminateProcess(GetCurrentProcess(), 0xC0000005);
    return 0;
}
