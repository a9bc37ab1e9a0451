// loam/native_socket_win.cpp - Windows half of loam/native_socket.h. Linux half:
// native_socket_linux.cpp.
#include <winsock2.h>
// Apart, since winsock2.h has to stand before windows.h.

#include <windows.h>
#include <ws2tcpip.h>

#include <algorithm>

#include "loam/socket_names.h"

namespace loam {
namespace {

SOCKET native(socket_handle handle) { return static_cast<SOCKET>(handle); }

// Once per process and for its whole life: sockets may end after everything else. 0 or why not.
int start_sockets() {
    static const int error = [] {
        WSADATA data;
        return ::WSAStartup(MAKEWORD(2, 2), &data);
    }();
    return error;
}

socket_result result_of(const char* call, int value) {
    return {call, value, value == SOCKET_ERROR ? ::WSAGetLastError() : 0};
}

socket_result handle_result(const char* call, SOCKET made) {
    const int error = made == INVALID_SOCKET ? ::WSAGetLastError() : 0;
    return {call, static_cast<socket_handle>(made), error};
}

// Returns the step that failed, and not how closing the socket went.
socket_result closed_after(const socket_result& failed, SOCKET made) {
    ::closesocket(made);
    return {failed.call, k_no_socket, failed.error};
}

socket_result make_non_blocking(SOCKET made) {
    u_long on = 1;
    return result_of("ioctlsocket", ::ioctlsocket(made, static_cast<long>(FIONBIO), &on));
}

// Not inherited by child processes.
socket_result new_socket(int family, int type, int protocol) {
    if (const int error = start_sockets(); error != 0) return {"WSAStartup", k_no_socket, error};
    constexpr DWORD k_flags = WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT;
    const SOCKET made = ::WSASocketW(family, type, protocol, nullptr, 0, k_flags);
    if (made == INVALID_SOCKET) return handle_result("WSASocketW", made);
    const socket_result set = make_non_blocking(made);
    return set.error != 0 ? closed_after(set, made) : handle_result("WSASocketW", made);
}

struct option_name {
    int level;
    int name;
};

option_name name_of(socket_option option) {
    switch (option) {
        case socket_option::reuse_address:
            return {SOL_SOCKET, SO_REUSEADDR};
        case socket_option::exclusive_address:
            return {SOL_SOCKET, static_cast<int>(SO_EXCLUSIVEADDRUSE)};
        case socket_option::no_delay:
            return {IPPROTO_TCP, TCP_NODELAY};
        case socket_option::keep_alive:
            return {SOL_SOCKET, SO_KEEPALIVE};
        case socket_option::ipv6_only:
            return {IPPROTO_IPV6, IPV6_V6ONLY};
    }
    return {};
}

// The system gives at most this much to one call.
int piece(std::int32_t length) { return std::min(length, 1 << 30); }

WSAPOLLFD* polled(std::byte* entries) { return reinterpret_cast<WSAPOLLFD*>(entries); }

}  // namespace

bool read_address(const char* text, std::uint16_t port, bool is_ipv6, socket_address& address) {
    return filled_from(text, port, is_ipv6, address);
}

socket_result open_socket(bool is_ipv6) {
    return new_socket(is_ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM, IPPROTO_TCP);
}

socket_result accept_socket(socket_handle listener) {
    const SOCKET made = ::accept(native(listener), nullptr, nullptr);
    if (made == INVALID_SOCKET) return handle_result("accept", made);
    ::SetHandleInformation(reinterpret_cast<HANDLE>(made), HANDLE_FLAG_INHERIT, 0);
    for (const socket_option option : {socket_option::no_delay, socket_option::keep_alive}) {
        set_option(static_cast<socket_handle>(made), option, true);
    }
    const socket_result set = make_non_blocking(made);
    return set.error != 0 ? closed_after(set, made) : handle_result("accept", made);
}

void close_socket(socket_handle handle) { ::closesocket(native(handle)); }

void abort_socket(socket_handle handle) {
    const linger at_once{1, 0};
    ::setsockopt(native(handle), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&at_once),
                 sizeof at_once);
    close_socket(handle);
}

socket_result set_option(socket_handle handle, socket_option option, bool on) {
    const option_name name = name_of(option);
    const DWORD value = on ? 1 : 0;
    return result_of("setsockopt",
                     ::setsockopt(native(handle), name.level, name.name,
                                  reinterpret_cast<const char*>(&value), sizeof value));
}

bool has_option(socket_handle handle, socket_option option) {
    const option_name name = name_of(option);
    DWORD value = 0;
    int size = sizeof value;
    auto* space = reinterpret_cast<char*>(&value);
    return ::getsockopt(native(handle), name.level, name.name, space, &size) == 0 && value != 0;
}

socket_result bind_socket(socket_handle handle, const socket_address& address) {
    return result_of("bind", ::bind(native(handle), name_of(address), address.size));
}

socket_result listen_socket(socket_handle handle, std::int32_t backlog) {
    return result_of("listen", ::listen(native(handle), backlog));
}

std::uint16_t local_port(socket_handle handle) {
    socket_address own;
    sockaddr* const space = space_of(own);
    return ::getsockname(native(handle), space, &own.size) == 0 ? port_of(own) : std::uint16_t{0};
}

socket_result receive_bytes(socket_handle handle, char* buffer, std::int32_t size) {
    return result_of("recv", ::recv(native(handle), buffer, piece(size), 0));
}

socket_result send_bytes(socket_handle handle, const char* data, std::int32_t length, follow) {
    return result_of("send", ::send(native(handle), data, piece(length), 0));
}

socket_result end_sending(socket_handle handle) {
    return result_of("shutdown", ::shutdown(native(handle), SD_SEND));
}

socket_result begin_connect(socket_handle handle, const socket_address& address) {
    const socket_result begun =
        result_of("connect", ::connect(native(handle), name_of(address), address.size));
    if (begun.error == WSAEWOULDBLOCK) return {begun.call, 0, 0};
    return {begun.call, begun.error == 0 ? 1 : 0, begun.error};
}

// select() and not WSAPoll: older systems never tell the latter that a connection was refused.
socket_result wait_connected(socket_handle handle, std::int32_t timeout) {
    fd_set made;
    fd_set refused;
    FD_ZERO(&made);
    FD_ZERO(&refused);
    FD_SET(native(handle), &made);
    FD_SET(native(handle), &refused);
    timeval time{timeout / 1000, timeout % 1000 * 1000};
    const socket_result waited =
        result_of("select", ::select(0, nullptr, &made, &refused, timeout < 0 ? nullptr : &time));
    if (waited.error != 0 || waited.value == 0) return waited;
    int error = 0;
    int size = sizeof error;
    auto* space = reinterpret_cast<char*>(&error);
    const int asked = ::getsockopt(native(handle), SOL_SOCKET, SO_ERROR, space, &size);
    return asked < 0 ? result_of("getsockopt", asked) : socket_result{"connect", 1, error};
}

// WSAPoll waits for sockets only, so this is one: a datagram to itself ends the wait.
socket_result open_waker() {
    const socket_result made = new_socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (made.error != 0) return made;
    const SOCKET waker = native(made.value);
    socket_address own;
    filled_from("127.0.0.1", 0, false, own);
    socket_result step = result_of("bind", ::bind(waker, name_of(own), own.size));
    if (step.error == 0) {
        sockaddr* const space = space_of(own);
        step = result_of("getsockname", ::getsockname(waker, space, &own.size));
    }
    // Connected to itself, it takes datagrams from nobody else.
    if (step.error == 0) step = result_of("connect", ::connect(waker, name_of(own), own.size));
    return step.error != 0 ? closed_after(step, waker) : made;
}

// A datagram that finds no room is not missed: those before it are still there.
void wake(socket_handle waker) { ::send(native(waker), "w", 1, 0); }

void settle_waker(socket_handle waker) {
    char letter = 0;
    while (::recv(native(waker), &letter, sizeof letter, 0) > 0) {
    }
}

socket_fault fault_of(int error) {
    switch (error) {
        case WSAEWOULDBLOCK:
        case WSAEINPROGRESS:
            return socket_fault::not_now;
        case WSAETIMEDOUT:
            return socket_fault::timed_out;
        case WSAEADDRINUSE:
        case WSAEACCES:  // taken by another process that wants it for itself alone
            return socket_fault::address_in_use;
        case WSAECONNRESET:
        case WSAECONNABORTED:
        case WSAESHUTDOWN:
        case WSAENOTCONN:
            return socket_fault::lost;
        case WSAEMFILE:
        case WSAENOBUFS:
            return socket_fault::no_resources;
        default:
            return socket_fault::other;
    }
}

std::string socket_error_text(int error) { return "error " + std::to_string(error); }

void socket_wait::add(socket_handle handle, std::int32_t events) {
    static_assert(sizeof(WSAPOLLFD) <= k_entry_bytes);
    WSAPOLLFD& entry = polled(m_entries)[m_count++];
    entry.fd = native(handle);
    ask_for(entry, events, {POLLRDNORM, POLLWRNORM});
}

socket_result socket_wait::wait(std::int32_t timeout) {
    // WSAPoll refuses to wait for nothing at all.
    if (m_count == 0) {
        ::Sleep(timeout < 0 ? INFINITE : static_cast<DWORD>(timeout));
        return {};
    }
    const auto count = static_cast<ULONG>(m_count);
    return result_of("WSAPoll", ::WSAPoll(polled(m_entries), count, timeout < 0 ? -1 : timeout));
}

// A lost connection shows as whatever was asked for: the next operation on it says what happened.
// One whose peer has only ended its sending counts as hung up too, which makes no room to send.
std::int32_t socket_wait::occurred(std::size_t index) const {
    return told_in(polled(m_entries)[index],
                   {POLLRDNORM | POLLHUP | POLLERR, POLLWRNORM | POLLERR});
}

}  // namespace loam
