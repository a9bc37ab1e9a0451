// host/system/file_path.h - a path from a text in UTF-8. To hand the text to the library's own
// conversion would take it for the system's narrow characters, which on Windows are others.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace pennywort::host {

inline std::filesystem::path file_path(std::string_view utf8) {
    return {std::u8string(utf8.begin(), utf8.end())};
}

}  // namespace pennywort::host
