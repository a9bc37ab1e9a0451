// host/app/option_values.cpp - see the header for the contract.
#include "host/app/option_values.h"

#include <array>
#include <cstddef>
#include <fstream>
#include <ios>
#include <optional>
#include <string_view>
#include <utility>

#include "core/limits.h"
#include "core/text/numbers.h"
#include "host/app/page_address.h"
#include "host/system/file_path.h"

namespace pennywort::host {

std::string take_size(const std::string& text, frame_format& format) {
    const auto x = text.find_first_of("xX");
    const std::string_view all = text;
    const auto width = text::whole_between<long>(all.substr(0, x), 1, k_max_view_side);
    const auto height = x == text.npos
                            ? std::nullopt
                            : text::whole_between<long>(all.substr(x + 1), 1, k_max_view_side);
    if (!width || !height) {
        return "--size " + text + " is not a size: give WxH, each from 1 to 16384";
    }
    format.width = *width;
    format.height = *height;
    return {};
}

std::string take_rate(const std::string& text, frame_format& format) {
    const auto rate = frame_rate::parse(text);
    if (!rate) return "--fps " + text + " is not a frame rate from 1 to 240";
    format.rate = *rate;
    return {};
}

std::string take_pages(const std::vector<std::string>& pages, std::vector<std::string>& urls) {
    for (const auto& page : pages) {
        std::string reason;
        auto url = page_address(page, reason);
        if (!url) return reason;
        urls.push_back(std::move(*url));
    }
    return {};
}

bool read_text_file(const std::string& path, std::string& text) {
    std::ifstream file(file_path(path), std::ios::binary);
    if (!file) return false;
    // By read(), which notes a fault in the stream: a folder can be opened, and what reads it
    // through the iterators of its buffer throws.
    text.clear();
    std::array<char, 64 * 1024> piece;
    while (file && text.size() <= k_max_text_file_bytes) {
        file.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        text.append(piece.data(), static_cast<std::size_t>(file.gcount()));
    }
    return !file.bad() && text.size() <= k_max_text_file_bytes;
}

}  // namespace pennywort::host
