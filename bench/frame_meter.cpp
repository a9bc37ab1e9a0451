// frame_meter.cpp - see the header for the contract.
#include "bench/frame_meter.h"

#include <algorithm>

namespace pennywort::bench {

namespace {

constexpr std::size_t k_words_per_sample = 16;

// FNV-1a over every 16th word of 8 bytes: the yardstick's sample, so that a frame that is fresh
// here would be fresh there, and costs as much to look at.
std::uint64_t sample(const void* pixels, std::size_t bytes) {
    const auto* word = static_cast<const std::uint64_t*>(pixels);
    const auto* const end = word + bytes / sizeof *word;
    std::uint64_t sum = 0xcbf29ce484222325;
    for (; word < end; word += k_words_per_sample) sum = (sum ^ *word) * 0x100000001b3;
    return sum;
}

}  // namespace

double ms_between(steady::time_point from, steady::time_point to) {
    return std::chrono::duration<double, std::milli>(to - from).count();
}

double percentile(const std::vector<double>& sorted, double q) {
    if (sorted.empty()) return 0;
    const auto index = static_cast<std::size_t>(q * static_cast<double>(sorted.size()));
    return sorted[std::min(sorted.size() - 1, index)];
}

void frame_meter::GetSize(long& width, long& height) const {
    width = m_width;
    height = m_height;
}

void frame_meter::BrowserPainted(const void* pixels, long width, long height, bool isPopup) {
    if (isPopup) return;
    const auto now = steady::now();
    if (m_first_frame == steady::time_point{}) m_first_frame = now;
    if (!m_counting) return;
    ++m_frames;
    const auto seen = sample(pixels, static_cast<std::size_t>(width * height * 4));
    if (seen != m_last_sample) ++m_fresh;
    m_last_sample = seen;
    if (m_last_frame != steady::time_point{}) {
        m_intervals_ms.push_back(ms_between(m_last_frame, now));
    }
    m_last_frame = now;
}

std::vector<double> frame_meter::sorted_intervals_ms() const {
    auto sorted = m_intervals_ms;
    std::sort(sorted.begin(), sorted.end());
    return sorted;
}

}  // namespace pennywort::bench
