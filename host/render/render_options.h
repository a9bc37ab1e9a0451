// host/render/render_options.h - what one call of "pennywort render" is asked to do.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/app/browser_runtime.h"
#include "host/output/frame_rate.h"
#include "host/output/frame_writer.h"
#include "host/output/output_target.h"
#include "host/render/page_options.h"
#include "host/ws/page_feed.h"

namespace pennywort::host {

enum class page_clock {
    host,  // one tick of the page per output frame
    page,  // the page runs free, and each output frame takes the newest picture
    own,   // the page's time is its own: it moves by one output frame, however long that takes
};

struct render_options {
    // Frames of an output that goes on until it is stopped. Small enough to be added to.
    static constexpr std::uint64_t k_endless = std::uint64_t(1) << 62;

    std::vector<std::string> urls;
    page_settings page;
    // Of the pages; the picture is larger by their scale.
    long page_width = 0;
    long page_height = 0;
    frame_format format;
    std::uint64_t frames_per_page = 0;
    std::uint64_t first_frame = 0;  // of an exact page; those before it are in no output
    std::string css;                // style sheet text
    std::string script;             // JavaScript text
    std::string script_name;        // of its file, for messages
    std::string wait_for;           // JavaScript expression
    feed_options feed;
    std::chrono::milliseconds timeout{30'000};
    output_target output;
    std::optional<output_target> key;
    page_clock clock = page_clock::host;
    bool is_fast_forward = false;  // up to `first_frame`: almost nothing is drawn
    pump_pacing pacing = pump_pacing::on_request;
    bool is_muted = false;
    bool gpu = false;
    bool json = false;
    bool verbose = false;
    bool is_quiet = false;       // no progress, and no line of what came out
    bool is_strict = false;      // what pages say of their faults is an exit status
    bool hears_browser = false;  // the browser's own lines, which are for its makers
};

}  // namespace pennywort::host
