// websocket/managed/web_socket_sharp.cpp - cWebSocket_Sharp of include/websocket.h over its Impl.
#include <utility>

#include "core/limits.h"
#include "core/run/guarded.h"
#include "loam/trace.h"
#include "websocket.h"
#include "websocket/class_names.h"
#include "websocket/managed/impl.h"
#include "websocket/managed/spare_text.h"
#include "websocket/managed/thrown_text.h"
#include "websocket/transport_options.h"

using pennywort::run::guarded;
using namespace pennywort::websocket;

namespace {

managed_request request_of(const char* url, const cWebSocketOptions& options, double timeout) {
    managed_request request;
    request.url = url == nullptr ? "" : url;
    request.settings = settings_of(options, timeout);
    request.max_waiting_bytes = options.maxWaitingBytes > 0
                                    ? std::size_t(options.maxWaitingBytes)
                                    : pennywort::k_max_websocket_waiting_bytes;
    request.max_reconnects = options.maxReconnects;
    request.first_reconnect_wait = options.firstReconnectWait;
    request.longest_reconnect_wait = options.longestReconnectWait;
    return request;
}

}  // namespace

cWebSocket_Sharp::cWebSocket_Sharp(std::function<void(std::string)> log)
    : m_impl(std::make_shared<Impl>()), m_log(std::move(log)) {
    bind_events();
}

cWebSocket_Sharp::cWebSocket_Sharp(const cWebSocket_Sharp& other) = default;

cWebSocket_Sharp& cWebSocket_Sharp::operator=(const cWebSocket_Sharp& other) {
    if (this == &other) return *this;
    cWebSocket::operator=(other);
    release();
    m_impl = other.m_impl;
    m_log = other.m_log;
    return *this;
}

cWebSocket_Sharp::~cWebSocket_Sharp() { release(); }

void cWebSocket_Sharp::bind_events() {
    m_impl->owner = this;
    m_impl->onOpened = [this] { SocketOpened(); };
    m_impl->onClosed = [this](std::optional<Error> error, bool was_clean) {
        SocketClosed(error, was_clean);
    };
    m_impl->onMessage = [this](std::string text) {
        ReceiveMessage(text.c_str());
        spare_text::give_back(std::move(text));
    };
    m_impl->onBinary = [this](const std::string& bytes) {
        return ReceiveBinary(bytes.data(), bytes.size());
    };
    m_impl->onGoodbye = [this](std::int32_t code, const char* reason) {
        SignalGoodbye(code, reason);
    };
    m_impl->onFault = [this](const std::string& why) { SignalFault(why.c_str()); };
    m_impl->onError = [this](const std::string&, std::optional<Error> error) {
        SignalError(error.value_or(Error::LibraryError));
    };
}

// A copy is not what the events are bound to, and leaves them alone. The last one to let go of the
// Impl ends the connection.
void cWebSocket_Sharp::release() {
    if (m_impl != nullptr && m_impl->owner == this) m_impl->release();
    m_impl.reset();
}

void cWebSocket_Sharp::Open(const char* url, double timeout) {
    const auto impl = m_impl;
    std::string why;
    if (succeeds([&] { impl->Open(request_of(url, Options(), timeout)); }, why)) return;
    if (!m_log)
        zTraceManager::Default()->TraceNote("cWebSocket_Sharp: Open failed (%s)\n", why.c_str());
    guarded(k_class_sharp, "the log function", [&] {
        if (m_log) m_log("cWebSocket_Sharp::Open - Exception" + why);
    });
    // A copy has no events of its own. The handler may destroy this socket.
    const bool has_events = impl->owner == this;
    guarded(k_class_sharp, "the fault", [&] {
        if (const auto call = impl->onFault; has_events && call) call(why);
    });
    if (!has_events || impl->onError) SignalError(Error::ConnectFailed);
}

void cWebSocket_Sharp::Send(const char* text) {
    const auto impl = m_impl;
    impl->Send(text == nullptr ? "" : text);
}

void cWebSocket_Sharp::send_binary(const void* data, std::size_t size) {
    const auto impl = m_impl;
    impl->SendBinary({static_cast<const char*>(data), size});
}

std::size_t cWebSocket_Sharp::waiting_bytes() const {
    const auto impl = m_impl;
    return impl->waiting_bytes();
}

void cWebSocket_Sharp::SendPing() {
    const auto impl = m_impl;
    impl->SendPing();
}

void cWebSocket_Sharp::Close() {
    const auto impl = m_impl;
    impl->Close();
}
