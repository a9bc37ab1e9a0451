// webdisplay_cef_app.h - the application object that the runtime is started with.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "webdisplay/cef/interfaces.h"
#include "webdisplay/main_thread_timer.h"

namespace pennywort::webdisplay {

struct command_line_switch {
    std::string name;
    std::string value;  // empty: none
};

class webdisplay_cef_app final : public cef::CefApp,
                                 public cef::CefRenderProcessHandler,
                                 public cef::CefBrowserProcessHandler {
public:
    // `on_request` gets the runtime's requests for work; null where the pump is not interested.
    webdisplay_cef_app(std::vector<command_line_switch> host_switches,
                       std::shared_ptr<main_thread_timer> on_request);

    // Adds the switches that every page needs, then the host's.
    void OnBeforeCommandLineProcessing(const std::string& process_type,
                                       cef_command_line_t* command_line) override;
    // Also without a pump on request: the helper processes get their switches through it.
    cef::CefBrowserProcessHandler* GetBrowserProcessHandler() override { return this; }
    void OnBeforeChildProcessLaunch(cef_command_line_t* command_line) override;
    void OnScheduleMessagePumpWork(std::int64_t delay_ms) override;

private:
    void append_hosts(cef_command_line_t* command_line) const;

    const std::vector<command_line_switch> m_host_switches;
    const std::shared_ptr<main_thread_timer> m_on_request;
};

}  // namespace pennywort::webdisplay
