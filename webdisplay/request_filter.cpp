// request_filter.cpp - see the header for the contract.
#include "webdisplay/request_filter.h"

#include <string>

#include "webdisplay/cef/text.h"
#include "webdisplay/message_pump.h"

namespace pennywort::webdisplay {

cef_return_value_t request_filter::OnBeforeResourceLoad(cef_request_t* request,
                                                        cef::ref<cef_callback_t> callback) {
    // Nobody sees it, and a fetch that is under way when the page's time is first moved lets that
    // pass by the timers that are due then.
    const bool is_icon = request->get_resource_type(request) == RT_FAVICON;
    if (is_icon && m_client->is_on_page_clock()) return RV_CANCEL;
    const std::string url = cef::utf8_of(request->get_url(request));
    const bool posted = cef::post_to_ui([client = m_client, url, callback] {
        const bool allowed = client->may_request(url);
        allowed ? callback->cont(callback.get()) : callback->cancel(callback.get());
    });
    if (!posted) return RV_CONTINUE;
    // The request waits for the answer; the display thread is not to wait for its next tick.
    message_pump::wake();
    return RV_CONTINUE_ASYNC;
}

}  // namespace pennywort::webdisplay
