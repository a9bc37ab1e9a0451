// runtime_system_win.cpp - Windows half of runtime_system.h. Linux half: runtime_system_linux.cpp.
#include "webdisplay/cef/runtime_system.h"

#include <windows.h>

#include <string_view>

#include "loam/wide_text.h"

namespace pennywort::cef {

namespace {

// The one handler that a process has for its own crash. The runtime attaches nothing to the
// message queue that would keep the host's loop busy, and there are no signals.
class windows_startup_guard final : public startup_guard {
public:
    void restore(bool) override { SetUnhandledExceptionFilter(m_filter); }

private:
    static LPTOP_LEVEL_EXCEPTION_FILTER current_filter() {
        const LPTOP_LEVEL_EXCEPTION_FILTER filter = SetUnhandledExceptionFilter(nullptr);
        SetUnhandledExceptionFilter(filter);
        return filter;
    }

    const LPTOP_LEVEL_EXCEPTION_FILTER m_filter = current_filter();
};

bool is_folder(HANDLE file) {
    BY_HANDLE_FILE_INFORMATION information{};
    return !GetFileInformationByHandle(file, &information) ||
           (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// The system answers in the form that no other program likes to see.
std::wstring without_prefix(std::wstring_view path) {
    constexpr std::wstring_view k_share = L"\\\\?\\UNC\\";
    constexpr std::wstring_view k_plain = L"\\\\?\\";
    if (path.starts_with(k_share)) return L"\\\\" + std::wstring(path.substr(k_share.size()));
    if (path.starts_with(k_plain)) path.remove_prefix(k_plain.size());
    return std::wstring(path);
}

std::wstring final_path(HANDLE file) {
    std::wstring path(MAX_PATH, L'\0');
    DWORD length = GetFinalPathNameByHandleW(file, path.data(), static_cast<DWORD>(path.size()), 0);
    if (length > path.size()) {
        path.resize(length);
        length = GetFinalPathNameByHandleW(file, path.data(), length, 0);
    }
    path.resize(length);
    return path;
}

}  // namespace

std::string environment_variable(const char* name) {
    const std::wstring wide_name = loam::wide_text(name);
    std::wstring value;
    DWORD length = GetEnvironmentVariableW(wide_name.c_str(), nullptr, 0);
    // What is too long is answered with the size to come back with; another thread may lengthen it
    // in between.
    while (length > value.size()) {
        value.resize(length);
        length = GetEnvironmentVariableW(wide_name.c_str(), value.data(), length);
    }
    return loam::utf8_text({value.data(), length});
}

const char* library_name() noexcept { return "libcef.dll"; }

// No script of ours fetches it for this system.
const char* how_to_install() noexcept { return "there (64 bit, version 133 or newer)"; }

bool uses_external_pump() noexcept { return false; }

std::string real_file(const std::string& path) {
    constexpr DWORD k_share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const HANDLE file = CreateFileW(loam::wide_text(path).c_str(), 0, k_share, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return {};
    const std::wstring real = is_folder(file) ? std::wstring() : final_path(file);
    CloseHandle(file);
    return loam::utf8_text(without_prefix(real));
}

cef_main_args_t main_args() noexcept { return cef_main_args_t{GetModuleHandleW(nullptr)}; }

// The runtime reads the command line of the process itself.
cef_main_args_t main_args(int, char**) noexcept { return main_args(); }

std::unique_ptr<startup_guard> startup_guard::make() {
    return std::make_unique<windows_startup_guard>();
}

}  // namespace pennywort::cef
