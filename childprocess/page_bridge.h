// page_bridge.h - gives every page window.hostApp.execute(command, argument).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "childprocess/call_budget.h"
#include "webdisplay/cef/interfaces.h"
#include "webdisplay/page_calls.h"

namespace pennywort::childprocess {

// The application object of the runtime's helper processes.
class child_app final : public cef::CefApp, public cef::CefRenderProcessHandler {
public:
    cef::CefRenderProcessHandler* GetRenderProcessHandler() override { return this; }

    // The host may have bounded the calls that wait for it, and refused printing.
    void OnBrowserCreated(cef_browser_t* browser, cef_dictionary_value_t* extra_info) override;
    void OnBrowserDestroyed(cef_browser_t* browser) override;
    // Each frame's script world gets a hostApp of its own, sub-frames included.
    void OnContextCreated(cef_browser_t* browser, cef_frame_t* frame,
                          cef_v8_context_t* context) override;
    // The host is done with some of the calls of this frame.
    bool OnProcessMessageReceived(cef_frame_t* frame, cef_process_message_t* message) override;

private:
    struct told_terms {
        webdisplay::page_terms terms;
        int times = 0;  // that the browser is here
    };

    webdisplay::page_terms terms_of(cef_browser_t* browser) const;
    std::shared_ptr<call_budget> new_budget(cef_frame_t* frame, std::int32_t max_waiting_calls);

    // By the browser. Displays that differ in them may share this process.
    std::map<int, told_terms> m_told;
    // By the frame. A budget lives as long as its page's world.
    std::map<std::string, std::weak_ptr<call_budget>> m_budgets;
};

}  // namespace pennywort::childprocess
