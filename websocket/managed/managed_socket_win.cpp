// websocket/managed/managed_socket_win.cpp - Windows half of managed_socket.h. Linux half:
// managed_socket_linux.cpp.
#include "websocket/managed/managed_socket.h"
#include "websocket/managed/mono_socket.h"

namespace pennywort::websocket {

std::shared_ptr<managed_socket> managed_socket::make(const managed_request& request,
                                                     const std::weak_ptr<managed_owner>& owner) {
    const std::string assembly = websocket_sharp_path();
    return make_mono_socket(assembly.empty() ? "websocket-sharp.dll" : assembly, request, owner);
}

}  // namespace pennywort::websocket
