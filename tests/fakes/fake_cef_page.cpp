// fake_cef_page.cpp - see the header. The end, the frames and the rest of a browser's life stand in
// fake_cef_page_life.cpp; this file is its loads.
#include "tests/fakes/fake_cef_page.h"

#include <utility>

#include "tests/fakes/fake_cef_browser.h"
#include "tests/fakes/fake_cef_runtime.h"
#include "tests/fakes/fake_cef_text.h"
#include "tests/fakes/fake_cef_values.h"

namespace fake {

namespace {

constexpr int k_most_redirects = 20;
constexpr int k_aborted = -3;
constexpr int k_too_many_redirects = -310;

}  // namespace

page::page(int id, page_wish wish)
    : m_id(id), m_record(std::move(wish.record)), m_client(std::move(wish.client)) {
    m_record.id = id;
    m_record.open = true;
    m_record.start_url = std::move(wish.url);
}

fake_cef_browser page::record() {
    const std::lock_guard lock(m_lock);
    return m_record;
}

void page::note(const std::function<void(fake_cef_browser&)>& change) {
    const std::lock_guard lock(m_lock);
    change(m_record);
}

bool page::is_closed() { return record().closed; }

bool page::is_gone() {
    const std::lock_guard lock(m_lock);
    return m_record.closed || m_dead;
}

caller_ref<cef_client_t> page::client() {
    const std::lock_guard lock(m_lock);
    return m_client;
}

void page::touched(const char* operation) {
    if (is_closed())
        ledger::book().late(std::string(operation) + " of browser " + std::to_string(m_id));
}

cef_browser_t* page::browser_argument() {
    return (new browser_object(shared_from_this()))->given();
}

cef_frame_t* page::frame_argument(bool main_frame, const std::string& url_of_sub_frame) {
    return (new frame_object(shared_from_this(), main_frame, url_of_sub_frame))->given();
}

void page::loading_state(bool loading) {
    note([&](fake_cef_browser& b) { b.loading = loading; });
    const auto load = handler(&cef_client_t::get_load_handler, "load handler");
    if (!load || !load->on_loading_state_change) return;
    const callback_scope scope(*this);
    load->on_loading_state_change(load.get(), browser_argument(), loading ? 1 : 0, 0, 0);
}

void page::load_start(bool main_frame, const std::string& url_of_sub_frame) {
    const auto load = handler(&cef_client_t::get_load_handler, "load handler");
    if (!load || !load->on_load_start) return;
    const callback_scope scope(*this);
    load->on_load_start(load.get(), browser_argument(),
                        frame_argument(main_frame, url_of_sub_frame), TT_EXPLICIT);
    // The runtime's own rule for the sound of sites, which nothing else has closed.
    if (main_frame) note([](fake_cef_browser& b) { b.is_muted = false; });
}

void page::load_end(bool main_frame, int status, const std::string& url_of_sub_frame) {
    const auto load = handler(&cef_client_t::get_load_handler, "load handler");
    if (!load || !load->on_load_end) return;
    const callback_scope scope(*this);
    load->on_load_end(load.get(), browser_argument(), frame_argument(main_frame, url_of_sub_frame),
                      status);
}

void page::load_error(bool main_frame, int code, const std::string& text, const std::string& url) {
    const auto load = handler(&cef_client_t::get_load_handler, "load handler");
    if (!load || !load->on_load_error) return;
    const text_argument error_text(text), failed_url(url);
    const callback_scope scope(*this);
    load->on_load_error(load.get(), browser_argument(), frame_argument(main_frame, url),
                        static_cast<cef_errorcode_t>(code), error_text.get(), failed_url.get());
}

bool page::is_current(int navigation) {
    const std::lock_guard lock(m_lock);
    return m_navigation == navigation && !m_record.closed && !m_dead;
}

// Before the first load has begun another one waits for it, and then replaces it.
void page::load(const std::string& url) {
    std::string replaced;
    int navigation = 0;
    {
        const std::lock_guard lock(m_lock);
        const auto& pages = runtime::the().script().pages;
        const auto found = pages.find(url);
        if (m_record.closed || (found != pages.end() && found->second.is_ignored)) return;
        if (!m_attached) return m_early_loads.push_back(url);
        m_dead = false;
        replaced = std::exchange(m_navigating_to, url);
        navigation = ++m_navigation;
        m_redirects = 0;
    }
    if (!record().loading) loading_state(true);
    if (!replaced.empty()) abort_load_of(replaced);
    if (is_current(navigation)) navigate(navigation, url);
}

void page::abort_load_of(const std::string& url) {
    runtime::the().post_ui([self = shared_from_this(), url] {
        if (!self->is_closed()) self->load_error(true, k_aborted, "ERR_ABORTED", url);
    });
}

void page::navigate(int navigation, const std::string& url) {
    vet(url, true, true, [self = shared_from_this(), navigation, url](bool allowed) {
        runtime::the().post_ui(
            [self, navigation, url, allowed] { self->answered(navigation, url, allowed); });
    });
}

void page::answered(int navigation, const std::string& url, bool allowed) {
    if (!is_current(navigation)) return;
    if (!allowed) return fail(navigation, url, k_aborted, "ERR_ABORTED");
    const auto& pages = runtime::the().script().pages;
    const auto found = pages.find(url);
    const fake_cef_page content = found == pages.end() ? fake_cef_page{} : found->second;
    if (!content.redirect_to.empty()) return redirect(navigation, content.redirect_to);
    if (content.error != 0) return fail(navigation, url, content.error, content.error_text);
    if (!content.never_ends) commit(navigation, url, content);
}

void page::redirect(int navigation, const std::string& to) {
    if (++m_redirects > k_most_redirects) {
        return fail(navigation, to, k_too_many_redirects, "ERR_TOO_MANY_REDIRECTS");
    }
    navigate(navigation, to);
}

// An aborted load leaves the page that was there. Any other failure shows an error page, whose main
// frame has the failed URL and "ends" like a loaded one, with status 0.
void page::fail(int navigation, const std::string& url, int code, const std::string& text) {
    if (code != k_aborted) note([&](fake_cef_browser& b) { b.url = url, b.status = 0; });
    load_error(true, code, text, url);
    if (is_current(navigation) && code != k_aborted) load_end(true, 0, {});
    if (is_current(navigation)) show_loaded();
}

void page::commit(int navigation, const std::string& url, const fake_cef_page& content) {
    note([&](fake_cef_browser& b) { b.url = url, b.status = content.status; });
    load_start(true, {});
    for (const auto& resource : content.resources) vet(resource, true, false, [](bool) {});
    if (content.frames.empty()) return end_load(navigation);
    load_sub_frames(navigation, content);
}

void page::load_sub_frames(int navigation, const fake_cef_page& content) {
    auto left = std::make_shared<std::size_t>(content.frames.size());
    for (const auto& url : content.frames) {
        const auto loaded = [self = shared_from_this(), navigation, url, left] {
            if (!self->is_current(navigation)) return;
            self->load_start(false, url);
            self->load_end(false, 200, url);
            if (--*left == 0) self->end_load(navigation);
        };
        vet(url, false, true, [loaded](bool) { runtime::the().post_ui(loaded); });
    }
}

void page::end_load(int navigation) {
    if (is_current(navigation)) load_end(true, record().status, {});
    if (is_current(navigation)) show_loaded();
}

void page::show_loaded() {
    {
        const std::lock_guard lock(m_lock);
        m_navigating_to.clear();
    }
    loading_state(false);
    if (!runtime::the().script().paint_after_load) return;
    change();
}

void page::finish_load() {
    std::string url;
    int navigation = 0;
    {
        const std::lock_guard lock(m_lock);
        if (m_navigating_to.empty() || m_record.closed) return;
        url = m_navigating_to;
        navigation = m_navigation;
    }
    commit(navigation, url, {});
}

void page::vet(const std::string& url, bool main_frame, bool navigation,
               std::function<void(bool)> then) {
    runtime::the().post_io([self = shared_from_this(), url, main_frame, navigation, then] {
        self->vet_on_io(url, main_frame, navigation, then);
    });
}

void page::vet_on_io(const std::string& url, bool main_frame, bool navigation,
                     const std::function<void(bool)>& then) {
    const bool was_asynchronous = true;
    const auto answer = [self = shared_from_this(), url, main_frame, then](bool allowed,
                                                                           bool asynchronous) {
        runtime::the().request_answered({self->id(), url, main_frame, allowed,
                                         asynchronous && runtime::the().on_ui_thread(),
                                         asynchronous});
        then(allowed);
    };
    ref<request_callback> callback(
        new request_callback([answer](bool allowed) { answer(allowed, was_asynchronous); }));
    const cef_return_value_t verdict = ask_client(url, main_frame, navigation, *callback.get());
    if (verdict == RV_CONTINUE_ASYNC) return;
    callback->forget();
    answer(verdict == RV_CONTINUE, !was_asynchronous);
}

cef_return_value_t page::ask_client(const std::string& url, bool main_frame, bool navigation,
                                    request_callback& callback) {
    const auto requests = handler(&cef_client_t::get_request_handler, "request handler");
    if (!requests || !requests->get_resource_request_handler) return RV_CONTINUE;
    const text_argument initiator("");
    int disable_default = 0;
    const ref<page_request> asked(new page_request(url, main_frame, navigation));
    const caller_ref<cef_resource_request_handler_t> resource(
        requests->get_resource_request_handler(
            requests.get(), browser_argument(), frame_argument(main_frame, url), asked->counted(),
            navigation ? 1 : 0, 0, initiator.get(), &disable_default),
        "resource request handler");
    if (!resource || !resource->on_before_resource_load) return RV_CONTINUE;
    return resource->on_before_resource_load(resource.get(), browser_argument(),
                                             frame_argument(main_frame, url), asked->counted(),
                                             callback.counted());
}

void page::announce() {
    const auto life = handler(&cef_client_t::get_life_span_handler, "life span handler");
    if (life && life->on_after_created) {
        const callback_scope scope(*this);
        life->on_after_created(life.get(), browser_argument());
    }
    runtime::the().post_ui([self = shared_from_this()] { self->attached(); });
}

void page::attached() {
    std::vector<std::string> early;
    {
        const std::lock_guard lock(m_lock);
        if (m_record.closed) return;
        m_attached = true;
        early.swap(m_early_loads);
    }
    int width = 0, height = 0;
    const fake_cef_browser now = record();
    if (now.windowless) view_rect(width, height);
    if (!now.start_url.empty()) load(now.start_url);
    for (const auto& url : early) load(url);
    if (now.windowless && !now.external_begin_frame) animate();
}

}  // namespace fake
