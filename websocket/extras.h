// websocket/extras.h - what a socket has beside its four handlers, made when a host asks for it.
#pragma once

#include <cstddef>
#include <functional>

#include "websocket.h"

namespace pennywort::websocket {

struct extras {
    cWebSocketOptions options;
    std::function<void(const void*, std::size_t)> binary_handler;
    std::function<void(std::int32_t, const char*)> goodbye_handler;
    std::function<void(const char*)> fault_handler;
};

}  // namespace pennywort::websocket
