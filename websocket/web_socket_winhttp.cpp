// websocket/web_socket_winhttp.cpp - cWebSocket_WinHttp of include/websocket.h over
// upgrade_transport.h: the order of the steps, and the receive thread.
#include <array>
#include <cstring>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "core/limits.h"
#include "core/run/guarded.h"
#include "websocket.h"
#include "websocket/class_names.h"
#include "websocket/close_codes.h"
#include "websocket/message_text.h"
#include "websocket/receive_state.h"
#include "websocket/session_maker.h"
#include "websocket/transport_options.h"
#include "websocket/url_parts.h"

using pennywort::run::guarded;
using pennywort::run::guarded_or;
using namespace pennywort::websocket;

namespace {

constexpr std::size_t k_piece_bytes = 512;
constexpr std::chrono::microseconds k_pause_after_error{1'000'000};
constexpr char k_too_long[] = "a message is longer than it may be";

// Asks for the upgrade; false when it was not even answered. The socket may be null all the same.
bool upgrade(transport_request& request, std::shared_ptr<upgraded_socket>& socket) {
    if (!request.ask_for_upgrade() || !request.send() || !request.receive_response()) return false;
    socket = request.complete_upgrade();
    return true;
}

received_piece receive_from(upgraded_socket* socket, std::span<char> into) {
    return socket == nullptr ? received_piece() : socket->receive(into);
}

// Empty without the memory for it.
std::string fault_of(const upgraded_socket& socket) {
    std::string why;
    guarded(k_class_winhttp, "the loss", [&] { why = socket.fault(); });
    return why;
}

std::size_t longest_message(const cWebSocketOptions& options) {
    return options.maxMessageBytes > 0 ? std::size_t(options.maxMessageBytes)
                                       : pennywort::k_max_websocket_message_bytes;
}

// As hosts are told, and as a thread would find out that joined itself.
[[noreturn]] void throw_deadlock() {
    throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
}

}  // namespace

cWebSocket_WinHttp::cWebSocket_WinHttp() : m_running(std::make_shared<receive_state>()) {}

cWebSocket_WinHttp::~cWebSocket_WinHttp() {
    const auto state = m_running;
    state->lose_owner();
    guarded(k_class_winhttp, "the destructor", [this] {
        end_connection();
        // In a handler nobody can wait for the thread that the handler runs on: it ends by itself.
        if (m_receive_thread.get_id() == std::this_thread::get_id()) {
            m_receive_thread.detach();
        } else if (m_receive_thread.joinable()) {
            m_receive_thread.join();
        }
    });
    drop_handles();
}

// A handler on the receive thread may destroy this socket before its opening is told.
void cWebSocket_WinHttp::Open(const char* url, double timeout) {
    Close();
    const auto state = m_running;
    std::string why;
    const bool is_open = guarded_or(false, k_class_winhttp, "Open", [&] {
        return open_handles(url == nullptr ? "" : url, timeout, why);
    });
    if (is_open) {
        opened_call tell;
        {
            const auto held = state->held();
            if (state->has_owner) tell = next_opened_call();
        }
        tell();
        return;
    }
    SignalFault(why.c_str());
    if (state->has_owner) SignalError(Error::ConnectFailed);
    if (state->has_owner) Close();
}

bool cWebSocket_WinHttp::open_handles(const char* url, double timeout, std::string& why) {
    const cWebSocketOptions options = Options();
    const auto parts = options.isIPv6Taken ? split_url_with_ipv6(url) : split_url(url);
    if (!parts) why = "the URL is not understood";
    if (!parts) return false;
    m_is_secure = parts->is_secure();
    m_session_handle = current_session_maker()(settings_of(options, timeout));
    if (m_session_handle == nullptr) return false;
    m_connection_handle = m_session_handle->connect(parts->host, parts->port_to_use());
    if (m_connection_handle == nullptr) return false;
    const auto request = m_connection_handle->open_request(parts->path, m_is_secure);
    if (request == nullptr) return false;
    const bool is_answered = upgrade(*request, m_web_socket_handle);
    if (!is_answered || (m_web_socket_handle == nullptr && options.isUpgradeChecked)) {
        why = request->fault();
        return false;
    }
    start_thread();
    return true;
}

void cWebSocket_WinHttp::start_thread() {
    m_running->set_socket(m_web_socket_handle);
    m_running->is_running = true;
    // A handler may close this socket at once, and has to find the thread that it runs on.
    const auto held = m_running->held();
    m_receive_thread = std::thread([this, state = m_running, options = Options()] {
        const std::size_t longest = longest_message(options);
        incoming_messages incoming{message_text(longest, options.isDeflateOffered),
                                   message_bytes(longest)};
        guarded(k_class_winhttp, "the receive thread", [&] { run(*state, incoming); });
    });
}

// A handler may destroy this socket; then the state, which it does not own alone, says that it no
// longer runs.
void cWebSocket_WinHttp::run(receive_state& state, incoming_messages& incoming) {
    const auto socket = state.socket();
    // What is behind a piece is never looked at, so that nobody clears it.
    std::array<char, k_piece_bytes> buffer;
    while (state.is_running) {
        const received_piece piece = receive_from(socket.get(), buffer);
        if (!state.is_running) return;
        if (piece.status == receive_status::connection_lost) {
            return tell_loss(state, fault_of(*socket).c_str());
        }
        if (piece.status != receive_status::ok) {
            state.pause(k_pause_after_error);
            continue;
        }
        if (piece.kind == piece_kind::close) {
            tell_goodbye(*socket);
            continue;
        }
        const bool is_taken = guarded_or(false, k_class_winhttp, "a message", [&] {
            return deliver(piece, {buffer.data(), piece.size}, incoming);
        });
        if (is_taken) continue;
        socket->drop();
        return tell_loss(state, k_too_long);
    }
}

// The first of the two handlers may destroy this socket.
void cWebSocket_WinHttp::tell_loss(receive_state& state, const char* why) {
    SignalFault(why);
    if (state.has_owner) SignalError(Error::ConnectionLost);
}

void cWebSocket_WinHttp::tell_goodbye(upgraded_socket& socket) {
    if (!has_goodbye_handler()) return;
    close_report goodbye;
    guarded(k_class_winhttp, "the goodbye", [&] { goodbye = socket.query_close_status(); });
    if (goodbye.code == 0) goodbye.code = k_close_no_status;
    SignalGoodbye(goodbye.code, goodbye.reason.c_str());
}

// False for a message that is too long. Without a handler a binary one is passed over.
bool cWebSocket_WinHttp::deliver(const received_piece& piece, std::string_view bytes,
                                 incoming_messages& incoming) {
    using state = message_text::state;
    const bool is_binary =
        piece.kind == piece_kind::binary_message || piece.kind == piece_kind::binary_fragment;
    if (is_binary && !has_binary_handler()) return true;
    const state taken =
        is_binary ? incoming.binary.take(piece.kind, bytes) : incoming.text.take(piece.kind, bytes);
    if (taken == state::complete && is_binary) {
        ReceiveBinary(incoming.binary.bytes().data(), incoming.binary.bytes().size());
    } else if (taken == state::complete) {
        ReceiveMessage(incoming.text.text().c_str());
    }
    return taken != state::too_long;
}

void cWebSocket_WinHttp::Send(const char* text) {
    const std::string_view bytes = text == nullptr ? std::string_view() : text;
    const bool is_sent = guarded_or(false, k_class_winhttp, "Send", [&] {
        const auto socket = m_running->socket();
        return socket != nullptr && socket->send_text(bytes);
    });
    if (!is_sent) SignalError(Error::SendFailed);
}

void cWebSocket_WinHttp::send_binary(const void* data, std::size_t size) {
    const bool is_sent = guarded_or(false, k_class_winhttp, "SendBinary", [&] {
        const auto socket = m_running->socket();
        return socket != nullptr && socket->send_binary({static_cast<const char*>(data), size});
    });
    if (!is_sent) SignalError(Error::SendFailed);
}

void cWebSocket_WinHttp::end_connection() {
    m_running->stop();
    if (m_web_socket_handle == nullptr) return;
    const bool is_closed = guarded_or(false, k_class_winhttp, "Close", [this] {
        return m_web_socket_handle->close(k_close_normal);
    });
    if (is_closed) m_web_socket_handle->query_close_status();
}

void cWebSocket_WinHttp::Close() {
    end_connection();
    if (m_receive_thread.get_id() == std::this_thread::get_id()) throw_deadlock();
    if (m_receive_thread.joinable()) m_receive_thread.join();
    m_receive_thread = std::thread();
    drop_handles();
}

void cWebSocket_WinHttp::drop_handles() {
    m_running->set_socket(nullptr);
    if (m_web_socket_handle != nullptr) m_web_socket_handle->drop();
    m_web_socket_handle.reset();
    m_connection_handle.reset();
    m_session_handle.reset();
}
