// webdisplay_browser_client_bridge.cpp - what a page says to its client, and hears of that.
#include <atomic>
#include <string_view>

#include "loam/trace.h"
#include "webdisplay/browser_calls.h"
#include "webdisplay/cef/runtime.h"
#include "webdisplay/cef/text.h"
#include "webdisplay/client_owner_use.h"
#include "webdisplay/display_state.h"
#include "webdisplay/page_scripts.h"

namespace pennywort::webdisplay {

namespace {

constexpr std::string_view k_type_error = "Uncaught TypeError";

// One for the process: keystrokes go to one place at a time.
std::atomic<bool> g_editable{false};

zString text_of(const std::string& text) {
    return zString(text.data(), static_cast<std::uint32_t>(text.size()));
}

}  // namespace

bool webdisplay_browser_client::focused_element_is_editable() { return g_editable; }

bool webdisplay_browser_client::OnProcessMessageReceived(cef_browser_t* browser, cef_frame_t* frame,
                                                         cef_process_message_t* message) {
    const std::string name = cef::utf8_of(message->get_name(message));
    if (name == k_dropped_message) return note_dropped_calls(message);
    if (name != "execute") return false;
    const cef::ref<cef_list_value_t> arguments(message->get_argument_list(message));
    std::string command;
    std::string argument;
    if (arguments) {
        command = cef::utf8_of(arguments->get_string(arguments.get(), 0));
        argument = cef::utf8_of(arguments->get_string(arguments.get(), 1));
    }
    dispatch(browser, command, argument);
    if (arguments && arguments->get_size(arguments.get()) > 2) tell_handled(frame);
    return true;
}

// Without a bound the message is somebody else's, like every other that the bridge does not know.
bool webdisplay_browser_client::note_dropped_calls(cef_process_message_t* message) {
    const owner_use owner(*this);
    if (!owner || owner->m_state->terms.max_waiting_calls <= 0) return false;
    const cef::ref<cef_list_value_t> arguments(message->get_argument_list(message));
    const int calls = arguments ? arguments->get_int(arguments.get(), 0) : 0;
    if (calls > 0) owner->m_state->dropped_calls += static_cast<std::uint64_t>(calls);
    return true;
}

// A page whose calls are bounded makes no more of them until it hears of those that are done.
void webdisplay_browser_client::tell_handled(cef_frame_t* frame) {
    const std::uint32_t calls = m_page_calls.handled(cef::utf8_of(frame->get_identifier(frame)));
    if (calls == 0) return;
    cef::ref<cef_process_message_t> message(
        cef::api().cef_process_message_create(cef::utf16(k_handled_message).get()));
    const cef::ref<cef_list_value_t> list(message->get_argument_list(message.get()));
    list->set_int(list.get(), 0, static_cast<int>(calls));
    frame->send_process_message(frame, PID_RENDERER, message.release());
}

void webdisplay_browser_client::dispatch(cef_browser_t* browser, const std::string& command,
                                         const std::string& argument) {
    if (command == "LoadNextUrl") {
        const owner_use owner(*this);
        if (owner) owner->LoadNextUrl();
    } else if (command == "HasFlash") {
        zTraceManager::Default()->TraceNote("Flash Plugin Detected: %s\n", argument.c_str());
        cWebDisplayBrowser::Flash_SetAvailability(argument == "1");
    } else if (command == "Focus") {
        g_editable.exchange(argument == "1");
    } else if (command.starts_with(page_scripts::k_result_command)) {
        deliver_result(command, argument);
    } else if (!command.starts_with(k_type_error) &&  // pages throw these all the time
               !take_tick_report(command, argument) && !take_paint_report(browser, command)) {
        run_page_command(browser, command, argument);
    }
}

bool webdisplay_browser_client::take_tick_report(const std::string& command,
                                                 const std::string& argument) {
    if (command != page_scripts::k_tick_report) return false;
    const owner_use owner(*this);
    if (!owner || !owner->m_state->is_on_host_clock) return false;
    const std::int64_t frames = text_of(argument).AsInt64();
    if (frames > 0) owner->m_state->ticks.page_had(static_cast<std::uint64_t>(frames));
    return true;
}

void webdisplay_browser_client::deliver_result(const std::string& command,
                                               const std::string& result) {
    zString prefix = text_of(command);
    zString id;
    prefix.SplitAtFirst(&id, ":");
    const owner_use owner(*this);
    if (owner) owner->received_javascript_exec_result(id, text_of(result));
}

void webdisplay_browser_client::run_page_command(cef_browser_t* browser, const std::string& command,
                                                 const std::string& argument) {
    zString result;
    {
        const owner_use owner(*this);
        if (owner) owner->handle_javascript_callback(text_of(command), text_of(argument), result);
    }
    execute_on_page(browser, page_scripts::host_callback(command, result.View()));
}

}  // namespace pennywort::webdisplay
