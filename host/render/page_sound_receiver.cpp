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

page_sound_receiver::page_sound_receiver(recorder& frames, const run::monotonic_clock& clock)
    : m_frames(frames), m_day_began(beginning_of_days(clock)) {}

void page_sound_receiver::AudioStarted(long, long) { m_has_sounded = true; }

void page_sound_receiver::AudioPacket(const float* const* samples, long channels, long frames,
                                      std::int64_t milliseconds) {
    m_frames.heard(samples, channels, frames,
                   m_day_began + std::chrono::milliseconds(milliseconds));
}

void page_sound_receiver::AudioStopped() { m_frames.fell_silent(); }

}  // namespace pennywort::host
