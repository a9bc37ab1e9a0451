// fake_cef_system_win.cpp - Windows half of fake_cef_system.h. Linux half:
// fake_cef_system_linux.cpp. The runtime leaves no handlers and no event sources behind there.
#include "tests/fakes/fake_cef_system.h"

#include <windows.h>
// After windows.h, whose types it needs.
#include <shellapi.h>

#include <filesystem>

namespace fake {

namespace {

// Open as long as the folder is claimed; the file goes with it.
HANDLE g_profile = INVALID_HANDLE_VALUE;

class windows_effects final : public system_effects {
public:
    long loop_spins() const override { return 0; }
    bool window_source_alive() const override { return true; }
};

}  // namespace

void system_effects::drop_handlers() {}

std::unique_ptr<system_effects> system_effects::make(bool) {
    return std::make_unique<windows_effects>();
}

// The runtime is told the module only, and asks the system for the rest.
std::vector<std::string> command_line_of(const cef_main_args_t&) {
    int count = 0;
    LPWSTR* const words = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> line;
    for (int i = 0; i < count; ++i) {
        const auto utf8 = std::filesystem::path(words[i]).u8string();
        line.emplace_back(utf8.begin(), utf8.end());
    }
    LocalFree(words);
    return line;
}

// As the real runtime does: whole seconds first, since the product of all would not fit.
std::int64_t monotonic_nanoseconds() {
    constexpr std::int64_t k_second = 1'000'000'000;
    LARGE_INTEGER ticks{};
    LARGE_INTEGER frequency{};
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&ticks);
    const std::int64_t rest = ticks.QuadPart % frequency.QuadPart;
    return ticks.QuadPart / frequency.QuadPart * k_second + rest * k_second / frequency.QuadPart;
}

const char* profile_lock_name() { return "lockfile"; }

bool claim_profile(const std::string& lock_path) {
    const std::filesystem::path path(reinterpret_cast<const char8_t*>(lock_path.c_str()));
    g_profile = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                            FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    return g_profile != INVALID_HANDLE_VALUE;
}

void release_profile(const std::string&) { CloseHandle(g_profile); }

}  // namespace fake
