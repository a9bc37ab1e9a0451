// counted_events.h - how much a socket has told its host, counted without taking memory.
#pragma once

#include <atomic>
#include <memory>
#include <optional>

#include "websocket.h"

namespace pennywort::websocket {

struct event_counts {
    std::atomic<int> opened{0};
    std::atomic<int> messages{0};
    std::atomic<int> ends{0};
};

// Handlers that fit into their function take no memory.
inline void count_events(cWebSocket& socket, event_counts& into) {
    socket.SetOpenedHandler([&into](const std::shared_ptr<cWebSocket>&) { ++into.opened; });
    socket.SetMessageHandler([&into](const char*) { ++into.messages; });
    socket.SetErrorHandler([&into](cWebSocket::Error) { ++into.ends; });
    socket.SetClosedHandler([&into](std::optional<cWebSocket::Error>, bool) { ++into.ends; });
}

}  // namespace pennywort::websocket
