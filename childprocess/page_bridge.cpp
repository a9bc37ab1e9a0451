// page_bridge.cpp - see the header for the contract. Runs on the renderer process's main thread.
#include "childprocess/page_bridge.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "webdisplay/cef/runtime.h"
#include "webdisplay/cef/text.h"
#include "webdisplay/page_calls.h"
#include "webdisplay/page_scripts.h"

namespace pennywort::childprocess {

namespace {

using value_ref = cef::ref<cef_v8_value_t>;
using context_ref = cef::ref<cef_v8_context_t>;

// The function that a page calls turns both values into text as the page's own scripts would, with
// the String that the page had when it was new: the values may be of kinds that cannot be carried
// out of the page, and what their own toString throws belongs to the caller. An argument that is
// not given is empty.
constexpr std::string_view k_execute =
    "(function(send) { const text = String; return function execute(command, argument) { "
    "send(arguments.length > 0 ? text(command) : '', arguments.length > 1 ? text(argument) : ''); "
    "}; })";

// A message to the host, and its list of arguments.
struct host_message {
    explicit host_message(std::string_view name)
        : message(cef::api().cef_process_message_create(cef::utf16(name).get())),
          list(message->get_argument_list(message.get())) {}
    void send(cef_frame_t* frame) {
        frame->send_process_message(frame, PID_BROWSER, message.release());
    }

    cef::ref<cef_process_message_t> message;
    cef::ref<cef_list_value_t> list;
};

void tell_dropped(cef_frame_t* frame, call_budget& budget) {
    host_message dropped(webdisplay::k_dropped_message);
    dropped.list->set_size(dropped.list.get(), 1);
    dropped.list->set_int(dropped.list.get(), 0, static_cast<int>(budget.take_untold()));
    dropped.send(frame);
}

// Whether the runtime's string begins with an ASCII text.
bool starts_with(const cef_string_t* text, std::string_view ascii) {
    if (text == nullptr || text->length < ascii.size()) return false;
    return std::equal(ascii.begin(), ascii.end(), text->str,
                      [](char a, auto b) { return static_cast<decltype(b)>(a) == b; });
}

// Sends two texts from the page to the host.
class send_function final : public cef::CefV8Handler {
public:
    explicit send_function(std::shared_ptr<call_budget> budget) : m_budget(std::move(budget)) {}

    void Execute(std::span<cef_v8_value_t* const> arguments) override {
        const context_ref context(cef::api().cef_v8_context_get_current_context());
        const cef::ref<cef_frame_t> frame(context ? context->get_frame(context.get()) : nullptr);
        if (!frame) return;
        host_message message("execute");
        message.list->set_size(message.list.get(), arguments.size());
        std::size_t bytes = 0;
        bool is_result = false;
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            const cef::given_text text(arguments[i]->get_string_value(arguments[i]));
            const cef_string_t none{};
            message.list->set_string(message.list.get(), i, text ? text.get() : &none);
            bytes += text ? text->length * sizeof *text->str : 0;
            if (i == 0) {
                is_result = starts_with(text.get(), webdisplay::page_scripts::k_result_command);
            }
        }
        if (m_budget->take(bytes, is_result)) return send(message, frame.get(), arguments.size());
        if (m_budget->is_telling_due()) tell_dropped(frame.get(), *m_budget);
    }

private:
    // One more argument asks the host to tell when it is done with the call.
    void send(host_message& message, cef_frame_t* frame, std::size_t count) {
        if (m_budget->is_bound()) message.list->set_bool(message.list.get(), count, 1);
        message.send(frame);
    }

    const std::shared_ptr<call_budget> m_budget;
};

value_ref evaluate(cef_v8_context_t* context, std::string_view script) {
    cef_v8_value_t* value = nullptr;
    cef_v8_exception_t* exception = nullptr;
    context->eval(context, cef::utf16(script).get(), cef::utf16("").get(), 0, &value, &exception);
    const cef::ref<cef_v8_exception_t> dropped(exception);
    return value_ref(value);
}

// The function that the page gets; empty if the page's world is going away already.
value_ref make_execute(cef_v8_context_t* context, std::shared_ptr<call_budget> budget) {
    const cef::own<send_function> handler(new send_function(std::move(budget)));
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

// Where nothing was told the page may do everything, whatever the pages beside it may.
void child_app::OnBrowserCreated(cef_browser_t* browser, cef_dictionary_value_t* extra_info) {
    if (extra_info == nullptr) return;
    const auto told = [extra_info](std::string_view key) {
        return extra_info->get_int(extra_info, cef::utf16(key).get());
    };
    told_terms& kept = m_told[browser->get_identifier(browser)];
    ++kept.times;
    kept.terms.max_waiting_calls = std::max(told(webdisplay::k_max_calls_key), 0);
    kept.terms.refuses_printing = told(webdisplay::k_refuses_printing_key) != 0;
}

// A browser may come to its process a second time before it has left it the first time.
void child_app::OnBrowserDestroyed(cef_browser_t* browser) {
    const auto found = m_told.find(browser->get_identifier(browser));
    if (found != m_told.end() && --found->second.times <= 0) m_told.erase(found);
}

webdisplay::page_terms child_app::terms_of(cef_browser_t* browser) const {
    const auto found = m_told.find(browser->get_identifier(browser));
    return found == m_told.end() ? webdisplay::page_terms{} : found->second.terms;
}

std::shared_ptr<call_budget> child_app::new_budget(cef_frame_t* frame,
                                                   std::int32_t max_waiting_calls) {
    auto budget = std::make_shared<call_budget>(static_cast<std::uint32_t>(max_waiting_calls));
    if (!budget->is_bound()) return budget;
    std::erase_if(m_budgets, [](const auto& entry) { return entry.second.expired(); });
    m_budgets[cef::utf8_of(frame->get_identifier(frame))] = budget;
    return budget;
}

bool child_app::OnProcessMessageReceived(cef_frame_t* frame, cef_process_message_t* message) {
    if (cef::utf8_of(message->get_name(message)) != webdisplay::k_handled_message) return false;
    const auto found = m_budgets.find(cef::utf8_of(frame->get_identifier(frame)));
    const auto budget = found == m_budgets.end() ? nullptr : found->second.lock();
    if (budget == nullptr) return true;
    const cef::ref<cef_list_value_t> list(message->get_argument_list(message));
    budget->handled(static_cast<std::uint32_t>(list->get_int(list.get(), 0)));
    if (budget->has_untold()) tell_dropped(frame, *budget);
    return true;
}

void child_app::OnContextCreated(cef_browser_t* browser, cef_frame_t* frame,
                                 cef_v8_context_t* context) {
    const webdisplay::page_terms terms = terms_of(browser);
    const value_ref window(context->get_global(context));
    value_ref host_app(cef::api().cef_v8_value_create_object(nullptr, nullptr));
    value_ref execute = make_execute(context, new_budget(frame, terms.max_waiting_calls));
    if (!window || !host_app || !execute) return;
    set_member(host_app, "execute", std::move(execute), V8_PROPERTY_ATTRIBUTE_READONLY);
    set_member(window, "hostApp", std::move(host_app), V8_PROPERTY_ATTRIBUTE_NONE);
    if (terms.refuses_printing) evaluate(context, webdisplay::page_scripts::k_no_printing);
}

}  // namespace pennywort::childprocess
