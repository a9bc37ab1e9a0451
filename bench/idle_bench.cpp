// idle_bench.cpp - what a page that stands still costs, in a host that runs its toolkit's own loop.
#include <cstdio>

#include "bench/bench_host.h"
#include "bench/process_usage.h"

namespace {

using namespace pennywort::bench;

constexpr char k_usage[] =
    "idle_bench URL [--size WxH] [--fps N] [--displays N] [--seconds S] [--pacing timer|request] "
    "[--host-clock 0|1] [--loop library|system]";

struct result {
    double own_cpu = 0;       // of one core
    double children_cpu = 0;  // of one core
    long own_mb = 0;
    double children_mb = 0;
    long frames = 0;
};

bool measure(const host_options& options, result& out) {
    const display_list displays = open_displays(options);
    if (displays.empty()) return false;
    run_loop(options.loop, warm_up_s(options.displays));

    for (const auto& display : displays) display->meter().count(true);
    const double cpu_before = own_cpu_s();
    const children_usage children_before = running_children();
    run_loop(options.loop, options.seconds);
    const children_usage children = running_children();
    out.own_cpu = (own_cpu_s() - cpu_before) / options.seconds;
    out.children_cpu = cpu_between(children_before, children) / options.seconds;
    out.own_mb = own_resident_mb();
    out.children_mb = children.resident_mb;
    for (const auto& display : displays) out.frames += display->meter().frames();
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    const arguments given(argc, argv, 1, k_usage);
    host_options options = host_options::from(given, k_usage);
    options.loop = given.text("--loop", "system") == "system" ? loop_kind::system : options.loop;
    result measured;
    const bool done = start_runtime(options.pacing) && measure(options, measured);
    cWebDisplayCEFBrowserManager::Shutdown();
    if (!done) return 1;
    std::printf(
        "{\"pacing\":\"%s\",\"seconds\":%.0f,\"cpu_own\":%.4f,\"cpu_children\":%.4f,"
        "\"rss_mb\":%ld,\"rss_children_mb\":%.0f,\"frames\":%ld}\n",
        options.pacing_name(), options.seconds, measured.own_cpu, measured.children_cpu,
        measured.own_mb, measured.children_mb, measured.frames);
}
