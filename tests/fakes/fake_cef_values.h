// fake_cef_values.h - the fake runtime's objects that carry data: messages, lists, requests,
// command lines, and the callback that answers a request.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "tests/fakes/fake_cef.h"
#include "tests/fakes/fake_cef_object.h"

namespace fake {

class list_value final : public object<list_value, cef_list_value_t> {
public:
    explicit list_value(std::vector<fake_cef_value> values = {});
    std::vector<fake_cef_value> values();
    void ended() {}

private:
    void set_readers();
    void set_writers();
    fake_cef_value at(std::size_t index);
    int put(std::size_t index, fake_cef_value value);

    std::mutex m_lock;
    std::vector<fake_cef_value> m_values;
};

// Holds numbers only.
class dictionary_value final : public object<dictionary_value, cef_dictionary_value_t> {
public:
    dictionary_value();
    void put(const std::string& key, int value) { m_numbers[key] = value; }
    void ended() {}

private:
    std::map<std::string, int> m_numbers;
};

class process_message final : public object<process_message, cef_process_message_t> {
public:
    process_message(std::u16string name, std::vector<fake_cef_value> values);
    std::u16string name() const { return m_name; }
    std::vector<fake_cef_value> values() { return m_list->values(); }
    void ended() { m_list = {}; }

private:
    std::u16string m_name;
    ref<list_value> m_list;
};

class page_request final : public object<page_request, cef_request_t> {
public:
    page_request(std::string url, bool main_frame, bool navigation);
    void ended() {}

private:
    std::string m_url;
    cef_resource_type_t m_type = RT_MAIN_FRAME;
};

// Answers a request once; dropped without an answer it cancels, as in the real runtime.
class request_callback final : public object<request_callback, cef_callback_t> {
public:
    explicit request_callback(std::function<void(bool allowed)> answer);
    void ended() { answer(false); }
    // The callback's holder has answered in another way.
    void forget();

private:
    void answer(bool allowed);
    void answer_by_caller(bool allowed);

    std::mutex m_lock;
    std::function<void(bool)> m_answer;
    bool m_answered = false;
};

class command_line final : public object<command_line, cef_command_line_t> {
public:
    explicit command_line(std::string process_type);
    std::vector<fake_cef_switch> switches() const { return m_switches; }
    void ended() {}

private:
    const fake_cef_switch* find(const std::string& name) const;

    std::string m_process_type;
    std::vector<fake_cef_switch> m_switches;
};

class cookie_manager final : public object<cookie_manager, cef_cookie_manager_t> {
public:
    cookie_manager();
    void ended() {}
};

class drag_data final : public object<drag_data, cef_drag_data_t> {
public:
    drag_data() : object("drag data") {}
    void ended() {}
};

}  // namespace fake
