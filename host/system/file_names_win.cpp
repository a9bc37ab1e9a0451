// host/system/file_names_win.cpp - Windows half of host/system/file_names.h. Linux half:
// host/system/file_names_linux.cpp.
#include "host/system/file_names.h"

#include <windows.h>

namespace pennywort::host {

namespace {

std::wstring with_one_separator(std::filesystem::path path) {
    return path.make_preferred().native();
}

}  // namespace

// By the rule of the file system itself, which looks at no language.
bool are_one_name(const std::filesystem::path& one, const std::filesystem::path& other) {
    const std::wstring left = with_one_separator(one);
    const std::wstring right = with_one_separator(other);
    return CompareStringOrdinal(left.c_str(), -1, right.c_str(), -1, TRUE) == CSTR_EQUAL;
}

}  // namespace pennywort::host
