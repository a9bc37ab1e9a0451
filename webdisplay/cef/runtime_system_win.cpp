// runtime_system_win.cpp - Windows half of runtime_system.h. Linux half: runtime_system_linux.cpp.
#include "webdisplay/cef/runtime_system.h"

#include <windows.h>

#include <string_view>

#include "loam/wide_text.h"
#include "webdisplay/cef/system_failure_win.h"

namespace pennywort::cef {

namespace {

// A file that is open, or none.
class open_file {
public:
    explicit open_file(const std::wstring& path)
        : m_file(CreateFileW(path.c_str(), 0,
                             FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                             OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)) {
        const DWORD error = is_open() ? ERROR_SUCCESS : GetLastError();
        if (!is_open() && !is_missing(error)) trace_failure("CreateFileW", error);
    }
    open_file(const open_file&) = delete;
    open_file& operator=(const open_file&) = delete;
    ~open_file() {
        if (is_open()) check(CloseHandle(m_file) != 0, "CloseHandle");
    }
    bool is_open() const { return m_file != INVALID_HANDLE_VALUE; }
    HANDLE get() const { return m_file; }

private:
    // Folders cannot be opened like this.
    static bool is_missing(DWORD error) {
        return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ||
               error == ERROR_INVALID_NAME || error == ERROR_ACCESS_DENIED;
    }

    const HANDLE m_file;
};

// The one handler that a process has for its own crash. The runtime attaches nothing to the
// message queue that would keep the host's loop busy, and there are no signals.
class windows_startup_guard final : public startup_guard {
public:
    // Its console handlers stand beside those of the runtime.
    void hear_meanwhile() override {}
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
    const bool is_known = GetFileInformationByHandle(file, &information) != 0;
    check(is_known, "GetFileInformationByHandle");
    return !is_known || (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// The system returns the form that no other program likes to see.
std::wstring without_prefix(std::wstring_view path) {
    constexpr std::wstring_view k_share = L"\\\\?\\UNC\\";
    constexpr std::wstring_view k_plain = L"\\\\?\\";
    if (path.starts_with(k_share)) return L"\\\\" + std::wstring(path.substr(k_share.size()));
    if (path.starts_with(k_plain)) path.remove_prefix(k_plain.size());
    return std::wstring(path);
}

std::wstring final_path(HANDLE file) {
    std::wstring path(MAX_PATH, L'\0');
    const auto ask = [&] {
        return GetFinalPathNameByHandleW(file, path.data(), static_cast<DWORD>(path.size()), 0);
    };
    DWORD length = ask();
    if (length > path.size()) {
        path.resize(length);
        length = ask();
    }
    check(length > 0, "GetFinalPathNameByHandleW");
    path.resize(length <= path.size() ? length : 0);
    return path;
}

}  // namespace

const char* library_name() noexcept { return "libcef.dll"; }

// No script of ours fetches it for this system.
const char* how_to_install() noexcept { return "there (64 bit, version 133 or newer)"; }

bool uses_external_pump() noexcept { return false; }

std::string real_file(const std::string& path) {
    const open_file file(loam::wide_text(path));
    if (!file.is_open() || is_folder(file.get())) return {};
    return loam::utf8_text(without_prefix(final_path(file.get())));
}

cef_main_args_t main_args() noexcept { return cef_main_args_t{GetModuleHandleW(nullptr)}; }

// The runtime reads the command line of the process itself.
cef_main_args_t main_args(int, char**) noexcept { return main_args(); }

std::unique_ptr<startup_guard> startup_guard::make() {
    return std::make_unique<windows_startup_guard>();
}

}  // namespace pennywort::cef
