// live_browsers.h - the runtime's browsers of this process, which must all be gone before it ends.
#pragma once

#include "webdisplay/cef/ref.h"

namespace pennywort::webdisplay::live_browsers {

// Sees to it that so many more can arrive without memory; throws where there is none. UI thread.
void make_room(int more);
// A browser was asked for, and will arrive or fail. It arrives without memory: one that could not
// be noted would never be closed. UI thread.
void expect();
// One that was asked for will not come.
void expect_no_more();
// An expected one, or a popup, has arrived. UI thread.
void arrived(cef_browser_t* browser, bool is_popup);
// It has closed. UI thread.
void gone(cef_browser_t* browser);

// Those there and those on their way. Any thread.
int count();
// Asks all that are there to close, each once. UI thread.
void close_all();
// Whether any of them will still close when it is driven: where browsers do not go with their
// windows, one whose window the host has destroyed does not notice. UI thread.
bool any_can_close();
// Whether any lives in a window of the host, so that closing it takes events of that window. UI
// thread.
bool any_in_window();
// Gives up on those that did not close: the runtime must not end with references of ours. UI
// thread.
void forget_all();

}  // namespace pennywort::webdisplay::live_browsers
