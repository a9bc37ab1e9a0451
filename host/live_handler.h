// host/live_handler.h - carries the control page and its JSON interface over HTTP.
#pragma once

#include <memory>
#include <string>

#include "host/live_control.h"
#include "host/live_guard.h"
#include "httpserver.h"

namespace pennywort {

// Answers every request of its server, and so is the only handler. Nothing here waits: a long
// answer goes out as its peer takes it.
class live_handler : public cHttpHandler {
public:
    // `control` must outlive the server.
    live_handler(live_control& control, live_guard guard);

    bool CanHandle(std::int32_t method, const zString& path, const zString& extension,
                   const zString& query, const char* request) override;
    std::unique_ptr<cHttpBody> HandleInPieces(zSocket* socket, std::int32_t method,
                                              const zString& path, const zString& extension,
                                              const zString& query, const char* body,
                                              zStatus& status) override;

protected:
    ~live_handler() override = default;

private:
    live_answer answer(const live_request& request) const;

    live_control& m_control;
    const live_guard m_guard;
    live_caller m_caller;  // of the request that is handled next: only there its headers are seen
};

}  // namespace pennywort
