// bench_host.cpp - see the header for the contract.
#include "bench/bench_host.h"

#include <cstdio>
#include <cstdlib>

#include "bench/system_loop.h"
#include "loam/message_loop.h"
#include "loam/record.h"

namespace pennywort::bench {

namespace {

struct runtime_switch {
    const char* name;
    const char* value;
};
constexpr runtime_switch k_switches[] = {
    {"ozone-platform", "headless"},
    {"disable-gpu-compositing", ""},
    {"use-gl", "angle"},
    {"use-angle", "swiftshader"},
    {"enable-unsafe-swiftshader", ""},
    {"disable-dev-shm-usage", ""},
};

[[noreturn]] void refuse(const char* usage) {
    std::fprintf(stderr, "usage: %s\n", usage);
    std::exit(2);
}

template <class Choice>
Choice choose(const std::string& name, const char* first_name, Choice first,
              const char* second_name, Choice second, const char* usage) {
    if (name == first_name) return first;
    if (name == second_name) return second;
    refuse(usage);
}

zRecord settings_of(const host_options& options) {
    zRecord settings;
    settings.SetInt32("web_width", options.width);
    settings.SetInt32("web_height", options.height);
    settings.SetString("web_url", options.url);
    settings.SetBool("web_host_clock", options.host_clock);
    // As with the yardstick, whose browsers are given no background.
    settings.SetBool("web_transparent", true);
    return settings;
}

void run_library_loop(double seconds) {
    const auto end = steady::now() + std::chrono::duration<double>(seconds);
    for (;;) {
        const auto left = std::chrono::duration<double, std::micro>(end - steady::now()).count();
        if (left <= 0) return;
        zMessageLoop::RunOnce(static_cast<std::uint32_t>(left));
    }
}

}  // namespace

host_options host_options::from(const arguments& given, const char* usage) {
    host_options options;
    options.url = given.plain(0);
    const std::string size = given.text("--size", "1280x720");
    if (std::sscanf(size.c_str(), "%dx%d", &options.width, &options.height) != 2) refuse(usage);
    options.fps = given.whole("--fps", options.fps);
    options.displays = given.whole("--displays", options.displays);
    options.seconds = given.number("--seconds", options.seconds);
    options.host_clock = given.whole("--host-clock", 0) != 0;
    options.pacing = choose(given.text("--pacing", "request"), "request",
                            cWebDisplayPacing::OnRequest, "timer", cWebDisplayPacing::Timer, usage);
    options.loop = choose(given.text("--loop", "library"), "library", loop_kind::library, "system",
                          loop_kind::system, usage);
    if (options.fps < 1 || options.displays < 1 || options.seconds <= 0) refuse(usage);
    return options;
}

const char* host_options::pacing_name() const {
    return pacing == cWebDisplayPacing::OnRequest ? "request" : "timer";
}

metered_display::metered_display(const host_options& options)
    : m_meter(options.width, options.height),
      m_browser(cWebDisplayCEFBrowserManager::CreateBrowser(settings_of(options), options.fps)) {
    if (!m_browser) return;
    m_browser->SetVideoRenderer(&m_meter);
    m_opened = m_browser->Open();
}

metered_display::~metered_display() {
    if (!m_browser) return;
    m_browser->SetVideoRenderer(nullptr);
    m_browser->Close();
    m_browser->Release();
}

bool start_runtime(cWebDisplayPacing pacing) {
    cWebDisplayCEFBrowserManager::SetPacing(pacing);
    for (const auto& one : k_switches) {
        cWebDisplayCEFBrowserManager::AddCommandLineSwitch(one.name, one.value);
    }
    if (cWebDisplayCEFBrowserManager::Startup("")) return true;
    zString failure;
    cWebDisplayCEFBrowserManager::GetStartupFailure(failure);
    std::fprintf(stderr, "the runtime did not start: %s\n", failure.CString());
    return false;
}

display_list open_displays(const host_options& options) {
    display_list displays;
    for (int i = 0; i < options.displays; ++i) {
        displays.push_back(std::make_unique<metered_display>(options));
        if (displays.back()->opened()) continue;
        std::fprintf(stderr, "display %d did not open\n", i);
        displays.clear();
        break;
    }
    return displays;
}

void run_loop(loop_kind loop, double seconds) {
    loop == loop_kind::library ? run_library_loop(seconds) : run_system_loop(seconds);
}

double warm_up_s(int displays) { return 1.5 + 0.3 * displays; }

}  // namespace pennywort::bench
