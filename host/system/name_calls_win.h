// host/system/name_calls_win.h - the call of the system's that file_names_win.cpp makes through a
// pointer, so that a test can have it fail: names that it does not compare cannot be had.
#pragma once

#include <windows.h>

namespace pennywort::host::name_calls {

// Written by tests only.
extern decltype(&CompareStringOrdinal) compare_string_ordinal;

}  // namespace pennywort::host::name_calls
