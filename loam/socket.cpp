// loam/socket.cpp - what is the same on every system; see the header for the contract. The rest
// stands in socket_linux.cpp and socket_win.cpp.
#include "loam/socket.h"

#include <new>
#include <utility>

#include "loam/countdown.h"

zSocket::zSocket() = default;

zSocket::~zSocket() { close_handle(); }

zSocket* zSocket::Factory() { return new (std::nothrow) zSocket; }

bool zSocket::IsOpen() const { return m_handle != -1; }

zStatus zSocket::Send(const char* data, std::int32_t length, std::int32_t, std::int32_t timeout) {
    const follow what = std::exchange(m_more_follows, false) ? follow::more : follow::nothing;
    if (!zSocket::IsOpen() || length < 0 || (data == nullptr && length > 0)) return k_failed;
    return length == 0 ? 0 : send_now(data, length, timeout, what);
}

zStatus zSocket::SendSome(const char* data, std::int32_t length, std::int32_t* sent) {
    if (sent == nullptr) return k_failed;
    *sent = 0;
    if (!zSocket::IsOpen() || length < 0 || (data == nullptr && length > 0)) return k_failed;
    return length == 0 ? 0 : send_some_now(data, length, sent, follow::nothing);
}

void zSocket::MoreFollows() { m_more_follows = true; }

zStatus zSocket::send_now(const char* data, std::int32_t length, std::int32_t timeout,
                          follow what) {
    // Nearly always there is room for all of it, and no clock is needed.
    std::int32_t sent = 0;
    zStatus status = send_some_now(data, length, &sent, what);
    if (status == 0 && sent == length) return 0;
    const loam::countdown time(timeout);
    std::int32_t done = sent;
    while (status == k_not_now || (status == 0 && done < length)) {
        const int left = time.left();
        status = wait_writable(left);
        if (status == 0) status = send_some_now(data + done, length - done, &sent, what);
        if (status == 0) done += sent;
        // The system may tell of room and have none, when its memory is short for instance.
        if (status == k_not_now && left == 0) status = k_timed_out;
    }
    return status;
}

void zSocket::Close() { close_handle(); }

zStatus zSocket::Bind(std::uint16_t port) { return BindTo(nullptr, port); }

zStatus zSocket::Select(zHeap<_zSocket_select*>* set, std::int32_t timeout, std::int32_t* ready) {
    return Select(set, timeout, ready, nullptr);
}
