// host/system/browser_language.h - the language of what a browser itself says in pages: the words
// of form fields and messages. The system's half is browser_language_linux.cpp or
// browser_language_win.cpp.
#pragma once

#include <string>

namespace pennywort::host {

// From now on, for browsers of this process. Before it has other threads, which may read the
// environment meanwhile. `locale` is one such as "de-CH".
void choose_browser_language(const std::string& locale);

}  // namespace pennywort::host
