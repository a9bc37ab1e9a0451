// loam/socket.cpp - see the header for the contract. The system's calls are in native_socket.h.
#include "loam/socket.h"

#include <algorithm>
#include <new>
#include <utility>

#include "loam/countdown.h"
#include "loam/native_socket.h"
#include "loam/thread_state.h"
#include "loam/trace.h"

namespace {

using loam::socket_option;
using loam::socket_result;

zStatus status_of(int error) {
    switch (loam::fault_of(error)) {
        case loam::socket_fault::not_now:
            return zSocket::k_not_now;
        case loam::socket_fault::timed_out:
            return zSocket::k_timed_out;
        case loam::socket_fault::address_in_use:
            return zSocket::k_address_in_use;
        case loam::socket_fault::lost:
            return zSocket::k_lost;
        case loam::socket_fault::no_resources:
            return zSocket::k_no_resources;
        case loam::socket_fault::other:
            break;
    }
    return zSocket::k_failed;
}

// Never throws: a failure that is traced must not become another.
void trace(const char* who, const socket_result& result) {
    try {
        zTraceManager::Default()->TraceNote("%s: %s failed: %s\n", who, result.call,
                                            loam::socket_error_text(result.error).c_str());
    } catch (const std::bad_alloc&) {
    }
}

// What a peer can bring about at will is not worth a trace: it would fill the log for it.
zStatus checked(const socket_result& result) {
    if (result.error == 0) return 0;
    const zStatus status = status_of(result.error);
    if (status != zSocket::k_not_now && status != zSocket::k_lost) trace("zSocket", result);
    return status;
}

// The peer of a connection that is up has been silent for long: no time-out of the caller's.
zStatus checked_transfer(const socket_result& result) {
    const bool is_given_up =
        result.error != 0 && loam::fault_of(result.error) == loam::socket_fault::timed_out;
    return is_given_up ? zSocket::k_lost : checked(result);
}

// A shortage that lasts would be told with each attempt; who accepts tells it once.
zStatus checked_accept(const socket_result& result) {
    const bool is_short =
        result.error != 0 && loam::fault_of(result.error) == loam::socket_fault::no_resources;
    return is_short ? zSocket::k_no_resources : checked(result);
}

// A connection of which nothing is asked would still report its loss, again and again.
bool counts(const _zSocket_select& entry) {
    return entry.socket != nullptr && entry.socket->zSocket::IsOpen() && entry.requested != 0;
}

// A connection that is hung up ends each wait on Windows at once. Who waits for room on it looks
// this often.
constexpr int k_hung_up_pause_ms = 10;

// Pauses for a wait that ended at once and for nothing. False when its time has passed.
bool pause_within(const loam::countdown& time) {
    const int left = time.left();
    if (left == 0) return false;
    const int pause = left < 0 ? k_hung_up_pause_ms : std::min(left, k_hung_up_pause_ms);
    loam::sleep_micro(static_cast<std::uint32_t>(pause) * 1000);
    return true;
}

// Fills the entries from a wait that is over, of which at most `left` were ready, and returns how
// many are. Those behind the last one are not looked at: with many connections nearly all wait.
std::int32_t fill_entries(zHeap<_zSocket_select*>& set, const loam::socket_wait& wait,
                          std::intptr_t left) {
    std::int32_t ready = 0;
    std::size_t index = 0;
    for (std::int32_t i = 0; left > 0 && i < set.Count(); ++i) {
        _zSocket_select& one = *set[i];
        if (!counts(one)) continue;
        const std::int32_t occurred = wait.occurred(index++);
        if (occurred == 0) continue;
        --left;
        one.occurred = occurred & one.requested;
        if (one.occurred != 0) ++ready;
    }
    return ready;
}

}  // namespace

zSocketWaker* zSocketWaker::Factory() {
    auto* const waker = new (std::nothrow) zSocketWaker;
    if (waker == nullptr) return nullptr;
    const socket_result made = loam::open_waker();
    if (made.error == 0) {
        waker->m_handle = made.value;
        return waker;
    }
    trace("zSocketWaker", made);
    delete waker;
    return nullptr;
}

zSocketWaker::~zSocketWaker() {
    if (m_handle != loam::k_no_socket) loam::close_socket(m_handle);
}

void zSocketWaker::Wake() { loam::wake(m_handle); }

void zSocketWaker::settle() { loam::settle_waker(m_handle); }

zSocket::zSocket() = default;

zSocket::~zSocket() { close_handle(); }

zSocket* zSocket::Factory() { return new (std::nothrow) zSocket; }

zStatus zSocket::Open(std::int32_t kind) {
    Close();
    if (kind != 0) return k_failed;
    socket_result made = loam::open_socket(true);
    m_is_ipv6 = made.error == 0;
    if (!m_is_ipv6) made = loam::open_socket(false);
    if (made.error != 0) return checked(made);
    m_handle = made.value;
    return m_is_ipv6 ? checked(loam::set_option(m_handle, socket_option::ipv6_only, false)) : 0;
}

zStatus zSocket::Listen(std::int32_t backlog) {
    return checked(loam::listen_socket(m_handle, backlog));
}

zStatus zSocket::Accept(zSocket** accepted, std::int32_t) {
    if (accepted == nullptr) return k_failed;
    *accepted = nullptr;
    const socket_result taken = loam::accept_socket(m_handle);
    if (taken.error != 0) return checked_accept(taken);
    auto* const made = new (std::nothrow) zSocket;
    if (made == nullptr) return loam::close_socket(taken.value), k_no_resources;
    made->m_handle = taken.value;
    made->m_is_ipv6 = m_is_ipv6;
    *accepted = made;
    return 0;
}

zStatus zSocket::Receive(char* buffer, std::int32_t size, std::int32_t* received) {
    if (received == nullptr) return k_failed;
    *received = 0;
    if (buffer == nullptr || size <= 0) return k_failed;
    const socket_result came = loam::receive_bytes(m_handle, buffer, size);
    if (came.error != 0) return checked_transfer(came);
    *received = static_cast<std::int32_t>(came.value);
    return 0;
}

zStatus zSocket::Send(const char* data, std::int32_t length, std::int32_t, std::int32_t timeout) {
    const bool more_follows = std::exchange(m_more_follows, false);
    if (!zSocket::IsOpen() || length < 0 || (data == nullptr && length > 0)) return k_failed;
    return length == 0 ? 0 : send_now(data, length, timeout, more_follows);
}

zStatus zSocket::SendSome(const char* data, std::int32_t length, std::int32_t* sent) {
    if (sent == nullptr) return k_failed;
    *sent = 0;
    if (!zSocket::IsOpen() || length < 0 || (data == nullptr && length > 0)) return k_failed;
    return length == 0 ? 0 : send_some_now(data, length, sent, false);
}

void zSocket::MoreFollows() { m_more_follows = true; }

zStatus zSocket::send_some_now(const char* data, std::int32_t length, std::int32_t* sent,
                               bool more_follows) {
    const loam::follow what = more_follows ? loam::follow::more : loam::follow::nothing;
    const socket_result gone = loam::send_bytes(m_handle, data, length, what);
    if (gone.error != 0) return checked_transfer(gone);
    *sent = static_cast<std::int32_t>(gone.value);
    return 0;
}

zStatus zSocket::send_now(const char* data, std::int32_t length, std::int32_t timeout,
                          bool more_follows) {
    // Nearly always there is room for all of it, and no clock is needed.
    std::int32_t sent = 0;
    zStatus status = send_some_now(data, length, &sent, more_follows);
    if (status == 0 && sent == length) return 0;
    const loam::countdown time(timeout);
    std::int32_t done = sent;
    while (status == k_not_now || (status == 0 && done < length)) {
        const int left = time.left();
        status = wait_writable(left);
        if (status == 0) status = send_some_now(data + done, length - done, &sent, more_follows);
        if (status == 0) done += sent;
        // The system may tell of room and have none, when its memory is short for instance.
        if (status == k_not_now && left == 0) status = k_timed_out;
    }
    return status;
}

zStatus zSocket::wait_writable(std::int32_t timeout) {
    loam::socket_wait wait(1);
    wait.add(m_handle, k_writable);
    const loam::countdown time(timeout);
    do {
        const socket_result waited = wait.wait(time.left());
        if (waited.error != 0) return checked(waited);
        if (waited.value == 0) return k_timed_out;
        if ((wait.occurred(0) & k_writable) != 0) return 0;
    } while (pause_within(time));
    return k_timed_out;
}

zStatus zSocket::EndSending() { return checked(loam::end_sending(m_handle)); }

zStatus zSocket::SetReuseAddress() {
    return checked(loam::set_option(m_handle, socket_option::reuse_address, true));
}

zStatus zSocket::SetExclusiveAddress() {
    if (!zSocket::IsOpen()) return k_failed;
    return checked(loam::set_option(m_handle, socket_option::exclusive_address, true));
}

zStatus zSocket::Bind(std::uint16_t port) { return BindTo(nullptr, port); }

zStatus zSocket::BindTo(const char* address, std::uint16_t port) {
    loam::socket_address target;
    if (!loam::read_address(address, port, m_is_ipv6, target)) return k_failed;
    return checked(loam::bind_socket(m_handle, target));
}

std::uint16_t zSocket::LocalPort() const { return loam::local_port(m_handle); }

zStatus zSocket::Connect(const char* address, std::uint16_t port, std::int32_t timeout) {
    loam::socket_address target;
    if (address == nullptr || *address == '\0') return k_failed;
    if (!loam::read_address(address, port, m_is_ipv6, target)) return k_failed;
    const socket_result begun = loam::begin_connect(m_handle, target);
    if (begun.error != 0) return checked(begun);
    if (begun.value != 0) return 0;
    const socket_result ended = loam::wait_connected(m_handle, timeout);
    if (ended.error != 0) return checked(ended);
    return ended.value == 0 ? k_timed_out : 0;
}

zStatus zSocket::SetNoDelay(bool on) {
    return checked(loam::set_option(m_handle, socket_option::no_delay, on));
}

bool zSocket::IsNoDelay() const { return loam::has_option(m_handle, socket_option::no_delay); }

bool zSocket::IsOpen() const { return m_handle != loam::k_no_socket; }

void zSocket::Close() { close_handle(); }

void zSocket::close_handle() {
    if (zSocket::IsOpen()) loam::close_socket(m_handle);
    m_handle = loam::k_no_socket;
}

void zSocket::Reset() {
    if (zSocket::IsOpen()) loam::abort_socket(m_handle);
    m_handle = loam::k_no_socket;
}

zStatus zSocket::Select(zHeap<_zSocket_select*>* set, std::int32_t timeout, std::int32_t* ready) {
    return Select(set, timeout, ready, nullptr);
}

zStatus zSocket::Select(zHeap<_zSocket_select*>* set, std::int32_t timeout, std::int32_t* ready,
                        zSocketWaker* waker) {
    if (set == nullptr || ready == nullptr) return k_failed;
    *ready = 0;
    loam::socket_wait wait(static_cast<std::size_t>(set->Count()) + 1);
    if (!wait.is_made()) return k_no_resources;
    for (std::int32_t i = 0; i < set->Count(); ++i) {
        _zSocket_select& one = *(*set)[i];
        one.occurred = 0;
        if (counts(one)) wait.add(one.socket->m_handle, one.requested);
    }
    const std::size_t place_of_waker = wait.count();
    if (waker != nullptr) wait.add(waker->m_handle, k_readable);
    const loam::countdown time(timeout);
    for (std::int32_t left = timeout;; left = time.left()) {
        const socket_result waited = wait.wait(left);
        if (waited.error != 0) return checked(waited);
        if (waited.value == 0) return 0;
        const bool is_woken = waker != nullptr && wait.occurred(place_of_waker) != 0;
        if (is_woken) waker->settle();
        *ready = fill_entries(*set, wait, waited.value - (is_woken ? 1 : 0));
        if (is_woken || *ready > 0) return 0;
        if (!pause_within(time)) return 0;
    }
}
