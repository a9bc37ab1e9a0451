// page_file.cpp - see the header for the contract.
#include "webdisplay/page_file.h"

#include <filesystem>
#include <fstream>
#include <string_view>

#include "core/limits.h"
#include "core/text/percent.h"

namespace pennywort::webdisplay {

namespace {

constexpr std::string_view k_scheme = "file://";

std::filesystem::path path_of(const std::string& url) {
    const std::string bare = url.substr(0, url.find_first_of("?#")).substr(k_scheme.size());
    std::string path = text::percent_decoded_as_browsers_do(bare);
    const bool has_drive = path.size() > 2 && path[2] == ':';
    if (has_drive) path.erase(0, 1);
    return {std::u8string(path.begin(), path.end())};
}

}  // namespace

// A page may name anything, and a pipe would not come to an end.
std::string bytes_of_file_url(const std::string& url) {
    if (url.substr(0, k_scheme.size()) != k_scheme) return {};
    std::error_code error;
    const std::filesystem::path path = path_of(url);
    if (!std::filesystem::is_regular_file(path, error)) return {};
    const auto size = std::filesystem::file_size(path, error);
    if (error || size > k_max_page_file_bytes) return {};
    std::ifstream file(path, std::ios::binary);
    std::string bytes(static_cast<std::size_t>(size), '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return file ? bytes : std::string();
}

}  // namespace pennywort::webdisplay
