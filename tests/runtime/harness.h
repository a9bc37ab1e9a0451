// harness.h - what the tests of the real browser runtime share: the runtime started once, receivers
// that keep what they get, a display that closes itself, and waiting by running the message loop.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "machine.h"
#include "webdisplay.h"

namespace pennywort::runtime_test {

// --- waiting. Nothing here asserts on time: the bounds only end a test that would never end.

// Runs the thread's message loop until `condition` holds; false when it does not within 60 s.
bool wait_for(const std::function<bool()>& condition);
// Runs the loop for a while, for what must not happen in that time.
void run_loop_for(int milliseconds);

// Name of a case of a table as the test's name.
template <class Case>
std::string case_name(const testing::TestParamInfo<Case>& one) {
    return one.param.name;
}

// --- pixels

struct pixel {
    int blue = 0;
    int green = 0;
    int red = 0;
    int alpha = 0;
    bool operator==(const pixel&) const = default;
};
void PrintTo(const pixel& one, std::ostream* out);

inline constexpr pixel k_black{0, 0, 0, 255};
inline constexpr pixel k_red{0, 0, 255, 255};
inline constexpr pixel k_green{0, 255, 0, 255};
inline constexpr pixel k_blue{255, 0, 0, 255};
inline constexpr pixel k_clear{0, 0, 0, 0};

// --- receivers. Everything arrives on the display thread; they note where it did not.

class kept_frames final : public cBrowserVideoRendererInterface {
public:
    void GetSize(long& width, long& height) const override;
    void BrowserPainted(const void* pixels, long width, long height, bool is_popup) override;

    long count() const { return m_count; }
    long popup_count() const { return m_popup_count; }
    long width() const { return m_width; }
    long height() const { return m_height; }
    std::pair<long, long> size() const { return {m_width, m_height}; }
    pixel at(long x, long y) const;
    pixel centre() const { return at(m_width / 2, m_height / 2); }
    // How many different colours the last frame has, at most 1000.
    std::size_t colours() const;
    bool on_one_thread() const { return m_on_one_thread; }
    // Called after each frame was kept.
    std::function<void()> on_frame;

private:
    std::vector<std::uint32_t> m_pixels;
    long m_width = 0;
    long m_height = 0;
    long m_count = 0;
    long m_popup_count = 0;
    bool m_on_one_thread = true;
    const std::thread::id m_thread = std::this_thread::get_id();
};

class kept_page_events final : public cBrowserPageCallbackHandler {
public:
    void PageLoadFailed(const zString& url, const zString& error) override;
    void PageLoaded(const zString& url) override;
    bool PageRequest(const zString& url) override;

    bool has_loaded(const std::string& url) const;
    bool has_failed(const std::string& url) const;
    bool on_one_thread() const { return m_on_one_thread; }

    std::vector<std::string> loaded;
    std::vector<std::pair<std::string, std::string>> failed;  // URL and error
    std::vector<std::string> requests;
    std::function<bool(const std::string& url)> allow;  // empty: everything
    std::function<void()> on_loaded;
    std::function<void()> on_failed;

private:
    void note_thread();

    bool m_on_one_thread = true;
    const std::thread::id m_thread = std::this_thread::get_id();
};

class kept_calls final : public cBrowserJavascriptCallbackHandler {
public:
    void JavascriptCallback(const zString& name, const zString& argument, zString& result) override;

    // Argument of the last call of that name; nothing if there was none.
    std::optional<std::string> argument_of(const std::string& name) const;
    std::size_t count_of(const std::string& name) const;

    std::vector<std::pair<std::string, std::string>> calls;
    std::function<std::string(const std::string& name, const std::string& argument)> answer;
};

// --- a display

struct page_settings {
    std::string url = {};
    int width = 64;
    int height = 48;
    double rate = 60;
    bool transparent = false;
    bool host_clock = false;
    bool page_clock = false;
    bool report_lost_page = false;
    bool keep_last_picture = false;
    bool refuse_downloads = false;
    bool refuse_printing = false;
    int max_popups = 0;
    bool tell_every_load = false;
    bool fail_on_error_status = false;
    std::string css = {};
};

// Text of a page as a URL that holds it.
std::string page_url(std::string_view html);
// An empty page with the title "blank".
std::string blank_url();
// A page of one colour, `css` being that colour.
std::string colour_url(const std::string& css);
// A page that changes at every frame.
std::string animated_url();

// A display with its receivers, opened; closed and released at its end.
class shown_page {
public:
    explicit shown_page(const page_settings& settings);
    shown_page(const shown_page&) = delete;
    shown_page& operator=(const shown_page&) = delete;
    ~shown_page();

    cWebDisplayCEFBrowser* operator->() const { return m_display; }
    cWebDisplayCEFBrowser* get() const { return m_display; }
    // Ends the display now; the receivers stay.
    void close();
    // The reference is the test's from now on; the receivers stay installed until it closes.
    void forget() { m_display = nullptr; }

    bool wait_until_loaded();
    bool wait_for_colour(const pixel& colour);
    // Whether no frame comes for a second any more. On a busy machine those that are on their way
    // take longer than any time that a test may name.
    bool comes_to_rest();
    // What the body of a function answers in the page; nothing when no answer comes.
    std::optional<std::string> ask(const std::string& script);
    void run(const std::string& script);

    kept_frames frames;
    kept_page_events events;
    kept_calls calls;

private:
    cWebDisplayCEFBrowser* m_display = nullptr;
};

// A display that is not opened.
cWebDisplayCEFBrowser* make_display(const page_settings& settings);

// --- the runtime

// Switches that the runtime needs on a machine without a display and a GPU.
void add_headless_switches();

// Starts the runtime before a test and ends it after. The runtime cannot be started twice in a
// process, so each test needs a process of its own, as ctest gives it. A test fails, and does not
// skip, where the runtime is not installed.
class RuntimeTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // What was traced so far.
    std::string traces() const;
    const std::string& configuration() const { return m_configuration.path(); }
    // Before Startup.
    virtual void prepare() {}
    virtual void add_switches() { add_headless_switches(); }

private:
    temporary_folder m_configuration;
    mutable std::mutex m_traces_lock;
    std::string m_traces;
};

}  // namespace pennywort::runtime_test
