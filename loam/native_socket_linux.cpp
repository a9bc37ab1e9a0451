// loam/native_socket_linux.cpp - Linux half of loam/native_socket.h. Windows half:
// native_socket_win.cpp.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "loam/countdown.h"
#include "loam/interrupted.h"
#include "loam/socket_names.h"

namespace loam {
namespace {

int native(socket_handle handle) { return static_cast<int>(handle); }

socket_result result_of(const char* call, std::intptr_t value) {
    return {call, value, value < 0 ? errno : 0};
}

struct option_name {
    int level;
    int name;
};

option_name name_of(socket_option option) {
    switch (option) {
        case socket_option::reuse_address:
            return {SOL_SOCKET, SO_REUSEADDR};
        case socket_option::no_delay:
            return {IPPROTO_TCP, TCP_NODELAY};
        case socket_option::keep_alive:
            return {SOL_SOCKET, SO_KEEPALIVE};
        case socket_option::ipv6_only:
            return {IPPROTO_IPV6, IPV6_V6ONLY};
        case socket_option::exclusive_address:
            break;
    }
    return {};
}

pollfd* polled(std::byte* entries) { return reinterpret_cast<pollfd*>(entries); }

}  // namespace

bool read_address(const char* text, std::uint16_t port, bool is_ipv6, socket_address& address) {
    return filled_from(text, port, is_ipv6, address);
}

socket_result open_socket(bool is_ipv6) {
    constexpr int k_type = SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC;
    return result_of("socket", ::socket(is_ipv6 ? AF_INET6 : AF_INET, k_type, IPPROTO_TCP));
}

socket_result accept_socket(socket_handle listener) {
    return result_of("accept4", unless_interrupted([&] {
                         return ::accept4(native(listener), nullptr, nullptr,
                                          SOCK_NONBLOCK | SOCK_CLOEXEC);
                     }));
}

// Not repeated when a signal interrupts it: the descriptor is free by then, and may already be
// another thread's.
void close_socket(socket_handle handle) { ::close(native(handle)); }

void abort_socket(socket_handle handle) {
    const linger at_once{1, 0};
    ::setsockopt(native(handle), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    close_socket(handle);
}

socket_result set_option(socket_handle handle, socket_option option, bool on) {
    // No other process can take an address that is in use, whatever is asked for.
    if (option == socket_option::exclusive_address) return {};
    const option_name name = name_of(option);
    const int value = on ? 1 : 0;
    return result_of("setsockopt",
                     ::setsockopt(native(handle), name.level, name.name, &value, sizeof value));
}

bool has_option(socket_handle handle, socket_option option) {
    const option_name name = name_of(option);
    int value = 0;
    socklen_t size = sizeof value;
    return ::getsockopt(native(handle), name.level, name.name, &value, &size) == 0 && value != 0;
}

socket_result bind_socket(socket_handle handle, const socket_address& address) {
    const auto size = static_cast<socklen_t>(address.size);
    return result_of("bind", ::bind(native(handle), name_of(address), size));
}

// The sockets that are accepted inherit the options, so they are set once here.
socket_result listen_socket(socket_handle handle, std::int32_t backlog) {
    for (const socket_option option : {socket_option::no_delay, socket_option::keep_alive}) {
        const socket_result set = set_option(handle, option, true);
        if (set.error != 0) return set;
    }
    return result_of("listen", ::listen(native(handle), backlog));
}

std::uint16_t local_port(socket_handle handle) {
    socket_address own;
    sockaddr* const space = space_of(own);
    auto size = static_cast<socklen_t>(own.size);
    return ::getsockname(native(handle), space, &size) == 0 ? port_of(own) : std::uint16_t{0};
}

socket_result receive_bytes(socket_handle handle, char* buffer, std::int32_t size) {
    return result_of("recv", unless_interrupted([&] {
                         return ::recv(native(handle), buffer, static_cast<std::size_t>(size), 0);
                     }));
}

socket_result send_bytes(socket_handle handle, const char* data, std::int32_t length, follow what) {
    const int flags = what == follow::more ? MSG_NOSIGNAL | MSG_MORE : MSG_NOSIGNAL;
    return result_of("send", unless_interrupted([&] {
                         return ::send(native(handle), data, static_cast<std::size_t>(length),
                                       flags);
                     }));
}

socket_result end_sending(socket_handle handle) {
    return result_of("shutdown", ::shutdown(native(handle), SHUT_WR));
}

socket_result begin_connect(socket_handle handle, const socket_address& address) {
    const auto size = static_cast<socklen_t>(address.size);
    const socket_result begun =
        result_of("connect", ::connect(native(handle), name_of(address), size));
    // A connection whose call was interrupted goes on being made.
    if (begun.error == EINPROGRESS || begun.error == EINTR) return {begun.call, 0, 0};
    return {begun.call, begun.error == 0 ? 1 : 0, begun.error};
}

socket_result wait_connected(socket_handle handle, std::int32_t timeout) {
    socket_wait wait(1);
    wait.add(handle, zSocket::k_writable);
    const socket_result waited = wait.wait(timeout);
    if (waited.error != 0 || waited.value == 0) return waited;
    int error = 0;
    socklen_t size = sizeof error;
    const int asked = ::getsockopt(native(handle), SOL_SOCKET, SO_ERROR, &error, &size);
    return asked < 0 ? result_of("getsockopt", asked) : socket_result{"connect", 1, error};
}

socket_result open_waker() {
    return result_of("eventfd", ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
}

void wake(socket_handle waker) {
    const std::uint64_t one = 1;
    // A full counter is as awake as it gets.
    [[maybe_unused]] const auto written =
        unless_interrupted([&] { return ::write(native(waker), &one, sizeof one); });
}

void settle_waker(socket_handle waker) {
    std::uint64_t count = 0;
    [[maybe_unused]] const auto taken =
        unless_interrupted([&] { return ::read(native(waker), &count, sizeof count); });
}

socket_fault fault_of(int error) {
    switch (error) {
        case EAGAIN:
        case EINPROGRESS:
            return socket_fault::not_now;
        case ETIMEDOUT:
            return socket_fault::timed_out;
        case EADDRINUSE:
            return socket_fault::address_in_use;
        case ECONNRESET:
        case ECONNABORTED:
        case EPIPE:
        case ENOTCONN:
            return socket_fault::lost;
        case EMFILE:
        case ENFILE:
        case ENOBUFS:
        case ENOMEM:
            return socket_fault::no_resources;
        default:
            return socket_fault::other;
    }
}

std::string socket_error_text(int error) {
    return std::strerror(error) + (" (" + std::to_string(error) + ")");
}

void socket_wait::add(socket_handle handle, std::int32_t events) {
    static_assert(sizeof(pollfd) <= k_entry_bytes);
    pollfd& entry = polled(m_entries)[m_count++];
    entry.fd = native(handle);
    ask_for(entry, events, {POLLIN, POLLOUT});
}

// A signal does not end the wait.
socket_result socket_wait::wait(std::int32_t timeout) {
    pollfd* const entries = polled(m_entries);
    int ready = ::poll(entries, m_count, timeout < 0 ? -1 : timeout);
    if (ready < 0 && errno == EINTR) {
        const countdown time(timeout);
        while (ready < 0 && errno == EINTR) ready = ::poll(entries, m_count, time.left());
    }
    return result_of("poll", ready);
}

// A lost connection shows as whatever was asked for: the next operation on it says what happened.
std::int32_t socket_wait::occurred(std::size_t index) const {
    constexpr int k_lost = POLLHUP | POLLERR;
    return told_in(polled(m_entries)[index], {POLLIN | k_lost, POLLOUT | k_lost});
}

}  // namespace loam
