// harness.cpp - see the header for the contract.
#include "harness.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <unordered_set>

#include "loam/base64.h"
#include "loam/message_loop.h"
#include "loam/time.h"
#include "loam/trace.h"

namespace pennywort::runtime_test {

namespace {

constexpr std::int64_t k_bound_us = 60'000'000;
constexpr std::uint32_t k_step_us = 5'000;
constexpr std::size_t k_most_colours = 1000;

std::string text_of(const zString& text) { return std::string(text.View()); }

}  // namespace

bool wait_for(const std::function<bool()>& condition) {
    const std::int64_t end = zTime::MicroNow() + k_bound_us;
    while (!condition()) {
        if (zTime::MicroNow() > end) return false;
        zMessageLoop::RunOnce(k_step_us);
    }
    return true;
}

void run_loop_for(int milliseconds) {
    const std::int64_t end = zTime::MicroNow() + std::int64_t{milliseconds} * 1000;
    while (zTime::MicroNow() < end) zMessageLoop::RunOnce(k_step_us);
}

// --- pixels and receivers

void PrintTo(const pixel& one, std::ostream* out) {
    *out << "blue " << one.blue << ", green " << one.green << ", red " << one.red << ", alpha "
         << one.alpha;
}

void kept_frames::GetSize(long& width, long& height) const {
    width = m_width;
    height = m_height;
}

void kept_frames::BrowserPainted(const void* pixels, long width, long height, bool is_popup) {
    if (std::this_thread::get_id() != m_thread) m_on_one_thread = false;
    if (is_popup) {
        ++m_popup_count;
        return;
    }
    m_pixels.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    std::memcpy(m_pixels.data(), pixels, m_pixels.size() * sizeof(std::uint32_t));
    m_width = width;
    m_height = height;
    ++m_count;
    if (on_frame) on_frame();
}

pixel kept_frames::at(long x, long y) const {
    if (x < 0 || y < 0 || x >= m_width || y >= m_height) return {-1, -1, -1, -1};
    unsigned char bytes[4];
    std::memcpy(bytes, &m_pixels[static_cast<std::size_t>(y * m_width + x)], sizeof bytes);
    return {bytes[0], bytes[1], bytes[2], bytes[3]};
}

std::size_t kept_frames::colours() const {
    std::unordered_set<std::uint32_t> seen;
    for (const std::uint32_t one : m_pixels) {
        seen.insert(one);
        if (seen.size() == k_most_colours) break;
    }
    return seen.size();
}

void kept_page_events::note_thread() {
    if (std::this_thread::get_id() != m_thread) m_on_one_thread = false;
}

void kept_page_events::PageLoadFailed(const zString& url, const zString& error) {
    note_thread();
    failed.emplace_back(text_of(url), text_of(error));
    if (on_failed) on_failed();
}

void kept_page_events::PageLoaded(const zString& url) {
    note_thread();
    loaded.push_back(text_of(url));
    if (on_loaded) on_loaded();
}

bool kept_page_events::PageRequest(const zString& url) {
    note_thread();
    requests.push_back(text_of(url));
    return !allow || allow(requests.back());
}

bool kept_page_events::has_loaded(const std::string& url) const {
    return std::find(loaded.begin(), loaded.end(), url) != loaded.end();
}

bool kept_page_events::has_failed(const std::string& url) const {
    return std::any_of(failed.begin(), failed.end(),
                       [&](const auto& failure) { return failure.first == url; });
}

void kept_calls::JavascriptCallback(const zString& name, const zString& argument, zString& result) {
    calls.emplace_back(text_of(name), text_of(argument));
    if (answer) result = answer(calls.back().first, calls.back().second).c_str();
}

std::optional<std::string> kept_calls::argument_of(const std::string& name) const {
    const auto found = std::find_if(calls.rbegin(), calls.rend(),
                                    [&](const auto& call) { return call.first == name; });
    return found == calls.rend() ? std::nullopt : std::optional(found->second);
}

std::size_t kept_calls::count_of(const std::string& name) const {
    return static_cast<std::size_t>(std::count_if(
        calls.begin(), calls.end(), [&](const auto& call) { return call.first == name; }));
}

// --- pages

std::string page_url(std::string_view html) {
    const int length = static_cast<int>(html.size());
    std::string text(static_cast<std::size_t>(Base64encode_len(length)), '\0');
    const int written = Base64encode(text.data(), html.data(), length);
    text.resize(static_cast<std::size_t>(written) - 1);  // without its NUL
    return "data:text/html;charset=utf-8;base64," + text;
}

std::string blank_url() { return page_url("<!doctype html><title>blank</title><body>"); }

std::string colour_url(const std::string& css) {
    return page_url("<!doctype html><body style='margin:0;background:" + css + "'>");
}

std::string animated_url() {
    return page_url(
        "<!doctype html><body style='margin:0'><script>"
        "let step = 0;"
        "function paint() {"
        "  step++;"
        "  document.body.style.background = 'rgb(' + step % 256 + ',' + (step >> 8) % 256 + ',0)';"
        "  requestAnimationFrame(paint);"
        "}"
        "paint();"
        "</script>");
}

cWebDisplayCEFBrowser* make_display(const page_settings& settings) {
    zRecord record;
    record.SetInt32("web_width", settings.width);
    record.SetInt32("web_height", settings.height);
    record.SetString("web_url", settings.url);
    record.SetBool("web_transparent", settings.transparent);
    record.SetBool("web_host_clock", settings.host_clock);
    record.SetBool("web_page_clock", settings.page_clock);
    record.SetBool("web_report_lost_page", settings.report_lost_page);
    record.SetBool("web_keep_last_picture", settings.keep_last_picture);
    record.SetBool("web_refuse_downloads", settings.refuse_downloads);
    record.SetBool("web_refuse_printing", settings.refuse_printing);
    record.SetInt32("web_max_popups", settings.max_popups);
    record.SetBool("web_tell_every_load", settings.tell_every_load);
    record.SetBool("web_fail_on_error_status", settings.fail_on_error_status);
    record.SetString("web_override_css", settings.css);
    cWebDisplayBrowser* made = cWebDisplayCEFBrowserManager::CreateBrowser(record, settings.rate);
    return dynamic_cast<cWebDisplayCEFBrowser*>(made);
}

shown_page::shown_page(const page_settings& settings) : m_display(make_display(settings)) {
    m_display->SetVideoRenderer(&frames);
    m_display->SetPageCallbackReceiver(&events);
    m_display->SetJavascriptCallbackReceiver(&calls);
    EXPECT_TRUE(m_display->Open());
}

shown_page::~shown_page() { close(); }

void shown_page::close() {
    cWebDisplayCEFBrowser* display = std::exchange(m_display, nullptr);
    if (!display) return;
    display->SetVideoRenderer(nullptr);
    display->SetPageCallbackReceiver(nullptr);
    display->SetJavascriptCallbackReceiver(nullptr);
    display->Close();
    display->Release();
}

bool shown_page::wait_until_loaded() {
    return wait_for([this] { return !events.loaded.empty() && !m_display->IsLoading(); });
}

bool shown_page::wait_for_colour(const pixel& colour) {
    const bool came = wait_for([&] { return frames.count() > 0 && frames.centre() == colour; });
    if (!came) {
        ADD_FAILURE() << "after " << frames.count() << " frames the centre is "
                      << testing::PrintToString(frames.centre());
    }
    return came;
}

bool shown_page::comes_to_rest() {
    return wait_for([this] {
        const long before = frames.count();
        run_loop_for(1000);
        return frames.count() == before;
    });
}

std::optional<std::string> shown_page::ask(const std::string& script) {
    // Shared with the callback, which may come after this has given up.
    const auto answer = std::make_shared<std::optional<std::string>>();
    m_display->ExecuteJavascript(zString(script.c_str()), 0,
                                 [answer](const std::string& text) { *answer = text; });
    wait_for([&] { return answer->has_value(); });
    return *answer;
}

void shown_page::run(const std::string& script) {
    m_display->ExecuteJavascript(zString(script.c_str()), 0, std::function<void(std::string)>());
}

// --- the runtime

void add_headless_switches() {
    constexpr std::pair<const char*, const char*> k_switches[] = {{"ozone-platform", "headless"},
                                                                  {"disable-gpu-compositing", ""},
                                                                  {"use-gl", "angle"},
                                                                  {"use-angle", "swiftshader"},
                                                                  {"enable-unsafe-swiftshader", ""},
                                                                  {"disable-dev-shm-usage", ""}};
    for (const auto& [name, value] : k_switches) {
        cWebDisplayCEFBrowserManager::AddCommandLineSwitch(name, value);
    }
}

void RuntimeTest::SetUp() {
    setenv("XDG_CONFIG_HOME", m_configuration.path().c_str(), 1);
    zTraceManager::Default()->SetSink([this](const char* message) {
        const std::lock_guard<std::mutex> guard(m_traces_lock);
        m_traces += message;
    });
    add_switches();
    prepare();
    const bool started = cWebDisplayCEFBrowserManager::Startup("");
    zString failure;
    cWebDisplayCEFBrowserManager::GetStartupFailure(failure);
    ASSERT_TRUE(started) << failure.CString();
}

void RuntimeTest::TearDown() {
    cWebDisplayCEFBrowserManager::Shutdown();
    zTraceManager::Default()->SetSink({});
    if (HasFailure()) std::fprintf(stderr, "traces:\n%s\n", traces().c_str());
}

std::string RuntimeTest::traces() const {
    const std::lock_guard<std::mutex> guard(m_traces_lock);
    return m_traces;
}

}  // namespace pennywort::runtime_test
