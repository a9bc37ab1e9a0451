// page_samples.h - what a page by its own clock sounds like for a while, as its driver tells it.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace pennywort::webdisplay {

inline constexpr std::int64_t k_page_samples_of_a_millisecond = 48;

struct page_samples {
    std::int64_t milliseconds = 0;  // since the page's time 0
    std::vector<float> samples;     // all of the left side, and behind them all of the right

    std::size_t frames() const { return samples.size() / 2; }
    const float* left() const { return samples.data(); }
    const float* right() const { return samples.data() + frames(); }
};

// "POSITION:BASE64": the position in samples of 48 kHz, a whole millisecond, and the samples as 32
// bit floats. Nothing for what is not that, since a page's own scripts may interfere, for what is
// longer than k_max_page_sound_seconds, and for a position that no script can count to.
std::optional<page_samples> page_samples_of(std::string_view text);

// Both at once, of one and the same while. Of different ones, as a page may make up, the second.
std::optional<page_samples> together(std::optional<page_samples> one,
                                     std::optional<page_samples> other);

}  // namespace pennywort::webdisplay
