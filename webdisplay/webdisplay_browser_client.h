// webdisplay_browser_client.h - what the runtime calls of one display, and the bridge to its page.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "loam/atomic.h"
#include "loam/returned_mutex.h"
#include "webdisplay.h"
#include "webdisplay/browser_life.h"
#include "webdisplay/cef/interfaces.h"
#include "webdisplay/inspector_line.h"
#include "webdisplay/page_calls.h"
#include "webdisplay/page_driver.h"
#include "webdisplay/page_sound.h"
#include "webdisplay/popup_widget.h"
#include "webdisplay/popup_windows.h"
#include "webdisplay/unseen_frame.h"

namespace pennywort::webdisplay {

// What a display has of the runtime. Copied out under the display's state lock, so that an
// operation works on references of its own.
struct webdisplay_cef_state {
    cef::ref<cef_browser_t> browser;  // empty until the runtime has made it
    cef::own<webdisplay_browser_client> client;
};

// Made by a display for its browser and handed to the runtime, which may hold it, and call it,
// longer than the display lives: `detach` cuts the two apart, and from then on every callback is
// harmless.
//
// Locks: the owner lock is held over each use of the owner; the display's state lock comes inside
// it.
class webdisplay_browser_client final : public cef::CefClient,
                                        public cef::CefRenderHandler,
                                        public cef::CefLifeSpanHandler,
                                        public cef::CefLoadHandler,
                                        public cef::CefRequestHandler,
                                        public cef::CefDragHandler,
                                        public cef::CefDownloadHandler {
public:
    // `ended` is set when the browser has gone.
    webdisplay_browser_client(cWebDisplayCEFBrowser* owner, std::string start_url,
                              std::shared_ptr<zSignal> ended);

    // The browser begins with an empty page, and is given the first of the queue when it may.
    void begin_empty();
    // From now on the runtime's callbacks count.
    void set_alive();
    // Forgets the owner; waits for a callback in progress on another thread. Any thread.
    void detach();
    // Closes the windows that the page opened. UI thread.
    void close_popups() { m_popups.close_all(); }
    // Whether the owner lets the main frame fetch `url`. UI thread.
    bool may_request(const std::string& url);
    // The host's URL is about to be given to the browser. UI thread.
    unsigned page_asked_for(const std::string& url);
    // Looks, when the runtime has had its turn, whether the browser took any notice of it. A URL
    // that it ignores would hold up the queue until the host asks for another. UI thread.
    void look_whether_ignored(unsigned ticket, int turns = 3);
    // Whether the browser may be given a page now. One that lives by its own clock may not be
    // before that stands; the owner's LoadNextUrl is called again then. UI thread.
    bool may_load();
    bool is_on_page_clock() const { return m_is_on_page_clock; }
    // See cWebDisplayBrowser::AdvancePage. UI thread.
    void advance_page(std::int64_t microseconds, page_timeline::receiver told);
    // See cWebDisplayBrowser::AskPage. UI thread.
    void ask_page(std::string expression, page_timeline::value_receiver told);
    // See cWebDisplayBrowser::CallInspector. UI thread.
    void call_inspector(const inspector_call& asked);
    // The life of the browser. Any thread.
    shared_life& life() { return m_life; }

    static bool focused_element_is_editable();
    // Whether the calling thread stands in a frame of any display.
    static bool is_painting();

    // Only where the host has asked for it; else the page is heard through the machine.
    cef::CefAudioHandler* GetAudioHandler() override { return m_sound.get(); }
    // Only where the host has asked for it; else downloads are the runtime's affair.
    cef::CefDownloadHandler* GetDownloadHandler() override {
        return m_refuses_downloads ? this : nullptr;
    }
    cef::CefDragHandler* GetDragHandler() override { return this; }
    cef::CefLifeSpanHandler* GetLifeSpanHandler() override { return this; }
    cef::CefLoadHandler* GetLoadHandler() override { return this; }
    cef::CefRenderHandler* GetRenderHandler() override { return this; }
    cef::CefRequestHandler* GetRequestHandler() override { return this; }
    bool OnProcessMessageReceived(cef_browser_t* browser, cef_frame_t* frame,
                                  cef_process_message_t* message) override;

    void GetViewRect(cef_browser_t* browser, cef_rect_t& rect) override;
    bool GetScreenInfo(cef_browser_t* browser, cef_screen_info_t& info) override;
    void OnPopupShow(cef_browser_t* browser, bool is_shown) override;
    void OnPopupSize(cef_browser_t* browser, const cef_rect_t& rect) override;
    void OnPaint(cef_browser_t* browser, cef_paint_element_type_t type, const void* buffer,
                 int width, int height) override;

    bool OnBeforePopup(cef_browser_t* browser, const std::string& target_url, bool user_gesture,
                       cef_window_info_t& window_info,
                       cef::ref<cef_dictionary_value_t>& extra_info) override;
    void OnAfterCreated(cef_browser_t* browser) override;
    void OnBeforeClose(cef_browser_t* browser) override;

    void OnLoadingStateChange(cef_browser_t* browser, bool is_loading) override;
    void OnLoadStart(cef_browser_t* browser, cef_frame_t* frame) override;
    void OnLoadEnd(cef_browser_t* browser, cef_frame_t* frame) override;
    void OnLoadError(cef_browser_t* browser, cef_frame_t* frame, int error_code,
                     const std::string& error_text, const std::string& failed_url) override;

    cef::own<cef::CefResourceRequestHandler> GetResourceRequestHandler(cef_frame_t* frame) override;
    void OnRenderProcessTerminated(cef_browser_t* browser) override;

    bool OnDragEnter(cef_browser_t* browser) override;
    bool CanDownload(cef_browser_t* browser) override;

private:
    class owner_use;

    void show_frame(cWebDisplayCEFBrowser& owner, const void* buffer, int width, int height);
    void take_widget(cef_browser_t* browser, const void* buffer, int width, int height);
    void widget_changed(cef_browser_t* browser);
    void take_page_frame(cWebDisplayCEFBrowser& owner, const void* buffer, int width, int height);
    bool show_unseen();
    double page_day() const;
    void make_driver();
    void make_line(cef_browser_t* browser);
    void drop_line();
    bool is_before_page() const {
        return m_waits_for_calls || (m_driver && m_driver->is_preparing());
    }
    void empty_page_loaded(cef_browser_t* browser);
    void send_first_calls();
    void first_call_answered();
    void page_stands();
    void page_stopped(const std::string& why);
    void note_fault(const std::string& why);
    void page_sounds(const page_samples& heard);
    void end_sound();

    bool is_alive() const { return m_alive.Get() == 1; }
    void popup_created(cef_browser_t* browser);
    bool take_over_browser(cWebDisplayCEFBrowser& owner, cef_browser_t* browser, std::string& url);
    unsigned start_asked_for();
    void load_first_page(cef_browser_t* browser, const std::string& pending);
    void report_end(cWebDisplayCEFBrowser& owner, cef_browser_t* browser, const std::string& url);
    void show_something(cWebDisplayCEFBrowser& owner);
    void report_if_ignored(unsigned ticket);
    void inject_scripts(cef_frame_t* frame, const std::string& css, bool is_on_host_clock);
    void forget_load_soon();
    void give_up_load(unsigned ticket);
    void report_given_up(cWebDisplayCEFBrowser& owner, const std::string& url);
    void page_lost(const std::string& url);
    bool holds_frame_back(cWebDisplayCEFBrowser& owner, const void* buffer, int width, int height);
    bool take_paint_report(cef_browser_t* browser, const std::string& command);
    void paint_background(cWebDisplayCEFBrowser& owner);
    bool take_tick_report(const std::string& command, const std::string& argument);
    void dispatch(cef_browser_t* browser, const std::string& command, const std::string& argument);
    bool note_dropped_calls(cef_process_message_t* message);
    void tell_handled(cef_frame_t* frame);
    void deliver_result(const std::string& command, const std::string& result);
    void run_page_command(cef_browser_t* browser, const std::string& command,
                          const std::string& argument);

    page_calls m_page_calls;
    zAtomic m_alive;
    cWebDisplayCEFBrowser* m_owner;
    loam::returned_recursive_mutex m_owner_lock;
    const std::string m_start_url;
    const bool m_refuses_downloads;
    const bool m_is_muted;
    const cef::own<page_sound> m_sound;   // null where nobody wants it
    bool m_has_refused_download = false;  // since a page was asked for last; UI thread
    shared_life m_life;
    // Outlives the display, for requests that come when it has gone.
    const std::shared_ptr<std::atomic<bool>> m_has_page_receiver;
    popup_windows m_popups;
    const bool m_is_on_page_clock;
    const double m_page_day;
    const std::string m_page_start;
    bool m_has_scripts = false;  // the page that is shown has those of the bridge; UI thread
    const double m_scale;
    const bool m_merges_widgets;
    popup_widget m_widget;  // UI thread
    // UI thread; only where the host wants one.
    cef::own<inspector_line> m_line;
    std::vector<inspector_call> m_first_calls;
    std::size_t m_open_first_calls = 0;
    bool m_keeps_calls = false;      // among those, until the empty page is there
    bool m_waits_for_calls = false;  // with the first page
    // Only of a page by its own clock; UI thread.
    cef::own<page_driver> m_driver;
    unseen_frame m_unseen;                          // before the first frame
    const std::shared_ptr<sound_port> m_own_sound;  // null where nobody wants it
    bool m_is_sounding = false;
};

}  // namespace pennywort::webdisplay
