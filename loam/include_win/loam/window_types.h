// loam/window_types.h - the Windows names that public signatures need: on Windows, the real ones.
// The header of the same name for Linux stands in include_linux.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
