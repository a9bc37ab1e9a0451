// webdisplay_cef_app.cpp - see the header for the contract.
#include "webdisplay/webdisplay_cef_app.h"

#include <string_view>
#include <utility>

#include "webdisplay/cef/runtime.h"
#include "webdisplay/cef/text.h"

namespace pennywort::webdisplay {

namespace {

void append(cef_command_line_t* line, std::string_view name_text, std::string_view value_text) {
    const cef::utf16 name(name_text);
    if (value_text.empty()) return line->append_switch(line, name.get());
    const cef::utf16 value(value_text);
    line->append_switch_with_value(line, name.get(), value.get());
}

constexpr std::pair<std::string_view, std::string_view> k_switches[] = {
    {"ppapi-out-of-process", ""},
    {"enable-system-flash", ""},
    {"disk-cache-size", "25000000"},
    {"autoplay-policy", "no-user-gesture-required"},
};

}  // namespace

webdisplay_cef_app::webdisplay_cef_app(std::vector<command_line_switch> host_switches,
                                       std::shared_ptr<main_thread_timer> on_request)
    : m_host_switches(std::move(host_switches)), m_on_request(std::move(on_request)) {}

void webdisplay_cef_app::append_hosts(cef_command_line_t* command_line) const {
    for (const auto& [name, value] : m_host_switches) append(command_line, name, value);
}

void webdisplay_cef_app::OnBeforeCommandLineProcessing(const std::string& process_type,
                                                       cef_command_line_t* command_line) {
    if (process_type.empty()) cef::hear_wishes_meanwhile();
    for (const auto& [name, value] : k_switches) append(command_line, name, value);
    append_hosts(command_line);
}

// The helper program may be the host's own and know nothing of the switches, and the runtime hands
// on to it only those that it knows.
void webdisplay_cef_app::OnBeforeChildProcessLaunch(cef_command_line_t* command_line) {
    for (const auto& [name, value] : k_switches) append(command_line, name, value);
    append_hosts(command_line);
}

void webdisplay_cef_app::OnScheduleMessagePumpWork(std::int64_t delay_ms) {
    if (m_on_request) m_on_request->request(delay_ms);
}

}  // namespace pennywort::webdisplay
