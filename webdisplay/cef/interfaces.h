// interfaces.h - the runtime's callback interfaces as C++ classes, as far as we serve them.
//
// Arguments are borrowed for the call. Unless a callback says otherwise it comes on the UI thread,
// which is the display thread. What is not overridden keeps the runtime's default behaviour.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "webdisplay/cef/counted.h"

namespace pennywort::cef {

class CefAudioHandler;
class CefBrowserProcessHandler;
class CefRenderProcessHandler;
class CefDownloadHandler;
class CefDragHandler;
class CefLifeSpanHandler;
class CefLoadHandler;
class CefRenderHandler;
class CefRequestHandler;

class CefApp : public virtual CefBaseRefCounted {
public:
    CefApp();
    cef_app_t* counted_app() noexcept { return m_struct.counted(); }

    virtual void OnBeforeCommandLineProcessing(const std::string& process_type,
                                               cef_command_line_t* command_line);
    // Null for none. Both may be asked on any thread.
    virtual CefBrowserProcessHandler* GetBrowserProcessHandler();
    virtual CefRenderProcessHandler* GetRenderProcessHandler();

private:
    callback_struct<cef_app_t, CefApp> m_struct{this};
};

class CefBrowserProcessHandler : public virtual CefBaseRefCounted {
public:
    CefBrowserProcessHandler();
    cef_browser_process_handler_t* counted_handler() noexcept { return m_struct.counted(); }

    // A helper process is about to be started with this command line. UI thread, or the runtime's
    // thread that launches processes.
    virtual void OnBeforeChildProcessLaunch(cef_command_line_t* command_line) = 0;
    // The runtime wants a step of its message loop in so many milliseconds. Any thread.
    virtual void OnScheduleMessagePumpWork(std::int64_t delay_ms) = 0;

private:
    callback_struct<cef_browser_process_handler_t, CefBrowserProcessHandler> m_struct{this};
};

// Called in the renderer process only, on its main thread.
class CefRenderProcessHandler : public virtual CefBaseRefCounted {
public:
    CefRenderProcessHandler();
    cef_render_process_handler_t* counted_handler() noexcept { return m_struct.counted(); }

    // What the browser was made with; null for nothing. Also when a page of another site brings the
    // browser to this process, and always before a context is created.
    virtual void OnBrowserCreated(cef_browser_t* browser, cef_dictionary_value_t* extra_info);
    // The browser has left this process; for each time that it came.
    virtual void OnBrowserDestroyed(cef_browser_t* browser);
    virtual void OnContextCreated(cef_browser_t* browser, cef_frame_t* frame,
                                  cef_v8_context_t* context);
    virtual bool OnProcessMessageReceived(cef_frame_t* frame, cef_process_message_t* message);

private:
    callback_struct<cef_render_process_handler_t, CefRenderProcessHandler> m_struct{this};
};

// A function that a page can call.
class CefV8Handler : public virtual CefBaseRefCounted {
public:
    CefV8Handler();
    cef_v8_handler_t* counted_handler() noexcept { return m_struct.counted(); }

    virtual void Execute(std::span<cef_v8_value_t* const> arguments) = 0;

private:
    callback_struct<cef_v8_handler_t, CefV8Handler> m_struct{this};
};

class CefRenderHandler : public virtual CefBaseRefCounted {
public:
    CefRenderHandler();
    cef_render_handler_t* counted_render_handler() noexcept { return m_struct.counted(); }

    virtual void GetViewRect(cef_browser_t* browser, cef_rect_t& rect) = 0;
    // False leaves the runtime's own, with one pixel of the screen to one of the page.
    virtual bool GetScreenInfo(cef_browser_t* browser, cef_screen_info_t& info);
    // A popup widget, such as a select list, opens or closes; and where it stands on the page.
    virtual void OnPopupShow(cef_browser_t* browser, bool is_shown);
    virtual void OnPopupSize(cef_browser_t* browser, const cef_rect_t& rect);
    virtual void OnPaint(cef_browser_t* browser, cef_paint_element_type_t type, const void* buffer,
                         int width, int height) = 0;

private:
    callback_struct<cef_render_handler_t, CefRenderHandler> m_struct{this};
};

class CefLifeSpanHandler : public virtual CefBaseRefCounted {
public:
    CefLifeSpanHandler();
    cef_life_span_handler_t* counted_life_span_handler() noexcept { return m_struct.counted(); }

    // True cancels the popup. `extra_info` is what its helper process is told, empty so far.
    virtual bool OnBeforePopup(cef_browser_t* browser, const std::string& target_url,
                               bool user_gesture, cef_window_info_t& window_info,
                               ref<cef_dictionary_value_t>& extra_info) = 0;
    virtual void OnAfterCreated(cef_browser_t* browser) = 0;
    virtual void OnBeforeClose(cef_browser_t* browser) = 0;

private:
    callback_struct<cef_life_span_handler_t, CefLifeSpanHandler> m_struct{this};
};

class CefLoadHandler : public virtual CefBaseRefCounted {
public:
    CefLoadHandler();
    cef_load_handler_t* counted_load_handler() noexcept { return m_struct.counted(); }

    virtual void OnLoadingStateChange(cef_browser_t* browser, bool is_loading) = 0;
    virtual void OnLoadStart(cef_browser_t* browser, cef_frame_t* frame) = 0;
    virtual void OnLoadEnd(cef_browser_t* browser, cef_frame_t* frame) = 0;
    virtual void OnLoadError(cef_browser_t* browser, cef_frame_t* frame, int error_code,
                             const std::string& error_text, const std::string& failed_url) = 0;

private:
    callback_struct<cef_load_handler_t, CefLoadHandler> m_struct{this};
};

class CefResourceRequestHandler : public virtual CefBaseRefCounted {
public:
    CefResourceRequestHandler();
    cef_resource_request_handler_t* counted_handler() noexcept { return m_struct.counted(); }

    // On the runtime's IO thread. With RV_CONTINUE_ASYNC `callback` is told later.
    virtual cef_return_value_t OnBeforeResourceLoad(cef_request_t* request,
                                                    ref<cef_callback_t> callback) = 0;

private:
    callback_struct<cef_resource_request_handler_t, CefResourceRequestHandler> m_struct{this};
};

class CefRequestHandler : public virtual CefBaseRefCounted {
public:
    CefRequestHandler();
    cef_request_handler_t* counted_request_handler() noexcept { return m_struct.counted(); }

    // On the runtime's IO thread; `frame` may be null. The result's reference goes to the runtime;
    // empty lets the request pass.
    virtual own<CefResourceRequestHandler> GetResourceRequestHandler(cef_frame_t* frame) = 0;
    // The page's process has gone, and the page with it. UI thread.
    virtual void OnRenderProcessTerminated(cef_browser_t* browser) = 0;

private:
    callback_struct<cef_request_handler_t, CefRequestHandler> m_struct{this};
};

class CefDragHandler : public virtual CefBaseRefCounted {
public:
    CefDragHandler();
    cef_drag_handler_t* counted_drag_handler() noexcept { return m_struct.counted(); }

    // True refuses the drag.
    virtual bool OnDragEnter(cef_browser_t* browser) = 0;

private:
    callback_struct<cef_drag_handler_t, CefDragHandler> m_struct{this};
};

class CefDownloadHandler : public virtual CefBaseRefCounted {
public:
    CefDownloadHandler();
    cef_download_handler_t* counted_download_handler() noexcept { return m_struct.counted(); }

    // False refuses the download.
    virtual bool CanDownload(cef_browser_t* browser) = 0;

private:
    callback_struct<cef_download_handler_t, CefDownloadHandler> m_struct{this};
};

// Where a browser has one, its page is not heard through the machine.
class CefAudioHandler : public virtual CefBaseRefCounted {
public:
    CefAudioHandler();
    cef_audio_handler_t* counted_audio_handler() noexcept { return m_struct.counted(); }

    // What the sound is to be like; false declines it. UI thread.
    virtual bool GetAudioParameters(cef_browser_t* browser, cef_audio_parameters_t& parameters) = 0;
    // Both on a thread of the runtime's own. `samples` has a pointer for each channel.
    virtual void OnAudioStreamStarted(cef_browser_t* browser,
                                      const cef_audio_parameters_t& parameters, int channels) = 0;
    virtual void OnAudioStreamPacket(cef_browser_t* browser, const float* const* samples,
                                     int frames, std::int64_t milliseconds) = 0;
    // Also after an error. UI thread, or that of the packets.
    virtual void OnAudioStreamStopped(cef_browser_t* browser) = 0;

private:
    callback_struct<cef_audio_handler_t, CefAudioHandler> m_struct{this};
};

// Hears what the inspector of a page sends. UI thread.
class CefDevToolsMessageObserver : public virtual CefBaseRefCounted {
public:
    CefDevToolsMessageObserver();
    cef_dev_tools_message_observer_t* counted_observer() noexcept { return m_struct.counted(); }

    // One message of the protocol, in UTF-8 JSON: an answer or an event.
    virtual void OnDevToolsMessage(std::string_view message) = 0;

private:
    callback_struct<cef_dev_tools_message_observer_t, CefDevToolsMessageObserver> m_struct{this};
};

class CefClient : public virtual CefBaseRefCounted {
public:
    CefClient();
    cef_client_t* counted_client() noexcept { return m_struct.counted(); }

    virtual CefAudioHandler* GetAudioHandler();
    virtual CefDownloadHandler* GetDownloadHandler();
    virtual CefDragHandler* GetDragHandler();
    virtual CefLifeSpanHandler* GetLifeSpanHandler();
    virtual CefLoadHandler* GetLoadHandler();
    virtual CefRenderHandler* GetRenderHandler();
    virtual CefRequestHandler* GetRequestHandler();
    // True when the message was consumed.
    virtual bool OnProcessMessageReceived(cef_browser_t* browser, cef_frame_t* frame,
                                          cef_process_message_t* message) = 0;

private:
    void take_messages();

    callback_struct<cef_client_t, CefClient> m_struct{this};
};

// Runs `work` on the UI thread, later. False, with `work` dropped, when the runtime cannot.
bool post_to_ui(std::function<void()> work);

}  // namespace pennywort::cef
