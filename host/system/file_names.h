// host/system/file_names.h - when two names are one to the file system. The system's half is
// file_names_linux.cpp or file_names_win.cpp.
#pragma once

#include <filesystem>

namespace pennywort::host {

// Of absolute paths, whose files need not be there.
bool are_one_name(const std::filesystem::path& one, const std::filesystem::path& other);

}  // namespace pennywort::host
