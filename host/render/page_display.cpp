// host/render/page_display.cpp - see the header for the contract.
#include "host/render/page_display.h"

#include <chrono>
#include <cmath>
#include <cstdint>
#include <new>
#include <ratio>
#include <string_view>
#include <utility>

#include "core/limits.h"
#include "host/app/json.h"
#include "host/render/fast_forward.h"
#include "loam/record.h"
#include "loam/string.h"

namespace pennywort::host {

namespace {

zRecord display_settings_of(const render_options& options) {
    zRecord settings;
    settings.SetString("web_url", options.urls.front());
    settings.SetInt32("web_width", static_cast<std::int32_t>(options.page_width));
    settings.SetInt32("web_height", static_cast<std::int32_t>(options.page_height));
    settings.SetDouble("web_scale", options.page.scale);
    settings.SetInt32("web_background", static_cast<std::int32_t>(options.page.background));
    settings.SetBool("web_inspector", true);
    settings.SetBool("web_transparent", options.format.transparent);
    settings.SetBool("web_refuse_downloads", true);
    settings.SetBool("web_refuse_printing", true);
    settings.SetInt32("web_max_popups", k_max_popups);
    settings.SetBool("web_merge_widgets", true);
    settings.SetBool("web_tell_every_load", true);
    settings.SetBool("web_fail_on_error_status", true);
    settings.SetString("web_override_css", options.css);
    // Without these two the film would show the browser's own page in the place of one that failed,
    // and a page whose process has ended would be noticed only by its silence.
    // A page by its own clock paints no frame that was not asked for.
    settings.SetBool("web_keep_last_picture", options.clock != page_clock::own);
    settings.SetBool("web_page_clock", options.clock == page_clock::own);
    settings.SetDouble("web_page_day", options.page.day);
    settings.SetString("web_page_start", options.page.start);
    settings.SetBool("web_report_lost_page", true);
    // Also where it goes nowhere: nothing of a film is to be heard in the room.
    settings.SetBool("web_sound", true);
    settings.SetBool("web_muted", options.is_muted);
    settings.SetBool("web_host_clock", options.clock == page_clock::host);
    return settings;
}

// A list or picker that does not paint in so many holds up no film.
constexpr int k_widget_frames = 20;

// As fine as a page's clocks are. Between two such moments a page is told now the one and now the
// other, at random, and two films of it would differ.
constexpr std::chrono::microseconds k_page_grain{100};

std::chrono::microseconds page_moment(std::chrono::nanoseconds time) {
    return std::chrono::round<std::chrono::duration<std::int64_t, std::ratio<1, 10'000>>>(time);
}

// What browsers begin the message of an error with that no script has caught.
bool is_script_error(std::string_view message) {
    return message.substr(0, 9) == "Uncaught " || message.substr(0, 12) == "Script error";
}

std::string text_of(const zString& text) { return std::string(text.View()); }

// The browser rounds in its own way.
bool is_about(long pixels, double side) { return std::abs(static_cast<double>(pixels) - side) < 1; }

bool is_of_file(std::string_view url) { return url.starts_with("file:"); }

}  // namespace

page_display::page_display(const render_options& options, recorder& frames,
                           const run::monotonic_clock& clock, news_listener news,
                           page_listener heard)
    : m_format(options.format),
      m_frames(frames),
      m_clock(clock),
      m_is_in_the_day(options.clock != page_clock::own),
      m_news(std::move(news)),
      m_heard(std::move(heard)),
      m_sound(frames, clock, options.clock == page_clock::own),
      m_scale(options.page.scale),
      m_is_part(options.page.is_full || !options.page.element.empty()),
      m_browser(cWebDisplayCEFBrowserManager::CreateBrowser(display_settings_of(options),
                                                            options.format.rate.value())) {
    if (m_browser == nullptr) throw std::bad_alloc();
    m_browser->SetVideoRenderer(this);
    m_browser->SetPageCallbackReceiver(this);
    m_browser->SetJavascriptCallbackReceiver(this);
    // In the day's time it tells also what a film lacks that has no sound. A page by its own clock
    // says that itself, and would fetch its files and wait for them.
    if (options.clock != page_clock::own || options.format.has_sound) {
        m_browser->SetAudioReceiver(&m_sound);
    }
    m_browser->SetInspectorReceiver(this);
    const bool is_exact = options.clock == page_clock::own;
    for (const auto& request : inspector_requests(options.page, options.urls, is_exact)) {
        ask(request);
    }
}

page_display::~page_display() {
    close();
    m_browser->Release();
}

// A refused request is reported as the option whose value it carries.
void page_display::ask(const inspector_request& request) {
    const auto told = [this, option = request.option](const zString& result) {
        const bool is_refused = result.Empty() && m_is_open && !option.empty();
        if (is_refused && m_refused.empty()) m_refused = option;
    };
    m_browser->CallInspector(zString(request.method), zString(request.parameters), told);
}

bool page_display::show(const std::string& url, page_run& run) {
    m_run = &run;
    m_advanced = 0;
    m_unseen_us = 0;
    m_is_of_file = is_of_file(url);
    m_told.page_asked_for();
    if (m_is_open) {
        m_browser->LoadUrl(url.c_str());
    } else {
        m_is_open = m_browser->Open();
    }
    return m_is_open;
}

void page_display::close() {
    m_browser->SetVideoRenderer(nullptr);
    m_browser->SetPageCallbackReceiver(nullptr);
    m_browser->SetJavascriptCallbackReceiver(nullptr);
    m_browser->SetAudioReceiver(nullptr);
    m_browser->SetInspectorReceiver(nullptr);
    m_run = nullptr;
    m_is_open = false;
    m_browser->Close();
}

void page_display::advance(std::function<void(bool is_there)> told) {
    const auto moment = page_moment(m_format.rate.time_of(m_advanced++));
    const auto ended = [told](cWebDisplayPageFrame how) {
        told(how != cWebDisplayPageFrame::Failed);
    };
    if (!m_browser->AdvancePage(m_unseen_us + moment.count(), ended)) told(false);
}

void page_display::fast_forward(const picture_size& page) {
    m_browser->CallInspector("Emulation.setDeviceMetricsOverride",
                             zString(tiny_picture(page.width, page.height)), {});
}

void page_display::end_fast_forward(std::function<void(const char* kept)> told) {
    m_browser->CallInspector("Emulation.clearDeviceMetricsOverride", "", {});
    m_browser->CallInspector(
        "DOMSnapshot.captureSnapshot", k_drawing_snapshot,
        [told = std::move(told)](const zString& snapshot) { told(kept_drawing(snapshot.View())); });
}

// As little of the page's time as there is, so that its film begins where it would.
std::int64_t page_display::next_unseen_us() {
    const auto passed =
        m_advanced > 0 ? page_moment(m_format.rate.time_of(m_advanced - 1)) : -k_page_grain;
    m_unseen_us += k_page_grain.count();
    return passed.count() + m_unseen_us;
}

void page_display::show_unseen(std::function<void(bool is_there)> told) {
    m_browser->AdvancePage(next_unseen_us(), {});
    // That nothing has changed is known with the next frame only; the page answers before that.
    ask_page("1", [told](const std::string& answer) { told(!answer.empty()); });
}

void page_display::advance_unseen(std::function<void(bool is_there)> told) {
    const auto ended = [told](cWebDisplayPageFrame how) {
        told(how != cWebDisplayPageFrame::Failed);
    };
    if (!m_browser->AdvancePage(next_unseen_us(), ended)) told(false);
}

std::string page_display::frame_fault() const {
    cWebDisplayPageStatus status;
    m_browser->GetPageStatus(status);
    return text_of(status.frameFault);
}

void page_display::look_whether_closed() {
    if (m_run == nullptr) return;
    cWebDisplayPageStatus status;
    m_browser->GetPageStatus(status);
    if (status.phase == cWebDisplayPagePhase::Closed) m_run->page_closed();
}

std::uint64_t page_display::missed() const {
    cWebDisplayFrameCounts counts;
    m_browser->GetFrameCounts(counts);
    return counts.ticks_missed;
}

// No time-out: the run limits each question itself, and the display drops an observer that is too
// old only when the next script is run.
void page_display::run_script(const std::string& body, std::function<void(std::string)> answer) {
    m_browser->ExecuteJavascript(zString(body), 0, std::move(answer));
}

// Browsers let a page open its lists and pickers within a few seconds of a user's click only, and
// by the page's clock those last as long as its time stands.
void page_display::run_users_script(const std::string& body,
                                    std::function<void(std::string)> answer) {
    if (m_is_in_the_day) return run_script(body, std::move(answer));
    const auto clicked = [this, page = m_pages_loaded, body, answer = std::move(answer)](
                             const zString&) { run_clicked(page, body, answer); };
    m_browser->CallInspector("Runtime.evaluate", R"({"expression":"0","userGesture":true})",
                             clicked);
}

void page_display::ask_fault(const std::string& expression,
                             std::function<void(std::string)> answer) {
    const std::string parameters =
        R"({"returnByValue":true,"expression":)" + json_text("!!(" + expression + "\n)") + "}";
    m_browser->CallInspector("Runtime.evaluate", zString(parameters),
                             [answer = std::move(answer)](const zString& result) {
                                 answer(evaluation_fault(result.View()));
                             });
}

// Not in a page that has come meanwhile, which is asked for itself.
void page_display::run_clicked(std::uint64_t page, const std::string& body,
                               const std::function<void(std::string)>& answer) {
    if (m_run == nullptr || m_pages_loaded != page) return;
    run_script(body, [this, page, answer](const std::string& text) {
        await_widget(
            page, [answer, text] { answer(text); }, k_widget_frames);
    });
}

// A list or picker that the script has opened paints within a few frames. The browser notices it
// with the page's next answer, at the latest.
void page_display::await_widget(std::uint64_t page, const std::function<void()>& then, int frames) {
    const auto look = [this, page, then, frames](const std::string&) {
        if (m_run == nullptr || m_pages_loaded != page) return;
        cWebDisplayPageStatus status;
        m_browser->GetPageStatus(status);
        if (!status.isWidgetOpening || frames == 0) return then();
        show_unseen([this, page, then, frames](bool) { await_widget(page, then, frames - 1); });
    };
    ask_page("1", look);
}

void page_display::ask_next_frame(const std::string& expression,
                                  std::function<void(std::string)> answer) {
    advance([](bool) {});
    m_browser->AskPage(zString(expression), [answer = std::move(answer)](const zString& value) {
        answer(text_of(value));
    });
}

void page_display::ask_page(const std::string& expression,
                            std::function<void(const std::string&)> answer) {
    const bool is_asked = m_browser->AskPage(
        zString(expression), [answer](const zString& value) { answer(text_of(value)); });
    if (!is_asked) answer({});
}

void page_display::resize_page(long width, long height) { m_browser->SetSize(width, height); }

std::optional<picture_size> page_display::picture_of(long width, long height) const {
    const bool is_of_it = is_about(m_last.width, static_cast<double>(width) * m_scale) &&
                          is_about(m_last.height, static_cast<double>(height) * m_scale);
    if (!is_of_it) return {};
    return picture_size{m_last.width, m_last.height};
}

void page_display::set_area(const pixel_area& area) {
    m_area = area;
    paint_part();
}

void page_display::paint_part() {
    if (m_area.width == 0) return;
    // One that came before the page had its size.
    if (m_area.x + m_area.width > m_last.width || m_area.y + m_area.height > m_last.height) return;
    std::vector<std::uint32_t> part;
    part.reserve(static_cast<std::size_t>(m_area.width) * static_cast<std::size_t>(m_area.height));
    for (long y = m_area.y; y < m_area.y + m_area.height; ++y) {
        const auto row = m_last.pixels.begin() + y * m_last.width + m_area.x;
        part.insert(part.end(), row, row + m_area.width);
    }
    m_frames.painted(part.data(), m_area.width, m_area.height, m_clock.now());
}

void page_display::repaint() { m_browser->Repaint(); }

void page_display::GetSize(long& width, long& height) const {
    width = m_format.width;
    height = m_format.height;
}

void page_display::BrowserPainted(const void* pixels, long width, long height, bool) {
    if (m_is_part) {
        const auto* first = static_cast<const std::uint32_t*>(pixels);
        m_last.pixels.assign(first, first + width * height);
        m_last.width = width;
        m_last.height = height;
        return paint_part();
    }
    m_frames.painted(pixels, width, height, m_clock.now());
}

void page_display::PageLoadFailed(const zString& url, const zString& error) {
    m_news("load failed: " + text_of(url) + ": " + text_of(error));
    if (m_run == nullptr) return;
    cWebDisplayPageStatus status;
    m_browser->GetPageStatus(status);
    if (status.phase == cWebDisplayPagePhase::Lost) return m_run->page_lost();
    // Frames of the page are told here too, and leave its phase alone.
    if (status.phase == cWebDisplayPagePhase::Failed) {
        return m_run->page_failed(text_of(url), text_of(error));
    }
    m_run->load_failed(text_of(url), text_of(error));
}

void page_display::PageLoaded(const zString& url) {
    m_is_of_file = is_of_file(url.View());
    ++m_pages_loaded;
    m_told.page_came();
    m_news("loaded: " + text_of(url));
    if (m_run != nullptr) m_run->page_loaded();
}

// Also where the page's own hook for errors of its scripts arrives. The inspector tells of them
// with their place, and of those that the hook does not hear.
void page_display::JavascriptCallback(const zString& name, const zString& argument, zString&) {
    if (!is_script_error(name.View())) {
        m_news("page says: " + text_of(name) + " " + text_of(argument));
    }
}

void page_display::InspectorEvent(const zString& method, const zString& parameters) {
    // The page stands until somebody says yes, and there is nobody. By its own clock the display
    // has done so.
    if (m_is_in_the_day && method.View() == k_dialog_event) {
        m_browser->CallInspector("Page.handleJavaScriptDialog", R"({"accept":true})", {});
    }
    if (!m_is_in_the_day && m_workers.is_repeated(method.View(), parameters.View())) return;
    if (auto address = begun_page(method.View(), parameters.View())) {
        m_address = std::move(*address);
        m_told.page_begins();
        m_media_types.page_begins();
        m_open_requests.page_begins();
    }
    m_media_types.hear(method.View(), parameters.View());
    m_open_requests.hear(method.View(), parameters.View());
    if (is_hosts_syntax_error(method.View(), parameters.View(), m_address)) return;
    auto said = saying_of(method.View(), parameters.View(), m_is_of_file, m_media_types);
    const std::string open = said ? m_open_requests.oldest() : std::string();
    if (said && tells_of_fetch(*said) && !open.empty()) said->line += "; open: " + open;
    if (said && m_told.is_new(*said)) m_heard(*said);
}

}  // namespace pennywort::host
