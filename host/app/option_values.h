// host/app/option_values.h - what the commands' options have in common: numbers, sizes, pages.
#pragma once

#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/output/frame_writer.h"

namespace pennywort::host {

// The number that the whole text is, if it lies from `lowest` to `highest`.
template <class T>
std::optional<T> number_of(std::string_view text, T lowest, T highest) {
    T value{};
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool is_whole = error == std::errc() && stop == text.data() + text.size();
    // Written so that a NaN, which compares false with everything, is refused.
    if (!is_whole || !(value >= lowest && value <= highest)) return {};
    return value;
}

// Each of these returns what is wrong with the option, in one line; an empty text if nothing is.

// "1280x720", and a frame rate.
std::string take_size(const std::string& text, frame_format& format);
std::string take_rate(const std::string& text, frame_format& format);
// What the user calls pages becomes their URLs. A page that is a file has to be there.
std::string take_pages(const std::vector<std::string>& pages, std::vector<std::string>& urls);

}  // namespace pennywort::host
