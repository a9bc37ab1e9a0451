// loam/native_library_linux.cpp - Linux half of loam/native_library.h. Windows half:
// native_library_win.cpp.
#include "loam/native_library.h"

#include <dlfcn.h>

namespace loam {

namespace {

void note_error(bool failed, std::string& error) {
    const char* text = failed ? ::dlerror() : nullptr;
    error = text != nullptr ? text : failed ? "the name is there, but it is null" : "";
}

}  // namespace

void* open_library(const char* name, std::string& error) {
    void* library = ::dlopen(name, RTLD_NOW | RTLD_LOCAL);
    note_error(library == nullptr, error);
    return library;
}

void* symbol_of(void* library, const char* name, std::string& error) {
    void* address = ::dlsym(library, name);
    note_error(address == nullptr, error);
    return address;
}

void close_library(void* library) { ::dlclose(library); }

}  // namespace loam
