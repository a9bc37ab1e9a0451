// host/live/live_handler.h - carries the control page and its JSON interface over HTTP.
#pragma once

#include <atomic>
#include <cstdint>

#include "host/live/live_control.h"
#include "host/live/live_guard.h"
#include "httpserver.h"

namespace pennywort::host {

// Responds to every request of its server. Nothing here waits: a response goes out as its peer
// takes it.
class live_handler : public cHttpHandler {
public:
    // `control` must outlive the server.
    live_handler(live_control& control, live_guard guard);

    bool CanHandleRequest(const cHttpRequest& request) override;
    zStatus HandleRequest(const cHttpRequest& request, cHttpAnswer& answer) override;

protected:
    ~live_handler() override = default;

private:
    live_answer answer_to(const cHttpRequest& request, const live_caller& caller) const;

    live_control& m_control;
    const live_guard m_guard;
};

// Responds to every request with 503 until the start is over. A page that was left open asks as
// soon as the port is there again, and without an answer it would wait until the server gives it
// up.
class live_start_handler : public cHttpHandler {
public:
    // The handlers behind this one are asked from now on. From any thread.
    void end() { m_is_over = true; }

    bool CanHandleRequest(const cHttpRequest& request) override;
    zStatus HandleRequest(const cHttpRequest& request, cHttpAnswer& answer) override;

protected:
    ~live_start_handler() override = default;

private:
    std::atomic<bool> m_is_over{false};
};

}  // namespace pennywort::host
