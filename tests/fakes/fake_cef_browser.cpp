// fake_cef_browser.cpp - see the header.
#include "tests/fakes/fake_cef_browser.h"

#include <utility>

#include "tests/fakes/fake_cef_exports.h"
#include "tests/fakes/fake_cef_runtime.h"
#include "tests/fakes/fake_cef_text.h"
#include "tests/fakes/fake_cef_values.h"

namespace fake {

namespace {

// Most operations may be called on any thread, and act at once on the UI thread, else in a task.
void on_ui(page& shown, void (*operation)(page&)) {
    if (runtime::the().on_ui_thread()) return operation(shown);
    runtime::the().post_ui([kept = shown.shared_from_this(), operation] { operation(*kept); });
}

}  // namespace

browser_object::browser_object(std::shared_ptr<page> shown)
    : object("browser"), m_page(std::move(shown)) {
    is_valid = [](cef_browser_t* self) { return of(self).m_page->is_closed() ? 0 : 1; };
    get_host = [](cef_browser_t* self) { return (new host_object(of(self).m_page))->given(); };
    is_loading = [](cef_browser_t* self) { return of(self).m_page->record().loading ? 1 : 0; };
    get_identifier = [](cef_browser_t* self) { return of(self).m_page->id(); };
    is_same = [](cef_browser_t* self, cef_browser_t* that) {
        const browser_object& other = of(that);
        const int same = other.m_page == of(self).m_page ? 1 : 0;
        that->base.release(&that->base);
        return same;
    };
    is_popup = [](cef_browser_t* self) { return of(self).m_page->record().is_popup ? 1 : 0; };
    // A closed browser has no frame any more.
    get_main_frame = [](cef_browser_t* self) -> cef_frame_t* {
        page& shown_page = of(self).shown("get_main_frame");
        return shown_page.is_closed() ? nullptr : shown_page.frame_argument(true);
    };
    stop_load = [](cef_browser_t* self) {
        on_ui(of(self).shown("stop_load"), [](page& p) { p.finish_load(); });
    };
}

page& browser_object::shown(const char* operation) {
    m_page->touched(operation);
    return *m_page;
}

host_object::host_object(std::shared_ptr<page> shown)
    : object("browser host"), m_page(std::move(shown)) {
    get_browser = [](cef_browser_host_t* self) { return of(self).m_page->browser_argument(); };
    get_visible_navigation_entry = [](cef_browser_host_t* self) {
        return (new entry_object(of(self).m_page))->given();
    };
    set_window_operations();
    set_paint_operations();
    set_inspector_operations();
}

page& host_object::shown(const char* operation) {
    m_page->touched(operation);
    return *m_page;
}

void host_object::set_window_operations() {
    close_browser = [](cef_browser_host_t* self, int forced) {
        page& closed = of(self).shown("close_browser");
        closed.note([&](fake_cef_browser& b) { ++b.closes, b.close_forced = forced != 0; });
        on_ui(
            closed, forced ? [](page& p) { p.close(true); } : [](page& p) { p.close(false); });
    };
    get_window_handle = [](cef_browser_host_t* self) {
        const bool windowless = of(self).shown("get_window_handle").record().windowless;
        const std::uintptr_t window = windowless ? 0 : runtime::the().script().window_handle;
        return (cef_window_handle_t)window;
    };
    set_focus = [](cef_browser_host_t* self, int focus) {
        of(self).shown("set_focus").note([&](fake_cef_browser& b) {
            b.focuses.push_back(focus != 0);
        });
    };
    set_audio_muted = [](cef_browser_host_t* self, int muted) {
        of(self).shown("set_audio_muted").note([&](fake_cef_browser& b) {
            b.is_muted = muted != 0;
        });
    };
    notify_move_or_resize_started = [](cef_browser_host_t* self) {
        of(self).shown("notify_move_or_resize_started").note([](fake_cef_browser& b) {
            ++b.move_notices;
        });
    };
    is_window_rendering_disabled = [](cef_browser_host_t* self) {
        return of(self).shown("is_window_rendering_disabled").record().windowless ? 1 : 0;
    };
}

void host_object::set_paint_operations() {
    was_resized = [](cef_browser_host_t* self) {
        page& resized = of(self).shown("was_resized");
        resized.note([](fake_cef_browser& b) { ++b.resizes; });
        on_ui(resized, [](page& p) { p.resize(); });
    };
    was_hidden = [](cef_browser_host_t* self, int hidden) {
        page& hid = of(self).shown("was_hidden");
        hid.note([&](fake_cef_browser& b) { b.hides.push_back(hidden != 0); });
        on_ui(
            hid, hidden ? [](page& p) { p.hide(true); } : [](page& p) { p.hide(false); });
    };
    invalidate = [](cef_browser_host_t* self, cef_paint_element_type_t type) {
        page& stale = of(self).shown("invalidate");
        stale.note([&](fake_cef_browser& b) { b.invalidates.push_back(type); });
        on_ui(stale, [](page& p) { p.invalidate(); });
    };
    send_external_begin_frame = [](cef_browser_host_t* self) {
        page& ticked = of(self).shown("send_external_begin_frame");
        ticked.note([](fake_cef_browser& b) { ++b.begin_frames; });
        if (!ticked.record().external_begin_frame) {
            ledger::book().broken("a begin frame was sent to a browser that paints by itself");
        }
        // The picture comes later, also on the UI thread.
        if (!ticked.take_frame()) return;
        runtime::the().post_ui([kept = ticked.shared_from_this()] { kept->begin_frame(); });
    };
    get_windowless_frame_rate = [](cef_browser_host_t* self) {
        return of(self).shown("get_windowless_frame_rate").record().frame_rate;
    };
    set_windowless_frame_rate = [](cef_browser_host_t* self, int rate) {
        of(self).shown("set_windowless_frame_rate").note([&](fake_cef_browser& b) {
            b.frame_rate = rate;
        });
    };
}

void host_object::set_inspector_operations() {
    send_dev_tools_message = [](cef_browser_host_t* self, const void* text, size_t size) {
        const std::string message(static_cast<const char*>(text), size);
        page& asked = of(self).shown("send_dev_tools_message");
        runtime::the().post_ui(
            [kept = asked.shared_from_this(), message] { kept->inspect(message); });
        return 1;
    };
    add_dev_tools_message_observer = [](cef_browser_host_t* self,
                                        cef_dev_tools_message_observer_t* observer) {
        page& watched = of(self).shown("add_dev_tools_message_observer");
        auto* one = new inspector_registration(watched.shared_from_this(), observer);
        return one->given();
    };
}

entry_object::entry_object(std::shared_ptr<page> shown)
    : object("navigation entry"), m_page(std::move(shown)) {
    get_http_status_code = [](cef_navigation_entry_t* self) {
        return of(self).m_page->record().status;
    };
}

inspector_registration::inspector_registration(std::shared_ptr<page> watched,
                                               cef_dev_tools_message_observer_t* observer)
    : object("registration"), m_page(std::move(watched)) {
    m_page->observe(this, {observer, "inspector observer"});
}

void inspector_registration::ended() {
    m_page->observe(this, {});
    m_page.reset();
}

frame_object::frame_object(std::shared_ptr<page> shown, bool main_frame,
                           std::string url_of_sub_frame)
    : object("frame"),
      m_page(std::move(shown)),
      m_main(main_frame),
      m_sub_url(std::move(url_of_sub_frame)) {
    is_valid = [](cef_frame_t* self) { return of(self).m_page->is_closed() ? 0 : 1; };
    is_main = [](cef_frame_t* self) { return of(self).m_main ? 1 : 0; };
    get_url = [](cef_frame_t* self) { return given_text(wide(of(self).url())); };
    get_identifier = [](cef_frame_t* self) {
        return given_text(of(self).m_main ? u"main" : u"sub");
    };
    get_browser = [](cef_frame_t* self) { return of(self).m_page->browser_argument(); };
    load_url = [](cef_frame_t* self, const cef_string_t* url) {
        page& loaded = of(self).shown("load_url");
        const std::string target = narrow_of(url, "load_url");
        loaded.note([&](fake_cef_browser& b) { b.loads.push_back(target); });
        if (runtime::the().on_ui_thread()) return loaded.load(target);
        runtime::the().post_ui([kept = loaded.shared_from_this(), target] { kept->load(target); });
    };
    execute_java_script = [](cef_frame_t* self, const cef_string_t* code, const cef_string_t* url,
                             int line) { of(self).run(code, url, line); };
    send_process_message = [](cef_frame_t* self, cef_process_id_t target,
                              cef_process_message_t* sent) {
        of(self).shown("send_process_message");
        process_message& taken = process_message::of(sent);
        runtime::the().message_sent({narrow(taken.name()), target == PID_BROWSER, taken.values()});
        taken.drop();
    };
}

page& frame_object::shown(const char* operation) {
    m_page->touched(operation);
    return *m_page;
}

std::string frame_object::url() { return m_main ? m_page->record().url : m_sub_url; }

void frame_object::run(const cef_string_t* code, const cef_string_t* url, int line) {
    shown("execute_java_script")
        .ran_script({m_page->id(), narrow_of(code, "execute_java_script"),
                     narrow_of(url, "execute_java_script"), line, m_main,
                     runtime::the().on_ui_thread()});
}

}  // namespace fake

using fake::ledger;

namespace {

void check_sizes(const cef_window_info_t& window, const cef_browser_settings_t& settings) {
    if (window.size != sizeof window) ledger::book().broken("cef_window_info_t has the wrong size");
    if (settings.size != sizeof settings) {
        ledger::book().broken("cef_browser_settings_t has the wrong size");
    }
}

fake_cef_browser record_of(const cef_window_info_t& window,
                           const cef_browser_settings_t& settings) {
    fake_cef_browser record;
    record.width = window.bounds.width;
    record.height = window.bounds.height;
    record.parent_window = (std::uintptr_t)window.parent_window;
    record.windowless = window.windowless_rendering_enabled != 0;
    record.external_begin_frame = window.external_begin_frame_enabled != 0;
    record.runtime_style = window.runtime_style;
    record.frame_rate = settings.windowless_frame_rate;
    record.background_color = settings.background_color;
    return record;
}

}  // namespace

void fake::note_terms(cef_dictionary_value_t* extra_info, fake_cef_browser& record) {
    if (extra_info == nullptr) return;
    const auto told = [extra_info](const char* name) {
        const fake::text_argument key(name);
        return extra_info->get_int(extra_info, key.get());
    };
    record.max_waiting_calls = told("max_waiting_calls");
    record.refuses_printing = told("refuses_printing") != 0;
}

int cef_browser_host_create_browser(const cef_window_info_t* windowInfo, cef_client_t* client,
                                    const cef_string_t* url, const cef_browser_settings_t* settings,
                                    cef_dictionary_value_t* extra_info,
                                    cef_request_context_t* request_context) {
    ledger::book().entered("cef_browser_host_create_browser");
    fake::runtime& runtime = fake::runtime::the();
    check_sizes(*windowInfo, *settings);
    if (request_context) ledger::book().broken("create_browser: the fake knows no context");
    const fake::caller_ref<cef_dictionary_value_t> extra(extra_info, "dictionary");
    auto wish = std::make_shared<fake::page_wish>();
    wish->client = {client, "client"};
    wish->url = fake::narrow_of(url, "create_browser");
    wish->record = record_of(*windowInfo, *settings);
    fake::note_terms(extra_info, wish->record);
    if (runtime.fails_creation() || !runtime.is_initialised()) return 0;
    const auto make = [wish, &runtime] { runtime.new_page(*wish)->announce(); };
    if (runtime.script().creation_never_answers) {
        // Kept, as by a process that never starts; shut-down drops it.
        runtime.post_after_works(1 << 30, make);
    } else {
        runtime.post_after_works(runtime.script().create_after_works, make);
    }
    return 1;
}
