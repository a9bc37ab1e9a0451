// host/system/browser_language_win.cpp - Windows half of host/system/browser_language.h. Linux
// half: host/system/browser_language_linux.cpp.
#include "host/system/browser_language.h"

namespace pennywort::host {

// The runtime takes it from its switch here.
void choose_browser_language(const std::string&) {}

}  // namespace pennywort::host
