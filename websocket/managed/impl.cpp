// websocket/managed/impl.cpp - see the header for the contract.
#include "websocket/managed/impl.h"

#include <fmt/format.h>

#include <mutex>
#include <utility>

#include "core/run/guarded.h"
#include "loam/trace.h"
#include "websocket/class_names.h"
#include "websocket/close_codes.h"
#include "websocket/managed/managed_maker.h"
#include "websocket/managed/spare_text.h"
#include "websocket/managed/thrown_text.h"

using pennywort::run::guarded;
using namespace pennywort::websocket;

namespace {

// Hosts get a value alone.
void trace_error(const std::string& why) {
    zTraceManager::Default()->TraceNote("cWebSocket_Sharp: error (%s)\n", why.c_str());
}

}  // namespace

// Who gets the events of one connection, which another one may have followed meanwhile.
class cWebSocket_Sharp::Impl::connection final : public managed_owner {
public:
    connection(std::weak_ptr<zSharedObject> impl, number as)
        : m_impl(std::move(impl)), m_number(as) {}

    void socket_opened() noexcept override {
        if (const auto impl = locked()) impl->socket_opened(m_number);
    }
    void message_received(std::string bytes, bool is_binary) noexcept override {
        if (const auto impl = locked()) impl->message_received(std::move(bytes), is_binary);
    }
    void error_received(const std::string& text) noexcept override {
        if (const auto impl = locked()) impl->error_received(text);
    }
    void goodbye_received(std::uint16_t code, const std::string& reason) noexcept override {
        if (const auto impl = locked()) impl->goodbye_received(code, reason);
    }
    void fault_received(const std::string& why) noexcept override {
        if (const auto impl = locked()) impl->fault_received(why);
    }
    void socket_closed(std::uint16_t code, bool was_clean) noexcept override {
        if (const auto impl = locked()) impl->socket_closed(this, m_number, code, was_clean);
    }

private:
    std::shared_ptr<Impl> locked() const { return std::static_pointer_cast<Impl>(m_impl.lock()); }

    const std::weak_ptr<zSharedObject> m_impl;
    const number m_number;
};

// The managed library would leave a connection open that nobody can close any more.
cWebSocket_Sharp::Impl::~Impl() { Close(); }

void cWebSocket_Sharp::Impl::Open(const managed_request& request) {
    Close();
    number as = 0;
    {
        const std::lock_guard lock(m_socket_mutex);
        m_request = request;
        m_back_off = back_off(request.max_reconnects, request.first_reconnect_wait,
                              request.longest_reconnect_wait);
        as = ++m_number;
    }
    connect(request, as);
}

// One that was closed while it was being made is not connected.
void cWebSocket_Sharp::Impl::connect(const managed_request& request, number as) {
    const std::weak_ptr<zSharedObject> self = weak_from_this();
    const auto events = std::make_shared<connection>(self, as);
    const auto socket = current_managed_maker()(request, events);
    if (take(socket, events, as)) socket->connect_async();
}

bool cWebSocket_Sharp::Impl::take(const std::shared_ptr<managed_socket>& socket,
                                  const std::shared_ptr<managed_owner>& events, number as) {
    const std::lock_guard lock(m_socket_mutex);
    if (as != m_number) return false;
    m_connections.push_back(events);
    m_socket = socket;
    return true;
}

void cWebSocket_Sharp::Impl::forget(const managed_owner* events) noexcept {
    const std::lock_guard lock(m_socket_mutex);
    std::erase_if(m_connections, [events](const auto& one) { return one.get() == events; });
}

// An attempt that cannot even begin is an error of the library, and the last one.
void cWebSocket_Sharp::Impl::open_again(number as) noexcept {
    managed_request request;
    std::string why;
    const bool is_begun = succeeds(
        [&] {
            {
                const std::lock_guard lock(m_socket_mutex);
                if (as != m_number) return;
                request = m_request;
            }
            connect(request, as);
        },
        why);
    if (!is_begun) error_received(why);
}

void cWebSocket_Sharp::Impl::plan_again(number as) noexcept {
    guarded(k_class_sharp, "opening again", [this, as] {
        std::optional<std::chrono::milliseconds> wait;
        {
            const std::lock_guard lock(m_socket_mutex);
            if (as == m_number) wait = m_back_off.next();
        }
        if (!wait) return;
        const std::weak_ptr<zSharedObject> self = weak_from_this();
        m_again.start(*wait, [self, as] {
            if (const auto impl = std::static_pointer_cast<Impl>(self.lock())) impl->open_again(as);
        });
    });
}

void cWebSocket_Sharp::Impl::Close() {
    m_again.cancel();
    std::shared_ptr<managed_socket> socket;
    {
        const std::lock_guard lock(m_socket_mutex);
        ++m_number;
        m_socket.swap(socket);
    }
    if (socket != nullptr) guarded(k_class_sharp, "Close", [&] { socket->close_async(); });
}

template <typename operation>
void cWebSocket_Sharp::Impl::attempt(operation what) {
    const auto socket = current();
    if (socket == nullptr) return;
    std::string why;
    if (succeeds([&] { what(*socket); }, why)) return;
    trace_error(why);
    // On the caller's thread, who holds the socket: not under the lock that an event may hold while
    // it waits for this thread.
    guarded(k_class_sharp, "OnError", [&] {
        if (const auto call = onFault) call(why);
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

std::size_t cWebSocket_Sharp::Impl::waiting_bytes() const {
    const auto socket = current();
    return socket == nullptr ? 0 : socket->waiting_bytes();
}

// Each event calls a copy: the handler may destroy the socket, and with it what is bound here.
void cWebSocket_Sharp::Impl::socket_opened(number of) noexcept {
    const std::lock_guard lock(m_event_mutex);
    {
        const std::lock_guard requested(m_socket_mutex);
        if (of == m_number) m_back_off.reset();
    }
    guarded(k_class_sharp, "OnOpen", [&] {
        if (const auto call = onOpened) call();
    });
}

void cWebSocket_Sharp::Impl::message_received(std::string bytes, bool is_binary) noexcept {
    const std::lock_guard lock(m_event_mutex);
    guarded(k_class_sharp, "OnMessage", [&] {
        const auto binary = onBinary;
        if (is_binary && binary && binary(bytes)) return spare_text::give_back(std::move(bytes));
        if (const auto call = onMessage) call(std::move(bytes));
    });
}

void cWebSocket_Sharp::Impl::error_received(const std::string& text) noexcept {
    trace_error(text);
    const std::lock_guard lock(m_event_mutex);
    guarded(k_class_sharp, "OnError", [&] {
        if (const auto call = onError) call(text, std::nullopt);
    });
}

void cWebSocket_Sharp::Impl::goodbye_received(std::uint16_t code,
                                              const std::string& reason) noexcept {
    const std::lock_guard lock(m_event_mutex);
    guarded(k_class_sharp, "the goodbye", [&] {
        if (const auto call = onGoodbye) call(code, reason.c_str());
    });
}

void cWebSocket_Sharp::Impl::fault_received(const std::string& why) noexcept {
    const std::lock_guard lock(m_event_mutex);
    guarded(k_class_sharp, "the fault", [&] {
        if (const auto call = onFault) call(why);
    });
}

void cWebSocket_Sharp::Impl::socket_closed(const managed_owner* events, number of,
                                           std::uint16_t code, bool was_clean) noexcept {
    forget(events);
    std::optional<Error> error;
    if (code == k_close_abnormal) error = Error::AbnormalClosure;
    const std::lock_guard lock(m_event_mutex);
    guarded(k_class_sharp, "OnClose", [&] { SocketClosed(error, was_clean); });
    if (!was_clean) plan_again(of);
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
    onGoodbye = nullptr;
    onFault = nullptr;
}

std::shared_ptr<managed_socket> cWebSocket_Sharp::Impl::current() const {
    const std::lock_guard lock(m_socket_mutex);
    return m_socket;
}
