// page_bridge.cpp - see the header for the contract. Runs on the renderer process's main thread.
#include "childprocess/page_bridge.h"

#include <string>
#include <string_view>
#include <vector>

#include "webdisplay/cef/runtime.h"
#include "webdisplay/cef/text.h"

namespace pennywort {

namespace {

using value_ref = cef_ref<cef_v8_value_t>;
using context_ref = cef_ref<cef_v8_context_t>;
using userfree_text = cef_string_userfree_t;

// A page may replace its String; the text is then whatever that answers, as for its own scripts.
userfree_text text_by_page(cef_v8_value_t* value) {
    const context_ref context(cef().cef_v8_context_get_current_context());
    if (!context) return nullptr;
    const value_ref global(context->get_global(context.get()));
    const cef_text name("String");
    const value_ref convert(global ? global->get_value_bykey(global.get(), name.get()) : nullptr);
    if (!convert || !convert->is_function(convert.get())) return nullptr;
    add_reference(value);  // the call takes over a reference of each argument
    cef_v8_value_t* const arguments[] = {value};
    const value_ref text(convert->execute_function(convert.get(), nullptr, 1, arguments));
    if (!text) {  // it threw: a symbol cannot do that, an object's own toString can
        convert->clear_exception(convert.get());
        return nullptr;
    }
    return text->is_string(text.get()) ? text->get_string_value(text.get()) : nullptr;
}

// Text of any value as String(value) gives it. Null stands for the empty text.
userfree_text text_of(cef_v8_value_t* value) {
    return value->is_string(value) ? value->get_string_value(value) : text_by_page(value);
}

class execute_function final : public CefV8Handler {
public:
    void Execute(const std::vector<cef_v8_value_t*>& arguments) override {
        const context_ref context(cef().cef_v8_context_get_current_context());
        const cef_ref<cef_frame_t> frame(context ? context->get_frame(context.get()) : nullptr);
        if (!frame) return;
        const cef_text name("execute");
        cef_ref<cef_process_message_t> message(cef().cef_process_message_create(name.get()));
        const cef_ref<cef_list_value_t> list(message->get_argument_list(message.get()));
        list->set_size(list.get(), k_arguments);
        for (std::size_t i = 0; i < k_arguments; ++i) {
            userfree_text text = i < arguments.size() ? text_of(arguments[i]) : nullptr;
            const cef_string_t none{};
            list->set_string(list.get(), i, text ? text : &none);
            if (text) cef().cef_string_userfree_utf16_free(text);
        }
        frame->send_process_message(frame.get(), PID_BROWSER, message.release());
    }

private:
    static constexpr std::size_t k_arguments = 2;  // command and argument
};

void set_member(const value_ref& object, std::string_view name, value_ref member,
                cef_v8_propertyattribute_t attributes) {
    object->set_value_bykey(object.get(), cef_text(name).get(), member.release(), attributes);
}

}  // namespace

void child_app::OnContextCreated(cef_browser_t*, cef_frame_t*, cef_v8_context_t* context) {
    const value_ref window(context->get_global(context));
    value_ref host_app(cef().cef_v8_value_create_object(nullptr, nullptr));
    const own_ref<execute_function> handler(new execute_function);
    value_ref execute(
        cef().cef_v8_value_create_function(cef_text("execute").get(), handler->counted_handler()));
    if (!window || !host_app || !execute) return;
    set_member(host_app, "execute", std::move(execute), V8_PROPERTY_ATTRIBUTE_READONLY);
    set_member(window, "hostApp", std::move(host_app), V8_PROPERTY_ATTRIBUTE_NONE);
}

}  // namespace pennywort
