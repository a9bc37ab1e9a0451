// websocket/managed/impl.cpp - see the header for the contract.
#include "websocket/managed/impl.h"

#include <fmt/format.h>

#include <utility>

#include "core/run/guarded.h"
#include "websocket/close_codes.h"
#include "websocket/managed/managed_maker.h"
#include "websocket/managed/thrown_text.h"

using pennywort::run::guarded;
using namespace pennywort::websocket;

namespace {

constexpr char k_class[] = "cWebSocket_Sharp";

}  // namespace

// The managed library would leave a connection open that nobody can close any more.
cWebSocket_Sharp::Impl::~Impl() { Close(); }

void cWebSocket_Sharp::Impl::Open(const managed_request& request) {
    Close();
    {
        const std::lock_guard lock(m_socket_mutex);
        m_request = request;
        m_back_off = back_off(request.max_reconnects, request.first_reconnect_wait,
                              request.longest_reconnect_wait);
    }
    connect(request);
}

void cWebSocket_Sharp::Impl::connect(const managed_request& request) {
    const std::weak_ptr<managed_owner> self =
        std::shared_ptr<managed_owner>(shared_from_this(), this);
    auto socket = current_managed_maker()(request, self);
    exchange(socket);
    socket->connect_async();
}

// An attempt that cannot even begin is an error of the library, and the last one.
void cWebSocket_Sharp::Impl::open_again() noexcept {
    managed_request request;
    std::string why;
    const bool is_begun = succeeds(
        [&] {
            {
                const std::lock_guard lock(m_socket_mutex);
                request = m_request;
            }
            if (!request.url.empty()) connect(request);
        },
        why);
    if (!is_begun) error_received(why);
}

void cWebSocket_Sharp::Impl::plan_again() noexcept {
    guarded(k_class, "opening again", [this] {
        std::optional<std::chrono::milliseconds> wait;
        {
            const std::lock_guard lock(m_socket_mutex);
            if (!m_request.url.empty()) wait = m_back_off.next();
        }
        if (!wait) return;
        const std::weak_ptr<zSharedObject> self = weak_from_this();
        m_again.start(*wait, [self] {
            if (const auto impl = std::static_pointer_cast<Impl>(self.lock())) impl->open_again();
        });
    });
}

void cWebSocket_Sharp::Impl::Close() {
    m_again.cancel();
    {
        const std::lock_guard lock(m_socket_mutex);
        m_request.url.clear();
    }
    if (const auto socket = exchange(nullptr)) {
        guarded(k_class, "Close", [&] { socket->close_async(); });
    }
}

template <typename operation>
void cWebSocket_Sharp::Impl::attempt(operation what) {
    const auto socket = current();
    if (socket == nullptr) return;
    std::string why;
    if (succeeds([&] { what(*socket); }, why)) return;
    // On the caller's thread, who holds the socket: not under the lock that an event may hold while
    // it waits for this thread.
    guarded(k_class, "OnError", [&] {
        if (const auto call = onError) call(why, std::nullopt);
    });
}

void cWebSocket_Sharp::Impl::Send(std::string_view text) {
    attempt([&](managed_socket& socket) { socket.send_text(text); });
}

void cWebSocket_Sharp::Impl::SendBinary(std::string_view bytes) {
    attempt([&](managed_socket& socket) { socket.send_binary(bytes); });
}

void cWebSocket_Sharp::Impl::SendPing() {
    attempt([&](managed_socket& socket) { socket.ping(); });
}

// Each event calls a copy: the handler may destroy the socket, and with it what is bound here.
void cWebSocket_Sharp::Impl::socket_opened() noexcept {
    const std::lock_guard lock(m_event_mutex);
    {
        const std::lock_guard requested(m_socket_mutex);
        m_back_off.reset();
    }
    guarded(k_class, "OnOpen", [&] {
        if (const auto call = onOpened) call();
    });
}

void cWebSocket_Sharp::Impl::message_received(std::string bytes, bool is_binary) noexcept {
    const std::lock_guard lock(m_event_mutex);
    guarded(k_class, "OnMessage", [&] {
        const auto binary = onBinary;
        if (is_binary && binary && binary(bytes)) return;
        if (const auto call = onMessage) call(std::move(bytes));
    });
}

void cWebSocket_Sharp::Impl::error_received(const std::string& text) noexcept {
    const std::lock_guard lock(m_event_mutex);
    guarded(k_class, "OnError", [&] {
        if (const auto call = onError) call(text, std::nullopt);
    });
}

void cWebSocket_Sharp::Impl::socket_closed(std::uint16_t code, bool was_clean) noexcept {
    std::optional<Error> error;
    if (code == k_close_abnormal) error = Error::AbnormalClosure;
    const std::lock_guard lock(m_event_mutex);
    guarded(k_class, "OnClose", [&] { SocketClosed(error, was_clean); });
    if (!was_clean) plan_again();
}

// The text goes the way of an error's, on which no host has ever seen it.
void cWebSocket_Sharp::Impl::SocketClosed(std::optional<Error> error, bool wasClean) {
    const auto text = fmt::format("cWebSocket_Sharp::Impl::SocketClosed() - code:{} wasClean:{}\n",
                                  static_cast<int>(error.value_or(Error::None)), wasClean);
    if (!wasClean && error == Error::AbnormalClosure) {
        if (const auto call = onError) call(text, error);
    } else if (const auto call = onClosed) {
        call(error, wasClean);
    }
}

void cWebSocket_Sharp::Impl::release() noexcept {
    const std::lock_guard lock(m_event_mutex);
    onOpened = nullptr;
    onClosed = nullptr;
    onMessage = nullptr;
    onError = nullptr;
    onBinary = nullptr;
}

std::shared_ptr<managed_socket> cWebSocket_Sharp::Impl::current() const {
    const std::lock_guard lock(m_socket_mutex);
    return m_socket;
}

std::shared_ptr<managed_socket> cWebSocket_Sharp::Impl::exchange(
    std::shared_ptr<managed_socket> next) {
    const std::lock_guard lock(m_socket_mutex);
    m_socket.swap(next);
    return next;
}
