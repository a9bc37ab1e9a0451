// managed_maker.h - where a socket has its binding from, so that a test can give it another one.
#pragma once

#include <functional>
#include <memory>

#include "websocket/managed/managed_socket.h"

namespace pennywort::websocket {

using managed_maker = std::function<std::shared_ptr<managed_socket>(
    const managed_request& request, const std::weak_ptr<managed_owner>& owner)>;

// managed_socket::make, unless a test has put something else there. Not locked.
inline managed_maker& current_managed_maker() {
    static managed_maker maker = &managed_socket::make;
    return maker;
}

}  // namespace pennywort::websocket
