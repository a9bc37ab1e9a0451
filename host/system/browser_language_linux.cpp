// host/system/browser_language_linux.cpp - Linux half of host/system/browser_language.h. Windows
// half: host/system/browser_language_win.cpp.
#include "host/system/browser_language.h"

#include <algorithm>
#include <cstdlib>

namespace pennywort::host {

// The runtime looks at nothing else here, its own switch included, and the library that chooses
// fonts for signs of several languages looks at the second.
void choose_browser_language(const std::string& locale) {
    std::string name = locale;
    std::replace(name.begin(), name.end(), '-', '_');
    for (const char* variable : {"LANGUAGE", "FC_LANG"}) ::setenv(variable, name.c_str(), 1);
}

}  // namespace pennywort::host
