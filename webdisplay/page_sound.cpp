// page_sound.cpp - see the header for the contract.
#include "webdisplay/page_sound.h"

#include "webdisplay/browser_calls.h"

namespace pennywort::webdisplay {

namespace {

constexpr int k_sample_rate = 48'000;
constexpr int k_frames_of_a_packet = k_sample_rate / 100;

}  // namespace

// Whatever the machine's own output is like.
bool page_sound::GetAudioParameters(cef_browser_t*, cef_audio_parameters_t& parameters) {
    parameters.channel_layout = CEF_CHANNEL_LAYOUT_STEREO;
    parameters.sample_rate = k_sample_rate;
    parameters.frames_per_buffer = k_frames_of_a_packet;
    return true;
}

// A window that the page opened is heard here too, since it shares the client. Its sound is not the
// display's: two streams at a time would be torn together into one.
void page_sound::OnAudioStreamStarted(cef_browser_t* browser,
                                      const cef_audio_parameters_t& parameters, int channels) {
    if (!is_popup(browser)) m_port->started(channels, parameters.sample_rate);
}

void page_sound::OnAudioStreamPacket(cef_browser_t* browser, const float* const* samples,
                                     int frames, std::int64_t milliseconds) {
    if (!is_popup(browser)) m_port->packet(samples, frames, milliseconds);
}

void page_sound::OnAudioStreamStopped(cef_browser_t* browser) {
    if (!is_popup(browser)) m_port->stopped();
}

}  // namespace pennywort::webdisplay
