// helper_win.cpp - stands for the runtime's helper program. Copies of it do what their names say:
// status3 ends with that status, crash crashes, sleep stands still, work goes on without end, talk
// says much, refuse says what a helper of ours says that would not work, any other is well.
#include <windows.h>

#include <cstdio>
#include <cwchar>
#include <string>

int main(int argc, char** argv) {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    if (argc != 2 || lstrcmpA(argv[1], "--self-check") != 0) return 9;
    if (const wchar_t* status = std::wcsstr(path, L"status")) return _wtoi(status + 6);
    // As an access to memory that is not there ends a program, but without a debugger being asked.
    if (std::wcsstr(path, L"crash")) TerminateProcess(GetCurrentProcess(), 0xC0000005);
    if (std::wcsstr(path, L"sleep")) Sleep(INFINITE);
    if (std::wcsstr(path, L"talk")) std::puts(std::string(1'000'000, 'x').c_str());
    if (std::wcsstr(path, L"refuse")) std::puts("self-check failed: no runtime here");
    for (volatile unsigned turns = 0; std::wcsstr(path, L"work");) turns = turns + 1;
    return 0;
}
