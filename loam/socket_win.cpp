// loam/socket_win.cpp - Windows half of loam/socket.h. Linux half: socket_linux.cpp.
#include <winsock2.h>
// Apart, since winsock2.h has to stand before windows.h.

#include <windows.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "loam/countdown.h"
#include "loam/socket.h"
#include "loam/trace.h"

namespace {

// An address of either family as bind and connect want it.
struct socket_address {
    sockaddr_storage storage{};
    int size = 0;

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

SOCKET native(std::intptr_t handle) { return static_cast<SOCKET>(handle); }

// Once per process and for its whole life: sockets may end after everything else.
bool sockets_are_up() {
    static const bool up = [] {
        WSADATA data;
        return ::WSAStartup(MAKEWORD(2, 2), &data) == 0;
    }();
    return up;
}

zStatus status_of(int error) {
    switch (error) {
        case WSAEWOULDBLOCK:
        case WSAEINPROGRESS:
            return zSocket::k_not_now;
        case WSAETIMEDOUT:
            return zSocket::k_timed_out;
        case WSAEADDRINUSE:
        case WSAEACCES:  // taken by another process that wants it for itself alone
            return zSocket::k_address_in_use;
        case WSAECONNRESET:
        case WSAECONNABORTED:
        case WSAESHUTDOWN:
        case WSAENOTCONN:
            return zSocket::k_lost;
        case WSAEMFILE:
        case WSAENOBUFS:
            return zSocket::k_no_resources;
        default:
            return zSocket::k_failed;
    }
}

// What a peer can bring about at will is not worth a trace: it would fill the log for it.
zStatus failure_of(const char* call, int error) {
    const zStatus status = status_of(error);
    if (status != zSocket::k_not_now && status != zSocket::k_lost) {
        zTraceManager::Default()->TraceNote("zSocket: %s failed: error %d\n", call, error);
    }
    return status;
}

zStatus failure(const char* call) { return failure_of(call, ::WSAGetLastError()); }

// The peer of a connection that is up has not answered for long: no time-out of the caller's.
zStatus transfer_failure(const char* call) {
    return ::WSAGetLastError() == WSAETIMEDOUT ? zSocket::k_lost : failure(call);
}

// A shortage that lasts would be told with each attempt; who accepts tells it once.
zStatus accept_failure(const char* call) {
    const int error = ::WSAGetLastError();
    return status_of(error) == zSocket::k_no_resources ? zSocket::k_no_resources
                                                       : failure_of(call, error);
}

zStatus checked(const char* call, int answer) { return answer == SOCKET_ERROR ? failure(call) : 0; }

zStatus set_option(std::intptr_t handle, int level, int option, bool on) {
    const DWORD value = on ? 1 : 0;
    return checked("setsockopt", ::setsockopt(native(handle), level, option,
                                              reinterpret_cast<const char*>(&value), sizeof value));
}

bool make_non_blocking(SOCKET socket) {
    u_long on = 1;
    return ::ioctlsocket(socket, static_cast<long>(FIONBIO), &on) == 0;
}

// Not inherited by child processes; closed again when it cannot be set up. -1 on failure.
std::intptr_t new_socket(int family, int type, int protocol) {
    constexpr DWORD k_flags = WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT;
    const SOCKET made = ::WSASocketW(family, type, protocol, nullptr, 0, k_flags);
    if (made == INVALID_SOCKET) return -1;
    if (make_non_blocking(made)) return static_cast<std::intptr_t>(made);
    ::closesocket(made);
    return -1;
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

short poll_events(std::int32_t requested) {
    int events = 0;
    if ((requested & zSocket::k_readable) != 0) events |= POLLRDNORM;
    if ((requested & zSocket::k_writable) != 0) events |= POLLWRNORM;
    return static_cast<short>(events);
}

// A lost connection shows as whatever was asked for: the next operation on it says what happened.
// One whose peer has only ended its sending counts as hung up too, which makes no room to send.
std::int32_t occurred_events(short events, std::int32_t requested) {
    std::int32_t occurred = 0;
    if ((events & (POLLRDNORM | POLLHUP | POLLERR)) != 0) occurred |= zSocket::k_readable;
    if ((events & (POLLWRNORM | POLLERR)) != 0) occurred |= zSocket::k_writable;
    return occurred & requested;
}

// A connection that is hung up ends each wait at once. Who waits for room on it looks this often.
constexpr int k_hung_up_pause_ms = 10;

// Pauses for a wait that ended at once and for nothing. False when its time has passed.
bool pause_within(const loam::countdown& time) {
    const int left = time.left();
    if (left == 0) return false;
    ::Sleep(static_cast<DWORD>(left < 0 ? k_hung_up_pause_ms : std::min(left, k_hung_up_pause_ms)));
    return true;
}

// WSAPoll refuses to wait for nothing at all.
int poll_for(std::vector<WSAPOLLFD>& entries, std::int32_t timeout) {
    if (entries.empty()) {
        ::Sleep(timeout < 0 ? INFINITE : static_cast<DWORD>(timeout));
        return 0;
    }
    return ::WSAPoll(entries.data(), static_cast<ULONG>(entries.size()),
                     timeout < 0 ? -1 : timeout);
}

// The system gives at most this much to one call.
int piece(std::int32_t length) { return std::min(length, 1 << 30); }

}  // namespace

// WSAPoll waits for sockets only, so this is one: a datagram to itself ends the wait.
zSocketWaker* zSocketWaker::Factory() {
    if (!sockets_are_up()) return nullptr;
    const std::intptr_t handle = new_socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (handle == -1) return failure("WSASocketW"), nullptr;
    socket_address own;
    fill_ipv4(own, in_addr{}, 0);
    reinterpret_cast<sockaddr_in&>(own.storage).sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* space = reinterpret_cast<sockaddr*>(&own.storage);
    zSocketWaker* waker = nullptr;
    // Connected to itself, it takes datagrams from nobody else.
    if (::bind(native(handle), own.get(), own.size) == 0 &&
        ::getsockname(native(handle), space, &own.size) == 0 &&
        ::connect(native(handle), own.get(), own.size) == 0) {
        waker = new (std::nothrow) zSocketWaker;
    }
    if (waker == nullptr) return ::closesocket(native(handle)), nullptr;
    waker->m_handle = handle;
    return waker;
}

zSocketWaker::~zSocketWaker() { ::closesocket(native(m_handle)); }

// A datagram that finds no room is not missed: those before it are still there.
void zSocketWaker::Wake() { ::send(native(m_handle), "w", 1, 0); }

void zSocketWaker::settle() {
    char letter = 0;
    while (::recv(native(m_handle), &letter, sizeof letter, 0) > 0) {
    }
}

zStatus zSocket::Open(std::int32_t kind) {
    Close();
    if (kind != 0 || !sockets_are_up()) return k_failed;
    m_handle = new_socket(AF_INET6, SOCK_STREAM, IPPROTO_TCP);
    m_is_ipv6 = IsOpen();
    if (m_is_ipv6) return set_option(m_handle, IPPROTO_IPV6, IPV6_V6ONLY, false);
    m_handle = new_socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    return IsOpen() ? 0 : failure("WSASocketW");
}

zStatus zSocket::Listen(std::int32_t backlog) {
    return checked("listen", ::listen(native(m_handle), backlog));
}

zStatus zSocket::Accept(zSocket** accepted, std::int32_t) {
    if (accepted == nullptr) return k_failed;
    *accepted = nullptr;
    const SOCKET taken = ::accept(native(m_handle), nullptr, nullptr);
    if (taken == INVALID_SOCKET) return accept_failure("accept");
    auto* made = new (std::nothrow) zSocket;
    if (made == nullptr || !make_non_blocking(taken)) {
        ::closesocket(taken);
        delete made;
        return k_no_resources;
    }
    ::SetHandleInformation(reinterpret_cast<HANDLE>(taken), HANDLE_FLAG_INHERIT, 0);
    made->m_handle = static_cast<std::intptr_t>(taken);
    made->m_is_ipv6 = m_is_ipv6;
    made->SetNoDelay(true);
    set_option(made->m_handle, SOL_SOCKET, SO_KEEPALIVE, true);
    *accepted = made;
    return 0;
}

zStatus zSocket::Receive(char* buffer, std::int32_t size, std::int32_t* received) {
    if (received == nullptr) return k_failed;
    *received = 0;
    if (buffer == nullptr || size <= 0) return k_failed;
    const int count = ::recv(native(m_handle), buffer, piece(size), 0);
    if (count == SOCKET_ERROR) return transfer_failure("recv");
    *received = count;
    return 0;
}

zStatus zSocket::wait_writable(std::int32_t timeout) {
    const loam::countdown time(timeout);
    do {
        WSAPOLLFD entry{native(m_handle), POLLWRNORM, 0};
        const int ready = ::WSAPoll(&entry, 1, time.left());
        if (ready == SOCKET_ERROR) return failure("WSAPoll");
        if (ready == 0) return k_timed_out;
        if (entry.revents != POLLHUP) return 0;
    } while (pause_within(time));
    return k_timed_out;
}

zStatus zSocket::send_some_now(const char* data, std::int32_t length, std::int32_t* sent, follow) {
    const int count = ::send(native(m_handle), data, piece(length), 0);
    if (count == SOCKET_ERROR) return transfer_failure("send");
    *sent = count;
    return 0;
}

zStatus zSocket::EndSending() { return checked("shutdown", ::shutdown(native(m_handle), SD_SEND)); }

// A port of old connections can be taken without any option here. What SO_REUSEADDR would allow is
// to take a port away from whoever uses it; this one forbids that to others.
zStatus zSocket::SetReuseAddress() {
    return set_option(m_handle, SOL_SOCKET, static_cast<int>(SO_EXCLUSIVEADDRUSE), true);
}

zStatus zSocket::BindTo(const char* address, std::uint16_t port) {
    socket_address target;
    if (!is_empty(address)) {
        if (!read_address(address, port, m_is_ipv6, target)) return k_failed;
    } else if (m_is_ipv6) {
        fill_ipv6(target, in6_addr{}, port);
    } else {
        fill_ipv4(target, in_addr{}, port);
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

// select() and not WSAPoll: older systems never tell the latter that a connection was refused.
zStatus zSocket::Connect(const char* address, std::uint16_t port, std::int32_t timeout) {
    socket_address target;
    if (is_empty(address) || !read_address(address, port, m_is_ipv6, target)) return k_failed;
    if (::connect(native(m_handle), target.get(), target.size) == 0) return 0;
    if (::WSAGetLastError() != WSAEWOULDBLOCK) return failure("connect");
    fd_set made;
    fd_set refused;
    FD_ZERO(&made);
    FD_ZERO(&refused);
    FD_SET(native(m_handle), &made);
    FD_SET(native(m_handle), &refused);
    timeval time{timeout / 1000, timeout % 1000 * 1000};
    const int ready = ::select(0, nullptr, &made, &refused, timeout < 0 ? nullptr : &time);
    if (ready == SOCKET_ERROR) return failure("select");
    if (ready == 0) return k_timed_out;
    int error = 0;
    int size = sizeof error;
    auto* space = reinterpret_cast<char*>(&error);
    ::getsockopt(native(m_handle), SOL_SOCKET, SO_ERROR, space, &size);
    return error == 0 ? 0 : failure_of("connect", error);
}

zStatus zSocket::SetNoDelay(bool on) { return set_option(m_handle, IPPROTO_TCP, TCP_NODELAY, on); }

bool zSocket::IsNoDelay() const {
    DWORD value = 0;
    int size = sizeof value;
    auto* space = reinterpret_cast<char*>(&value);
    const int answer = ::getsockopt(native(m_handle), IPPROTO_TCP, TCP_NODELAY, space, &size);
    return answer == 0 && value != 0;
}

void zSocket::close_handle() {
    if (IsOpen()) ::closesocket(native(m_handle));
    m_handle = -1;
}

void zSocket::Reset() {
    const linger at_once{1, 0};
    if (IsOpen()) {
        ::setsockopt(native(m_handle), SOL_SOCKET, SO_LINGER,
                     reinterpret_cast<const char*>(&at_once), sizeof at_once);
    }
    close_handle();
}

zStatus zSocket::Select(zHeap<_zSocket_select*>* set, std::int32_t timeout, std::int32_t* ready,
                        zSocketWaker* waker) {
    if (set == nullptr || ready == nullptr) return k_failed;
    *ready = 0;
    // Kept from one wait to the next: with thousands of sockets it is a large piece of memory.
    thread_local std::vector<WSAPOLLFD> entries;
    thread_local std::vector<_zSocket_select*> waiting;
    entries.clear();
    waiting.clear();
    for (std::int32_t i = 0; i < set->Count(); ++i) {
        _zSocket_select* one = (*set)[i];
        one->occurred = 0;
        if (one->socket == nullptr || !one->socket->IsOpen() || one->requested == 0) continue;
        entries.push_back({native(one->socket->m_handle), poll_events(one->requested), 0});
        waiting.push_back(one);
    }
    if (waker != nullptr) entries.push_back({native(waker->m_handle), POLLRDNORM, 0});
    const loam::countdown time(timeout);
    do {
        const int answer = poll_for(entries, time.left());
        if (answer == SOCKET_ERROR) return failure("WSAPoll");
        const bool is_woken = waker != nullptr && entries.back().revents != 0;
        if (is_woken) waker->settle();
        for (std::size_t i = 0; i < waiting.size(); ++i) {
            waiting[i]->occurred = occurred_events(entries[i].revents, waiting[i]->requested);
            if (waiting[i]->occurred != 0) ++*ready;
        }
        if (answer == 0 || is_woken || *ready > 0) return 0;
    } while (pause_within(time));
    return 0;
}
