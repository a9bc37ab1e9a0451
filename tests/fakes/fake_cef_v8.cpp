// fake_cef_v8.cpp - see the header.
#include "tests/fakes/fake_cef_v8.h"

#include <cstdio>
#include <utility>

#include "tests/fakes/fake_cef_exports.h"
#include "tests/fakes/fake_cef_runtime.h"
#include "tests/fakes/fake_cef_text.h"
#include "tests/fakes/fake_cef_values.h"

namespace fake {

namespace {

// The context that scripts run in; helper processes have one thread for them.
v8_context* g_current = nullptr;

std::u16string text_of(const fake_cef_value& value) {
    if (const auto* text = std::get_if<std::u16string>(&value)) return *text;
    if (const auto* whole = std::get_if<int>(&value)) return wide(std::to_string(*whole));
    if (const auto* flag = std::get_if<bool>(&value)) return *flag ? u"true" : u"false";
    if (const auto* held = std::get_if<fake_cef_object>(&value)) return held->text;
    if (const auto* number = std::get_if<double>(&value)) {
        char digits[32];
        std::snprintf(digits, sizeof digits, "%.15g", *number);
        return wide(digits);
    }
    return u"undefined";
}

}  // namespace

v8_value::v8_value(const fake_cef_value& value)
    : object("script value"),
      m_kind(static_cast<kind>([&] {
          constexpr kind k_kinds[] = {kind::undefined, kind::text,     kind::whole,
                                      kind::boolean,   kind::fraction, kind::page_object};
          return k_kinds[value.index()];
      }())),
      m_value(value) {
    set_questions();
    set_operations();
}

v8_value::v8_value() : object("script object"), m_kind(kind::with_members) {
    set_questions();
    set_operations();
}

v8_value::v8_value(std::string name, caller_ref<cef_v8_handler_t> handler)
    : object("script function"),
      m_kind(kind::function),
      m_name(std::move(name)),
      m_handler(std::move(handler)) {
    set_questions();
    set_operations();
}

v8_value::v8_value(v8_built_in built_in)
    : object("script function"), m_kind(kind::function), m_built_in(std::move(built_in)) {
    set_questions();
    set_operations();
}

void v8_value::ended() {
    m_members.clear();
    m_handler = {};
    m_built_in = nullptr;
}

ref<v8_value> v8_value::member(const std::string& name) {
    const auto found = m_members.find(name);
    return found == m_members.end() ? ref<v8_value>(new v8_value(fake_cef_value{})) : found->second;
}

void v8_value::set_member(const std::string& name, ref<v8_value> value) {
    m_members[name] = std::move(value);
}

ref<v8_value> v8_value::text() {
    const auto* held = std::get_if<fake_cef_object>(&m_value);
    if (held && held->throws) return {};
    return ref<v8_value>(new v8_value(fake_cef_value(text_of(m_value))));
}

// The callee takes over a reference of each argument.
ref<v8_value> v8_value::call(const v8_arguments& arguments) {
    if (m_built_in) return m_built_in(arguments);
    if (!m_handler || !m_handler->execute) return {};
    std::vector<cef_v8_value_t*> passed;
    for (const auto& argument : arguments) passed.push_back(argument->counted());
    cef_v8_value_t* result = nullptr;
    cef_string_t exception{};
    const text_argument name(m_name);
    m_handler->execute(m_handler.get(), name.get(), (new v8_value)->given(), passed.size(),
                       passed.data(), &result, &exception);
    cef_string_utf16_clear(&exception);
    return ref<v8_value>(result ? &of(result) : nullptr);
}

void v8_value::set_questions() {
    is_valid = [](cef_v8_value_t* self) { return of(self), 1; };
    is_undefined = [](cef_v8_value_t* self) { return of(self).m_kind == kind::undefined ? 1 : 0; };
    is_null = [](cef_v8_value_t* self) { return of(self), 0; };
    is_bool = [](cef_v8_value_t* self) { return of(self).m_kind == kind::boolean ? 1 : 0; };
    is_int = [](cef_v8_value_t* self) { return of(self).m_kind == kind::whole ? 1 : 0; };
    is_double = [](cef_v8_value_t* self) { return of(self).m_kind == kind::fraction ? 1 : 0; };
    is_string = [](cef_v8_value_t* self) { return of(self).m_kind == kind::text ? 1 : 0; };
    is_object = [](cef_v8_value_t* self) { return of(self).m_kind >= kind::page_object ? 1 : 0; };
    is_function = [](cef_v8_value_t* self) { return of(self).m_kind == kind::function ? 1 : 0; };
    get_string_value = [](cef_v8_value_t* self) -> cef_string_userfree_t {
        if (of(self).m_kind == kind::text) return given_text(text_of(of(self).m_value));
        ledger::book().broken("get_string_value: the value is no text");
        return nullptr;
    };
    has_exception = [](cef_v8_value_t* self) { return of(self), 0; };
    clear_exception = [](cef_v8_value_t* self) { return of(self), 1; };
}

void v8_value::set_operations() {
    get_value_bykey = [](cef_v8_value_t* self, const cef_string_t* key) {
        return of(self).member(narrow_of(key, "get_value_bykey"))->counted();
    };
    set_value_bykey = [](cef_v8_value_t* self, const cef_string_t* key, cef_v8_value_t* value,
                         cef_v8_propertyattribute_t) {
        of(self).set_member(narrow_of(key, "set_value_bykey"), ref<v8_value>(&of(value)));
        return 1;
    };
    execute_function = [](cef_v8_value_t* self, cef_v8_value_t* receiver, std::size_t count,
                          cef_v8_value_t* const* arguments) -> cef_v8_value_t* {
        const ref<v8_value> of_receiver(receiver ? &of(receiver) : nullptr);
        v8_arguments taken;
        for (std::size_t i = 0; i < count; ++i) taken.emplace_back(&of(arguments[i]));
        const ref<v8_value> answer = of(self).call(taken);
        return answer ? answer->counted() : nullptr;
    };
}

namespace {

// What the application's script amounts to: a function that makes, of the application's own one,
// one that turns its arguments into text first. A text that cannot be had is the page's trouble.
ref<v8_value> maker_of_the_bridge() {
    return ref<v8_value>(new v8_value(v8_built_in([](const v8_arguments& given) {
        const ref<v8_value> send = given.at(0);
        return ref<v8_value>(new v8_value(v8_built_in([send](const v8_arguments& called_with) {
            const ref<v8_value> nothing(new v8_value(fake_cef_value{}));
            const ref<v8_value> no_text(new v8_value(fake_cef_value(std::u16string())));
            const auto& command = called_with.empty() ? nothing : called_with[0];
            const v8_arguments texts = {command->text(),
                                        called_with.size() > 1 ? called_with[1]->text() : no_text};
            if (texts[0] && texts[1]) send->call(texts);
            return ref<v8_value>();
        })));
    })));
}

}  // namespace

v8_context::v8_context(std::shared_ptr<page> shown, ref<v8_value> global, bool is_ending)
    : object("script context"),
      m_page(std::move(shown)),
      m_global(std::move(global)),
      m_is_ending(is_ending) {
    eval = [](cef_v8_context_t* self, const cef_string_t* code, const cef_string_t* url, int,
              cef_v8_value_t** result, cef_v8_exception_t**) {
        const std::string script = narrow_of(code, "eval");
        if (script.empty()) ledger::book().broken("eval: there is no script");
        ledger::book().check_string(url, "eval");
        if (of(self).m_is_ending) return 0;
        runtime::the().note_evaluated(script);
        *result = maker_of_the_bridge()->counted();
        return 1;
    };
    is_valid = [](cef_v8_context_t* self) { return of(self), 1; };
    get_global = [](cef_v8_context_t* self) { return of(self).m_global->counted(); };
    get_frame = [](cef_v8_context_t* self) { return of(self).m_page->frame_argument(true); };
    get_browser = [](cef_v8_context_t* self) { return of(self).m_page->browser_argument(); };
}

void v8_context::ended() {
    m_page.reset();
    m_global = {};
}

namespace {

void make_calls(v8_value& global, const std::vector<fake_cef_page_call>& calls) {
    const ref<v8_value> execute = global.member("hostApp")->member("execute");
    for (const auto& call : calls) {
        v8_arguments arguments;
        for (const auto& value : call.arguments) arguments.emplace_back(new v8_value(value));
        execute->call(arguments);
    }
}

void tell_of_browser(cef_render_process_handler_t& handler, const fake_cef_helper_event& event) {
    const auto other = std::make_shared<page>(event.browser, page_wish{});
    if (event.is_destroyed) {
        if (!handler.on_browser_destroyed) return;
        return handler.on_browser_destroyed(&handler, other->browser_argument());
    }
    if (!handler.on_browser_created) return;
    const ref<dictionary_value> terms(new dictionary_value);
    if (event.max_waiting_calls > 0) terms->put("max_waiting_calls", event.max_waiting_calls);
    if (event.refuses_printing) terms->put("refuses_printing", 1);
    handler.on_browser_created(&handler, other->browser_argument(),
                               event.is_told ? terms->counted() : nullptr);
}

}  // namespace

void runtime::run_helper(cef_app_t* app) noexcept {
    if (!app || !app->get_render_process_handler) return;
    const caller_ref<cef_render_process_handler_t> handler(app->get_render_process_handler(app),
                                                           "render process handler");
    if (!handler || !handler->on_context_created) return;
    const auto shown = std::make_shared<page>(1, page_wish{});
    const ref<v8_value> global(new v8_value);
    const ref<v8_context> context(new v8_context(shown, global, m_helper_world_is_ending));
    for (const auto& event : m_helper_events) tell_of_browser(*handler.get(), event);
    g_current = context.get();
    handler->on_context_created(handler.get(), shown->browser_argument(),
                                shown->frame_argument(true), context->counted());
    make_calls(*global.get(), m_helper_calls);
    g_current = nullptr;
}

}  // namespace fake

using fake::ledger;

cef_v8_context_t* cef_v8_context_get_current_context() {
    ledger::book().entered("cef_v8_context_get_current_context");
    return fake::g_current ? fake::g_current->counted() : nullptr;
}

cef_v8_value_t* cef_v8_value_create_function(const cef_string_t* name, cef_v8_handler_t* handler) {
    ledger::book().entered("cef_v8_value_create_function");
    fake::caller_ref<cef_v8_handler_t> kept(handler, "script handler");
    return (new fake::v8_value(fake::narrow_of(name, "create_function"), std::move(kept)))->given();
}

cef_v8_value_t* cef_v8_value_create_object(cef_v8_accessor_t* accessor,
                                           cef_v8_interceptor_t* interceptor) {
    ledger::book().entered("cef_v8_value_create_object");
    if (accessor || interceptor) ledger::book().broken("create_object: the fake knows no accessor");
    return (new fake::v8_value)->given();
}

cef_v8_value_t* cef_v8_value_create_string(const cef_string_t* value) {
    ledger::book().entered("cef_v8_value_create_string");
    return (new fake::v8_value(fake_cef_value(fake::wide_of(value, "create_string"))))->given();
}
