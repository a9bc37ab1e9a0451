// host_environment_win.cpp - Windows half of host_environment.h. Linux half:
// host_environment_linux.cpp.
#include "webdisplay/host_environment.h"

#include <windows.h>
// After windows.h, whose types they need.
#include <shellapi.h>
#include <shlobj.h>

#include <memory>
#include <type_traits>

#include "loam/path.h"
#include "loam/trace.h"
#include "loam/wide_text.h"

namespace pennywort::webdisplay {

namespace {

void close_search(HANDLE search) {
    if (FindClose(search)) return;
    const DWORD error = GetLastError();
    zTraceManager::Default()->TraceNote(
        "cWebDisplayCEFBrowserManager: FindClose - failed (err=%lu)\n", error);
}

// The system's own limit of the calls below.
constexpr DWORD k_path_units = 260;

}  // namespace

std::string program_folder() {
    wchar_t path[k_path_units];
    const DWORD length = GetModuleFileNameW(nullptr, path, k_path_units);
    if (length == 0 || length == k_path_units) {
        const DWORD error = GetLastError();
        zTraceManager::Default()->TraceNote(
            "cWebDisplayCEFBrowserManager: GetModuleFileNameW - failed (err=%lu)\n", error);
    }
    zFSPath program(loam::utf8_text({path, length}).c_str());
    return program.GoParent();
}

const char* child_process_name() noexcept { return "CEFChildProcess.exe"; }

// The system looks into the file: one that is cut short or is something else is none.
bool is_runnable(const std::string& path) {
    DWORD kind = 0;
    return GetBinaryTypeW(loam::wide_text(path).c_str(), &kind) != 0;
}

// There is no socket with a path here, and the system itself returns a folder that can be written.
std::string temporary_folder_problem() { return {}; }

ui_language user_language() {
    const LANGID language = GetUserDefaultUILanguage();
    return {static_cast<std::uint16_t>(PRIMARYLANGID(language)),
            static_cast<std::uint16_t>(SUBLANGID(language))};
}

// A folder that is missing is the caller's to tell.
std::vector<std::string> names_in(const std::string& folder) {
    using open_search = std::unique_ptr<std::remove_pointer_t<HANDLE>, void (*)(HANDLE)>;
    std::vector<std::string> names;
    WIN32_FIND_DATAW found{};
    const std::wstring pattern = loam::wide_text(folder) + L"\\*";
    const HANDLE search = FindFirstFileW(pattern.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return names;
    const open_search closed(search, &close_search);
    do {
        names.push_back(loam::utf8_text(found.cFileName));
    } while (FindNextFileW(search, &found));
    return names;
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
