// mono_socket.h - a managed socket that is one: websocket-sharp in the managed runtime.
#pragma once

#include <memory>
#include <string>

#include "websocket/managed/managed_socket.h"

namespace pennywort::websocket {

// The path of websocket-sharp's assembly by the variable PENNYWORT_WEBSOCKET_SHARP; empty without.
std::string websocket_sharp_path();

// Throws std::exception without the runtime, and what the managed constructor throws.
std::shared_ptr<managed_socket> make_mono_socket(const std::string& assembly,
                                                 const managed_request& request,
                                                 const std::weak_ptr<managed_owner>& owner);

}  // namespace pennywort::websocket
