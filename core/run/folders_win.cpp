// folders_win.cpp - Windows half of folders.h. Linux half: folders_linux.cpp.
#include "core/run/folders.h"

#include <windows.h>

#include <memory>
#include <type_traits>

#include "loam/path.h"
#include "loam/trace.h"
#include "loam/wide_text.h"

namespace pennywort::run {

namespace {

// No path of the system's is longer.
constexpr DWORD k_path_units = 32768;

void close_search(HANDLE search) {
    if (FindClose(search)) return;
    const DWORD error = GetLastError();
    zTraceManager::Default()->TraceNote("%s: FindClose - failed (err=%lu)\n", "names_in", error);
}

}  // namespace

std::string program_folder() {
    std::vector<wchar_t> path(k_path_units);
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), k_path_units);
    if (length == 0 || length == k_path_units) {
        const DWORD error = GetLastError();
        zTraceManager::Default()->TraceNote("%s: GetModuleFileNameW - failed (err=%lu)\n",
                                            "program_folder", error);
        return ".";
    }
    zFSPath program(loam::utf8_text({path.data(), length}).c_str());
    return program.GoParent();
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
        const std::string name = loam::utf8_text(found.cFileName);
        if (name != "." && name != "..") names.push_back(name);
    } while (FindNextFileW(search, &found));
    return names;
}

}  // namespace pennywort::run
