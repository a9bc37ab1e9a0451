// popup_windows.h - the windows that a display's page has opened by script.
#pragma once

#include <cstdint>
#include <vector>

#include "webdisplay/cef/ref.h"

namespace pennywort::webdisplay {

// UI thread.
class popup_windows {
public:
    // Whether there are `most` of them; 0 is no bound.
    bool is_full(std::int32_t most) const;
    // Sees to it that one more can arrive without memory; throws where there is none.
    void make_room();
    void opened(cef_browser_t* browser);
    void closed(cef_browser_t* browser);
    // They close behind the callback that we stand in.
    void close_all();

private:
    std::vector<cef::ref<cef_browser_t>> m_windows;
};

}  // namespace pennywort::webdisplay
