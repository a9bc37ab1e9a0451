// host/live/live_display.h - the web display behind the control page: carries out its commands on
// the display thread, and tells what becomes of them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "core/run/clock.h"
#include "host/live/live.h"
#include "host/live/live_control.h"
#include "host/live/live_picture.h"
#include "host/live/live_state.h"
#include "loam/message_loop.h"
#include "webdisplay.h"

namespace pennywort::host {

// Made, opened, closed and destroyed on the display thread; the operations of live_port come from
// any thread and are carried out there.
class live_display : public live_port,
                     private cBrowserVideoRendererInterface,
                     private cBrowserPageCallbackHandler,
                     private cBrowserJavascriptCallbackHandler {
public:
    live_display(const live_options& options, live_pictures& pictures,
                 const run::monotonic_clock& clock = run::monotonic_clock::system());
    ~live_display() override;

    // `control` hears of everything from now on. False if the display cannot be opened.
    bool open(live_control& control);
    // Nothing that was asked for is carried out afterwards.
    void close();
    // Looks after the page, and tells the control how the display stands. From time to time.
    void look_after();

    // See live_state.
    std::string start_failure() const { return m_state.start_failure(); }

    // Of the page on air, for a feed.
    bool takes_messages() const { return m_has_page && m_state.phase() == live_phase::on_air; }
    bool execute(const std::string& body, std::function<void(const std::string&)> returned);

    void load(const std::string& url) override;
    void resize(long width, long height) override;
    void set_visible(bool visible) override;
    void repaint() override;
    void run_script(std::uint64_t id, const std::string& script) override;
    void delete_cookies(const std::string& url) override;

private:
    using work = std::function<void(live_display&)>;

    void post(work todo);
    void look_for_page();
    void see();
    void carry_out(live_state::action what);
    void tell_silence(bool is_silent);
    void release_picture();
    void tell_status();
    void load_now(const std::string& url);
    void reopen();
    void renew(const std::string& url);
    void probe();
    void run_now(std::uint64_t id, const std::string& script);
    void GetSize(long& width, long& height) const override;
    void BrowserPainted(const void* pixels, long width, long height, bool isPopup) override;
    void PageLoadFailed(const zString& url, const zString& error) override;
    void PageLoaded(const zString& url) override;
    void JavascriptCallback(const zString& name, const zString& argument, zString& result) override;

    const std::shared_ptr<zMessageLoop> m_loop;
    // What is posted finds the display through this, which is emptied when the display closes.
    const std::shared_ptr<live_display*> m_self;
    live_pictures& m_pictures;
    live_control* m_control = nullptr;
    cWebDisplayBrowser* m_browser;
    const run::monotonic_clock& m_clock;
    live_state m_state;
    bool m_is_visible = true;
    bool m_has_page = false;
    bool m_is_silent = false;
    bool m_was_holding = false;
    std::uint64_t m_dropped_calls = 0;
    std::uint64_t m_loads = 0;
    run::monotonic_clock::time m_looked{};
};

}  // namespace pennywort::host
