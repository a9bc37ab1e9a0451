// session_maker.h - where a socket has its transport from, so that a test can give it another one.
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "websocket/upgrade_transport.h"

namespace pennywort::websocket {

using session_maker =
    std::function<std::shared_ptr<transport_session>(const transport_settings& settings)>;

// transport_session::open, unless a test has put something else there. Not locked.
inline session_maker& current_session_maker() {
    static session_maker maker = &transport_session::open;
    return maker;
}

}  // namespace pennywort::websocket
