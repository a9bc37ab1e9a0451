// host/system/browser_language_win.cpp - Windows half of host/system/browser_language.h. Linux
// half: host/system/browser_language_linux.cpp.
#include "host/system/browser_language.h"

#include <windows.h>

namespace pennywort::host {

// The runtime takes it from its switch here.
void choose_browser_language(const std::string&) {}

std::filesystem::path browser_words_folder() {
    wchar_t path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    if (length == 0 || length == MAX_PATH) return {};
    return std::filesystem::path(path).parent_path() / "rsrc" / "ChromeLocales";
}

}  // namespace pennywort::host
