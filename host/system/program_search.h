// host/system/program_search.h - finds a program by its name. The system's half is
// program_search_linux.cpp or program_search_win.cpp.
#pragma once

#include <string>
#include <string_view>

namespace pennywort::host {

// The full path of a program that the user's search path holds; empty if there is none.
std::string find_program(const std::string& name);

// The part that both systems share: asks `program_in` for each of the folders, which stand in one
// text with `separator` between them and may be empty, and returns its first text that is not
// empty; an empty one if there is none.
template <class search>
std::string find_in_folders(std::string_view folders, char separator, search program_in) {
    for (;;) {
        const auto end = folders.find(separator);
        std::string found = program_in(std::string(folders.substr(0, end)));
        if (!found.empty() || end == folders.npos) return found;
        folders.remove_prefix(end + 1);
    }
}

}  // namespace pennywort::host
