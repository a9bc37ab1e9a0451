// loam/library_win.cpp - Windows half of loam/library.h. Linux half: library_linux.cpp.
#include <windows.h>

#include <new>
#include <string>

#include "loam/library.h"
#include "loam/system_error_text.h"
#include "loam/wide_path.h"

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

class library final : public zLibrary {
public:
    ~library() override { unload(); }

    zStatus Load(const char* name) override {
        unload();
        const auto wide = loam::wide_path(name == nullptr ? "" : name);
        if (!wide || wide->empty()) {
            m_error = wide ? "no name" : "the name is not UTF-8";
            return -1;
        }
        const std::wstring path = with_backslashes(*wide);
        m_handle = LoadLibraryExW(path.c_str(), nullptr, search_of(path));
        note_error(m_handle == nullptr);
        return m_handle == nullptr ? -1 : 0;
    }

    void* Symbol(const char* name) override {
        if (m_handle == nullptr || name == nullptr) {
            m_error = m_handle == nullptr ? "no library is loaded" : "no name";
            return nullptr;
        }
        const FARPROC address = GetProcAddress(m_handle, name);
        note_error(address == nullptr);
        return reinterpret_cast<void*>(address);
    }

    void Unload() override { unload(); }
    void Keep() override { m_keep = true; }
    bool IsLoaded() const override { return m_handle != nullptr; }
    const char* Error() const override { return m_error.c_str(); }

private:
    void unload() {
        if (m_handle != nullptr && !m_keep) FreeLibrary(m_handle);
        m_handle = nullptr;
        m_keep = false;
    }

    void note_error(bool failed) {
        m_error = failed ? loam::system_error_text(GetLastError()) : std::string();
    }

    HMODULE m_handle = nullptr;
    bool m_keep = false;
    std::string m_error;
};

}  // namespace

zLibrary* zLibrary::Factory() { return new (std::nothrow) library(); }
