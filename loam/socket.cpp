// loam/socket.cpp - what is the same on every system; see the header for the contract. The rest
// stands in socket_linux.cpp and socket_win.cpp.
#include "loam/socket.h"

#include <new>

zSocket::zSocket() = default;

zSocket::~zSocket() { Close(); }

zSocket* zSocket::Factory() { return new (std::nothrow) zSocket; }

bool zSocket::IsOpen() const { return m_handle != -1; }

zStatus zSocket::Bind(std::uint16_t port) { return BindTo(nullptr, port); }

zStatus zSocket::Select(zHeap<_zSocket_select*>* set, std::int32_t timeout, std::int32_t* ready) {
    return Select(set, timeout, ready, nullptr);
}
