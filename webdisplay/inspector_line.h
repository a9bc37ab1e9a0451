// inspector_line.h - the host's own line to the inspector of one browser's page.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "webdisplay/cef/interfaces.h"
#include "webdisplay/inspector_calls.h"
#include "webdisplay/page_inspector.h"

namespace pennywort::webdisplay {

// Belongs to the display thread. The runtime holds it as the inspector's observer until `close`.
class inspector_line final : public cef::CefDevToolsMessageObserver {
public:
    // Hears an event: its method, and its parameters as JSON.
    using listener = std::function<void(const std::string& method, const std::string& parameters)>;

    explicit inspector_line(listener heard);

    void browser_arrived(cef_browser_t* browser);
    void call(const inspector_call& asked);
    // Nothing is heard any more, and calls that are out have come to nothing.
    void close();

    // Whether a text can be a call's parameters.
    static bool is_object(const std::string& parameters);

private:
    void OnDevToolsMessage(std::string_view message) override;

    listener m_heard;
    cef::ref<cef_browser_host_t> m_host;
    cef::ref<cef_registration_t> m_registration;
    page_inspector m_inspector;
};

}  // namespace pennywort::webdisplay
