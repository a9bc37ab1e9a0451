// display_bench.cpp - shows a page with the library and prints what came of it as one line of JSON.
//
// The figures and their names are those of the yardstick, the runtime with nothing around it, so
// that the two can be set side by side.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <thread>

#include "bench/bench_host.h"
#include "bench/process_usage.h"
#include "loam/message_loop.h"

namespace {

using namespace pennywort::bench;

constexpr char k_usage[] =
    "display_bench URL [--size WxH] [--fps N] [--displays N] [--seconds S] "
    "[--pacing timer|request] [--host-clock 0|1] [--ticks loop|thread] [--loop library|system]";

// Ticks every display at moments fixed in advance. A tick that comes late is not made up for, as
// with the yardstick.
class host_clock {
public:
    host_clock(const display_list& displays, int fps)
        : m_displays(displays),
          m_period(std::chrono::nanoseconds(1'000'000'000 / fps)),
          m_next(steady::now()) {}

    steady::time_point next() const { return m_next; }
    void tick_if_due() {
        const auto now = steady::now();
        if (now < m_next) return;
        for (const auto& display : m_displays) display->browser().NextFrame();
        m_next = std::max(m_next + m_period, now);
    }

private:
    const display_list& m_displays;
    const steady::duration m_period;
    steady::time_point m_next;
};

// A mixer's clock is a thread of its own, whose wake-ups are part of what the host costs.
class clock_thread {
public:
    explicit clock_thread(host_clock clock) : m_clock(clock), m_thread([this] { run(); }) {}
    clock_thread(const clock_thread&) = delete;
    clock_thread& operator=(const clock_thread&) = delete;
    ~clock_thread() {
        m_ended = true;
        m_thread.join();
    }

private:
    void run() {
        while (!m_ended) {
            std::this_thread::sleep_until(m_clock.next());
            m_clock.tick_if_due();
        }
    }

    host_clock m_clock;
    std::atomic<bool> m_ended{false};
    std::thread m_thread;
};

// Runs the loop, and ticks between its turns: the way of a host that has one thread, and of the
// yardstick.
void run_loop_with(host_clock& clock, double seconds) {
    const auto end = steady::now() + std::chrono::duration<double>(seconds);
    while (steady::now() < end) {
        clock.tick_if_due();
        const auto until = std::min<steady::time_point>(
            clock.next(), std::chrono::time_point_cast<steady::duration>(end));
        const auto left = std::chrono::duration<double, std::micro>(until - steady::now()).count();
        zMessageLoop::RunOnce(static_cast<std::uint32_t>(std::max(left, 0.0)));
    }
}

// The clock that the options ask for, if any, and the loop under it.
class driver {
public:
    driver(const host_options& options, bool from_thread, const display_list& displays)
        : m_loop(options.loop), m_clock(displays, options.fps) {
        m_ticks_in_loop = options.host_clock && !from_thread;
        if (options.host_clock && from_thread) m_thread = std::make_unique<clock_thread>(m_clock);
    }

    void run(double seconds) {
        m_ticks_in_loop ? run_loop_with(m_clock, seconds) : run_loop(m_loop, seconds);
    }

private:
    const loop_kind m_loop;
    host_clock m_clock;
    bool m_ticks_in_loop = false;
    std::unique_ptr<clock_thread> m_thread;
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

bool measure(const host_options& options, bool ticks_from_thread, result& out) {
    const display_list displays = open_displays(options);
    if (displays.empty()) return false;
    driver host(options, ticks_from_thread, displays);
    host.run(warm_up_s(options.displays));

    const double cpu_before = own_cpu_s();
    count(displays, true);
    const auto begin = steady::now();
    host.run(options.seconds);
    out.span_s = ms_between(begin, steady::now()) / 1000;
    count(displays, false);
    out.own_cpu_s = own_cpu_s() - cpu_before;
    out.peak_mb = own_peak_mb();
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
    const bool from_thread = given.text("--ticks", "thread") == "thread";
    result measured;
    const bool done = start_runtime(options.pacing) && measure(options, from_thread, measured);
    // Children are accounted for when they have ended.
    cWebDisplayCEFBrowserManager::Shutdown();
    if (!done) return 1;
    print(options, measured, start);
}
