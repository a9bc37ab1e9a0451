// fake_cef_control.cpp - the side of the fake runtime that tests speak to. See fake_cef.h.
#include <utility>

#include "tests/fakes/fake_cef_runtime.h"
#include "tests/fakes/fake_cef_system.h"

namespace fake {

std::vector<fake_cef_switch> runtime::switches() {
    const std::lock_guard lock(m_lock);
    return m_switches;
}

fake_cef_settings runtime::settings() { return m_settings; }

std::vector<std::string> runtime::arguments() { return m_arguments; }

int runtime::browser_count() {
    const std::lock_guard lock(m_lock);
    return static_cast<int>(m_pages.size());
}

fake_cef_browser runtime::browser(int id) {
    const auto found = find(id);
    return found ? found->record() : fake_cef_browser{};
}

std::vector<fake_cef_run_script> runtime::scripts() {
    const std::lock_guard lock(m_lock);
    return m_scripts;
}

std::vector<fake_cef_request> runtime::requests() {
    const std::lock_guard lock(m_lock);
    return m_requests;
}

std::vector<fake_cef_cookies> runtime::cookie_deletions() {
    const std::lock_guard lock(m_lock);
    return m_cookies;
}

std::vector<std::string> runtime::opened_by_popup() {
    const std::lock_guard lock(m_lock);
    return m_popups;
}

void runtime::cookies_deleted(fake_cef_cookies cookies) {
    const std::lock_guard lock(m_lock);
    m_cookies.push_back(std::move(cookies));
}

void runtime::script_ran(fake_cef_run_script script) {
    const std::lock_guard lock(m_lock);
    m_scripts.push_back(std::move(script));
}

void runtime::request_answered(fake_cef_request request) {
    const std::lock_guard lock(m_lock);
    m_requests.push_back(std::move(request));
}

void runtime::popup_opened(const std::string& url) {
    const std::lock_guard lock(m_lock);
    m_popups.push_back(url);
}

void runtime::post_after_works(int works, std::function<void()> work) {
    if (works <= 0) {
        post_ui(std::move(work));
        return;
    }
    m_ui.push_after_steps(std::move(work), works);
    schedule(0);
}

void runtime::paint(int browser) {
    if (const auto found = find(browser)) found->paint();
}

void runtime::paint_popup_widget(int browser, int width, int height) {
    if (const auto found = find(browser)) found->paint_element(PET_POPUP, width, height);
}

void runtime::show_popup_widget(int browser, bool is_shown) {
    if (const auto found = find(browser)) found->show_widget(is_shown);
}

void runtime::place_popup_widget(int browser, int left, int top) {
    if (const auto found = find(browser)) found->place_widget(left, top);
}

void runtime::change(int browser) {
    if (const auto found = find(browser)) found->change();
}

bool runtime::message(int browser, const std::string& name,
                      const std::vector<fake_cef_value>& arguments) {
    const auto found = find(browser);
    return found && !found->is_gone() && found->message(name, arguments);
}

bool runtime::message_from_closed(int browser, const std::string& name,
                                  const std::vector<fake_cef_value>& arguments) {
    const auto found = find(browser);
    return found && found->message(name, arguments);
}

void runtime::navigate(int browser, const std::string& url) {
    if (const auto found = find(browser)) found->load(url);
}

void runtime::inspector_event(int browser, const std::string& message) {
    if (const auto found = find(browser)) found->inspector_says(message);
}

void runtime::finish_load(int browser) {
    if (const auto found = find(browser)) found->finish_load();
}

void runtime::load_error(int browser, bool main_frame, int code, const std::string& text,
                         const std::string& url) {
    if (const auto found = find(browser)) found->load_error(main_frame, code, text, url);
}

void runtime::load_end(int browser, bool main_frame, int status, const std::string& frame_url) {
    if (const auto found = find(browser)) found->load_end(main_frame, status, frame_url);
}

int runtime::open_popup(int browser, const std::string& url, bool user_gesture) {
    const auto found = find(browser);
    return found ? found->open_popup(url, user_gesture) : 0;
}

void runtime::close_from_page(int browser) {
    if (const auto found = find(browser)) found->close(false);
}

void runtime::kill_renderer(int browser) {
    if (const auto found = find(browser)) found->kill_renderer();
}

bool runtime::sound_begins(int browser, int& channels, int& sample_rate) {
    const auto found = find(browser);
    return found && found->sound_begins(channels, sample_rate);
}

void runtime::sound(int browser, const std::vector<std::vector<float>>& channels,
                    std::int64_t milliseconds) {
    if (const auto found = find(browser)) found->sound(channels, milliseconds);
}

void runtime::sound_ends(int browser, const std::string& error) {
    if (const auto found = find(browser)) found->sound_ends(error);
}

bool runtime::drag_enter(int browser) {
    const auto found = find(browser);
    return found && found->drag_enter();
}

bool runtime::may_download(int browser, const std::string& url) {
    const auto found = find(browser);
    return !found || found->may_download(url);
}

void runtime::request(int browser, const std::string& url, bool main_frame) {
    if (const auto found = find(browser)) found->vet(url, main_frame, false, [](bool) {});
}

void runtime::view_rect(int browser, int& width, int& height) {
    width = height = -1;
    if (const auto found = find(browser)) found->view_rect(width, height);
}

namespace {

template <class Handler>
void list_if_there(cef_client_t* client, Handler* (*getter)(cef_client_t*), const char* name,
                   std::vector<std::string>& names) {
    const caller_ref<Handler> handler(getter ? getter(client) : nullptr, name);
    if (handler) names.emplace_back(name);
}

}  // namespace

std::vector<std::string> runtime::handlers(int browser) {
    const auto found = find(browser);
    const auto client = found ? found->client() : caller_ref<cef_client_t>();
    std::vector<std::string> names;
    if (!client) return names;
    cef_client_t& c = *client.get();
    list_if_there(&c, c.get_audio_handler, "audio", names);
    list_if_there(&c, c.get_command_handler, "command", names);
    list_if_there(&c, c.get_context_menu_handler, "context menu", names);
    list_if_there(&c, c.get_dialog_handler, "dialog", names);
    list_if_there(&c, c.get_display_handler, "display", names);
    list_if_there(&c, c.get_download_handler, "download", names);
    list_if_there(&c, c.get_drag_handler, "drag", names);
    list_if_there(&c, c.get_find_handler, "find", names);
    list_if_there(&c, c.get_focus_handler, "focus", names);
    list_if_there(&c, c.get_frame_handler, "frame", names);
    list_if_there(&c, c.get_jsdialog_handler, "jsdialog", names);
    list_if_there(&c, c.get_keyboard_handler, "keyboard", names);
    list_if_there(&c, c.get_life_span_handler, "life span", names);
    list_if_there(&c, c.get_load_handler, "load", names);
    list_if_there(&c, c.get_permission_handler, "permission", names);
    list_if_there(&c, c.get_print_handler, "print", names);
    list_if_there(&c, c.get_render_handler, "render", names);
    list_if_there(&c, c.get_request_handler, "request", names);
    return names;
}

// The fake's own references are given back for the length of the question, all but one.
bool runtime::client_is_unshared(int browser) {
    const auto found = find(browser);
    const auto client = found ? found->client() : caller_ref<cef_client_t>();
    if (!client) return false;
    int holders = 0;
    for (int id = 1; id <= browser_count(); ++id) {
        if (find(id)->client().get() == client.get()) ++holders;
    }
    auto* base = &client->base;
    for (int i = 0; i < holders; ++i) base->release(base);
    const bool unshared = base->has_one_ref(base) != 0;
    for (int i = 0; i < holders; ++i) base->add_ref(base);
    return unshared;
}

void runtime::calls_of_helper(std::vector<fake_cef_page_call> calls, bool world_is_ending) {
    m_helper_calls = std::move(calls);
    m_helper_world_is_ending = world_is_ending;
}

std::vector<fake_cef_sent_message> runtime::sent() {
    const std::lock_guard lock(m_lock);
    return m_sent;
}

void runtime::message_sent(fake_cef_sent_message message) {
    const std::lock_guard lock(m_lock);
    m_sent.push_back(std::move(message));
}

long runtime::loop_spins() { return m_effects ? m_effects->loop_spins() : 0; }

bool runtime::window_source_alive() { return m_effects && m_effects->window_source_alive(); }

}  // namespace fake

fake_cef* fake_cef_control() { return &fake::runtime::the(); }
