// host/ws/ws_feed.h - a WebSocket as the program's commands use one: with what the library leaves
// off unless it is asked, and its events in words.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "websocket.h"

namespace pennywort::host {

enum class ws_transport { managed, system };

// Null when memory is out.
std::shared_ptr<cWebSocket> make_feed(ws_transport transport);

std::string words_of(cWebSocket::Error error);
std::string words_of_close(std::optional<cWebSocket::Error> error, bool was_clean);

}  // namespace pennywort::host
