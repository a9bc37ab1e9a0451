// websocket/managed/managed_socket_linux.cpp - Linux half of managed_socket.h. Windows half:
// managed_socket_win.cpp.
#include "websocket/managed/managed_socket.h"
#include "websocket/managed/beast_socket.h"
#include "websocket/managed/mono_socket.h"

namespace pennywort::websocket {

std::shared_ptr<managed_socket> managed_socket::make(const managed_request& request,
                                                     const std::weak_ptr<managed_owner>& owner) {
    const std::string assembly = websocket_sharp_path();
    return assembly.empty() ? make_beast_socket(request, owner)
                            : make_mono_socket(assembly, request, owner);
}

}  // namespace pennywort::websocket
