// loam/native_library.h - the system's shared libraries, by name and path in UTF-8.
// Twins: native_library_linux.cpp, native_library_win.cpp.
#pragma once

#include <string>

namespace loam {

// A loaded library; null on failure, with the system's words in `error`, which is empty otherwise.
void* open_library(const char* name, std::string& error);
void* symbol_of(void* library, const char* name, std::string& error);
void close_library(void* library);

}  // namespace loam
