// display_bench.cpp - shows a page with the library and prints what came of it as one line of JSON.
//
// The figures and their names are those of the yardstick, the runtime with nothing around it, so
// that the two can be set side by side.
#include <atomic>
#include <cstdio>
#include <thread>

#include "bench/bench_host.h"
#include "bench/process_usage.h"

namespace {

using namespace pennywort::bench;

constexpr char k_usage[] =
    "display_bench URL [--size WxH] [--fps N] [--displays N] [--seconds S] "
    "[--pacing timer|request] [--host-clock 0|1] [--loop library|system]";

// The mixer's clock: a thread that ticks every display at moments fixed in advance. A tick that
// comes late is not made up for, as with the yardstick.
class host_clock {
public:
    host_clock(const display_list& displays, int fps)
        : m_displays(displays),
          m_period(std::chrono::nanoseconds(1'000'000'000 / fps)),
          m_thread([this] { run(); }) {}
    host_clock(const host_clock&) = delete;
    host_clock& operator=(const host_clock&) = delete;
    ~host_clock() {
        m_ended = true;
        m_thread.join();
    }

private:
    void run() {
        auto next = steady::now();
        while (!m_ended) {
            std::this_thread::sleep_until(next);
            for (const auto& display : m_displays) display->browser().NextFrame();
            next = std::max(next + m_period, steady::now());
        }
    }

    const display_list& m_displays;
    const steady::duration m_period;
    std::atomic<bool> m_ended{false};
    std::thread m_thread;
};

struct result {
    double span_s = 0;
    double own_cpu_s = 0;
    long peak_mb = 0;
    long frames = 0;
    long fresh = 0;
    steady::time_point first_frame;
    std::vector<double> intervals_ms;
};

void count(const display_list& displays, bool on) {
    for (const auto& display : displays) display->meter().count(on);
}

// The interval figures are those of the first display.
void collect_frames(const display_list& displays, result& out) {
    for (const auto& display : displays) {
        const frame_meter& meter = display->meter();
        out.frames += meter.frames();
        out.fresh += meter.fresh();
        const auto first = meter.first_frame();
        const bool has_frame = first != steady::time_point{};
        const bool is_earliest = out.first_frame == steady::time_point{} || first < out.first_frame;
        if (has_frame && is_earliest) out.first_frame = first;
    }
    out.intervals_ms = displays.front()->meter().sorted_intervals_ms();
}

bool measure(const host_options& options, result& out) {
    const display_list displays = open_displays(options);
    if (displays.empty()) return false;
    std::unique_ptr<host_clock> clock;
    if (options.host_clock) clock = std::make_unique<host_clock>(displays, options.fps);
    run_loop(options.loop, warm_up_s(options.displays));

    const double cpu_before = own_cpu_s();
    count(displays, true);
    const auto begin = steady::now();
    run_loop(options.loop, options.seconds);
    out.span_s = ms_between(begin, steady::now()) / 1000;
    count(displays, false);
    out.own_cpu_s = own_cpu_s() - cpu_before;
    out.peak_mb = own_peak_mb();
    clock.reset();
    collect_frames(displays, out);
    return true;
}

void print(const host_options& options, const result& r, steady::time_point start) {
    const auto& sorted = r.intervals_ms;
    const double first_ms =
        r.first_frame == steady::time_point{} ? -1 : ms_between(start, r.first_frame);
    std::printf(
        "{\"size\":\"%dx%d\",\"fps\":%d,\"displays\":%d,\"frames_s\":%.1f,\"fresh_s\":%.1f,"
        "\"p50_ms\":%.2f,\"p99_ms\":%.2f,\"max_ms\":%.2f,\"first_ms\":%.0f,\"cpu_own\":%.3f,"
        "\"cpu_children\":%.2f,\"rss_mb\":%ld}\n",
        options.width, options.height, options.fps, options.displays,
        static_cast<double>(r.frames) / r.span_s, static_cast<double>(r.fresh) / r.span_s,
        percentile(sorted, .5), percentile(sorted, .99), sorted.empty() ? 0 : sorted.back(),
        first_ms, r.own_cpu_s / r.span_s, ended_children_cpu_s(), r.peak_mb);
}

}  // namespace

int main(int argc, char** argv) {
    const arguments given(argc, argv, 1, k_usage);
    const host_options options = host_options::from(given, k_usage);
    const auto start = steady::now();
    result measured;
    const bool done = start_runtime(options.pacing) && measure(options, measured);
    // Children are accounted for when they have ended.
    cWebDisplayCEFBrowserManager::Shutdown();
    if (!done) return 1;
    print(options, measured, start);
}
