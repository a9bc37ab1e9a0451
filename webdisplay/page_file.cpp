// page_file.cpp - see the header for the contract.
#include "webdisplay/page_file.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "core/limits.h"
#include "core/text/file_url.h"

namespace pennywort::webdisplay {

// A page may name anything, and a pipe would not come to an end.
std::string bytes_of_file_url(const std::string& url) {
    std::error_code error;
    const auto path = text::path_of_file_url(url);
    if (!path || !std::filesystem::is_regular_file(*path, error)) return {};
    const auto size = std::filesystem::file_size(*path, error);
    if (error || size > k_max_page_file_bytes) return {};
    std::ifstream file(*path, std::ios::binary);
    std::string bytes(static_cast<std::size_t>(size), '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return file ? bytes : std::string();
}

}  // namespace pennywort::webdisplay
