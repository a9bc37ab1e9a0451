// beast_socket.h - a managed socket on Boost.Beast, on the engine's thread.
#pragma once

#include <memory>

#include "websocket/managed/managed_socket.h"

namespace pennywort::websocket {

// Throws std::invalid_argument for a URL that is none of ws or wss.
std::shared_ptr<managed_socket> make_beast_socket(const managed_request& request,
                                                  const std::weak_ptr<managed_owner>& owner);

}  // namespace pennywort::websocket
