// url_path.h - from the path of a request to the names of folders and a file. No clock, no I/O.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pennywort::httpserver {

// The names between the slashes, decoded. Nothing if one of them could lead elsewhere or name what
// nobody meant to show: "." and "..", hidden names, a NUL, a slash or backslash that was encoded, a
// colon, control characters, and on Windows' account names that end in a dot or a space and those
// of its devices ("com1", "nul.txt"). Empty names are passed over.
std::optional<std::vector<std::string>> path_names(std::string_view path);

}  // namespace pennywort::httpserver
