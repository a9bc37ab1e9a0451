// loam/socket_linux.cpp - Linux half of loam/socket.h. Windows half: socket_win.cpp.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <vector>

#include "loam/countdown.h"
#include "loam/interrupted.h"
#include "loam/socket.h"
#include "loam/trace.h"

namespace {

// An address of either family as bind and connect want it.
struct socket_address {
    sockaddr_storage storage{};
    socklen_t size = 0;

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

int native(std::intptr_t handle) { return static_cast<int>(handle); }

zStatus status_of(int error) {
    switch (error) {
        case EAGAIN:
        case EINPROGRESS:
            return zSocket::k_not_now;
        case ETIMEDOUT:
            return zSocket::k_timed_out;
        case EADDRINUSE:
            return zSocket::k_address_in_use;
        case ECONNRESET:
        case ECONNABORTED:
        case EPIPE:
        case ENOTCONN:
            return zSocket::k_lost;
        case EMFILE:
        case ENFILE:
        case ENOBUFS:
        case ENOMEM:
            return zSocket::k_no_resources;
        default:
            return zSocket::k_failed;
    }
}

// What a peer can bring about at will is not worth a trace: it would fill the log for it.
zStatus failure(const char* call) {
    const int error = errno;
    const zStatus status = status_of(error);
    if (status != zSocket::k_not_now && status != zSocket::k_lost) {
        zTraceManager::Default()->TraceNote("zSocket: %s failed: %s (%d)\n", call,
                                            std::strerror(error), error);
    }
    return status;
}

// The peer of a connection that is up has not answered for long: no time-out of the caller's.
zStatus transfer_failure(const char* call) {
    return errno == ETIMEDOUT ? zSocket::k_lost : failure(call);
}

// A shortage that lasts would be told with each attempt; who accepts tells it once.
zStatus accept_failure(const char* call) {
    return status_of(errno) == zSocket::k_no_resources ? zSocket::k_no_resources : failure(call);
}

zStatus checked(const char* call, int answer) { return answer < 0 ? failure(call) : 0; }

zStatus set_option(std::intptr_t handle, int level, int option, bool on) {
    const int value = on ? 1 : 0;
    return checked("setsockopt", ::setsockopt(native(handle), level, option, &value, sizeof value));
}

void fill_ipv6(socket_address& address, const in6_addr& host, std::uint16_t port) {
    auto& target = reinterpret_cast<sockaddr_in6&>(address.storage);
    target.sin6_family = AF_INET6;
    target.sin6_port = htons(port);
    target.sin6_addr = host;
    address.size = sizeof target;
}

void fill_ipv4(socket_address& address, const in_addr& host, std::uint16_t port) {
    auto& target = reinterpret_cast<sockaddr_in&>(address.storage);
    target.sin_family = AF_INET;
    target.sin_port = htons(port);
    target.sin_addr = host;
    address.size = sizeof target;
}

// A socket of IPv6 knows the addresses of IPv4 behind the prefix ::ffff:.
in6_addr mapped(const in_addr& host) {
    in6_addr wide{};
    wide.s6_addr[10] = 0xff;
    wide.s6_addr[11] = 0xff;
    std::memcpy(&wide.s6_addr[12], &host, sizeof host);
    return wide;
}

// False when `text` is no numeric address that a socket of the family can take.
bool read_address(const char* text, std::uint16_t port, bool ipv6, socket_address& address) {
    in_addr narrow{};
    if (::inet_pton(AF_INET, text, &narrow) == 1) {
        ipv6 ? fill_ipv6(address, mapped(narrow), port) : fill_ipv4(address, narrow, port);
        return true;
    }
    in6_addr wide{};
    if (!ipv6 || ::inet_pton(AF_INET6, text, &wide) != 1) return false;
    fill_ipv6(address, wide, port);
    return true;
}

bool is_empty(const char* text) { return text == nullptr || *text == '\0'; }

// Answers poll's result; a signal does not end the wait.
int poll_for(pollfd* entries, std::size_t count, std::int32_t timeout) {
    const loam::countdown time(timeout);
    int answer = ::poll(entries, count, timeout < 0 ? -1 : timeout);
    while (answer < 0 && errno == EINTR) answer = ::poll(entries, count, time.left());
    return answer;
}

short poll_events(std::int32_t requested) {
    int events = 0;
    if ((requested & zSocket::k_readable) != 0) events |= POLLIN;
    if ((requested & zSocket::k_writable) != 0) events |= POLLOUT;
    return static_cast<short>(events);
}

// A lost connection shows as whatever was asked for: the next operation on it says what happened.
std::int32_t occurred_events(short events, std::int32_t requested) {
    std::int32_t occurred = 0;
    if ((events & (POLLIN | POLLHUP | POLLERR)) != 0) occurred |= zSocket::k_readable;
    if ((events & (POLLOUT | POLLHUP | POLLERR)) != 0) occurred |= zSocket::k_writable;
    return occurred & requested;
}

}  // namespace

zSocketWaker* zSocketWaker::Factory() {
    const int descriptor = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (descriptor < 0) return failure("eventfd"), nullptr;
    auto* waker = new (std::nothrow) zSocketWaker;
    if (waker == nullptr) return ::close(descriptor), nullptr;
    waker->m_handle = descriptor;
    return waker;
}

zSocketWaker::~zSocketWaker() { ::close(native(m_handle)); }

void zSocketWaker::Wake() {
    const std::uint64_t one = 1;
    // A full counter is as awake as it gets.
    [[maybe_unused]] const auto written =
        loam::unless_interrupted([&] { return ::write(native(m_handle), &one, sizeof one); });
}

void zSocketWaker::settle() {
    std::uint64_t count = 0;
    [[maybe_unused]] const auto taken =
        loam::unless_interrupted([&] { return ::read(native(m_handle), &count, sizeof count); });
}

zStatus zSocket::Open(std::int32_t kind) {
    Close();
    if (kind != 0) return k_failed;
    constexpr int k_type = SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC;
    m_handle = ::socket(AF_INET6, k_type, IPPROTO_TCP);
    m_is_ipv6 = m_handle >= 0;
    if (m_is_ipv6) return set_option(m_handle, IPPROTO_IPV6, IPV6_V6ONLY, false);
    m_handle = ::socket(AF_INET, k_type, IPPROTO_TCP);
    return m_handle < 0 ? failure("socket") : 0;
}

zStatus zSocket::Listen(std::int32_t backlog) {
    // Set once here: the sockets that are accepted inherit both.
    zStatus status = SetNoDelay(true);
    if (status == 0) status = set_option(m_handle, SOL_SOCKET, SO_KEEPALIVE, true);
    if (status != 0) return status;
    return checked("listen", ::listen(native(m_handle), backlog));
}

zStatus zSocket::Accept(zSocket** accepted, std::int32_t) {
    if (accepted == nullptr) return k_failed;
    *accepted = nullptr;
    const int descriptor = loam::unless_interrupted([&] {
        return ::accept4(native(m_handle), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    });
    if (descriptor < 0) return accept_failure("accept4");
    auto* made = new (std::nothrow) zSocket;
    if (made == nullptr) return ::close(descriptor), k_no_resources;
    made->m_handle = descriptor;
    made->m_is_ipv6 = m_is_ipv6;
    *accepted = made;
    return 0;
}

zStatus zSocket::Receive(char* buffer, std::int32_t size, std::int32_t* received) {
    if (received == nullptr) return k_failed;
    *received = 0;
    if (buffer == nullptr || size <= 0) return k_failed;
    const auto count = loam::unless_interrupted(
        [&] { return ::recv(native(m_handle), buffer, static_cast<std::size_t>(size), 0); });
    if (count < 0) return transfer_failure("recv");
    *received = static_cast<std::int32_t>(count);
    return 0;
}

zStatus zSocket::wait_writable(std::int32_t timeout) {
    pollfd entry{native(m_handle), POLLOUT, 0};
    const int ready = poll_for(&entry, 1, timeout);
    if (ready < 0) return failure("poll");
    return ready == 0 ? k_timed_out : 0;
}

zStatus zSocket::send_some_now(const char* data, std::int32_t length, std::int32_t* sent,
                               follow what) {
    const int flags = what == follow::more ? MSG_NOSIGNAL | MSG_MORE : MSG_NOSIGNAL;
    const auto count = loam::unless_interrupted(
        [&] { return ::send(native(m_handle), data, static_cast<std::size_t>(length), flags); });
    if (count < 0) return transfer_failure("send");
    *sent = static_cast<std::int32_t>(count);
    return 0;
}

zStatus zSocket::EndSending() { return checked("shutdown", ::shutdown(native(m_handle), SHUT_WR)); }

zStatus zSocket::SetReuseAddress() { return set_option(m_handle, SOL_SOCKET, SO_REUSEADDR, true); }

zStatus zSocket::BindTo(const char* address, std::uint16_t port) {
    socket_address target;
    if (!is_empty(address)) {
        if (!read_address(address, port, m_is_ipv6, target)) return k_failed;
    } else if (m_is_ipv6) {
        fill_ipv6(target, in6addr_any, port);
    } else {
        fill_ipv4(target, in_addr{htonl(INADDR_ANY)}, port);
    }
    return checked("bind", ::bind(native(m_handle), target.get(), target.size));
}

std::uint16_t zSocket::LocalPort() const {
    socket_address own;
    own.size = sizeof own.storage;
    auto* space = reinterpret_cast<sockaddr*>(&own.storage);
    if (::getsockname(native(m_handle), space, &own.size) != 0) return 0;
    if (own.storage.ss_family == AF_INET6) {
        return ntohs(reinterpret_cast<const sockaddr_in6&>(own.storage).sin6_port);
    }
    return ntohs(reinterpret_cast<const sockaddr_in&>(own.storage).sin_port);
}

zStatus zSocket::Connect(const char* address, std::uint16_t port, std::int32_t timeout) {
    socket_address target;
    if (is_empty(address) || !read_address(address, port, m_is_ipv6, target)) return k_failed;
    const int answer = ::connect(native(m_handle), target.get(), target.size);
    // Interrupted, a connection goes on being made, as one does that did not wait.
    if (answer == 0) return 0;
    if (errno != EINPROGRESS && errno != EINTR) return failure("connect");
    const zStatus status = wait_writable(timeout);
    if (status != 0) return status;
    int error = 0;
    socklen_t size = sizeof error;
    if (::getsockopt(native(m_handle), SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
    if (error == 0) return 0;
    errno = error;
    return failure("connect");
}

zStatus zSocket::SetNoDelay(bool on) { return set_option(m_handle, IPPROTO_TCP, TCP_NODELAY, on); }

bool zSocket::IsNoDelay() const {
    int value = 0;
    socklen_t size = sizeof value;
    const int answer = ::getsockopt(native(m_handle), IPPROTO_TCP, TCP_NODELAY, &value, &size);
    return answer == 0 && value != 0;
}

void zSocket::close_handle() {
    // Not repeated when a signal interrupts it: the descriptor is free by then, and may already be
    // another thread's.
    if (IsOpen()) ::close(native(m_handle));
    m_handle = -1;
}

void zSocket::Reset() {
    const linger at_once{1, 0};
    if (IsOpen()) {
        ::setsockopt(native(m_handle), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    }
    close_handle();
}

zStatus zSocket::Select(zHeap<_zSocket_select*>* set, std::int32_t timeout, std::int32_t* ready,
                        zSocketWaker* waker) {
    if (set == nullptr || ready == nullptr) return k_failed;
    *ready = 0;
    // Kept from one wait to the next: with thousands of sockets it is a large piece of memory.
    thread_local std::vector<pollfd> entries;
    entries.clear();
    const std::int32_t count = set->Count();
    for (std::int32_t i = 0; i < count; ++i) {
        _zSocket_select& one = *(*set)[i];
        one.occurred = 0;
        // The system passes over negative descriptors. One that nothing is asked of would still
        // report its loss, again and again.
        const bool counts = one.socket != nullptr && one.requested != 0;
        entries.push_back(
            {counts ? native(one.socket->m_handle) : -1, poll_events(one.requested), 0});
    }
    if (waker != nullptr) entries.push_back({native(waker->m_handle), POLLIN, 0});
    int left = poll_for(entries.data(), entries.size(), timeout);
    if (left < 0) return failure("poll");
    if (waker != nullptr && entries.back().revents != 0) {
        waker->settle();
        --left;
    }
    for (std::int32_t i = 0; left > 0 && i < count; ++i) {
        if (entries[static_cast<std::size_t>(i)].revents == 0) continue;
        --left;
        _zSocket_select& one = *(*set)[i];
        one.occurred = occurred_events(entries[static_cast<std::size_t>(i)].revents, one.requested);
        if (one.occurred != 0) ++*ready;
    }
    return 0;
}
