// host_environment_win.cpp - Windows half of host_environment.h. Linux half:
// host_environment_linux.cpp.
#include "webdisplay/host_environment.h"

#include <windows.h>
// After windows.h, whose types they need.
#include <shellapi.h>
#include <shlobj.h>

#include "loam/trace.h"
#include "loam/wide_text.h"

namespace pennywort::webdisplay {

const char* child_process_name() noexcept { return "CEFChildProcess.exe"; }

// The system looks into the file: one that is cut short or is something else is none.
bool is_runnable(const std::string& path) {
    DWORD kind = 0;
    return GetBinaryTypeW(loam::wide_text(path).c_str(), &kind) != 0;
}

// There is no socket with a path here, and the system itself returns a folder that can be written.
std::string temporary_folder_problem() { return {}; }

// A job may limit its processes here, which nobody does by hand.
std::string allowance_problem() { return {}; }

ui_language user_language() {
    const LANGID language = GetUserDefaultUILanguage();
    return {static_cast<std::uint16_t>(PRIMARYLANGID(language)),
            static_cast<std::uint16_t>(SUBLANGID(language))};
}

std::string application_data_folder() {
    wchar_t path[MAX_PATH];
    const HRESULT result = SHGetFolderPathW(nullptr, CSIDL_APPDATA | CSIDL_FLAG_CREATE, nullptr,
                                            SHGFP_TYPE_CURRENT, path);
    if (result == S_OK) return loam::utf8_text(path);
    zTraceManager::Default()->TraceNote(
        "cWebDisplayCEFBrowserManager: SHGetFolderPathW - failed (err=0x%08lx)\n",
        static_cast<unsigned long>(result));
    return {};
}

void open_in_system(const std::string& url) {
    SHELLEXECUTEINFOA call{};
    call.cbSize = sizeof call;
    call.lpVerb = "open";
    call.lpFile = url.c_str();
    call.nShow = SW_SHOW;
    if (ShellExecuteExA(&call)) return;
    const DWORD error = GetLastError();
    zTraceManager::Default()->TraceNote("cWebDisplayBrowser: ShellExecuteExA - failed (err=%lu)\n",
                                        error);
}

}  // namespace pennywort::webdisplay
