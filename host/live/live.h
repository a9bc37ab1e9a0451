// host/live/live.h - "pennywort live": shows pages, and a control page of them on the machine's own
// address.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/system/console.h"
#include "host/ws/page_feed.h"

namespace pennywort::host {

struct live_options {
    std::vector<std::string> urls;  // the first is shown, the others wait for their turn
    long width = 1280;
    long height = 720;
    double frames_per_second = 50;
    std::int32_t port = 8080;  // 0: one that the system chooses
    std::string listen = "127.0.0.1";
    bool is_transparent = false;
    bool is_muted = false;
    bool uses_gpu = false;
    bool is_verbose = false;
    feed_options feed;
    bool is_advertised = true;  // by DNS-SD, where others can reach the page
};

// Runs until Ctrl-C, on the calling thread, which becomes the display thread. Returns the exit
// status; what went wrong has been told in one line on the console by then. Once in a process.
int live(const live_options& options, const console& out);

}  // namespace pennywort::host
