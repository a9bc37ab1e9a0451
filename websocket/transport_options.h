// transport_options.h - a host's options as the transports take them. No clock, no I/O.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "websocket.h"
#include "websocket/upgrade_transport.h"

namespace pennywort::websocket {

// `timeout` in seconds, looked at only where the options ask for it.
transport_settings settings_of(const cWebSocketOptions& options, double timeout);

// Lines "Name: value" that can stand in a head; the others are left out and traced.
std::vector<std::string> header_lines(std::string_view text);

}  // namespace pennywort::websocket
