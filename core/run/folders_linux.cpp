// folders_linux.cpp - Linux half of folders.h. Windows half: folders_win.cpp.
#include "core/run/folders.h"

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>

#include "loam/path.h"
#include "loam/trace.h"

namespace pennywort::run {

std::string program_folder() {
    std::vector<char> path(4096);
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
    if (length <= 0) {
        const int error = errno;
        zTraceManager::Default()->TraceNote("%s: readlink /proc/self/exe - failed (%s)\n",
                                            "program_folder", std::strerror(error));
        return ".";
    }
    zFSPath program(std::string(path.data(), static_cast<std::size_t>(length)).c_str());
    return program.GoParent();
}

// A folder that is missing is the caller's to tell.
std::vector<std::string> names_in(const std::string& folder) {
    const std::unique_ptr<DIR, int (*)(DIR*)> open(opendir(folder.c_str()), &closedir);
    std::vector<std::string> names;
    if (open == nullptr) return names;
    while (const dirent* entry = readdir(open.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
    }
    return names;
}

}  // namespace pennywort::run
