// display_engine.h - the browser of one display: how it is opened, closed and given its pages.
#pragma once

#include <functional>
#include <memory>

#include "webdisplay/webdisplay_browser_client.h"

namespace pennywort::webdisplay {

// Belongs to its display, whose state lock guards the holder of the browser.
class display_engine {
public:
    explicit display_engine(cWebDisplayCEFBrowser& display) : m_display(display) {}

    bool open();
    // On the UI thread.
    void create();
    void close();
    void load_next();
    bool is_loading() const;
    webdisplay_cef_state state() const;
    void browser_destroyed();

private:
    using client_ref = cef::own<webdisplay_browser_client>;

    std::shared_ptr<cWebDisplayCEFBrowser> another_reference();
    static bool can_have_page_clock();
    void part_from_gone();
    client_ref make_client(const std::string& start_url);
    bool start_browser(webdisplay_browser_client& client, const std::string& url);
    bool begins_empty() const;
    close_step begin_closing(webdisplay_cef_state& state);
    void part_from(const client_ref& client);
    void wait_until_closed(const webdisplay_cef_state& state, bool is_asked);
    bool load(webdisplay_browser_client& client, cef_frame_t& frame, const std::string& url);
    void load_next_on_ui_thread();
    bool is_loading(const webdisplay_cef_state& state) const;

    cWebDisplayCEFBrowser& m_display;
    bool m_is_open_wanted = false;  // between open and close; under the state lock
};

}  // namespace pennywort::webdisplay
