// fake_cef_v8.h - as much of a script engine as a helper process needs: values, objects with
// members, functions of the application, and the page's own String.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "tests/fakes/fake_cef.h"
#include "tests/fakes/fake_cef_object.h"
#include "tests/fakes/fake_cef_page.h"

namespace fake {

class v8_value;
using v8_members = std::map<std::string, ref<v8_value>>;
using v8_arguments = std::vector<ref<v8_value>>;
using v8_built_in = std::function<ref<v8_value>(const v8_arguments&)>;

class v8_value final : public object<v8_value, cef_v8_value_t> {
public:
    enum class kind {
        undefined,
        boolean,
        whole,
        fraction,
        text,
        page_object,
        with_members,
        function
    };

    explicit v8_value(const fake_cef_value& value);
    // An object with members, none yet.
    v8_value();
    v8_value(std::string name, caller_ref<cef_v8_handler_t> handler);
    // A function that a script made.
    explicit v8_value(v8_built_in built_in);

    ref<v8_value> member(const std::string& name);
    void set_member(const std::string& name, ref<v8_value> value);
    // Calls a function, the application's or a script's.
    ref<v8_value> call(const v8_arguments& arguments);
    // What the page's String makes of it; empty when that throws.
    ref<v8_value> text();
    void ended();

private:
    void set_questions();
    void set_operations();

    kind m_kind = kind::undefined;
    fake_cef_value m_value;
    v8_members m_members;
    std::string m_name;
    caller_ref<cef_v8_handler_t> m_handler;
    v8_built_in m_built_in;
};

class v8_context final : public object<v8_context, cef_v8_context_t> {
public:
    v8_context(std::shared_ptr<page> shown, ref<v8_value> global, bool is_ending);
    void ended();

private:
    std::shared_ptr<page> m_page;
    ref<v8_value> m_global;
    bool m_is_ending;
};

}  // namespace fake
