// bench_host.h - what the benchmark hosts share: the runtime's start, its displays and a loop.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bench/arguments.h"
#include "bench/frame_meter.h"
#include "webdisplay.h"

namespace pennywort::bench {

enum class loop_kind {
    library,  // zMessageLoop
    system,   // the toolkit's own; see system_loop.h
};

struct host_options {
    std::string url;
    int width = 1280;
    int height = 720;
    int fps = 60;
    int displays = 1;
    double seconds = 5;
    bool host_clock = false;
    cWebDisplayPacing pacing = cWebDisplayPacing::OnRequest;
    loop_kind loop = loop_kind::library;

    // Ends the program with `usage` and status 2 on a value that is none.
    static host_options from(const arguments& given, const char* usage);
    const char* pacing_name() const;
};

// A display with its meter, closed in the destructor. Display thread.
class metered_display {
public:
    explicit metered_display(const host_options& options);
    metered_display(const metered_display&) = delete;
    metered_display& operator=(const metered_display&) = delete;
    ~metered_display();

    bool opened() const { return m_opened; }
    frame_meter& meter() { return m_meter; }
    cWebDisplayBrowser& browser() { return *m_browser; }

private:
    frame_meter m_meter;
    cWebDisplayBrowser* m_browser;
    bool m_opened = false;
};

using display_list = std::vector<std::unique_ptr<metered_display>>;

// Starts the runtime with the switches that a machine without display and GPU needs, the same as
// the yardstick's. Says on standard error why not, if it is false.
bool start_runtime(cWebDisplayPacing pacing);
// All of them; empty, with a line on standard error, when one does not open.
display_list open_displays(const host_options& options);
void run_loop(loop_kind loop, double seconds);
// How long displays are left alone before they are measured: pages load, caches fill.
double warm_up_s(int displays);

}  // namespace pennywort::bench
