// script_bench.cpp - how long a script's result takes: from ExecuteJavascript to its function.
#include <algorithm>
#include <cstdio>
#include <string>

#include "bench/bench_host.h"
#include "loam/message_loop.h"

namespace {

using namespace pennywort::bench;

constexpr char k_usage[] =
    "script_bench URL [--calls N] [--size WxH] [--fps N] [--displays N] [--seconds S] "
    "[--pacing timer|request] [--host-clock 0|1] [--loop library|system]";
constexpr std::uint32_t k_longest_wait_us = 5'000'000;

// One call after the other: each is sent when the one before has been answered. Negative when no
// answer, or a wrong one, came.
double round_trip_us(cWebDisplayBrowser& browser, int number) {
    std::string answer;
    const std::string script = "return " + std::to_string(number) + " + 1";
    const auto sent = steady::now();
    auto answered = sent;
    browser.ExecuteJavascript(zString(script.c_str()), 0, [&](const std::string& text) {
        answered = steady::now();
        answer = text;
    });
    while (answer.empty() && ms_between(sent, steady::now()) * 1000 < k_longest_wait_us) {
        zMessageLoop::RunOnce(k_longest_wait_us);
    }
    return answer == std::to_string(number + 1) ? ms_between(sent, answered) * 1000 : -1;
}

bool measure(const host_options& options, int calls, std::vector<double>& out) {
    const display_list displays = open_displays(options);
    if (displays.empty()) return false;
    run_loop(options.loop, warm_up_s(options.displays));
    cWebDisplayBrowser& browser = displays.front()->browser();
    for (int i = 0; i < calls; ++i) {
        const double us = round_trip_us(browser, i);
        if (us < 0) return std::fprintf(stderr, "call %d was not answered\n", i), false;
        out.push_back(us);
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    const arguments given(argc, argv, 1, k_usage);
    const host_options options = host_options::from(given, k_usage);
    const int calls = std::max(1, given.whole("--calls", 2000));
    std::vector<double> times_us;
    const bool done = start_runtime(options.pacing) && measure(options, calls, times_us);
    cWebDisplayCEFBrowserManager::Shutdown();
    if (!done) return 1;
    std::sort(times_us.begin(), times_us.end());
    std::printf(
        "{\"pacing\":\"%s\",\"calls\":%d,\"p50_us\":%.0f,\"p99_us\":%.0f,\"max_us\":%.0f}\n",
        options.pacing_name(), calls, percentile(times_us, .5), percentile(times_us, .99),
        times_us.back());
}
