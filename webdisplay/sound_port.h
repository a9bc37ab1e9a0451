// sound_port.h - hands the sound of a page from the runtime's threads to the host's receiver.
#pragma once

#include <cstdint>

#include "loam/returned_mutex.h"
#include "webdisplay.h"

namespace pennywort::webdisplay {

// Any thread; one call of the receiver at a time.
class sound_port {
public:
    // Waits for a call in progress on another thread. The old receiver is told nothing more.
    void set_receiver(cBrowserAudioReceiverInterface* receiver);
    bool has_receiver() const;

    void started(long channels, long sample_rate);
    void packet(const float* const* samples, long frames, std::int64_t milliseconds);
    void stopped();

    // Whether the calling thread stands in a call of any receiver. The runtime waits for that
    // thread to end a page, so nobody may wait there for the end of one.
    static bool is_telling();

private:
    mutable loam::returned_recursive_mutex m_lock;  // a receiver may take itself away
    cBrowserAudioReceiverInterface* m_receiver = nullptr;
    long m_channels = 0;  // 0: the page is silent
    long m_sample_rate = 0;
    bool m_is_told = false;  // the receiver knows that the page sounds
};

}  // namespace pennywort::webdisplay
