// proxy_choice.h - which proxy the user's settings have for a host. No clock, no I/O.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/http/user_proxy.h"
#include "websocket/link/link.h"

namespace pennywort::websocket {

// Nothing: no proxy. wss takes the one of https, ws the one of http, which has to let a tunnel
// through. Throws std::invalid_argument for settings that name none that can be asked.
std::optional<link_proxy> choose_proxy(const http::user_proxy& settings, const std::string& host,
                                       std::uint16_t port, bool is_secure);

}  // namespace pennywort::websocket
