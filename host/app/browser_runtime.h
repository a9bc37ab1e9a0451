// host/app/browser_runtime.h - the browser runtime of the program, from its start to its end.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host/system/picture_memory.h"

namespace pennywort::host {

// What makes the runtime work: its own requests, or a timer.
enum class pump_pacing { on_request, timer };

// What the pages' time goes by.
enum class page_time { the_days, ticks_of_ours, its_own };

struct runtime_wishes {
    // Where Math.random of each page by its own clock begins.
    std::uint32_t seed = 1;
    // Of the browser's command line, each with its value or an empty one.
    std::vector<std::pair<std::string, std::string>> switches;
};

// Once in a process. The thread that makes it becomes the display thread.
class browser_runtime {
public:
    browser_runtime(pump_pacing pacing, bool gpu, page_time time = page_time::the_days,
                    const runtime_wishes& wishes = {});
    ~browser_runtime();
    browser_runtime(const browser_runtime&) = delete;
    browser_runtime& operator=(const browser_runtime&) = delete;

    bool up() const { return m_is_up; }
    // Why it is not up, in one line.
    const std::string& failure() const { return m_failure; }
    const picture_memory& pictures() const { return m_pictures; }

private:
    picture_memory m_pictures;
    std::string m_failure;
    bool m_is_up = false;
};

}  // namespace pennywort::host
