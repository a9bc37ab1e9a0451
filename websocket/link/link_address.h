// link_address.h - from a URL and settings to what a link is to open, with the user's proxy.
#pragma once

#include <cstdint>
#include <string>

#include "websocket/link/link.h"
#include "websocket/upgrade_transport.h"

namespace pennywort::websocket {

// Throws std::invalid_argument with the reason for a URL that cannot be used.
link_request request_for_url(const std::string& url, const transport_settings& settings);

link_request request_for_host(const std::string& host, std::uint16_t port, bool is_secure,
                              const std::string& target, const transport_settings& settings);

}  // namespace pennywort::websocket
