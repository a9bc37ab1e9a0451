// descriptors_win.cpp - Windows half of descriptors.h. Linux half: descriptors_linux.cpp.
#include <windows.h>

#include "tests/httpserver/descriptors.h"

std::size_t open_descriptors() {
    DWORD count = 0;
    ::GetProcessHandleCount(::GetCurrentProcess(), &count);
    return count;
}

bool make_room_for_descriptors(std::size_t) { return true; }

no_more_descriptors::no_more_descriptors() = default;

no_more_descriptors::~no_more_descriptors() = default;
