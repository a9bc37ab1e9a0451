// host_environment.h - helper programs, the user's language and folders, and the system's way to
// open a URL. Twins: host_environment_win.cpp, host_environment_linux.cpp. Paths and texts are
// UTF-8.
#pragma once

#include <cstdint>
#include <string>

namespace pennywort::webdisplay {

// Name of the runtime's helper program, which stands beside the host's.
const char* child_process_name() noexcept;

// Whether `path` is a file that this user may run.
bool is_runnable(const std::string& path);

// Why the runtime cannot use this user's folder for temporary files, and what to do; empty if it
// can.
std::string temporary_folder_problem();

// Why this process may have too little of something for the runtime, and what to do; empty if it
// may have enough.
std::string allowance_problem();

// The user's language by Windows' numbers of primary languages and sublanguages, on every system:
// the low ten and the high six bits of a language identifier.
struct ui_language {
    std::uint16_t primary = 0x09;
    std::uint16_t sublanguage = 0x01;
};
ui_language user_language();

// The user's folder for application data that roams, created if need be; empty if there is none.
std::string application_data_folder();

// Opens `url` with the program that the user chose for its kind. Does not wait for it.
void open_in_system(const std::string& url);

}  // namespace pennywort::webdisplay
