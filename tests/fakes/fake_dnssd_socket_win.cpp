// fake_dnssd_socket_win.cpp - Windows half of fake_dnssd_socket.h. Linux half:
// fake_dnssd_socket_linux.cpp.
//
// A datagram socket that is connected to itself.
#include "tests/fakes/fake_dnssd_socket.h"

#include <winsock2.h>

namespace fake_dnssd {

namespace {

bool is_connected_to_itself(SOCKET made) {
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int length = sizeof own;
    auto* const address = reinterpret_cast<sockaddr*>(&own);
    return bind(made, address, length) == 0 && getsockname(made, address, &length) == 0 &&
           connect(made, address, length) == 0;
}

}  // namespace

int open_socket() {
    static const bool s_is_up = [] {
        WSADATA data{};
        return WSAStartup(MAKEWORD(2, 2), &data) == 0;
    }();
    if (!s_is_up) return -1;
    const SOCKET made = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (made == INVALID_SOCKET) return -1;
    if (is_connected_to_itself(made)) return static_cast<int>(made);
    closesocket(made);
    return -1;
}

void signal(int socket) { send(static_cast<SOCKET>(socket), "!", 1, 0); }

void take_signal(int socket) {
    char byte = 0;
    recv(static_cast<SOCKET>(socket), &byte, 1, 0);
}

void close_socket(int socket) { closesocket(static_cast<SOCKET>(socket)); }

}  // namespace fake_dnssd
