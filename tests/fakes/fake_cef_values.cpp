// fake_cef_values.cpp - see the header.
#include "tests/fakes/fake_cef_values.h"

#include <utility>

#include "tests/fakes/fake_cef_exports.h"
#include "tests/fakes/fake_cef_runtime.h"
#include "tests/fakes/fake_cef_text.h"

namespace fake {

list_value::list_value(std::vector<fake_cef_value> values)
    : object("list"), m_values(std::move(values)) {
    set_readers();
    set_writers();
}

std::vector<fake_cef_value> list_value::values() {
    const std::lock_guard lock(m_lock);
    return m_values;
}

fake_cef_value list_value::at(std::size_t index) {
    const std::lock_guard lock(m_lock);
    return index < m_values.size() ? m_values[index] : fake_cef_value{};
}

int list_value::put(std::size_t index, fake_cef_value value) {
    const std::lock_guard lock(m_lock);
    if (index >= m_values.size()) m_values.resize(index + 1);
    m_values[index] = std::move(value);
    return 1;
}

namespace {

cef_value_type_t type_of(const fake_cef_value& value) {
    constexpr cef_value_type_t k_types[] = {VTYPE_NULL, VTYPE_STRING, VTYPE_INT,
                                            VTYPE_BOOL, VTYPE_DOUBLE, VTYPE_DICTIONARY};
    return k_types[value.index()];
}

template <class T, class Answer>
Answer as(const fake_cef_value& value, Answer otherwise) {
    const T* kept = std::get_if<T>(&value);
    return kept ? static_cast<Answer>(*kept) : otherwise;
}

}  // namespace

void list_value::set_readers() {
    is_valid = [](cef_list_value_t* self) { return of(self), 1; };
    get_size = [](cef_list_value_t* self) { return of(self).values().size(); };
    get_type = [](cef_list_value_t* self, std::size_t index) {
        if (index >= of(self).values().size()) return VTYPE_INVALID;
        return type_of(of(self).at(index));
    };
    get_bool = [](cef_list_value_t* self, std::size_t index) {
        return as<bool>(of(self).at(index), 0);
    };
    get_int = [](cef_list_value_t* self, std::size_t index) {
        return as<int>(of(self).at(index), 0);
    };
    get_double = [](cef_list_value_t* self, std::size_t index) {
        return as<double>(of(self).at(index), 0.0);
    };
    // A value that is no text reads as none; nothing is converted.
    get_string = [](cef_list_value_t* self, std::size_t index) {
        return given_text(as<std::u16string>(of(self).at(index), std::u16string()));
    };
}

void list_value::set_writers() {
    set_size = [](cef_list_value_t* self, std::size_t size) {
        list_value& list = of(self);
        const std::lock_guard lock(list.m_lock);
        list.m_values.resize(size);
        return 1;
    };
    set_null = [](cef_list_value_t* self, std::size_t index) {
        return of(self).put(index, std::monostate{});
    };
    set_bool = [](cef_list_value_t* self, std::size_t index, int value) {
        return of(self).put(index, value != 0);
    };
    set_int = [](cef_list_value_t* self, std::size_t index, int value) {
        return of(self).put(index, value);
    };
    set_double = [](cef_list_value_t* self, std::size_t index, double value) {
        return of(self).put(index, value);
    };
    set_string = [](cef_list_value_t* self, std::size_t index, const cef_string_t* value) {
        return of(self).put(index, wide_of(value, "set_string"));
    };
}

dictionary_value::dictionary_value() : object("dictionary") {
    set_int = [](cef_dictionary_value_t* self, const cef_string_t* key, int value) {
        of(self).m_numbers[narrow_of(key, "set_int")] = value;
        return 1;
    };
    get_int = [](cef_dictionary_value_t* self, const cef_string_t* key) {
        const auto& numbers = of(self).m_numbers;
        const auto found = numbers.find(narrow_of(key, "get_int"));
        return found == numbers.end() ? 0 : found->second;
    };
}

process_message::process_message(std::u16string name, std::vector<fake_cef_value> values)
    : object("message"), m_name(std::move(name)), m_list(new list_value(std::move(values))) {
    is_valid = [](cef_process_message_t* self) { return of(self), 1; };
    get_name = [](cef_process_message_t* self) { return given_text(of(self).m_name); };
    get_argument_list = [](cef_process_message_t* self) { return of(self).m_list->counted(); };
}

page_request::page_request(std::string url, bool main_frame, bool navigation)
    : object("request"), m_url(std::move(url)) {
    const cef_resource_type_t document = main_frame ? RT_MAIN_FRAME : RT_SUB_FRAME;
    const bool is_icon = m_url.ends_with("/favicon.ico");
    m_type = navigation ? document : is_icon ? RT_FAVICON : RT_SUB_RESOURCE;
    get_url = [](cef_request_t* self) { return given_text(wide(of(self).m_url)); };
    get_resource_type = [](cef_request_t* self) { return of(self).m_type; };
}

request_callback::request_callback(std::function<void(bool)> answer)
    : object("request callback"), m_answer(std::move(answer)) {
    cont = [](cef_callback_t* self) { of(self).answer_by_caller(true); };
    cancel = [](cef_callback_t* self) { of(self).answer_by_caller(false); };
}

void request_callback::answer(bool allowed) {
    std::function<void(bool)> answer;
    {
        const std::lock_guard lock(m_lock);
        m_answered = true;
        std::swap(answer, m_answer);
    }
    if (answer) answer(allowed);
}

void request_callback::answer_by_caller(bool allowed) {
    {
        const std::lock_guard lock(m_lock);
        if (m_answered) ledger::book().broken("a request was answered twice");
    }
    answer(allowed);
}

void request_callback::forget() {
    const std::lock_guard lock(m_lock);
    m_answered = true;
    m_answer = nullptr;
}

command_line::command_line(std::string process_type)
    : object("command line"), m_process_type(std::move(process_type)) {
    append_switch = [](cef_command_line_t* self, const cef_string_t* name) {
        command_line& line = of(self);
        line.m_switches.push_back(
            {line.m_process_type, narrow_of(name, "append_switch"), "", false});
    };
    append_switch_with_value = [](cef_command_line_t* self, const cef_string_t* name,
                                  const cef_string_t* value) {
        command_line& line = of(self);
        line.m_switches.push_back({line.m_process_type, narrow_of(name, "append_switch_with_value"),
                                   narrow_of(value, "append_switch_with_value"), true});
    };
    has_switch = [](cef_command_line_t* self, const cef_string_t* name) {
        return of(self).find(narrow_of(name, "has_switch")) ? 1 : 0;
    };
    get_switch_value = [](cef_command_line_t* self, const cef_string_t* name) {
        const fake_cef_switch* found = of(self).find(narrow_of(name, "get_switch_value"));
        return given_text(wide(found ? found->value : ""));
    };
}

const fake_cef_switch* command_line::find(const std::string& name) const {
    for (const auto& entry : m_switches) {
        if (entry.name == name) return &entry;
    }
    return nullptr;
}

cookie_manager::cookie_manager() : object("cookie manager") {
    delete_cookies = [](cef_cookie_manager_t* self, const cef_string_t* url,
                        const cef_string_t* name, cef_delete_cookies_callback_t* callback) {
        of(self);
        const caller_ref<cef_delete_cookies_callback_t> done(callback, "cookie callback");
        runtime::the().cookies_deleted({narrow_of(url, "delete_cookies"),
                                        narrow_of(name, "delete_cookies"), callback != nullptr,
                                        runtime::the().on_ui_thread()});
        return 1;
    };
}

}  // namespace fake

using fake::ledger;

cef_process_message_t* cef_process_message_create(const cef_string_t* name) {
    ledger::book().entered("cef_process_message_create");
    return (new fake::process_message(fake::wide_of(name, "cef_process_message_create"), {}))
        ->given();
}

cef_dictionary_value_t* cef_dictionary_value_create() {
    ledger::book().entered("cef_dictionary_value_create");
    return (new fake::dictionary_value)->given();
}

cef_list_value_t* cef_list_value_create() {
    ledger::book().entered("cef_list_value_create");
    return (new fake::list_value)->given();
}

cef_cookie_manager_t* cef_cookie_manager_get_global_manager(cef_completion_callback_t* callback) {
    ledger::book().entered("cef_cookie_manager_get_global_manager");
    const fake::caller_ref<cef_completion_callback_t> ready(callback, "completion callback");
    if (!fake::runtime::the().is_initialised()) return nullptr;
    return (new fake::cookie_manager)->given();
}
