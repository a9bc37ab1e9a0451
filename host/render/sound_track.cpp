// host/render/sound_track.cpp - see the header for the contract.
#include "host/render/sound_track.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace pennywort::host {

namespace {

using samples_of_time = std::chrono::duration<std::int64_t, std::ratio<1, k_sound_rate>>;

// A packet that is further than this from its place has one of its own.
constexpr std::int64_t k_far = k_sound_rate * 60 / 1000;
// A stream that is this far from its place on the average is moved. A move is heard as a click, but
// for one in silence.
constexpr double k_drifted = k_sound_rate * 0.008;
constexpr double k_drifted_in_silence = k_sound_rate * 0.001;
constexpr double k_level_smoothing = 64;
// Silence that nobody has spoken into for so long is silence.
constexpr std::int64_t k_certain = k_sound_rate / 2;
// A packet from further ahead has no time that could be right.
constexpr std::int64_t k_absurd = k_sound_rate * 10;

// As far as ears go.
bool is_silent(const float* samples, long frames) {
    return std::all_of(samples, samples + frames,
                       [](float sample) { return std::abs(sample) < 0.0005f; });
}

}  // namespace

void sound_track::begin(std::int64_t position, time_point at) {
    m_begin = position;
    m_begin_time = at;
    m_has_begun = true;
    m_is_placed = false;
    m_end = std::numeric_limits<std::int64_t>::max();
}

std::int64_t sound_track::place_of(time_point at) const {
    return m_begin + std::chrono::round<samples_of_time>(at - m_begin_time).count();
}

std::int64_t sound_track::written() const {
    return m_taken + static_cast<std::int64_t>(m_waiting.size() / k_sound_channels);
}

void sound_track::append_silence(std::int64_t samples) {
    const std::int64_t room = std::min(samples, m_end - written());
    if (room > 0) m_waiting.resize(m_waiting.size() + static_cast<std::size_t>(room) * 2);
}

void sound_track::append(const float* const* samples, long channels, long from, long frames) {
    const std::int64_t to = from + std::min<std::int64_t>(frames - from, m_end - written());
    const float* const left = samples[0];
    const float* const right = samples[channels > 1 ? 1 : 0];
    for (std::int64_t i = from; i < to; ++i) {
        m_waiting.push_back(left[i]);
        m_waiting.push_back(right[i]);
    }
}

void sound_track::packet(const float* const* samples, long channels, long frames, time_point at) {
    if (!m_has_begun || channels < 1 || frames < 1) return;
    const std::int64_t late = place_of(at) - written();
    if (std::abs(late) > k_absurd) return;
    const bool is_apart = !m_is_placed || std::abs(late) > k_far;
    m_drift = is_apart ? 0 : m_drift + (static_cast<double>(late) - m_drift) / k_level_smoothing;
    std::int64_t move = is_apart ? late : 0;
    const bool is_far = std::abs(m_drift) > k_drifted;
    if (is_far || (std::abs(m_drift) > k_drifted_in_silence && is_silent(samples[0], frames))) {
        move = std::llround(m_drift);
        m_drift = 0;
    }
    append_silence(move);
    const long from = static_cast<long>(std::clamp<std::int64_t>(-move, 0, frames));
    m_is_placed = from < frames;
    append(samples, channels, from, frames);
}

void sound_track::hand_out(std::int64_t position, std::vector<float>& out) {
    const std::int64_t ready = std::clamp(position - m_taken, std::int64_t(0), written() - m_taken);
    const auto end = m_waiting.begin() + static_cast<std::ptrdiff_t>(ready) * 2;
    out.insert(out.end(), m_waiting.begin(), end);
    m_waiting.erase(m_waiting.begin(), end);
    m_taken += ready;
}

void sound_track::take(std::int64_t position, std::vector<float>& out) {
    if (!m_has_begun) return;
    append_silence(position - k_certain - written());
    hand_out(position, out);
}

void sound_track::finish(std::int64_t position, std::vector<float>& out) {
    end_at(position);
    append_silence(position - written());
    hand_out(position, out);
    m_waiting.clear();
    m_has_begun = false;
    m_is_placed = false;
}

}  // namespace pennywort::host
