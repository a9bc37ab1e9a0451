// fake_cef_page_life.cpp - frames, messages, popups and the end of a browser of the fake runtime.
// Its loads stand in fake_cef_page.cpp.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "tests/fakes/fake_cef_browser.h"
#include "tests/fakes/fake_cef_page.h"
#include "tests/fakes/fake_cef_runtime.h"
#include "tests/fakes/fake_cef_system.h"
#include "tests/fakes/fake_cef_text.h"
#include "tests/fakes/fake_cef_values.h"

namespace fake {

namespace {

constexpr int k_default_frame_rate = 30;

struct free_memory {
    void operator()(void* memory) const { std::free(memory); }
};
// From calloc, so that a frame of a huge size takes no memory until it is read.
using pixels = std::unique_ptr<std::uint32_t, free_memory>;

pixels new_pixels(std::size_t count) {
    return pixels(static_cast<std::uint32_t*>(std::calloc(count, sizeof(std::uint32_t))));
}

}  // namespace

void page::close(bool forced) {
    const fake_cef_script& script = runtime::the().script();
    if (script.ignore_close) return;
    if (m_callbacks > 0 && script.close_after_works == 0) {
        ledger::book().broken("browser " + std::to_string(m_id) +
                              " was closed inside its own callback, which goes on using it");
    }
    {
        const std::lock_guard lock(m_lock);
        if (m_closing || m_record.closed) return;
        m_closing = true;
    }
    const auto life = handler(&cef_client_t::get_life_span_handler, "life span handler");
    note([](fake_cef_browser& b) { b.do_close_asked = true; });
    if (life && life->do_close && life->do_close(life.get(), browser_argument()) != 0 && !forced) {
        const std::lock_guard lock(m_lock);
        m_closing = false;
        return;
    }
    if (script.close_after_works == 0) return finish_close();
    runtime::the().post_after_works(script.close_after_works,
                                    [self = shared_from_this()] { self->finish_close(); });
}

void page::finish_close() {
    const auto life = handler(&cef_client_t::get_life_span_handler, "life span handler");
    if (life && life->on_before_close) life->on_before_close(life.get(), browser_argument());
    note([](fake_cef_browser& b) { b.closed = true, b.open = false, b.loading = false; });
    if (!runtime::the().script().keep_clients) drop_client();
}

void page::drop_client() {
    caller_ref<cef_client_t> dropped;
    const std::lock_guard lock(m_lock);
    std::swap(dropped, m_client);
}

void page::kill_renderer() {
    const bool was_loading = record().loading;
    {
        const std::lock_guard lock(m_lock);
        m_dead = true;
        m_navigating_to.clear();
    }
    const auto requests = handler(&cef_client_t::get_request_handler, "request handler");
    const text_argument no_text("");
    if (requests && requests->on_render_process_terminated) {
        requests->on_render_process_terminated(requests.get(), browser_argument(),
                                               TS_PROCESS_WAS_KILLED, 9, no_text.get());
    }
    if (was_loading && !runtime::the().script().loading_outlives_renderer) loading_state(false);
}

void page::view_rect(int& width, int& height) {
    width = height = -1;
    const auto render = handler(&cef_client_t::get_render_handler, "render handler");
    if (!render || !render->get_view_rect) return;
    const callback_scope scope(*this);
    cef_rect_t rect{0, 0, 0, 0};
    render->get_view_rect(render.get(), browser_argument(), &rect);
    if (rect.width < 1 || rect.height < 1) ledger::book().broken("get_view_rect: an empty view");
    width = rect.width;
    height = rect.height;
    const double scale = view_scale(*render.get());
    note([&](fake_cef_browser& b) {
        b.view_width = width, b.view_height = height, b.view_scale = scale;
    });
}

double page::view_scale(cef_render_handler_t& render) {
    cef_screen_info_t info{};
    info.size = sizeof info;
    info.device_scale_factor = 1;
    const bool is_known = render.get_screen_info != nullptr &&
                          render.get_screen_info(&render, browser_argument(), &info) != 0;
    return is_known ? static_cast<double>(info.device_scale_factor) : 1;
}

void page::resize() {
    const fake_cef_browser before = record();
    if (before.closed || !before.windowless) return;
    int width = 0, height = 0;
    view_rect(width, height);
    if (width != before.view_width || height != before.view_height) change();
}

void page::hide(bool hidden) {
    const bool shown_again = std::exchange(m_hidden, hidden) && !hidden;
    if (shown_again) change();
}

// With its own clock a page paints what has changed in a task of its own. Otherwise its next begin
// frame does.
void page::change() {
    m_changed = true;
    if (record().external_begin_frame) return;
    runtime::the().post_ui([self = shared_from_this()] {
        if (std::exchange(self->m_changed, false)) self->paint();
    });
}

// The pixels that are there go out inside the call, whoever drives the page.
void page::invalidate() {
    if (m_painting) {
        ledger::book().broken("invalidate was called inside a paint, which paints again within it");
        return change();
    }
    if (record().paints > 0) paint();
}

bool page::take_frame() {
    std::atomic<int>& to_drop = runtime::the().script().frames_to_drop;
    if (to_drop > 0 && to_drop-- > 0) return false;
    {
        const std::lock_guard lock(m_lock);
        const bool is_busy = std::exchange(m_in_frame, true);
        if (is_busy && runtime::the().script().one_frame_at_a_time) return false;
    }
    const std::int64_t now = monotonic_nanoseconds();
    note([now](fake_cef_browser& b) { b.begin_times.push_back(now); });
    return true;
}

void page::begin_frame() {
    {
        const std::lock_guard lock(m_lock);
        m_in_frame = false;
    }
    for (const auto& turn : std::exchange(m_turns, {})) inspector_says(turn);
    const bool animated = runtime::the().script().animate;
    if (std::exchange(m_changed, false) || animated) paint();
}

void page::animate() {
    const int rate = record().frame_rate;
    const int interval = 1000 / std::clamp(rate > 0 ? rate : k_default_frame_rate, 1, 1000);
    runtime::the().post_ui_delayed(
        [self = shared_from_this()] {
            if (self->is_closed()) return;
            if (runtime::the().script().animate) self->paint();
            self->animate();
        },
        std::max(1, interval));
}

void page::paint() {
    const fake_cef_browser now = record();
    if (!now.windowless || m_hidden || is_gone() || now.view_width < 1) return;
    note([](fake_cef_browser& b) { ++b.paints; });
    paint_element(PET_VIEW, static_cast<int>(std::lround(now.view_width * now.view_scale)),
                  static_cast<int>(std::lround(now.view_height * now.view_scale)));
}

// The first and the last pixel hold the number of the frame, so that a receiver can tell them
// apart.
void page::paint_element(cef_paint_element_type_t type, int width, int height) {
    const auto render = handler(&cef_client_t::get_render_handler, "render handler");
    if (!render || !render->on_paint) return;
    const std::size_t count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    const pixels frame = new_pixels(count);
    // Opaque, as what the real one paints.
    const auto number = 0xFF000000u | static_cast<std::uint32_t>(record().paints);
    std::fill_n(frame.get(), count, number);
    const cef_rect_t dirty{0, 0, width, height};
    const callback_scope scope(*this);
    const bool was_painting = std::exchange(m_painting, true);
    render->on_paint(render.get(), browser_argument(), type, 1, &dirty, frame.get(), width, height);
    m_painting = was_painting;
}

void page::show_widget(bool is_shown) {
    const auto render = handler(&cef_client_t::get_render_handler, "render handler");
    if (!render || !render->on_popup_show) return;
    const callback_scope scope(*this);
    render->on_popup_show(render.get(), browser_argument(), is_shown ? 1 : 0);
}

void page::place_widget(int left, int top) {
    const auto render = handler(&cef_client_t::get_render_handler, "render handler");
    if (!render || !render->on_popup_size) return;
    const callback_scope scope(*this);
    const cef_rect_t rect{left, top, 1, 1};
    render->on_popup_size(render.get(), browser_argument(), &rect);
}

bool page::message(const std::string& name, const std::vector<fake_cef_value>& arguments) {
    const auto asked = client();
    if (!asked || !asked->on_process_message_received) return false;
    const callback_scope scope(*this);
    return asked->on_process_message_received(
               asked.get(), browser_argument(), frame_argument(true), PID_RENDERER,
               (new process_message(wide(name), arguments))->given()) != 0;
}

int page::open_popup(const std::string& url, bool user_gesture) {
    const auto life = handler(&cef_client_t::get_life_span_handler, "life span handler");
    if (!life) return 0;
    page_wish wish{client(), url, record()};
    // In and out: the client that is passed comes with a reference, and so does one put in its
    // place.
    wish.client->base.add_ref(&wish.client->base);
    cef_client_t* const passed = wish.client.get();
    cef_client_t* chosen = passed;
    cef_window_info_t window{};
    window.size = sizeof window;
    cef_browser_settings_t settings{};
    settings.size = sizeof settings;
    cef_popup_features_t features{};
    features.size = sizeof features;
    cef_dictionary_value_t* extra_info = nullptr;
    int no_script_access = 0;
    const text_argument target(url), name("");
    const callback_scope scope(*this);
    const bool cancelled =
        life->on_before_popup &&
        life->on_before_popup(life.get(), browser_argument(), frame_argument(true), 1, target.get(),
                              name.get(), CEF_WOD_NEW_POPUP, user_gesture ? 1 : 0, &features,
                              &window, &chosen, &settings, &extra_info, &no_script_access) != 0;
    if (!life->on_before_popup) passed->base.release(&passed->base);
    if (chosen != passed) wish.client = {chosen, "client"};
    const caller_ref<cef_dictionary_value_t> extra(extra_info, "dictionary");
    if (cancelled) return 0;
    runtime::the().popup_opened(url);
    fake_cef_browser fresh;
    note_terms(extra_info, fresh);
    fresh.is_popup = true;
    fresh.windowless = window.windowless_rendering_enabled != 0 || wish.record.windowless;
    wish.record = fresh;
    const auto popup = runtime::the().new_page(std::move(wish));
    popup->announce();
    return popup->id();
}

namespace {

// What the machine's own output would be, for a client that does not say what it wants.
cef_audio_parameters_t usual_sound() {
    cef_audio_parameters_t parameters{};
    parameters.size = sizeof parameters;
    parameters.channel_layout = CEF_CHANNEL_LAYOUT_MONO;
    parameters.sample_rate = 44'100;
    parameters.frames_per_buffer = 441;
    return parameters;
}

}  // namespace

bool page::sound_begins(int& channels, int& sample_rate) {
    const auto hears = handler(&cef_client_t::get_audio_handler, "audio handler");
    if (!hears) return false;
    auto parameters = usual_sound();
    const callback_scope scope(*this);
    if (!hears->get_audio_parameters(hears.get(), browser_argument(), &parameters)) return false;
    channels = parameters.channel_layout == CEF_CHANNEL_LAYOUT_STEREO ? 2 : 1;
    sample_rate = parameters.sample_rate;
    hears->on_audio_stream_started(hears.get(), browser_argument(), &parameters, channels);
    return true;
}

void page::sound(const std::vector<std::vector<float>>& channels, std::int64_t milliseconds) {
    const auto hears = handler(&cef_client_t::get_audio_handler, "audio handler");
    if (!hears || channels.empty()) return;
    std::vector<const float*> samples;
    for (const auto& channel : channels) samples.push_back(channel.data());
    hears->on_audio_stream_packet(hears.get(), browser_argument(), samples.data(),
                                  static_cast<int>(channels[0].size()), milliseconds);
}

void page::sound_ends(const std::string& error) {
    const auto hears = handler(&cef_client_t::get_audio_handler, "audio handler");
    if (!hears) return;
    const callback_scope scope(*this);
    if (error.empty()) return hears->on_audio_stream_stopped(hears.get(), browser_argument());
    const text_argument text(error);
    hears->on_audio_stream_error(hears.get(), browser_argument(), text.get());
}

bool page::drag_enter() {
    const auto drags = handler(&cef_client_t::get_drag_handler, "drag handler");
    if (!drags || !drags->on_drag_enter) return false;
    const callback_scope scope(*this);
    return drags->on_drag_enter(drags.get(), browser_argument(), (new drag_data)->given(),
                                DRAG_OPERATION_COPY) != 0;
}

bool page::may_download(const std::string& url) {
    const auto downloads = handler(&cef_client_t::get_download_handler, "download handler");
    if (!downloads || !downloads->can_download) return true;
    const text_argument address(url), method("GET");
    return downloads->can_download(downloads.get(), browser_argument(), address.get(),
                                   method.get()) != 0;
}

void page::ran_script(fake_cef_run_script script) {
    const std::string code = script.code;
    const bool in_main_frame = script.main_frame;
    runtime::the().script_ran(std::move(script));
    if (!in_main_frame || is_gone()) return;
    runtime::the().post_ui([self = shared_from_this(), code] { self->react(code); });
}

// What the page's own script engine would do with the one script that the product needs an answer
// to.
void page::react(const std::string& code) {
    const fake_cef_script& script = runtime::the().script();
    if (is_gone()) return;
    if (script.on_script) script.on_script(m_id, code);
    if (!script.page_answers_next_url || is_gone()) return;
    if (code != "window.hostApp.execute('LoadNextUrl', '0');") return;
    message("execute", {std::u16string(u"LoadNextUrl"), std::u16string(u"0")});
}

}  // namespace fake
