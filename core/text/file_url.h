// core/text/file_url.h - the file that a "file:" URL names (RFC 8089).
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "core/text/percent.h"

namespace pennywort::text {

// The path of a file of this machine, without query and fragment. Nothing for another URL, nor for
// a share of another machine, which Windows would ask for with the user's name.
inline std::optional<std::filesystem::path> path_of_file_url(std::string_view url) {
    constexpr std::string_view k_scheme = "file://";
    if (!url.starts_with(k_scheme)) return {};
    const std::string_view bare = url.substr(0, url.find_first_of("?#")).substr(k_scheme.size());
    std::string path = percent_decoded_as_browsers_do(bare);
    const bool has_drive = path.size() > 2 && path[2] == ':';
    if (has_drive) path.erase(0, 1);
    const auto is_slash = [](char one) { return one == '/' || one == '\\'; };
    const bool is_share = path.size() > 1 && is_slash(path[0]) && is_slash(path[1]);
    if (is_share || path.starts_with('\\')) return {};
    return std::filesystem::path(std::u8string(path.begin(), path.end()));
}

}  // namespace pennywort::text
