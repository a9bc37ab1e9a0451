// host/render/page_sound_receiver.h - brings what a page says to the recorder of its film.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "core/run/clock.h"
#include "host/render/recorder.h"
#include "webdisplay.h"

namespace pennywort::host {

// Called on the runtime's threads.
class page_sound_receiver : public cBrowserAudioReceiverInterface {
public:
    // The day of the runtime begins with it, and is not set again: so is this one taken once.
    // `is_exact`: the page lives by its own time.
    page_sound_receiver(recorder& frames, const run::monotonic_clock& clock, bool is_exact);

    // Whether the page has said anything so far. Any thread.
    bool has_sounded() const { return m_has_sounded; }

    void AudioStarted(long channels, long sampleRate) override;
    void AudioPacket(const float* const* samples, long channels, long frames,
                     std::int64_t milliseconds) override;
    void AudioStopped() override;

private:
    recorder& m_frames;
    const run::monotonic_clock::time m_day_began;
    const bool m_is_exact;
    std::atomic<bool> m_has_sounded{false};
};

}  // namespace pennywort::host
