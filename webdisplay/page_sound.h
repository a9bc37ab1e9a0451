// page_sound.h - asks the runtime for the sound of a page, and hands it on.
#pragma once

#include <memory>
#include <utility>

#include "webdisplay/cef/interfaces.h"
#include "webdisplay/sound_port.h"

namespace pennywort::webdisplay {

// The runtime may hold it, and call it, longer than the display lives.
class page_sound final : public cef::CefAudioHandler {
public:
    explicit page_sound(std::shared_ptr<sound_port> port) : m_port(std::move(port)) {}

    bool GetAudioParameters(cef_browser_t* browser, cef_audio_parameters_t& parameters) override;
    void OnAudioStreamStarted(cef_browser_t* browser, const cef_audio_parameters_t& parameters,
                              int channels) override;
    void OnAudioStreamPacket(cef_browser_t* browser, const float* const* samples, int frames,
                             std::int64_t milliseconds) override;
    void OnAudioStreamStopped(cef_browser_t* browser) override;

private:
    const std::shared_ptr<sound_port> m_port;
};

}  // namespace pennywort::webdisplay
