// fake_cef_system_win.cpp - Windows half of fake_cef_system.h. Linux half:
// fake_cef_system_linux.cpp. The runtime leaves no handlers and no event sources behind there.
#include "tests/fakes/fake_cef_system.h"

#include <windows.h>

namespace fake {

namespace {

class windows_effects final : public system_effects {
public:
    long loop_spins() const override { return 0; }
    bool window_source_alive() const override { return true; }
};

}  // namespace

std::unique_ptr<system_effects> system_effects::make(bool) {
    return std::make_unique<windows_effects>();
}

// The handle stays open until the process ends, and with it the claim.
bool claim_profile(const std::string& lock_path) {
    return CreateFileA(lock_path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                       FILE_FLAG_DELETE_ON_CLOSE, nullptr) != INVALID_HANDLE_VALUE;
}

}  // namespace fake
