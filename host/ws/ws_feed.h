// host/ws/ws_feed.h - a WebSocket as the program's commands use one: with what the library leaves
// off unless it is asked, and its events in words.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "websocket.h"

namespace pennywort::host {

enum class ws_transport { managed, system };

// Null when memory is out.
std::shared_ptr<cWebSocket> make_feed(ws_transport transport);

// What is wrong with the URL of a WebSocket, in one line; an empty text if nothing is.
std::string fault_of_feed_url(const std::string& url);

// `why` as the fault handler gets it; empty when nothing is known.
std::string words_of(cWebSocket::Error error, const std::string& why);
std::string words_of_goodbye(std::int32_t code, const std::string& reason);
// Whether a server closes with that code because something is wrong.
bool is_failure(std::int32_t code);
std::string words_of_close(std::optional<cWebSocket::Error> error, bool was_clean,
                           const std::string& why);

}  // namespace pennywort::host
