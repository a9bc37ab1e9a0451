// browser_calls.cpp - see the header for the contract.
#include "webdisplay/browser_calls.h"

#include "webdisplay/cef/interfaces.h"
#include "webdisplay/cef/text.h"

namespace pennywort::webdisplay {

bool is_popup(cef_browser_t* browser) { return browser->is_popup(browser) != 0; }

void execute(cef_frame_t* frame, std::string_view script) {
    if (frame == nullptr) return;
    const cef::utf16 code(script);
    const cef::utf16 no_url("");
    frame->execute_java_script(frame, code.get(), no_url.get(), 0);
}

void execute_on_page(cef_browser_t* browser, std::string_view script) {
    const cef::ref<cef_frame_t> frame(browser->get_main_frame(browser));
    execute(frame.get(), script);
}

void close_soon(cef_browser_t* browser) {
    const cef::ref<cef_browser_host_t> host(browser->get_host(browser));
    if (host) cef::post_to_ui([host] { host->close_browser(host.get(), 1); });
}

void mute(cef_browser_t* browser) {
    const cef::ref<cef_browser_host_t> host(browser->get_host(browser));
    if (host) host->set_audio_muted(host.get(), 1);
}

void keep_muted(cef_browser_t* browser) {
    mute(browser);
    const cef::ref<cef_browser_host_t> host(browser->get_host(browser));
    if (host) cef::post_to_ui([host] { host->set_audio_muted(host.get(), 1); });
}

int sent_status(cef_browser_t* browser) {
    const cef::ref<cef_browser_host_t> host(browser->get_host(browser));
    if (!host) return 0;
    const cef::ref<cef_navigation_entry_t> entry(host->get_visible_navigation_entry(host.get()));
    return entry ? entry->get_http_status_code(entry.get()) : 0;
}

}  // namespace pennywort::webdisplay
