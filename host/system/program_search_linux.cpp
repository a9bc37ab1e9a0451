// host/system/program_search_linux.cpp - Linux half of host/system/program_search.h. Windows half:
// host/system/program_search_win.cpp.
#include "host/system/program_search.h"

#include <unistd.h>

#include <cstdlib>

namespace pennywort::host {

namespace {

bool is_program(const std::string& path) { return ::access(path.c_str(), X_OK) == 0; }

}  // namespace

std::string find_program(const std::string& name) {
    const char* const variable = std::getenv("PATH");
    const char* const folders = variable != nullptr ? variable : "/usr/local/bin:/usr/bin:/bin";
    return find_in_folders(folders, ':', [&](const std::string& folder) {
        const std::string path = (folder.empty() ? "." : folder) + "/" + name;
        return is_program(path) ? path : std::string();
    });
}

}  // namespace pennywort::host
