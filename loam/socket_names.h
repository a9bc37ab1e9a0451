// loam/socket_names.h - addresses by the names that both systems' socket headers share, and the
// events of a wait. The twins of native_socket.h include it, each behind its own system's headers;
// nobody else does.
#pragma once

#include <cstring>

#include "loam/native_socket.h"
#include "loam/socket.h"

namespace loam {

static_assert(sizeof(sockaddr_storage) <= socket_address::k_most);

inline const sockaddr* name_of(const socket_address& address) {
    return reinterpret_cast<const sockaddr*>(address.bytes);
}

inline sockaddr* space_of(socket_address& address) {
    address.size = static_cast<int>(socket_address::k_most);
    return reinterpret_cast<sockaddr*>(address.bytes);
}

// `made` is of the system's own type for its family.
template <class Native>
void put_in(socket_address& address, const Native& made) {
    std::memcpy(address.bytes, &made, sizeof made);
    address.size = sizeof made;
}

inline void fill_ipv6(socket_address& address, const in6_addr& host, std::uint16_t port) {
    sockaddr_in6 target{};
    target.sin6_family = AF_INET6;
    target.sin6_port = htons(port);
    target.sin6_addr = host;
    put_in(address, target);
}

inline void fill_ipv4(socket_address& address, const in_addr& host, std::uint16_t port) {
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_port = htons(port);
    target.sin_addr = host;
    put_in(address, target);
}

// A socket of IPv6 knows the addresses of IPv4 behind the prefix ::ffff:.
inline in6_addr mapped(const in_addr& host) {
    in6_addr wide{};
    wide.s6_addr[10] = 0xff;
    wide.s6_addr[11] = 0xff;
    std::memcpy(&wide.s6_addr[12], &host, sizeof host);
    return wide;
}

inline std::uint16_t port_of(const socket_address& address) {
    if (name_of(address)->sa_family == AF_INET6) {
        sockaddr_in6 own{};
        std::memcpy(&own, address.bytes, sizeof own);
        return ntohs(own.sin6_port);
    }
    sockaddr_in own{};
    std::memcpy(&own, address.bytes, sizeof own);
    return ntohs(own.sin_port);
}

inline bool fill_any(socket_address& address, std::uint16_t port, bool is_ipv6) {
    is_ipv6 ? fill_ipv6(address, in6_addr{}, port) : fill_ipv4(address, in_addr{}, port);
    return true;
}

inline bool filled_from(const char* text, std::uint16_t port, bool is_ipv6,
                        socket_address& address) {
    if (text == nullptr || *text == '\0') return fill_any(address, port, is_ipv6);
    in_addr narrow{};
    if (::inet_pton(AF_INET, text, &narrow) == 1) {
        is_ipv6 ? fill_ipv6(address, mapped(narrow), port) : fill_ipv4(address, narrow, port);
        return true;
    }
    in6_addr wide{};
    if (!is_ipv6 || ::inet_pton(AF_INET6, text, &wide) != 1) return false;
    fill_ipv6(address, wide, port);
    return true;
}

// The system's bits that stand for an event of zSocket.
struct event_bits {
    int readable;
    int writable;
};

// The system's entry of a wait for `events`.
template <class Entry>
void ask_for(Entry& entry, std::int32_t events, event_bits known) {
    int asked = 0;
    if ((events & zSocket::k_readable) != 0) asked |= known.readable;
    if ((events & zSocket::k_writable) != 0) asked |= known.writable;
    entry.events = static_cast<short>(asked);
    entry.revents = 0;
}

// What the system has told in it, any one bit for an event.
template <class Entry>
std::int32_t told_in(const Entry& entry, event_bits known) {
    std::int32_t occurred = 0;
    if ((entry.revents & known.readable) != 0) occurred |= zSocket::k_readable;
    if ((entry.revents & known.writable) != 0) occurred |= zSocket::k_writable;
    return occurred;
}

}  // namespace loam
