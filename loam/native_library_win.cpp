// loam/native_library_win.cpp - Windows half of loam/native_library.h. Linux half:
// native_library_linux.cpp.
#include "loam/native_library.h"

#include <windows.h>

#include "loam/system_error_text.h"
#include "loam/wide_path.h"

namespace loam {

namespace {

bool is_separator(wchar_t c) { return c == L'\\' || c == L'/'; }

// "C:\x" or "\\server\x": anything else is a name or depends on the current folder.
bool is_absolute(const std::wstring& path) {
    if (path.size() > 2 && path[1] == L':' && is_separator(path[2])) return true;
    return path.size() > 1 && is_separator(path[0]) && is_separator(path[1]);
}

bool is_bare_name(const std::wstring& name) {
    return name.find_first_of(L"\\/:") == std::wstring::npos;
}

// The system's search of a library's own needs knows backslashes only.
std::wstring with_backslashes(std::wstring path) {
    for (wchar_t& c : path) {
        if (c == L'/') c = L'\\';
    }
    return path;
}

// What a library given by its path needs is looked for beside it too. A bare name is looked for
// beside the program and in the system's folder, but not in the current folder, which may be
// anybody's.
DWORD search_of(const std::wstring& name) {
    if (is_absolute(name)) return LOAD_WITH_ALTERED_SEARCH_PATH;
    return is_bare_name(name) ? LOAD_LIBRARY_SEARCH_DEFAULT_DIRS : 0;
}

void note_error(bool failed, std::string& error) {
    error = failed ? system_error_text(GetLastError()) : std::string();
}

}  // namespace

void* open_library(const char* name, std::string& error) {
    const auto wide = wide_path(name);
    if (!wide) {
        error = "the name is not UTF-8";
        return nullptr;
    }
    const std::wstring path = with_backslashes(*wide);
    const HMODULE library = LoadLibraryExW(path.c_str(), nullptr, search_of(path));
    note_error(library == nullptr, error);
    return library;
}

void* symbol_of(void* library, const char* name, std::string& error) {
    const FARPROC address = GetProcAddress(static_cast<HMODULE>(library), name);
    note_error(address == nullptr, error);
    return reinterpret_cast<void*>(address);
}

void close_library(void* library) { FreeLibrary(static_cast<HMODULE>(library)); }

}  // namespace loam
