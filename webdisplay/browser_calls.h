// browser_calls.h - what takes more than one call of the runtime, of a browser. UI thread.
#pragma once

#include <string_view>

#include "webdisplay/cef/ref.h"

namespace pennywort::webdisplay {

// Of a window that a page has opened; it shares the page's client.
bool is_popup(cef_browser_t* browser);

// Does nothing without a frame.
void execute(cef_frame_t* frame, std::string_view script);
void execute_on_page(cef_browser_t* browser, std::string_view script);

// Later, since a page without handlers of its own is destroyed within the call, and the callback
// that we stand in goes on using it.
void close_soon(cef_browser_t* browser);

void mute(cef_browser_t* browser);
// The runtime has a rule of its own for the sound of sites, which opens the sound of a page when it
// is shown: beside the call that is told of it, before or after that.
void keep_muted(cef_browser_t* browser);

// The status that the server has sent the page with that the main frame shows; 0 without a server.
int sent_status(cef_browser_t* browser);

}  // namespace pennywort::webdisplay
