// websocket/managed/managed_socket_win.cpp - Windows half of managed_socket.h. Linux half:
// managed_socket_linux.cpp.
#include "websocket/managed/managed_socket.h"

#include <windows.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "websocket/managed/mono_socket.h"

namespace pennywort::websocket {

namespace {

// Beside the program. In the working directory it could be anybody's.
std::string usual_assembly() {
    constexpr DWORD k_path_units = 32768;
    std::vector<wchar_t> program(k_path_units);
    const DWORD length = GetModuleFileNameW(nullptr, program.data(), k_path_units);
    const DWORD error = GetLastError();
    if (length == 0 || length == k_path_units) {
        throw std::runtime_error("GetModuleFileNameW failed (" + std::to_string(error) + ")");
    }
    const auto folder = std::filesystem::path(program.data()).parent_path();
    const std::u8string path = (folder / "websocket-sharp.dll").u8string();
    return {path.begin(), path.end()};
}

}  // namespace

std::shared_ptr<managed_socket> managed_socket::make(const managed_request& request,
                                                     const std::weak_ptr<managed_owner>& owner) {
    const std::string named = websocket_sharp_path();
    return make_mono_socket(named.empty() ? usual_assembly() : named, request, owner);
}

}  // namespace pennywort::websocket
