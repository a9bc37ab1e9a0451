// fake_cef_system.h - what the runtime's start does to the process, which differs by system.
// Twins: fake_cef_system_linux.cpp, fake_cef_system_win.cpp.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cef_abi.h"

namespace fake {

// Made by a successful initialisation, kept until the process ends, as with the real runtime.
class system_effects {
public:
    // The handlers that the process has of a wish to end.
    static void drop_handlers();
    static std::unique_ptr<system_effects> make(bool replace_signal_handlers);
    virtual ~system_effects() = default;
    // Steps of the two event sources that would keep a host's loop spinning.
    virtual long loop_spins() const = 0;
    virtual bool window_source_alive() const = 0;
};

// The command line that the caller of the runtime hands over, in UTF-8.
std::vector<std::string> command_line_of(const cef_main_args_t& args);

// The monotonic clock, asked of the system by this library itself, in nanoseconds.
std::int64_t monotonic_nanoseconds();

// Name of the file by which the runtime claims a profile folder.
const char* profile_lock_name();

// Claims a profile folder for this process. False when a living process has it.
bool claim_profile(const std::string& lock_path);
// Gives it free again.
void release_profile(const std::string& lock_path);

}  // namespace fake
