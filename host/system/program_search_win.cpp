// host/system/program_search_win.cpp - Windows half of host/system/program_search.h. Linux half:
// host/system/program_search_linux.cpp.
#include "host/system/program_search.h"

#include <windows.h>

#include "core/run/environment.h"
#include "loam/wide_text.h"

namespace pennywort::host {

namespace {

bool is_program(const std::string& path) {
    DWORD kind = 0;
    return GetBinaryTypeW(loam::wide_text(path).c_str(), &kind) != 0;
}

}  // namespace

std::string find_program(const std::string& name) {
    return find_in_folders(run::environment_variable("PATH"), ';', [&](const std::string& folder) {
        if (folder.empty()) return std::string();
        for (const char* ending : {".exe", ""}) {
            std::string path = folder + "\\" + name + ending;
            if (is_program(path)) return path;
        }
        return std::string();
    });
}

}  // namespace pennywort::host
