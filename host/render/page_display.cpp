// host/render/page_display.cpp - see the header for the contract.
#include "host/render/page_display.h"

#include <chrono>
#include <new>
#include <string_view>
#include <utility>

#include "core/limits.h"
#include "loam/record.h"
#include "loam/string.h"

namespace pennywort::host {

namespace {

zRecord settings_of(const render_options& options) {
    zRecord settings;
    settings.SetString("web_url", options.urls.front());
    settings.SetInt32("web_width", static_cast<std::int32_t>(options.format.width));
    settings.SetInt32("web_height", static_cast<std::int32_t>(options.format.height));
    settings.SetBool("web_transparent", options.format.transparent);
    settings.SetBool("web_refuse_downloads", true);
    settings.SetBool("web_refuse_printing", true);
    settings.SetInt32("web_max_popups", k_max_popups);
    settings.SetBool("web_tell_every_load", true);
    settings.SetString("web_override_css", options.css);
    // Without these two the film would show the browser's own page in the place of one that failed,
    // and a page whose process has ended would be noticed only by its silence.
    // A page by its own clock paints no frame that was not asked for.
    settings.SetBool("web_keep_last_picture", options.clock != page_clock::own);
    settings.SetBool("web_page_clock", options.clock == page_clock::own);
    settings.SetBool("web_report_lost_page", true);
    // Also where it goes nowhere: nothing of a film is to be heard in the room.
    settings.SetBool("web_sound", true);
    settings.SetBool("web_muted", options.is_muted);
    settings.SetBool("web_host_clock", options.clock == page_clock::host);
    return settings;
}

// What browsers begin the message of an error with that no script has caught.
bool is_script_error(std::string_view message) {
    return message.substr(0, 9) == "Uncaught " || message.substr(0, 12) == "Script error";
}

std::string text_of(const zString& text) { return std::string(text.View()); }

}  // namespace

page_display::page_display(const render_options& options, recorder& frames,
                           const run::monotonic_clock& clock, listener heard)
    : m_format(options.format),
      m_frames(frames),
      m_clock(clock),
      m_heard(std::move(heard)),
      m_sound(frames, clock),
      m_browser(cWebDisplayCEFBrowserManager::CreateBrowser(settings_of(options),
                                                            options.format.rate.value())) {
    if (m_browser == nullptr) throw std::bad_alloc();
    m_browser->SetVideoRenderer(this);
    m_browser->SetPageCallbackReceiver(this);
    m_browser->SetJavascriptCallbackReceiver(this);
    m_browser->SetAudioReceiver(&m_sound);
}

page_display::~page_display() {
    close();
    m_browser->Release();
}

bool page_display::show(const std::string& url, page_run& run) {
    m_run = &run;
    m_advanced = 0;
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
    m_run = nullptr;
    m_browser->Close();
}

void page_display::advance(std::function<void(bool is_there)> told) {
    const auto moment =
        std::chrono::round<std::chrono::microseconds>(m_format.rate.time_of(m_advanced++));
    const auto ended = [told](cWebDisplayPageFrame how) {
        told(how != cWebDisplayPageFrame::Failed);
    };
    if (!m_browser->AdvancePage(moment.count(), ended)) told(false);
}

std::string page_display::frame_fault() const {
    cWebDisplayPageStatus status;
    m_browser->GetPageStatus(status);
    return text_of(status.frameFault);
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

void page_display::ask_next_frame(const std::string& expression,
                                  std::function<void(std::string)> answer) {
    advance([](bool) {});
    m_browser->AskPage(zString(expression), [answer = std::move(answer)](const zString& value) {
        answer(text_of(value));
    });
}

void page_display::repaint() { m_browser->Repaint(); }

void page_display::GetSize(long& width, long& height) const {
    width = m_format.width;
    height = m_format.height;
}

// An open select list is painted apart from its page, without a place; it is left out.
void page_display::BrowserPainted(const void* pixels, long width, long height, bool isPopup) {
    if (isPopup) return;
    m_frames.painted(pixels, width, height, m_clock.now());
}

void page_display::PageLoadFailed(const zString& url, const zString& error) {
    m_heard(saying::news, "load failed: " + text_of(url) + ": " + text_of(error));
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
    m_heard(saying::news, "loaded: " + text_of(url));
    if (m_run != nullptr) m_run->page_loaded();
}

// Also where errors of the page's scripts arrive: the message, and the script's URL.
void page_display::JavascriptCallback(const zString& name, const zString& argument, zString&) {
    const std::string line = text_of(name) + " " + text_of(argument);
    if (is_script_error(name.View())) return m_heard(saying::script_error, "page: " + line);
    m_heard(saying::news, "page says: " + line);
}

}  // namespace pennywort::host
