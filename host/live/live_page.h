// host/live/live_page.h - the files of the control page, which the build puts into the program.
#pragma once

#include <string>
#include <string_view>

namespace pennywort::host {

struct live_page_file {
    const char* path;
    const char* type;
    std::string text;
};

// Null where there is none of that path.
const live_page_file* find_live_page_file(std::string_view path);

}  // namespace pennywort::host
