// page_bridge.cpp - see the header for the contract. Runs on the renderer process's main thread.
#include "childprocess/page_bridge.h"

#include <string_view>
#include <vector>

#include "webdisplay/cef/runtime.h"
#include "webdisplay/cef/text.h"

namespace pennywort::childprocess {

namespace {

using value_ref = cef::ref<cef_v8_value_t>;
using context_ref = cef::ref<cef_v8_context_t>;

// What the page calls turns both values into text as the page's own scripts would, with the String
// that the page had when it was new: the values may be of kinds that cannot be carried out of the
// page, and what their own toString throws belongs to the caller. An argument that is not given is
// empty.
constexpr std::string_view k_execute =
    "(function(send) { const text = String; return function execute(command, argument) { "
    "send(arguments.length > 0 ? text(command) : '', arguments.length > 1 ? text(argument) : ''); "
    "}; })";

// Sends two texts from the page to the host.
class send_function final : public cef::CefV8Handler {
public:
    void Execute(const std::vector<cef_v8_value_t*>& arguments) override {
        const context_ref context(cef::api().cef_v8_context_get_current_context());
        const cef::ref<cef_frame_t> frame(context ? context->get_frame(context.get()) : nullptr);
        if (!frame) return;
        cef::ref<cef_process_message_t> message(
            cef::api().cef_process_message_create(cef::utf16("execute").get()));
        const cef::ref<cef_list_value_t> list(message->get_argument_list(message.get()));
        list->set_size(list.get(), arguments.size());
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            cef_string_userfree_t text = arguments[i]->get_string_value(arguments[i]);
            const cef_string_t none{};
            list->set_string(list.get(), i, text ? text : &none);
            if (text) cef::api().cef_string_userfree_utf16_free(text);
        }
        frame->send_process_message(frame.get(), PID_BROWSER, message.release());
    }
};

value_ref evaluate(cef_v8_context_t* context, std::string_view script) {
    cef_v8_value_t* value = nullptr;
    cef_v8_exception_t* exception = nullptr;
    context->eval(context, cef::utf16(script).get(), cef::utf16("").get(), 0, &value, &exception);
    const cef::ref<cef_v8_exception_t> dropped(exception);
    return value_ref(value);
}

// The function that the page gets; empty if the page's world is going away already.
value_ref make_execute(cef_v8_context_t* context) {
    const cef::own<send_function> handler(new send_function);
    value_ref send(cef::api().cef_v8_value_create_function(cef::utf16("send").get(),
                                                           handler->counted_handler()));
    const value_ref make = evaluate(context, k_execute);
    if (!send || !make) return {};
    cef_v8_value_t* const arguments[] = {send.release()};
    return value_ref(make->execute_function(make.get(), nullptr, 1, arguments));
}

void set_member(const value_ref& object, std::string_view name, value_ref member,
                cef_v8_propertyattribute_t attributes) {
    object->set_value_bykey(object.get(), cef::utf16(name).get(), member.release(), attributes);
}

}  // namespace

void child_app::OnContextCreated(cef_browser_t*, cef_frame_t*, cef_v8_context_t* context) {
    const value_ref window(context->get_global(context));
    value_ref host_app(cef::api().cef_v8_value_create_object(nullptr, nullptr));
    value_ref execute = make_execute(context);
    if (!window || !host_app || !execute) return;
    set_member(host_app, "execute", std::move(execute), V8_PROPERTY_ATTRIBUTE_READONLY);
    set_member(window, "hostApp", std::move(host_app), V8_PROPERTY_ATTRIBUTE_NONE);
}

}  // namespace pennywort::childprocess
