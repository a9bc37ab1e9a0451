// page_bridge.h - gives every page window.hostApp.execute(command, argument).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "childprocess/call_budget.h"
#include "webdisplay/cef/interfaces.h"

namespace pennywort::childprocess {

// The application object of the runtime's helper processes.
class child_app final : public cef::CefApp, public cef::CefRenderProcessHandler {
public:
    cef::CefRenderProcessHandler* GetRenderProcessHandler() override { return this; }

    // The host may have bounded the calls that wait for it, and refused printing.
    void OnBrowserCreated(cef_browser_t* browser, cef_dictionary_value_t* extra_info) override;
    // Each frame's script world gets a hostApp of its own, sub-frames included.
    void OnContextCreated(cef_browser_t* browser, cef_frame_t* frame,
                          cef_v8_context_t* context) override;
    // The host is done with some of the calls of this frame.
    bool OnProcessMessageReceived(cef_frame_t* frame, cef_process_message_t* message) override;

private:
    std::shared_ptr<call_budget> new_budget(cef_frame_t* frame);

    std::uint32_t m_max_waiting_calls = 0;
    bool m_refuses_printing = false;
    // By the frame. A budget lives as long as its page's world.
    std::map<std::string, std::weak_ptr<call_budget>> m_budgets;
};

}  // namespace pennywort::childprocess
