// sound_port.cpp - see the header for the contract.
#include "webdisplay/sound_port.h"

#include <mutex>

#include "webdisplay/thread_mark.h"

namespace pennywort::webdisplay {

namespace {

thread_local bool t_is_telling = false;

}  // namespace

bool sound_port::is_telling() { return t_is_telling; }

void sound_port::set_receiver(cBrowserAudioReceiverInterface* receiver) {
    const std::lock_guard<std::recursive_mutex> guard(m_lock);
    m_receiver = receiver;
    m_is_told = false;
}

bool sound_port::has_receiver() const {
    const std::lock_guard<std::recursive_mutex> guard(m_lock);
    return m_receiver != nullptr;
}

void sound_port::started(long channels, long sample_rate) {
    const std::lock_guard<std::recursive_mutex> guard(m_lock);
    m_channels = channels;
    m_sample_rate = sample_rate;
    m_is_told = false;
}

void sound_port::packet(const float* const* samples, long frames, std::int64_t milliseconds) {
    const std::lock_guard<std::recursive_mutex> guard(m_lock);
    if (m_receiver == nullptr || m_channels <= 0) return;
    const thread_mark telling(t_is_telling);
    if (!m_is_told) {
        m_is_told = true;
        m_receiver->AudioStarted(m_channels, m_sample_rate);
    }
    // It may have taken itself away.
    if (m_receiver != nullptr) {
        m_receiver->AudioPacket(samples, m_channels, frames, milliseconds);
    }
}

void sound_port::stopped() {
    const std::lock_guard<std::recursive_mutex> guard(m_lock);
    const bool was_told = m_is_told;
    m_channels = 0;
    m_is_told = false;
    const thread_mark telling(t_is_telling);
    if (m_receiver != nullptr && was_told) m_receiver->AudioStopped();
}

}  // namespace pennywort::webdisplay
