// page_driver.h - lets one browser's page live by its own clock: between the timeline of that page
// and the browser.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "core/outcome.h"
#include "core/run/clock.h"
#include "webdisplay/cef/interfaces.h"
#include "webdisplay/main_thread_timer.h"
#include "webdisplay/page_timeline.h"

namespace pennywort::webdisplay {

// What the display does when the page's clock allows it.
struct page_driver_events {
    // The URL at the head of the queue may be given to the browser.
    std::function<void()> load_next;
    // The page that was loaded last stands at its time 0.
    std::function<void()> page_stands;
    // The page does not follow its clock any more; why. Comes at once.
    std::function<void(const std::string& why)> failed;
    // A frame that was asked for there cannot be; why.
    std::function<void(const std::string& why)> refused;
    // What the page sounds like; and whether anybody hears it. Without them nobody does.
    std::function<void(const page_samples& heard)> sounds;
    std::function<bool()> is_heard;
};

// Belongs to the display thread. The runtime holds it as the inspector's observer until `close`.
class page_driver final : public cef::CefDevToolsMessageObserver, private timeline_port {
public:
    // `day`: see page_timeline. The events come from a turn of the message loop of their own.
    page_driver(double day, page_start start, page_driver_events events,
                const run::monotonic_clock& clock = run::monotonic_clock::system());

    // Whether the calling thread moves any page on, and the host may be told of it.
    static bool is_stepping();
    // The runtime is started so that a page can have its own clock.
    static void allow();
    // With a runtime: makes ready for the first one of the process. A failure says why a page
    // cannot have its own clock.
    static outcome<> prepare();

    void browser_arrived(cef_browser_t* browser);
    void painted();
    void page_begun(const std::string& url) { m_loaded_url = url; }
    void page_loaded(const std::string& url);
    void page_lost();
    // Nothing is called any more, and frames that wait have failed.
    void close();

    // Whether the browser may be given a page now; else `load_next` comes when it may.
    bool may_load();
    void advance(std::int64_t microseconds, page_timeline::receiver told);
    void ask(std::string expression, page_timeline::value_receiver told);

    bool is_preparing() const { return m_timeline.is_preparing(); }
    // Whether what the browser paints belongs to a frame that the host has asked for; and whether
    // it is that frame's picture.
    bool is_at_frame() const { return m_timeline.is_at_frame(); }
    bool shows_frame() const { return m_timeline.shows_frame(); }

private:
    void OnDevToolsMessage(std::string_view message) override;

    void send_to_inspector(const std::string& message) override;
    bool begin_frame(std::int64_t nanoseconds) override;
    void load_page() override;
    void load_again();
    void page_stands() override;
    void page_fails(const std::string& why) override;
    void page_sounds(const page_samples& heard) override;
    bool is_heard() override { return m_events.is_heard && m_events.is_heard(); }
    std::string bytes_of_file(const std::string& url) override;

    void step_soon();
    void step();

    page_driver_events m_events;
    const run::monotonic_clock& m_clock;
    std::shared_ptr<main_thread_timer> m_timer;
    cef::ref<cef_browser_host_t> m_host;
    cef::ref<cef_browser_t> m_browser;
    cef::ref<cef_registration_t> m_registration;
    std::string m_loaded_url;
    bool m_is_step_posted = false;
    page_timeline m_timeline;
};

}  // namespace pennywort::webdisplay
