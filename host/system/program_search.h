// host/system/program_search.h - the part of find_program that both systems share.
#pragma once

#include <string>
#include <string_view>

namespace pennywort::host {

// What `program_in` returns for the first of the folders that it does not return an empty text for.
// The folders are separated by `separator`; they may be empty texts.
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
