// request_filter.cpp - see the header for the contract.
#include "webdisplay/request_filter.h"

#include <string>

#include "webdisplay/cef/text.h"
#include "webdisplay/message_pump.h"

namespace pennywort::webdisplay {

cef_return_value_t request_filter::OnBeforeResourceLoad(cef_request_t* request,
                                                        cef::ref<cef_callback_t> callback) {
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
