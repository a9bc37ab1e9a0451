// host/system/program_search.h - finds a program by its name. The system's half is
// program_search_linux.cpp or program_search_win.cpp.
#pragma once

#include <string>
#include <string_view>

namespace pennywort::host {

// The full path of a program that the user's search path holds; empty if there is none.
std::string find_program(const std::string& name);

// The part that both systems share: what `program_in` returns for the first of the folders that it
// does not return an empty text for. The folders are separated by `separator`; they may be empty
// texts.
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
