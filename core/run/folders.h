// folders.h - the folder of this process's program, and what a folder holds. Twins:
// folders_win.cpp, folders_linux.cpp. Paths are UTF-8.
#pragma once

#include <string>
#include <vector>

namespace pennywort::run {

// Without a separator at the end; "." where the system does not tell.
std::string program_folder();

// The names of what a folder holds; none where it cannot be read. The standard library's own way
// ends the process where memory runs out in it.
std::vector<std::string> names_in(const std::string& folder);

}  // namespace pennywort::run
