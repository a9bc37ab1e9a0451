// host/render/page_display.h - the web display of a run, with everything that it reports: pictures
// go to the recorder, page events to the page that is being shown.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "core/run/clock.h"
#include "host/render/page_run.h"
#include "host/render/page_sound_receiver.h"
#include "host/render/recorder.h"
#include "host/render/render_options.h"
#include "webdisplay.h"

namespace pennywort::host {

// Everything but tick belongs to the display thread.
class page_display : public page_port,
                     private cBrowserVideoRendererInterface,
                     private cBrowserPageCallbackHandler,
                     private cBrowserJavascriptCallbackHandler {
public:
    enum class saying { news, script_error };
    // Hears what pages say, one line at a time.
    using listener = std::function<void(saying what, const std::string& line)>;

    // Opens nothing yet. `frames` and `clock` must outlive the display.
    page_display(const render_options& options, recorder& frames, const run::monotonic_clock& clock,
                 listener heard);
    ~page_display() override;
    page_display(const page_display&) = delete;
    page_display& operator=(const page_display&) = delete;

    // Shows a page. The first one, which opens the display, has to be the first of the options.
    // `run`, which hears its events, must stay until another one is shown or the display is closed.
    // False if the display cannot be opened.
    bool show(const std::string& url, page_run& run);
    void close();

    // One tick of the page's clock, from any thread.
    void tick() { m_browser->NextFrame(); }

    // Only of a page by its own clock: moves it on by one frame, the first one to its beginning.
    // `told` hears when the picture of that moment is there, or that it will not be.
    void advance(std::function<void(bool is_there)> told);
    // Why it was not; empty if nothing is known.
    std::string frame_fault() const;

    // Whether a page has said anything so far.
    bool has_sounded() const { return m_sound.has_sounded(); }

    // Ticks that the page could not follow so far.
    std::uint64_t missed() const;

    void run_script(const std::string& body, std::function<void(std::string)> answer) override;
    void ask_next_frame(const std::string& expression,
                        std::function<void(std::string)> answer) override;
    void repaint() override;
    std::uint64_t pictures() const override { return m_frames.pictures(); }

private:
    void GetSize(long& width, long& height) const override;
    void BrowserPainted(const void* pixels, long width, long height, bool isPopup) override;
    void PageLoadFailed(const zString& url, const zString& error) override;
    void PageLoaded(const zString& url) override;
    void JavascriptCallback(const zString& name, const zString& argument, zString& result) override;

    const frame_format m_format;
    recorder& m_frames;
    const run::monotonic_clock& m_clock;
    const listener m_heard;
    page_sound_receiver m_sound;
    cWebDisplayBrowser* m_browser;
    page_run* m_run = nullptr;
    bool m_is_open = false;
    std::uint64_t m_advanced = 0;  // frames of this page
};

}  // namespace pennywort::host
