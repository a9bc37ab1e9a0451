// host/system/file_names_linux.cpp - Linux half of host/system/file_names.h. Windows half:
// host/system/file_names_win.cpp.
#include "host/system/file_names.h"

namespace pennywort::host {

bool are_one_name(const std::filesystem::path& one, const std::filesystem::path& other) {
    return one == other;
}

}  // namespace pennywort::host
