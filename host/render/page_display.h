// host/render/page_display.h - the web display of a run, with everything that it reports: pictures
// go to the recorder, page events to the page that is being shown.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/run/clock.h"
#include "host/render/open_requests.h"
#include "host/render/page_run.h"
#include "host/render/page_sayings.h"
#include "host/render/page_setup.h"
#include "host/render/page_sound_receiver.h"
#include "host/render/picture_area.h"
#include "host/render/recorder.h"
#include "host/render/render_options.h"
#include "webdisplay.h"

namespace pennywort::host {

// Everything but tick belongs to the display thread.
class page_display : public page_port,
                     public area_port,
                     private cBrowserVideoRendererInterface,
                     private cBrowserPageCallbackHandler,
                     private cBrowserJavascriptCallbackHandler,
                     private cBrowserInspectorHandler {
public:
    // Hears what becomes of pages, and what they tell the program, one line at a time.
    using news_listener = std::function<void(const std::string& line)>;
    // Hears what pages say to whoever watches them.
    using page_listener = std::function<void(const page_saying& said)>;

    // Opens nothing yet. `frames` and `clock` must outlive the display.
    page_display(const render_options& options, recorder& frames, const run::monotonic_clock& clock,
                 news_listener news, page_listener heard);
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
    // Of such a page, of that size: from now on almost nothing of it is drawn, until the other one
    // is called. `told` hears what in it goes on looking as it did meanwhile; null for nothing.
    void fast_forward(const picture_size& page);
    void end_fast_forward(std::function<void(const char* kept)> told);
    // Frames of this page that were asked for so far.
    std::uint64_t advanced() const { return m_advanced; }
    // Why it was not; empty if nothing is known.
    std::string frame_fault() const;

    // Whether a page has said anything so far.
    bool has_sounded() const { return m_sound.has_sounded(); }

    // The option whose value the browser does not take; empty if there is none.
    const std::string& refused() const { return m_refused; }

    // Has the run told where the page has closed itself, of which there is no event.
    void look_whether_closed();

    // Ticks that the page could not follow so far.
    std::uint64_t missed() const;

    // From now on pictures are that part of the page's. The one that is there is the first.
    void set_area(const pixel_area& area);

    void ask_page(const std::string& expression,
                  std::function<void(const std::string&)> answer) override;
    void resize_page(long width, long height) override;
    void show_unseen(std::function<void(bool is_there)> told) override;
    // The same, `told` when its picture has been delivered, or with the next frame where none has.
    void advance_unseen(std::function<void(bool is_there)> told);
    std::optional<picture_size> picture_of(long width, long height) const override;

    void run_script(const std::string& body, std::function<void(std::string)> answer) override;
    void run_users_script(const std::string& body,
                          std::function<void(std::string)> answer) override;
    void ask_next_frame(const std::string& expression,
                        std::function<void(std::string)> answer) override;
    void ask_fault(const std::string& expression, std::function<void(std::string)> answer) override;
    void repaint() override;
    std::uint64_t pictures() const override { return m_frames.pictures(); }

private:
    // Pixels of a picture, row by row.
    struct picture_copy {
        std::vector<std::uint32_t> pixels;
        long width = 0;
        long height = 0;
    };

    void ask(const inspector_request& request);
    void run_clicked(std::uint64_t page, const std::string& body,
                     const std::function<void(std::string)>& answer);
    void await_widget(std::uint64_t page, const std::function<void()>& then, int frames);
    void paint_part();
    std::int64_t next_unseen_us();

    void GetSize(long& width, long& height) const override;
    void BrowserPainted(const void* pixels, long width, long height, bool isPopup) override;
    void PageLoadFailed(const zString& url, const zString& error) override;
    void PageLoaded(const zString& url) override;
    void JavascriptCallback(const zString& name, const zString& argument, zString& result) override;
    void InspectorEvent(const zString& method, const zString& parameters) override;

    const frame_format m_format;
    recorder& m_frames;
    const run::monotonic_clock& m_clock;
    const bool m_is_in_the_day;  // and not by a clock of the page's own
    const news_listener m_news;
    const page_listener m_heard;
    page_sound_receiver m_sound;
    const double m_scale;
    std::uint64_t m_pages_loaded = 0;
    const bool m_is_part;  // pictures show a part of the page
    cWebDisplayBrowser* m_browser;
    page_run* m_run = nullptr;
    bool m_is_open = false;
    told_sayings m_told;
    worker_sayings m_workers;
    media_types m_media_types;
    open_requests m_open_requests;
    std::atomic<bool> m_is_of_file{false};  // the page is a file of this machine
    std::string m_address;                  // of the page, as the inspector tells it
    std::string m_refused;
    std::uint64_t m_advanced = 0;  // frames of this page
    std::int64_t m_unseen_us = 0;  // of its time before the first of them
    picture_copy m_last;           // where they do
    pixel_area m_area;             // which; empty while it is looked for
};

}  // namespace pennywort::host
