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

// How often is looked whether there is still a page.
constexpr std::chrono::milliseconds k_look{500};

std::string text_of(const zString& text) { return std::string(text.View()); }

zRecord settings_of(const live_options& options) {
    zRecord settings;
    settings.SetString("web_url", options.urls.front());
    settings.SetInt32("web_width", static_cast<std::int32_t>(options.width));
    settings.SetInt32("web_height", static_cast<std::int32_t>(options.height));
    settings.SetBool("web_transparent", options.transparent);
    settings.SetBool("web_refuse_downloads", true);
    settings.SetBool("web_report_lost_page", true);
    settings.SetBool("web_tell_every_load", true);
    return settings;
}

}  // namespace

live_display::live_display(const live_options& options, live_pictures& pictures)
    : m_loop(zMessageLoop::Current()),
      m_self(std::make_shared<live_display*>(this)),
      m_pictures(pictures),
      m_browser(cWebDisplayCEFBrowserManager::CreateBrowser(settings_of(options),
                                                            options.frames_per_second)) {
    if (!m_browser) throw std::bad_alloc();
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
    return reopen();
}

void live_display::close() {
    *m_self = nullptr;
    m_browser->SetVideoRenderer(nullptr);
    m_browser->SetPageCallbackReceiver(nullptr);
    m_browser->SetJavascriptCallbackReceiver(nullptr);
    m_browser->Close();
}

// Only a script finds out.
bool live_display::has_page() {
    return m_browser->ExecuteJavascript(zString(), 0, std::function<void(std::string)>()) == 0;
}

// Every page may close itself, and the display would stay shut for all that come after it. One that
// does so at once may have gone before it was ever seen.
void live_display::look_after_page() {
    const auto now = clock::now();
    if (now - m_looked < k_look) return;
    m_looked = now;
    if (has_page()) return page_seen();
    if (!m_has_page && now - m_opened < k_max_page_opening) return;
    zString url;
    m_browser->GetUrlForLastPageLoaded(url);
    m_control->events().add("failed", m_has_page ? text_of(url) + ": the page has closed itself"
                                                 : "there is no page: the display is opened anew");
    m_browser->Close();
    reopen();
}

void live_display::page_seen() {
    // Said while there was no page, it reached none.
    if (!m_has_page && !m_visible) m_browser->SetVisibility(false);
    m_has_page = true;
}

bool live_display::reopen() {
    m_has_page = false;
    m_opened = clock::now();
    return m_browser->Open();
}

void live_display::tell_status() {
    look_after_page();
    live_status status;
    zString url;
    m_browser->GetUrlForLastPageLoaded(url);
    status.url = text_of(url);
    status.loading = m_browser->IsLoading();
    status.visible = m_visible;
    m_browser->GetSize(status.width, status.height);
    m_control->set_status(status);
}

void live_display::post(work todo) {
    m_loop->Post([self = m_self, todo = std::move(todo)] {
        if (*self) todo(**self);
    });
}

void live_display::load(const std::string& url) {
    post([url](live_display& display) { display.m_browser->LoadUrl(url.c_str()); });
}

void live_display::resize(long width, long height) {
    post([=](live_display& display) { display.m_browser->SetSize(width, height); });
}

void live_display::set_visible(bool visible) {
    post([visible](live_display& display) {
        display.m_visible = visible;
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

void live_display::run_now(std::uint64_t id, const std::string& script) {
    const auto send = [self = m_self](const std::string& body, auto returned) {
        constexpr unsigned long k_forgotten_after = 60'000;
        const auto if_open = [self, returned](const std::string& text) {
            if (*self) returned(text);
        };
        return *self && (*self)->m_browser->ExecuteJavascript(zString(body), k_forgotten_after,
                                                              if_open) == 0;
    };
    run_live_script(script, send, [id, self = m_self](const auto& kind, const auto& result) {
        if (*self) (*self)->m_control->script_ended(id, kind, result);
    });
}

void live_display::GetSize(long& width, long& height) const { m_browser->GetSize(width, height); }

// An open select list is painted apart from its page, without a place; it is left out.
void live_display::BrowserPainted(const void* pixels, long width, long height, bool isPopup) {
    if (!isPopup) m_pictures.painted(pixels, width, height);
}

void live_display::PageLoadFailed(const zString& url, const zString& error) {
    m_control->events().add("failed", text_of(url) + ": " + text_of(error));
}

void live_display::PageLoaded(const zString& url) {
    page_seen();
    m_control->events().add("loaded", text_of(url));
}

// Also where errors of the page's scripts arrive: the message, and the script's URL.
void live_display::JavascriptCallback(const zString& name, const zString& argument, zString&) {
    m_control->events().add("page", text_of(name) + " " + text_of(argument));
}

}  // namespace pennywort::host
