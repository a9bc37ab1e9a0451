// wine_win.cpp - Windows half of wine.h. Linux half: wine_linux.cpp.
#include "tests/loam/wine.h"

#include <windows.h>

bool runs_under_wine() {
    return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}
