// tick_rate.cpp - prints how often the display thread's timer ticks, by itself and when asked, over
// a few seconds; and the size of the intervals. The figures are in bench/README.md.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <vector>

#include "loam/message_loop.h"
#include "loam/time.h"
#include "webdisplay/main_thread_timer.h"

namespace {

constexpr std::int64_t k_run_us = 5'000'000;

void report(const char* what, std::vector<std::int64_t> times) {
    if (times.size() < 3) {
        std::printf("%s: no ticks\n", what);
        return;
    }
    const double seconds = static_cast<double>(times.back() - times.front()) / 1e6;
    const double rate = static_cast<double>(times.size() - 1) / seconds;
    for (std::size_t i = times.size() - 1; i > 0; --i) times[i] -= times[i - 1];
    times.erase(times.begin());
    std::sort(times.begin(), times.end());
    const auto at = [&](double part) {
        return static_cast<double>(
                   times[static_cast<std::size_t>(part * static_cast<double>(times.size() - 1))]) /
               1000.0;
    };
    std::printf("%s: %.1f ticks a second, interval %.2f ms median, %.2f ms 99th percentile\n", what,
                rate, at(0.5), at(0.99));
}

// `start` begins, and each tick asks for what comes after it.
void measure(const char* what,
             const std::function<void(pennywort::webdisplay::main_thread_timer&)>& start,
             std::int64_t ask_ms) {
    std::vector<std::int64_t> times;
    pennywort::webdisplay::main_thread_timer* self = nullptr;
    const auto timer = pennywort::webdisplay::main_thread_timer::make([&] {
        times.push_back(zTime::MicroNow());
        if (ask_ms >= 0) self->request(ask_ms);
    });
    if (!timer) return report(what, {});
    self = timer.get();
    start(*timer);
    const std::int64_t end = zTime::MicroNow() + k_run_us;
    while (zTime::MicroNow() < end) zMessageLoop::RunOnce(10'000);
    timer->stop();
    report(what, times);
}

}  // namespace

int main() {
    using timer = pennywort::webdisplay::main_thread_timer;
    const auto on_request = [](timer& t) {
        t.start_on_request(1000);
        t.request(0);
    };
    measure(
        "every 15 ms", [](timer& t) { t.start_periodic(15); }, -1);
    measure("asked for in 16 ms", on_request, 16);
    measure("asked for in 4 ms", on_request, 4);
    measure("asked for at once", on_request, 0);
    return 0;
}
