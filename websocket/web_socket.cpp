// websocket/web_socket.cpp - cWebSocket of include/websocket.h: the handlers and how they are
// called.
#include <utility>

#include "core/run/guarded.h"
#include "websocket.h"
#include "websocket/class_names.h"
#include "websocket/extras.h"

using pennywort::run::guarded;
using pennywort::websocket::extras;
using pennywort::websocket::k_class_base;

namespace {

// A handler may replace itself or destroy the socket that holds it, so a copy of it runs.
template <typename function, typename... arguments>
bool call(const function& handler, const arguments&... passed) {
    if (!handler) return false;
    guarded(k_class_base, "a handler", [&] {
        const function running = handler;
        running(passed...);
    });
    return true;
}

// A host whose socket is no shared pointer's gets one that owns nothing. A socket that is being
// destroyed can no longer be handed out.
std::shared_ptr<cWebSocket> pointer_to(cWebSocket& socket) {
    const std::weak_ptr<zSharedObject> self = socket.weak_from_this();
    const std::weak_ptr<zSharedObject> nobody;
    const bool was_ever_owned = self.owner_before(nobody) || nobody.owner_before(self);
    if (!was_ever_owned) return {std::shared_ptr<void>(), &socket};
    return std::static_pointer_cast<cWebSocket>(self.lock());
}

std::shared_ptr<extras> copy_of(const std::shared_ptr<extras>& other) {
    return other == nullptr ? nullptr : std::make_shared<extras>(*other);
}

}  // namespace

std::shared_ptr<cWebSocket> cWebSocket::Factory() {
    std::shared_ptr<cWebSocket> made;
    guarded(k_class_base, "Factory",
            [&] { made = std::make_shared<cWebSocket_Sharp>(std::function<void(std::string)>()); });
    return made;
}

cWebSocket::cWebSocket() = default;
cWebSocket::~cWebSocket() = default;

cWebSocket::cWebSocket(const cWebSocket& other)
    : zSharedObject(other),
      m_error_handler(other.m_error_handler),
      m_opened_handler(other.m_opened_handler),
      m_closed_handler(other.m_closed_handler),
      m_message_handler(other.m_message_handler),
      m_extras(copy_of(other.m_extras)) {}

cWebSocket& cWebSocket::operator=(const cWebSocket& other) {
    if (this == &other) return *this;
    m_error_handler = other.m_error_handler;
    m_opened_handler = other.m_opened_handler;
    m_closed_handler = other.m_closed_handler;
    m_message_handler = other.m_message_handler;
    m_extras = copy_of(other.m_extras);
    return *this;
}

void cWebSocket::SetOpenedHandler(std::function<void(std::shared_ptr<cWebSocket>)> handler) {
    m_opened_handler.swap(handler);
}

void cWebSocket::SetMessageHandler(std::function<void(const char*)> handler) {
    m_message_handler.swap(handler);
}

void cWebSocket::SetErrorHandler(std::function<void(Error)> handler) {
    m_error_handler.swap(handler);
}

void cWebSocket::SetClosedHandler(std::function<void(std::optional<Error>, bool)> handler) {
    m_closed_handler.swap(handler);
}

void cWebSocket::SetBinaryHandler(std::function<void(const void*, std::size_t)> handler) {
    guarded(k_class_base, "SetBinaryHandler", [&] {
        if (m_extras == nullptr) m_extras = std::make_shared<extras>();
        m_extras->binary_handler.swap(handler);
    });
}

void cWebSocket::SetGoodbyeHandler(std::function<void(std::int32_t, const char*)> handler) {
    guarded(k_class_base, "SetGoodbyeHandler", [&] {
        if (m_extras == nullptr) m_extras = std::make_shared<extras>();
        m_extras->goodbye_handler.swap(handler);
    });
}

void cWebSocket::SetFaultHandler(std::function<void(const char*)> handler) {
    guarded(k_class_base, "SetFaultHandler", [&] {
        if (m_extras == nullptr) m_extras = std::make_shared<extras>();
        m_extras->fault_handler.swap(handler);
    });
}

std::size_t cWebSocket::WaitingBytes() const { return waiting_bytes(); }

void cWebSocket::SendBinary(const void* data, std::size_t size) { send_binary(data, size); }

void cWebSocket::SetOptions(const cWebSocketOptions& options) {
    guarded(k_class_base, "SetOptions", [&] {
        auto changed = std::make_shared<extras>();
        changed->options = options;
        if (m_extras != nullptr) {
            changed->binary_handler.swap(m_extras->binary_handler);
            changed->goodbye_handler.swap(m_extras->goodbye_handler);
            changed->fault_handler.swap(m_extras->fault_handler);
        }
        m_extras = std::move(changed);
    });
}

cWebSocketOptions cWebSocket::Options() const {
    return m_extras == nullptr ? cWebSocketOptions() : m_extras->options;
}

void cWebSocket::SignalError(Error error) { call(m_error_handler, error); }

void cWebSocket::SocketOpened() { next_opened_call()(); }

cWebSocket::opened_call cWebSocket::next_opened_call() noexcept {
    opened_call next;
    guarded(k_class_base, "the opened handler", [&] {
        if (!m_opened_handler) return;
        next.socket = pointer_to(*this);
        next.handler = m_opened_handler;
    });
    return next;
}

void cWebSocket::opened_call::operator()() const {
    if (handler && socket != nullptr) call(handler, socket);
}

void cWebSocket::SocketClosed(std::optional<Error> error, bool wasClean) {
    call(m_closed_handler, error, wasClean);
}

void cWebSocket::ReceiveMessage(const char* text) { call(m_message_handler, text); }

bool cWebSocket::has_binary_handler() const {
    const auto kept = m_extras;
    return kept != nullptr && kept->binary_handler;
}

bool cWebSocket::has_goodbye_handler() const {
    const auto kept = m_extras;
    return kept != nullptr && kept->goodbye_handler;
}

void cWebSocket::SignalGoodbye(std::int32_t code, const char* reason) {
    const auto kept = m_extras;
    if (kept != nullptr) call(kept->goodbye_handler, code, reason);
}

void cWebSocket::SignalFault(const char* why) {
    const auto kept = m_extras;
    if (kept != nullptr && *why != 0) call(kept->fault_handler, why);
}

bool cWebSocket::ReceiveBinary(const void* data, std::size_t size) {
    const auto kept = m_extras;
    return kept != nullptr && call(kept->binary_handler, data, size);
}

void cWebSocket::send_binary(const void*, std::size_t) { SignalError(Error::SendFailed); }

std::size_t cWebSocket::waiting_bytes() const { return 0; }
