// host/app/browser_runtime.h - the browser runtime of the program, from its start to its end.
#pragma once

#include <string>

namespace pennywort::host {

// What makes the runtime work: its own requests, or a timer.
enum class pump_pacing { on_request, timer };

// What the pages' time goes by.
enum class page_time { the_days, ticks_of_ours, its_own };

// Once in a process. The thread that makes it becomes the display thread.
class browser_runtime {
public:
    browser_runtime(pump_pacing pacing, bool gpu, page_time time = page_time::the_days);
    ~browser_runtime();
    browser_runtime(const browser_runtime&) = delete;
    browser_runtime& operator=(const browser_runtime&) = delete;

    bool up() const { return m_is_up; }
    // Why it is not up, in one line.
    static std::string failure();

private:
    bool m_is_up = false;
};

}  // namespace pennywort::host
