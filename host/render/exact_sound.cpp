// host/render/exact_sound.cpp - see the header for the contract.
#include "host/render/exact_sound.h"

#include <algorithm>

namespace pennywort::host {

namespace {

// A page is never ahead of its film by more than a few frames.
constexpr std::int64_t k_furthest = k_sound_rate * 20;

}  // namespace

void exact_sound::begin(std::int64_t film, std::int64_t page) {
    m_has_begun = true;
    m_shift = film - page;
    m_taken = film;
    m_waiting.clear();
}

void exact_sound::hear(const float* const* samples, long channels, long frames, std::int64_t page) {
    if (!m_has_begun || channels < 1) return;
    const std::int64_t first = page + m_shift - m_taken;
    const std::int64_t end = first + frames;
    if (end <= 0 || end > k_furthest) return;
    const auto wanted = static_cast<std::size_t>(end) * k_sound_channels;
    if (m_waiting.size() < wanted) m_waiting.resize(wanted);
    const float* const right = samples[channels > 1 ? 1 : 0];
    for (std::int64_t at = std::max<std::int64_t>(first, 0); at < end; ++at) {
        const auto place = static_cast<std::size_t>(at) * k_sound_channels;
        m_waiting[place] = samples[0][at - first];
        m_waiting[place + 1] = right[at - first];
    }
}

void exact_sound::take(std::int64_t film, std::vector<float>& out) {
    if (!m_has_begun || film <= m_taken) return;
    const auto count = static_cast<std::size_t>(film - m_taken) * k_sound_channels;
    if (m_waiting.size() < count) m_waiting.resize(count);
    const auto end = m_waiting.begin() + static_cast<std::ptrdiff_t>(count);
    out.insert(out.end(), m_waiting.begin(), end);
    m_waiting.erase(m_waiting.begin(), end);
    m_taken = film;
}

void exact_sound::finish(std::int64_t film, std::vector<float>& out) {
    take(film, out);
    m_has_begun = false;
    m_waiting.clear();
}

}  // namespace pennywort::host
