// request_filter.h - the host's say in what a page may fetch.
#pragma once

#include <utility>

#include "webdisplay/cef/interfaces.h"
#include "webdisplay/webdisplay_browser_client.h"

namespace pennywort::webdisplay {

// Puts the runtime's question about a request, asked on its IO thread, to the host on the display
// thread, where all of the host's receivers are called.
class request_filter final : public cef::CefResourceRequestHandler {
public:
    explicit request_filter(cef::own<webdisplay_browser_client> client)
        : m_client(std::move(client)) {}

    cef_return_value_t OnBeforeResourceLoad(cef_request_t* request,
                                            cef::ref<cef_callback_t> callback) override;

private:
    const cef::own<webdisplay_browser_client> m_client;
};

}  // namespace pennywort::webdisplay
