// interfaces.cpp - fills the runtime's callback structs with calls of the C++ interfaces.
//
// An object passed to a callback comes with a reference that is ours to drop, hence the ref at
// the head of each.
#include "webdisplay/cef/interfaces.h"

#include "webdisplay/cef/runtime.h"
#include "webdisplay/cef/text.h"

namespace pennywort::cef {

CefBaseRefCounted::~CefBaseRefCounted() = default;

// --- CefApp

CefApp::CefApp() {
    m_struct->on_before_command_line_processing = [](cef_app_t* self,
                                                     const cef_string_t* process_type,
                                                     cef_command_line_t* line) {
        const ref<cef_command_line_t> held(line);
        guarded("CefApp", [&] {
            decltype(m_struct)::of(self)->OnBeforeCommandLineProcessing(utf8(process_type), line);
        });
    };
    m_struct->get_browser_process_handler = [](cef_app_t* self) {
        auto* handler = decltype(m_struct)::of(self)->GetBrowserProcessHandler();
        return handler != nullptr ? handler->counted_handler() : nullptr;
    };
    m_struct->get_render_process_handler = [](cef_app_t* self) {
        auto* handler = decltype(m_struct)::of(self)->GetRenderProcessHandler();
        return handler != nullptr ? handler->counted_handler() : nullptr;
    };
}

void CefApp::OnBeforeCommandLineProcessing(const std::string&, cef_command_line_t*) {}
CefBrowserProcessHandler* CefApp::GetBrowserProcessHandler() { return nullptr; }
CefRenderProcessHandler* CefApp::GetRenderProcessHandler() { return nullptr; }

// --- process handlers and functions for pages

CefBrowserProcessHandler::CefBrowserProcessHandler() {
    m_struct->on_before_child_process_launch = [](cef_browser_process_handler_t* self,
                                                  cef_command_line_t* line) {
        const ref<cef_command_line_t> held(line);
        guarded("CefBrowserProcessHandler",
                [&] { decltype(m_struct)::of(self)->OnBeforeChildProcessLaunch(line); });
    };
    m_struct->on_schedule_message_pump_work = [](cef_browser_process_handler_t* self,
                                                 std::int64_t delay_ms) {
        guarded("CefBrowserProcessHandler",
                [&] { decltype(m_struct)::of(self)->OnScheduleMessagePumpWork(delay_ms); });
    };
}

CefRenderProcessHandler::CefRenderProcessHandler() {
    m_struct->on_browser_created = [](cef_render_process_handler_t* self, cef_browser_t* browser,
                                      cef_dictionary_value_t* extra_info) {
        const ref<cef_browser_t> held_browser(browser);
        const ref<cef_dictionary_value_t> held_info(extra_info);
        guarded("CefRenderProcessHandler",
                [&] { decltype(m_struct)::of(self)->OnBrowserCreated(browser, extra_info); });
    };
    m_struct->on_browser_destroyed = [](cef_render_process_handler_t* self,
                                        cef_browser_t* browser) {
        const ref<cef_browser_t> held(browser);
        guarded("CefRenderProcessHandler",
                [&] { decltype(m_struct)::of(self)->OnBrowserDestroyed(browser); });
    };
    m_struct->on_process_message_received = [](cef_render_process_handler_t* self,
                                               cef_browser_t* browser, cef_frame_t* frame,
                                               cef_process_id_t, cef_process_message_t* message) {
        const ref<cef_browser_t> held_browser(browser);
        const ref<cef_frame_t> held_frame(frame);
        const ref<cef_process_message_t> held_message(message);
        return guarded(0, "CefRenderProcessHandler", [&] {
            return decltype(m_struct)::of(self)->OnProcessMessageReceived(frame, message) ? 1 : 0;
        });
    };
    m_struct->on_context_created = [](cef_render_process_handler_t* self, cef_browser_t* browser,
                                      cef_frame_t* frame, cef_v8_context_t* context) {
        const ref<cef_browser_t> held_browser(browser);
        const ref<cef_frame_t> held_frame(frame);
        const ref<cef_v8_context_t> held_context(context);
        guarded("CefRenderProcessHandler",
                [&] { decltype(m_struct)::of(self)->OnContextCreated(browser, frame, context); });
    };
}

void CefRenderProcessHandler::OnBrowserCreated(cef_browser_t*, cef_dictionary_value_t*) {}
void CefRenderProcessHandler::OnBrowserDestroyed(cef_browser_t*) {}
void CefRenderProcessHandler::OnContextCreated(cef_browser_t*, cef_frame_t*, cef_v8_context_t*) {}
bool CefRenderProcessHandler::OnProcessMessageReceived(cef_frame_t*, cef_process_message_t*) {
    return false;
}

namespace {

// A page's arguments, each of which comes with a reference. Without memory of its own: none may be
// left to a page that has used all of it, and no exception may pass through the runtime's frames.
class page_arguments {
public:
    page_arguments(cef_v8_value_t* const* values, std::size_t count) : m_values(values, count) {}
    page_arguments(const page_arguments&) = delete;
    page_arguments& operator=(const page_arguments&) = delete;
    ~page_arguments() {
        for (cef_v8_value_t* value : m_values) drop_reference(value);
    }
    std::span<cef_v8_value_t* const> all() const { return m_values; }

private:
    const std::span<cef_v8_value_t* const> m_values;
};

}  // namespace

CefV8Handler::CefV8Handler() {
    m_struct->execute = [](cef_v8_handler_t* self, const cef_string_t*, cef_v8_value_t* object,
                           std::size_t count, cef_v8_value_t* const* values, cef_v8_value_t**,
                           cef_string_t*) {
        const ref<cef_v8_value_t> held(object);
        const page_arguments arguments(values, count);
        guarded("CefV8Handler", [&] { decltype(m_struct)::of(self)->Execute(arguments.all()); });
        return 1;
    };
}

// --- CefClient and the handlers that it names

namespace {

// The struct that a handler of ours is handed out as; null where there is none.
template <class Handler, class Struct>
Struct* counted(Handler* handler, Struct* (Handler::*hand_out)() noexcept) {
    return handler != nullptr ? (handler->*hand_out)() : nullptr;
}

}  // namespace

CefClient::CefClient() {
    m_struct->get_audio_handler = [](cef_client_t* self) {
        return counted(decltype(m_struct)::of(self)->GetAudioHandler(),
                       &CefAudioHandler::counted_audio_handler);
    };
    m_struct->get_download_handler = [](cef_client_t* self) {
        return counted(decltype(m_struct)::of(self)->GetDownloadHandler(),
                       &CefDownloadHandler::counted_download_handler);
    };
    m_struct->get_drag_handler = [](cef_client_t* self) {
        return counted(decltype(m_struct)::of(self)->GetDragHandler(),
                       &CefDragHandler::counted_drag_handler);
    };
    m_struct->get_life_span_handler = [](cef_client_t* self) {
        return counted(decltype(m_struct)::of(self)->GetLifeSpanHandler(),
                       &CefLifeSpanHandler::counted_life_span_handler);
    };
    m_struct->get_load_handler = [](cef_client_t* self) {
        return counted(decltype(m_struct)::of(self)->GetLoadHandler(),
                       &CefLoadHandler::counted_load_handler);
    };
    m_struct->get_render_handler = [](cef_client_t* self) {
        return counted(decltype(m_struct)::of(self)->GetRenderHandler(),
                       &CefRenderHandler::counted_render_handler);
    };
    m_struct->get_request_handler = [](cef_client_t* self) {
        return counted(decltype(m_struct)::of(self)->GetRequestHandler(),
                       &CefRequestHandler::counted_request_handler);
    };
    take_messages();
}

void CefClient::take_messages() {
    m_struct->on_process_message_received = [](cef_client_t* self, cef_browser_t* browser,
                                               cef_frame_t* frame, cef_process_id_t,
                                               cef_process_message_t* message) {
        const ref<cef_browser_t> held_browser(browser);
        const ref<cef_frame_t> held_frame(frame);
        const ref<cef_process_message_t> held_message(message);
        return guarded(0, "CefClient", [&] {
            return decltype(m_struct)::of(self)->OnProcessMessageReceived(browser, frame, message)
                       ? 1
                       : 0;
        });
    };
}

CefAudioHandler* CefClient::GetAudioHandler() { return nullptr; }
CefDownloadHandler* CefClient::GetDownloadHandler() { return nullptr; }
CefDragHandler* CefClient::GetDragHandler() { return nullptr; }
CefLifeSpanHandler* CefClient::GetLifeSpanHandler() { return nullptr; }
CefLoadHandler* CefClient::GetLoadHandler() { return nullptr; }
CefRenderHandler* CefClient::GetRenderHandler() { return nullptr; }
CefRequestHandler* CefClient::GetRequestHandler() { return nullptr; }

CefAudioHandler::CefAudioHandler() {
    m_struct->get_audio_parameters = [](cef_audio_handler_t* self, cef_browser_t* browser,
                                        cef_audio_parameters_t* parameters) {
        const ref<cef_browser_t> held(browser);
        return guarded(0, "CefAudioHandler", [&] {
            return decltype(m_struct)::of(self)->GetAudioParameters(browser, *parameters) ? 1 : 0;
        });
    };
    m_struct->on_audio_stream_started = [](cef_audio_handler_t* self, cef_browser_t* browser,
                                           const cef_audio_parameters_t* parameters, int channels) {
        const ref<cef_browser_t> held(browser);
        guarded("CefAudioHandler", [&] {
            decltype(m_struct)::of(self)->OnAudioStreamStarted(browser, *parameters, channels);
        });
    };
    m_struct->on_audio_stream_packet = [](cef_audio_handler_t* self, cef_browser_t* browser,
                                          const float** samples, int frames,
                                          std::int64_t milliseconds) {
        const ref<cef_browser_t> held(browser);
        guarded("CefAudioHandler", [&] {
            decltype(m_struct)::of(self)->OnAudioStreamPacket(browser, samples, frames,
                                                              milliseconds);
        });
    };
    m_struct->on_audio_stream_stopped = [](cef_audio_handler_t* self, cef_browser_t* browser) {
        const ref<cef_browser_t> held(browser);
        guarded("CefAudioHandler",
                [&] { decltype(m_struct)::of(self)->OnAudioStreamStopped(browser); });
    };
    m_struct->on_audio_stream_error = [](cef_audio_handler_t* self, cef_browser_t* browser,
                                         const cef_string_t*) {
        const ref<cef_browser_t> held(browser);
        guarded("CefAudioHandler",
                [&] { decltype(m_struct)::of(self)->OnAudioStreamStopped(browser); });
    };
}

CefRenderHandler::CefRenderHandler() {
    m_struct->get_view_rect = [](cef_render_handler_t* self, cef_browser_t* browser,
                                 cef_rect_t* rect) {
        const ref<cef_browser_t> held(browser);
        guarded("CefRenderHandler",
                [&] { decltype(m_struct)::of(self)->GetViewRect(browser, *rect); });
    };
    m_struct->get_screen_info = [](cef_render_handler_t* self, cef_browser_t* browser,
                                   cef_screen_info_t* info) {
        const ref<cef_browser_t> held(browser);
        return guarded(0, "CefRenderHandler", [&] {
            return decltype(m_struct)::of(self)->GetScreenInfo(browser, *info) ? 1 : 0;
        });
    };
    m_struct->on_popup_show = [](cef_render_handler_t* self, cef_browser_t* browser, int show) {
        const ref<cef_browser_t> held(browser);
        guarded("CefRenderHandler",
                [&] { decltype(m_struct)::of(self)->OnPopupShow(browser, show != 0); });
    };
    m_struct->on_popup_size = [](cef_render_handler_t* self, cef_browser_t* browser,
                                 const cef_rect_t* rect) {
        const ref<cef_browser_t> held(browser);
        guarded("CefRenderHandler",
                [&] { decltype(m_struct)::of(self)->OnPopupSize(browser, *rect); });
    };
    m_struct->on_paint = [](cef_render_handler_t* self, cef_browser_t* browser,
                            cef_paint_element_type_t type, std::size_t, const cef_rect_t*,
                            const void* buffer, int width, int height) {
        const ref<cef_browser_t> held(browser);
        guarded("CefRenderHandler", [&] {
            decltype(m_struct)::of(self)->OnPaint(browser, type, buffer, width, height);
        });
    };
}

bool CefRenderHandler::GetScreenInfo(cef_browser_t*, cef_screen_info_t&) { return false; }
void CefRenderHandler::OnPopupShow(cef_browser_t*, bool) {}
void CefRenderHandler::OnPopupSize(cef_browser_t*, const cef_rect_t&) {}

CefLifeSpanHandler::CefLifeSpanHandler() {
    m_struct->on_before_popup =
        [](cef_life_span_handler_t* self, cef_browser_t* browser, cef_frame_t* frame, int,
           const cef_string_t* target_url, const cef_string_t*, cef_window_open_disposition_t,
           int user_gesture, const cef_popup_features_t*, cef_window_info_t* window_info,
           cef_client_t** client, cef_browser_settings_t*, cef_dictionary_value_t** extra_info,
           int*) {
            const ref<cef_browser_t> held_browser(browser);
            const ref<cef_frame_t> held_frame(frame);
            // An argument in and out: the popup's client, which we leave as it is, comes counted
            // too.
            const ref<cef_client_t> held_client(client != nullptr ? *client : nullptr);
            return guarded(1, "CefLifeSpanHandler", [&] {
                auto* owner = decltype(m_struct)::of(self);
                ref<cef_dictionary_value_t> extra;
                const bool is_cancelled = owner->OnBeforePopup(
                    browser, utf8(target_url), user_gesture != 0, *window_info, extra);
                if (extra && extra_info != nullptr) *extra_info = extra.release();
                return is_cancelled ? 1 : 0;
            });
        };
    m_struct->on_after_created = [](cef_life_span_handler_t* self, cef_browser_t* browser) {
        const ref<cef_browser_t> held(browser);
        guarded("CefLifeSpanHandler",
                [&] { decltype(m_struct)::of(self)->OnAfterCreated(browser); });
    };
    m_struct->on_before_close = [](cef_life_span_handler_t* self, cef_browser_t* browser) {
        const ref<cef_browser_t> held(browser);
        guarded("CefLifeSpanHandler",
                [&] { decltype(m_struct)::of(self)->OnBeforeClose(browser); });
    };
}

CefLoadHandler::CefLoadHandler() {
    m_struct->on_loading_state_change = [](cef_load_handler_t* self, cef_browser_t* browser,
                                           int is_loading, int, int) {
        const ref<cef_browser_t> held(browser);
        guarded("CefLoadHandler", [&] {
            decltype(m_struct)::of(self)->OnLoadingStateChange(browser, is_loading != 0);
        });
    };
    m_struct->on_load_start = [](cef_load_handler_t* self, cef_browser_t* browser,
                                 cef_frame_t* frame, cef_transition_type_t) {
        const ref<cef_browser_t> held_browser(browser);
        const ref<cef_frame_t> held_frame(frame);
        guarded("CefLoadHandler",
                [&] { decltype(m_struct)::of(self)->OnLoadStart(browser, frame); });
    };
    m_struct->on_load_end = [](cef_load_handler_t* self, cef_browser_t* browser, cef_frame_t* frame,
                               int) {
        const ref<cef_browser_t> held_browser(browser);
        const ref<cef_frame_t> held_frame(frame);
        guarded("CefLoadHandler", [&] { decltype(m_struct)::of(self)->OnLoadEnd(browser, frame); });
    };
    m_struct->on_load_error = [](cef_load_handler_t* self, cef_browser_t* browser,
                                 cef_frame_t* frame, cef_errorcode_t error_code,
                                 const cef_string_t* error_text, const cef_string_t* failed_url) {
        const ref<cef_browser_t> held_browser(browser);
        const ref<cef_frame_t> held_frame(frame);
        guarded("CefLoadHandler", [&] {
            decltype(m_struct)::of(self)->OnLoadError(browser, frame, error_code, utf8(error_text),
                                                      utf8(failed_url));
        });
    };
}

CefRequestHandler::CefRequestHandler() {
    m_struct->get_resource_request_handler = [](cef_request_handler_t* self, cef_browser_t* browser,
                                                cef_frame_t* frame, cef_request_t* request, int,
                                                int, const cef_string_t*, int*) {
        const ref<cef_browser_t> held_browser(browser);
        const ref<cef_frame_t> held_frame(frame);
        const ref<cef_request_t> held_request(request);
        cef_resource_request_handler_t* counted = nullptr;
        guarded("CefRequestHandler", [&] {
            const auto handler = decltype(m_struct)::of(self)->GetResourceRequestHandler(frame);
            if (handler) counted = handler->counted_handler();
        });
        return counted;
    };
    m_struct->on_render_process_terminated = [](cef_request_handler_t* self, cef_browser_t* browser,
                                                cef_termination_status_t, int,
                                                const cef_string_t*) {
        const ref<cef_browser_t> held(browser);
        guarded("CefRequestHandler",
                [&] { decltype(m_struct)::of(self)->OnRenderProcessTerminated(browser); });
    };
}

CefResourceRequestHandler::CefResourceRequestHandler() {
    m_struct->on_before_resource_load = [](cef_resource_request_handler_t* self,
                                           cef_browser_t* browser, cef_frame_t* frame,
                                           cef_request_t* request, cef_callback_t* callback) {
        const ref<cef_browser_t> held_browser(browser);
        const ref<cef_frame_t> held_frame(frame);
        const ref<cef_request_t> held_request(request);
        ref<cef_callback_t> held_callback(callback);
        return guarded(RV_CANCEL, "CefResourceRequestHandler", [&] {
            return decltype(m_struct)::of(self)->OnBeforeResourceLoad(request,
                                                                      std::move(held_callback));
        });
    };
}

CefDragHandler::CefDragHandler() {
    m_struct->on_drag_enter = [](cef_drag_handler_t* self, cef_browser_t* browser,
                                 cef_drag_data_t* data, cef_drag_operations_mask_t) {
        const ref<cef_browser_t> held_browser(browser);
        const ref<cef_drag_data_t> held_data(data);
        return guarded(1, "CefDragHandler",
                       [&] { return decltype(m_struct)::of(self)->OnDragEnter(browser) ? 1 : 0; });
    };
}

CefDownloadHandler::CefDownloadHandler() {
    m_struct->can_download = [](cef_download_handler_t* self, cef_browser_t* browser,
                                const cef_string_t*, const cef_string_t*) {
        const ref<cef_browser_t> held(browser);
        return guarded(0, "CefDownloadHandler",
                       [&] { return decltype(m_struct)::of(self)->CanDownload(browser) ? 1 : 0; });
    };
}

CefDevToolsMessageObserver::CefDevToolsMessageObserver() {
    m_struct->on_dev_tools_message = [](cef_dev_tools_message_observer_t* self,
                                        cef_browser_t* browser, const void* text,
                                        std::size_t size) {
        const ref<cef_browser_t> held(browser);
        guarded("CefDevToolsMessageObserver", [&] {
            decltype(m_struct)::of(self)->OnDevToolsMessage({static_cast<const char*>(text), size});
        });
        return 1;
    };
}

// --- tasks

namespace {

class posted_work final : public CefBaseRefCounted {
public:
    explicit posted_work(std::function<void()> work) : m_work(std::move(work)) {
        m_struct->execute = [](cef_task_t* self) {
            guarded("CefTask", [&] {
                // Taken out, so that what it holds goes with the call and not with the last
                // reference.
                const std::function<void()> run = std::move(decltype(m_struct)::of(self)->m_work);
                if (run) run();
            });
        };
    }
    cef_task_t* counted_task() noexcept { return m_struct.counted(); }

private:
    std::function<void()> m_work;
    callback_struct<cef_task_t, posted_work> m_struct{this};
};

}  // namespace

bool post_to_ui(std::function<void()> work) {
    if (!running()) return false;
    const own<posted_work> task(new posted_work(std::move(work)));
    return api().cef_post_task(TID_UI, task->counted_task()) != 0;
}

}  // namespace pennywort::cef
