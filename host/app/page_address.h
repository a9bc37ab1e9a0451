// host/app/page_address.h - turns what the user calls a page into a URL.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace pennywort::host {

// A text with a scheme ("https://...", "data:...") is a URL already and stays as it is, except that
// the file of a file URL has to be there, and that none of the browser's own pages ("chrome://...",
// "about:..." but for about:blank) is let through. Anything else names a file, from the current
// folder on; what stands behind its ? or # is handed to the page, unless a file of the whole name
// exists. Nothing, and a reason, for an empty text and for a file that cannot be read.
std::optional<std::string> page_address(std::string_view text, std::string& reason);

// The path of a file URL, as the system writes it, with its %-codes undone. Empty for other URLs.
std::string path_of_file_url(std::string_view url);

// The file URL of an absolute path with forward slashes.
std::string file_url(std::string_view path);

}  // namespace pennywort::host
