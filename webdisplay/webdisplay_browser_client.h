// webdisplay_browser_client.h - what the runtime calls of one display, and the bridge to its page.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "loam/atomic.h"
#include "webdisplay.h"
#include "webdisplay/cef/interfaces.h"
#include "webdisplay/page_calls.h"

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
    webdisplay_browser_client(cWebDisplayCEFBrowser* owner, std::string start_url);

    // From now on the runtime's callbacks count.
    void set_alive();
    // Calls of the page that were dropped, where the number of those that wait is bounded.
    std::uint64_t dropped_calls() const { return m_dropped_calls; }
    // Forgets the owner; waits for a callback in progress on another thread. Any thread.
    void detach();
    // Closes the windows that the page opened. UI thread.
    void close_popups();
    // Whether the owner lets the main frame fetch `url`. UI thread.
    bool may_request(const std::string& url);
    // Whether the page's process went since a page was last asked for. Such a page finishes no
    // load, though the runtime may go on calling it loading. Any thread.
    bool has_lost_its_page() const { return m_page_lost; }
    // The host's, taken from the queue; on the UI thread.
    void page_asked_for(const std::string& url) {
        m_on_its_way = url;
        m_page_lost = false;
    }

    static bool focused_element_is_editable();

    cef::CefDownloadHandler* GetDownloadHandler() override { return this; }
    cef::CefDragHandler* GetDragHandler() override { return this; }
    cef::CefLifeSpanHandler* GetLifeSpanHandler() override { return this; }
    cef::CefLoadHandler* GetLoadHandler() override { return this; }
    cef::CefRenderHandler* GetRenderHandler() override { return this; }
    cef::CefRequestHandler* GetRequestHandler() override { return this; }
    bool OnProcessMessageReceived(cef_browser_t* browser, cef_frame_t* frame,
                                  cef_process_message_t* message) override;

    void GetViewRect(cef_browser_t* browser, cef_rect_t& rect) override;
    void OnPaint(cef_browser_t* browser, cef_paint_element_type_t type, const void* buffer,
                 int width, int height) override;

    bool OnBeforePopup(cef_browser_t* browser, const std::string& target_url, bool user_gesture,
                       cef_window_info_t& window_info) override;
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

    bool is_alive() const { return m_alive.Get() == 1; }
    void popup_created(cef_browser_t* browser);
    void popup_closed(cef_browser_t* browser);
    std::string take_over_browser(cWebDisplayCEFBrowser& owner, cef_browser_t* browser,
                                  bool& load_pending);
    void inject_scripts(cef_frame_t* frame, const std::string& css, bool host_clock);
    bool has_failed(cef_frame_t* frame) const;
    void forget_load_soon();
    void page_lost(const std::string& url, const std::string& on_its_way);
    bool take_tick_report(const std::string& command, const std::string& argument);
    void dispatch(cef_browser_t* browser, const std::string& command, const std::string& argument);
    bool note_dropped_calls(cef_process_message_t* message);
    void tell_handled(cef_frame_t* frame);
    void deliver_result(const std::string& command, const std::string& result);
    void run_page_command(cef_browser_t* browser, const std::string& command,
                          const std::string& argument);

    page_calls m_page_calls;
    std::atomic<std::uint64_t> m_dropped_calls{0};
    zAtomic m_alive;
    cWebDisplayCEFBrowser* m_owner;
    std::recursive_mutex m_owner_lock;
    const std::string m_start_url;
    std::atomic<bool> m_page_lost{false};
    std::vector<cef::ref<cef_browser_t>> m_popups;  // UI thread
    std::string m_failed_url;  // of the main frame's last failed load; UI thread
    std::string m_on_its_way;  // what the host asked for and has not begun yet; UI thread
};

}  // namespace pennywort::webdisplay
