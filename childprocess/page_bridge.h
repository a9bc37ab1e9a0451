// page_bridge.h - gives every page window.hostApp.execute(command, argument).
#pragma once

#include "webdisplay/cef/interfaces.h"

namespace pennywort::childprocess {

// The application object of the runtime's helper processes.
class child_app final : public cef::CefApp, public cef::CefRenderProcessHandler {
public:
    cef::CefRenderProcessHandler* GetRenderProcessHandler() override { return this; }

    // Each frame's script world gets a hostApp of its own, sub-frames included.
    void OnContextCreated(cef_browser_t* browser, cef_frame_t* frame,
                          cef_v8_context_t* context) override;
};

}  // namespace pennywort::childprocess
