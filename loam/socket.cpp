// loam/socket.cpp - what is the same on every system; see the header for the contract. The rest
// stands in socket_linux.cpp and socket_win.cpp.
#include "loam/socket.h"

#include <algorithm>
#include <new>
#include <utility>

#include "loam/countdown.h"

namespace {

// A piece longer than this is worth a packet of its own.
constexpr std::size_t k_longest_collected = 16 * 1024;

}  // namespace

zSocket::zSocket() = default;

zSocket::~zSocket() { Close(); }

zSocket* zSocket::Factory() { return new (std::nothrow) zSocket; }

bool zSocket::IsOpen() const { return m_handle != -1; }

zStatus zSocket::Send(const char* data, std::int32_t length, std::int32_t, std::int32_t timeout) {
    if (!IsOpen() || length < 0 || (data == nullptr && length > 0)) return k_failed;
    const bool more_follows = std::exchange(m_more_follows, false);
    if (length == 0) return 0;
    const auto size = static_cast<std::size_t>(length);
    const bool may_wait = more_follows && m_collected != nullptr;
    if (!may_wait && !has_collected()) return send_now(data, length, timeout);
    if (m_collected->size() + size > k_longest_collected) {
        const zStatus status = send_collected(timeout);
        return status != 0 ? status : send_now(data, length, timeout);
    }
    m_collected->append(data, size);
    return may_wait ? 0 : send_collected(timeout);
}

zStatus zSocket::SendSome(const char* data, std::int32_t length, std::int32_t* sent) {
    if (sent == nullptr) return k_failed;
    *sent = 0;
    if (!IsOpen() || length < 0 || (data == nullptr && length > 0)) return k_failed;
    if (has_collected()) return send_some_joined(data, length, sent);
    return length == 0 ? 0 : send_some_now(data, length, sent);
}

void zSocket::BeginCollecting(std::string* pieces) { m_collected = pieces; }

zStatus zSocket::EndCollecting(std::int32_t timeout) {
    const zStatus status = send_collected(timeout);
    m_collected = nullptr;
    m_more_follows = false;
    return status;
}

void zSocket::MoreFollows() { m_more_follows = true; }

bool zSocket::has_collected() const { return m_collected != nullptr && !m_collected->empty(); }

zStatus zSocket::send_now(const char* data, std::int32_t length, std::int32_t timeout) {
    // Nearly always there is room for all of it, and no clock is needed.
    std::int32_t sent = 0;
    zStatus status = send_some_now(data, length, &sent);
    if (status == 0 && sent == length) return 0;
    const loam::countdown time(timeout);
    std::int32_t done = sent;
    while (status == k_not_now || (status == 0 && done < length)) {
        const int left = time.left();
        status = wait_writable(left);
        if (status == 0) status = send_some_now(data + done, length - done, &sent);
        if (status == 0) done += sent;
        // The system may tell of room and have none, when its memory is short for instance.
        if (status == k_not_now && left == 0) status = k_timed_out;
    }
    return status;
}

zStatus zSocket::send_collected(std::int32_t timeout) {
    if (!has_collected()) return 0;
    const auto length = static_cast<std::int32_t>(m_collected->size());
    const zStatus status = send_now(m_collected->data(), length, timeout);
    m_collected->clear();
    return status;
}

// What waits and the front of what follows it leave as one.
zStatus zSocket::send_some_joined(const char* data, std::int32_t length, std::int32_t* sent) {
    const std::size_t waiting = m_collected->size();
    m_collected->append(data, std::min(static_cast<std::size_t>(length), k_longest_collected));
    std::int32_t gone = 0;
    const zStatus status =
        send_some_now(m_collected->data(), static_cast<std::int32_t>(m_collected->size()), &gone);
    const auto taken = static_cast<std::size_t>(gone);
    if (taken >= waiting) {
        *sent = static_cast<std::int32_t>(taken - waiting);
        m_collected->clear();
        return 0;
    }
    m_collected->resize(waiting);
    m_collected->erase(0, taken);
    return status != 0 ? status : k_not_now;
}

void zSocket::send_some_collected() {
    std::int32_t sent = 0;
    if (has_collected()) send_some_joined(nullptr, 0, &sent);
}

// What the system has no room for is lost with the connection.
void zSocket::Close() {
    if (IsOpen()) send_some_collected();
    close_handle();
}

zStatus zSocket::Bind(std::uint16_t port) { return BindTo(nullptr, port); }

zStatus zSocket::Select(zHeap<_zSocket_select*>* set, std::int32_t timeout, std::int32_t* ready) {
    return Select(set, timeout, ready, nullptr);
}
