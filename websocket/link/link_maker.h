// link_maker.h - where a connection has its link from, so that a test can give it another one.
#pragma once

#include <functional>
#include <memory>

#include "websocket/link/link.h"

namespace pennywort::websocket {

using link_maker =
    std::function<std::shared_ptr<link>(loop& on, std::weak_ptr<link_listener> listener)>;

// link::make, unless a test has put something else there. Not locked.
inline link_maker& current_link_maker() {
    static link_maker maker = &link::make;
    return maker;
}

}  // namespace pennywort::websocket
