// host/render/page_sound_receiver.cpp - see the header for the contract.
#include "host/render/page_sound_receiver.h"

namespace pennywort::host {

namespace {

// The moment of the clock at which the years began to be counted.
run::monotonic_clock::time beginning_of_days(const run::monotonic_clock& clock) {
    const auto since = std::chrono::system_clock::now().time_since_epoch();
    return clock.now() - std::chrono::duration_cast<run::monotonic_clock::time::duration>(since);
}

}  // namespace

page_sound_receiver::page_sound_receiver(recorder& frames, const run::monotonic_clock& clock,
                                         bool is_exact)
    : m_frames(frames), m_day_began(beginning_of_days(clock)), m_is_exact(is_exact) {}

void page_sound_receiver::AudioStarted(long, long) { m_has_sounded = true; }

void page_sound_receiver::AudioPacket(const float* const* samples, long channels, long frames,
                                      std::int64_t milliseconds) {
    constexpr std::int64_t k_of_a_millisecond = k_sound_rate / 1000;
    if (m_is_exact) {
        return m_frames.heard_exactly(samples, channels, frames, milliseconds * k_of_a_millisecond);
    }
    m_frames.heard(samples, channels, frames,
                   m_day_began + std::chrono::milliseconds(milliseconds));
}

void page_sound_receiver::AudioStopped() { m_frames.fell_silent(); }

}  // namespace pennywort::host
