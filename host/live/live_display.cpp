// host/live/live_display.cpp - see the header for the contract.
#include "host/live/live_display.h"

#include <new>
#include <utility>

#include "core/limits.h"
#include "host/live/live_script.h"
#include "loam/record.h"
#include "loam/string.h"

namespace pennywort::host {

namespace {

// Whether the page is still there is asked so often.
constexpr std::chrono::milliseconds k_look{500};

// A probe that is not answered is given up after so long, in milliseconds.
constexpr unsigned long k_probe_timeout = 10'000;

std::string text_from(const zString& text) { return std::string(text.View()); }

zRecord display_settings_of(const live_options& options) {
    zRecord settings;
    settings.SetString("web_url", options.urls.front());
    settings.SetInt32("web_width", static_cast<std::int32_t>(options.width));
    settings.SetInt32("web_height", static_cast<std::int32_t>(options.height));
    settings.SetBool("web_transparent", options.is_transparent);
    settings.SetBool("web_refuse_downloads", true);
    settings.SetBool("web_refuse_printing", true);
    settings.SetInt32("web_max_popups", k_max_popups);
    settings.SetBool("web_merge_widgets", true);
    settings.SetBool("web_muted", options.is_muted);
    settings.SetBool("web_report_lost_page", true);
    settings.SetBool("web_tell_every_load", true);
    settings.SetBool("web_fail_on_error_status", true);
    settings.SetBool("web_keep_last_picture", true);
    settings.SetInt32("web_max_waiting_calls", k_max_waiting_page_calls);
    return settings;
}

live_sight::page page_of(cWebDisplayPagePhase phase) {
    switch (phase) {
        case cWebDisplayPagePhase::Asked:
            return live_sight::page::asked;
        case cWebDisplayPagePhase::Loading:
            return live_sight::page::loading;
        case cWebDisplayPagePhase::Failed:
            return live_sight::page::failed;
        case cWebDisplayPagePhase::Lost:
            return live_sight::page::lost;
        case cWebDisplayPagePhase::Loaded:
            return live_sight::page::loaded;
        default:
            return live_sight::page::none;
    }
}

}  // namespace

live_display::live_display(const live_options& options, live_pictures& pictures,
                           const run::monotonic_clock& clock)
    : m_loop(zMessageLoop::Current()),
      m_self(std::make_shared<live_display*>(this)),
      m_pictures(pictures),
      m_browser(cWebDisplayCEFBrowserManager::CreateBrowser(display_settings_of(options),
                                                            options.frames_per_second)),
      m_clock(clock),
      m_state(options.urls.front(), clock.now()) {
    if (m_browser == nullptr) throw std::bad_alloc();
}

live_display::~live_display() {
    close();
    m_browser->Release();
}

bool live_display::open(live_control& control) {
    m_control = &control;
    m_browser->SetVideoRenderer(this);
    m_browser->SetPageCallbackReceiver(this);
    m_browser->SetJavascriptCallbackReceiver(this);
    return m_browser->Open();
}

void live_display::close() {
    *m_self = nullptr;
    m_browser->SetVideoRenderer(nullptr);
    m_browser->SetPageCallbackReceiver(nullptr);
    m_browser->SetJavascriptCallbackReceiver(nullptr);
    m_browser->Close();
}

void live_display::look_after() {
    look_for_page();
    see();
    carry_out(m_state.next(m_clock.now()));
    release_picture();
    tell_silence(m_state.is_silent(m_clock.now()));
    tell_status();
}

// The display itself does not tell that its page has gone, but it takes no script then.
void live_display::look_for_page() {
    const auto now = m_clock.now();
    if (now - m_looked < k_look) return;
    m_looked = now;
    if (m_browser->ExecuteJavascript(zString(), 0, std::function<void(std::string)>()) != 0) {
        m_state.page_is_missing(now);
        return;
    }
    // A display without a page forgets that it was hidden.
    if (!m_has_page && !m_is_visible) m_browser->SetVisibility(false);
    m_has_page = true;
    m_state.page_is_there();
}

void live_display::see() {
    cWebDisplayPageStatus status;
    m_browser->GetPageStatus(status);
    m_dropped_calls = status.droppedCalls;
    if (status.phase == cWebDisplayPagePhase::Closed) m_looked = {};
    live_sight sight;
    sight.phase = page_of(status.phase);
    sight.url = text_from(status.url);
    if (sight.phase == live_sight::page::failed) sight.failed_url = sight.url;
    sight.error = text_from(status.error);
    sight.waiting = status.waiting;
    m_state.seen(sight, m_clock.now());
}

void live_display::carry_out(live_state::action what) {
    switch (what) {
        case live_state::action::load:
            m_browser->LoadUrl(m_state.target().c_str());
            m_control->events().add("again", m_state.target());
            see();
            break;
        case live_state::action::reopen:
            reopen();
            break;
        case live_state::action::probe:
            probe();
            break;
        case live_state::action::none:
            break;
    }
}

void live_display::reopen() {
    m_has_page = false;
    m_control->events().add("failed", m_state.on_air() + ": " + m_state.error());
    m_browser->Close();
    m_browser->Open();
}

// The pages of a site share a process: where one hangs, the next one would never begin.
void live_display::renew(const std::string& url) {
    m_has_page = false;
    m_control->events().add("again", "with another process, since the page does not answer");
    // The old browser may paint while it closes. Those pictures are held back.
    m_state.renewed(m_clock.now());
    m_browser->Close();
    m_browser->LoadUrl(url.c_str());
    m_browser->Open();
}

// A page that hangs never returns the value.
void live_display::probe() {
    m_browser->ExecuteJavascript(zString("return ''"), k_probe_timeout,
                                 [self = m_self](const std::string&) {
                                     if (*self != nullptr) (*self)->m_state.answered();
                                 });
}

// A page at rest would not paint again what was held back.
void live_display::release_picture() {
    const bool was_held = std::exchange(m_was_holding, m_state.holds_picture());
    if (was_held && !m_was_holding) m_browser->Repaint();
}

void live_display::tell_silence(bool is_silent) {
    if (is_silent == std::exchange(m_is_silent, is_silent)) return;
    m_control->events().add(is_silent ? "failed" : "page",
                            m_state.on_air() + (is_silent ? ": the page does not answer"
                                                          : ": the page answers again or is left"));
}

void live_display::tell_status() {
    live_status status;
    status.url = m_state.on_air();
    status.phase = m_state.phase();
    status.is_loading = m_browser->IsLoading();
    status.wanted = m_state.wanted();
    status.error = m_state.error();
    status.since = m_state.since();
    status.is_silent = m_is_silent;
    status.reloads = m_state.reloads();
    status.dropped_calls = m_dropped_calls;
    status.loads = m_loads;
    status.is_visible = m_is_visible;
    m_browser->GetSize(status.width, status.height);
    m_control->set_status(status);
}

void live_display::post(work todo) {
    m_loop->Post([self = m_self, todo = std::move(todo)] {
        if (*self != nullptr) todo(**self);
    });
}

void live_display::load(const std::string& url) {
    post([url](live_display& display) { display.load_now(url); });
}

// The display gives the page to its browser, or keeps it until the one before has loaded. see()
// reports either.
void live_display::load_now(const std::string& url) {
    ++m_loads;
    m_is_silent ? renew(url) : m_browser->LoadUrl(url.c_str());
    m_state.asked(url, m_clock.now());
    see();
}

void live_display::resize(long width, long height) {
    post([=](live_display& display) { display.m_browser->SetSize(width, height); });
}

void live_display::set_visible(bool visible) {
    post([visible](live_display& display) {
        display.m_is_visible = visible;
        display.m_browser->SetVisibility(visible);
    });
}

void live_display::repaint() {
    post([](live_display& display) { display.m_browser->Repaint(); });
}

void live_display::delete_cookies(const std::string& url) {
    post([url](live_display& display) { display.m_browser->DeleteCookies(url.c_str()); });
}

void live_display::run_script(std::uint64_t id, const std::string& script) {
    post([id, script](live_display& display) { display.run_now(id, script); });
}

bool live_display::execute(const std::string& body,
                           std::function<void(const std::string&)> returned) {
    constexpr unsigned long k_forgotten_after = 60'000;
    const auto if_open = [self = m_self, returned = std::move(returned)](const std::string& text) {
        if (*self != nullptr) returned(text);
    };
    return m_browser->ExecuteJavascript(zString(body), k_forgotten_after, if_open) == 0;
}

void live_display::run_now(std::uint64_t id, const std::string& script) {
    const auto send = [self = m_self](const std::string& body, auto returned) {
        return *self != nullptr && (*self)->execute(body, std::move(returned));
    };
    run_live_script(script, send, [id, self = m_self](const auto& kind, const auto& result) {
        if (*self != nullptr) (*self)->m_control->script_ended(id, kind, result);
    });
}

void live_display::GetSize(long& width, long& height) const { m_browser->GetSize(width, height); }

// An open select list is painted apart from its page, without a place; it is left out.
void live_display::BrowserPainted(const void* pixels, long width, long height, bool isPopup) {
    if (!isPopup && !m_state.holds_picture()) m_pictures.painted(pixels, width, height);
}

void live_display::PageLoadFailed(const zString& url, const zString& error) {
    see();
    m_state.told_of_failure(text_from(url), text_from(error), m_clock.now());
    m_control->events().add("failed", text_from(url) + ": " + text_from(error));
}

void live_display::PageLoaded(const zString& url) {
    see();
    m_control->events().add("loaded", text_from(url));
}

// Also where errors of the page's scripts arrive: the message, and the script's URL.
void live_display::JavascriptCallback(const zString& name, const zString& argument, zString&) {
    m_control->events().add("page", text_from(name) + " " + text_from(argument));
}

}  // namespace pennywort::host
