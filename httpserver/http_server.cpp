// httpserver/http_server.cpp - cHttpServer of include/httpserver.h.
//
// A handler may delete the server that calls it. Whatever runs after a handler therefore asks a
// state that it took hold of before, and leaves the server alone if that has ended.
#include <algorithm>
#include <cstring>
#include <exception>
#include <string_view>

#include "core/limits.h"
#include "core/statuses.h"
#include "httpserver.h"
#include "httpserver/answer.h"
#include "httpserver/http_connection.h"
#include "httpserver/http_connections.h"
#include "httpserver/http_handlers.h"
#include "httpserver/http_server_state.h"
#include "httpserver/request_check.h"
#include "httpserver/request_line.h"
#include "loam/time.h"
#include "loam/trace.h"

using pennywort::http_connection;
using pennywort::http_server_state;
using pennywort::http_stage;
using pennywort::k_failed;
using pennywort::k_ok;

namespace {

constexpr std::int32_t k_round_ms = 1000;
// While the system has no descriptor left, a connection that waits would end every wait at once.
constexpr std::int32_t k_accept_pause_ms = 100;
// How soon a client that was answered is expected to ask again, if the one before was as quick.
constexpr std::int64_t k_brisk_us = 100;
// Connections accepted before the others are served again.
constexpr int k_accepts_at_once = 256;
// Pieces of one answer sent before the others are served again.
constexpr int k_pieces_at_once = 4;
// Memory of a request that has grown beyond this is not kept for the next one.
constexpr std::uint32_t k_kept_bytes = 64 * 1024;

std::int64_t micro(std::int32_t milliseconds) { return std::int64_t{milliseconds} * 1000; }

// The server is for texts: what one read brings counts up to the first NUL.
std::uint32_t text_length(const char* bytes, std::int32_t received) {
    const void* nul = std::memchr(bytes, '\0', static_cast<std::size_t>(received));
    if (nul == nullptr) return static_cast<std::uint32_t>(received);
    return static_cast<std::uint32_t>(static_cast<const char*>(nul) - bytes);
}

void append(http_connection& connection, const char* bytes, std::uint32_t length) {
    if (connection.data == nullptr) connection.data = std::make_unique<zString>();
    connection.data->AddToEnd(bytes, length);
}

void empty(http_connection& connection) {
    connection.progress.reset();
    connection.is_head_checked = false;
    if (connection.data == nullptr) return;
    if (connection.data->Length() > k_kept_bytes) {
        connection.data.reset();
    } else {
        connection.data->SetString("", 0);
    }
}

void set(zString& target, std::string_view text) {
    target.SetString(text.data(), static_cast<std::uint32_t>(text.size()));
}

// Of a text that was longer than most, the memory is not kept.
void settle(zString& text) {
    if (text.Length() > k_kept_bytes) text = zString();
}

// The thread of a server that is copied may be about to change its flag.
std::int32_t read_flag(const std::int32_t& flag) {
    return std::atomic_ref<std::int32_t>(const_cast<std::int32_t&>(flag))
        .load(std::memory_order_relaxed);
}

bool is_empty(const zString* text) { return text == nullptr || text->Empty(); }

// One request as handlers see it.
struct http_call {
    zSocket* socket;
    std::int32_t method;
    const char* request;
    const char* body;
};

// Runs what belongs to the host, or needs memory that a peer may have used up: whatever it throws
// must not end the thread. False when it has thrown.
template <typename function>
bool guarded(const char* what, function call) {
    try {
        call();
        return true;
    } catch (const std::exception& error) {
        zTraceManager::Default()->TraceNote("cHttpServer: %s threw: %s\n", what, error.what());
    } catch (...) {
        zTraceManager::Default()->TraceNote("cHttpServer: %s threw\n", what);
    }
    return false;
}

// False when the handler does not take the request. One that throws has taken it.
bool offer(cHttpHandler& handler, http_server_state& state, const http_call& call, zStatus& status,
           std::unique_ptr<cHttpBody>& pieces) {
    bool is_taken = true;
    guarded("a handler", [&] {
        is_taken =
            handler.CanHandle(call.method, state.path, state.extension, state.query, call.request);
        if (!is_taken || state.has_ended) return;
        pieces = handler.HandleInPieces(call.socket, call.method, state.path, state.extension,
                                        state.query, call.body, status);
    });
    return is_taken;
}

// The next bytes of a body, and never more than are left of what its head has told: a file may have
// grown since, and the peer would take the rest for the next answer. 0 or less: there are none.
std::int32_t read_piece(cHttpBody& body, std::int64_t offset, std::int64_t left,
                        std::vector<char>& piece) {
    const auto wanted =
        static_cast<std::int32_t>(std::min(left, static_cast<std::int64_t>(piece.size())));
    std::int32_t read = 0;
    guarded("a body", [&] { read = body.ReadAt(offset, piece.data(), wanted); });
    return read <= wanted ? read : 0;
}

}  // namespace

cHttpServer::cHttpServer(std::int32_t port, std::int32_t bufferSize)
    : cHttpServer(port, bufferSize, cHttpServerSettings()) {}

cHttpServer::cHttpServer(std::int32_t port, std::int32_t bufferSize,
                         const cHttpServerSettings& settings)
    : m_listen_socket(zSocket::Factory()),
      m_watch_set(std::make_shared<zHeap<_zSocket_select*>>()),
      m_connections(std::make_shared<pennywort::http_connections>()),
      m_handlers(std::make_shared<pennywort::http_handlers>()),
      m_buffer_size(std::clamp(bufferSize, 1, pennywort::k_max_request_bytes)),
      m_port(port),
      m_state(std::make_shared<http_server_state>(settings, this)) {
    m_receive_buffer.reset(new char[static_cast<std::size_t>(m_buffer_size) + 1]);
    start();
}

void cHttpServer::start() {
    m_thread.reset(zThread::Factory("http server thread", this, 0, 4));
    if (m_thread == nullptr) m_state->listening.set(zSocket::k_no_resources, 0);
}

cHttpServer::cHttpServer(const cHttpServer& other)
    : zThreadMain(other),
      m_running(read_flag(other.m_running)),
      m_listen_socket(other.m_listen_socket),
      m_watch_set(other.m_watch_set),
      m_connections(other.m_connections),
      m_handlers(other.m_handlers),
      m_receive_buffer(other.m_receive_buffer),
      m_buffer_size(other.m_buffer_size),
      m_port(other.m_port),
      m_thread(other.m_thread),
      m_state(other.m_state) {}

cHttpServer& cHttpServer::operator=(const cHttpServer& other) {
    if (this == &other) return *this;
    end();
    m_running = read_flag(other.m_running);
    m_listen_socket = other.m_listen_socket;
    m_watch_set = other.m_watch_set;
    m_connections = other.m_connections;
    m_handlers = other.m_handlers;
    m_receive_buffer = other.m_receive_buffer;
    m_buffer_size = other.m_buffer_size;
    m_port = other.m_port;
    m_thread = other.m_thread;
    m_state = other.m_state;
    return *this;
}

cHttpServer::~cHttpServer() { end(); }

void cHttpServer::end() {
    if (m_state->owner != this) return;
    Stop();
    // Returns at once on the thread itself, where a handler is about to return into Main.
    if (m_thread != nullptr) m_thread->Join();
    m_state->has_ended = true;
    m_handlers->release_all();
    m_watch_set->MakeEmpty();
    m_connections->clear();
    if (m_listen_socket != nullptr) m_listen_socket->Close();
}

void cHttpServer::InstallHandler(cHttpHandler& handler) { m_handlers->add(handler); }

zStatus cHttpServer::Stop() {
    std::atomic_ref<std::int32_t>(m_running).store(0, std::memory_order_relaxed);
    if (m_state->owner != this) return k_ok;
    m_state->is_stop_wanted.store(true, std::memory_order_relaxed);
    if (m_state->waker != nullptr) m_state->waker->Wake();
    return k_ok;
}

zStatus cHttpServer::ListenStatus() { return m_state->listening.wait_for_status(); }

std::int32_t cHttpServer::ListenPort() { return m_state->listening.wait_for_port(); }

void cHttpServer::GetCounts(cHttpServerCounts& counts) const {
    counts.accepted = m_state->accepted.get();
    counts.refused = m_state->refused.get();
    counts.open = m_state->open.get();
    counts.requests = m_state->requests.get();
    counts.bytesReceived = m_state->bytes_received.get();
    counts.bytesExamined = m_state->bytes_examined.get();
}

zStatus cHttpServer::Main(std::int32_t, const char* const*) {
    const auto state = m_state;
    listen();
    std::atomic_ref<std::int32_t>(m_running).store(1, std::memory_order_relaxed);
    while (is_running()) {
        serve_round();
        if (state->has_ended) return k_ok;
    }
    return k_ok;
}

bool cHttpServer::is_running() {
    return read_flag(m_running) != 0 && !m_state->is_stop_wanted.load(std::memory_order_relaxed);
}

// Without a port the thread goes on, over an empty watch set.
void cHttpServer::listen() {
    zStatus status = zSocket::k_no_resources;
    guarded("listening", [&] { status = create_listen_socket(m_port); });
    if (status == k_ok) {
        m_state->listening.set(k_ok, m_listen_socket->LocalPort());
        return;
    }
    zTraceManager::Default()->TraceNote("cHttpServer: cannot listen on port %d: status %d\n",
                                        m_port, status);
    // A socket that is bound and does not listen would keep the port from others.
    if (m_listen_socket != nullptr) m_listen_socket->Close();
    m_state->listening.set(status, 0);
}

zStatus cHttpServer::create_listen_socket(std::int32_t port) {
    constexpr std::int32_t k_last_port = 65535;
    if (m_listen_socket == nullptr) return zSocket::k_no_resources;
    if (port < 0 || port > k_last_port) return k_failed;
    zStatus status = m_listen_socket->Open(0);
    if (status == k_ok) status = m_listen_socket->SetReuseAddress();
    if (status == k_ok) {
        status = m_listen_socket->BindTo(m_state->settings.bindAddress.CString(),
                                         static_cast<std::uint16_t>(port));
    }
    if (status == k_ok) status = m_listen_socket->Listen(m_state->settings.backlog);
    if (status != k_ok) return status;
    m_state->listen_entry.socket = m_listen_socket.get();
    m_state->listen_entry.requested = zSocket::k_readable;
    add_socket_to_watch(&m_state->listen_entry);
    return k_ok;
}

void cHttpServer::add_socket_to_watch(_zSocket_select* entry) { m_watch_set->Add(entry); }

void cHttpServer::data_add(std::unique_ptr<zSocket> socket) {
    http_connection* const added = m_connections->add(std::move(socket), zTime::MicroNow());
    // Without its entry a connection would shift those of all that come after it.
    if (!guarded("a new connection", [&] { add_socket_to_watch(added); })) {
        return m_connections->remove(m_connections->count() - 1);
    }
    m_state->accepted.add(1);
    m_state->open.add(1);
}

// The listen socket stands before the connections in the watch set.
void cHttpServer::data_rm(std::int32_t index) {
    if (m_connections->at(index).stage != http_stage::request) --m_state->timed_stages;
    m_watch_set->RemoveAt(index + 1);
    m_connections->remove(index);
    m_state->open.add(-1);
}

std::int32_t cHttpServer::wait_time() const {
    std::int32_t bound = k_round_ms;
    const cHttpServerSettings& settings = m_state->settings;
    if (m_state->accept_again != 0) bound = std::min(bound, k_accept_pause_ms);
    if (settings.idleTimeoutMs > 0) bound = std::min(bound, settings.idleTimeoutMs / 4);
    const bool may_stall = m_state->timed_stages > 0 && settings.stallTimeoutMs > 0;
    if (may_stall) bound = std::min(bound, settings.stallTimeoutMs / 4);
    return std::max(bound, 1);
}

// To sleep and be woken costs more than a request does. So while clients ask again at once, the
// thread looks a few times before it sleeps, and lets others run in between; one look in vain, for
// a tenth of a millisecond, and it sleeps until they are as quick again.
zStatus cHttpServer::wait_for_events(std::int32_t bound, std::int32_t& ready) {
    http_server_state& state = *m_state;
    const std::int64_t begin = zTime::MicroNow();
    const auto is_early = [&] { return zTime::MicroNow() - begin < k_brisk_us; };
    while (state.is_brisk) {
        const zStatus status = zSocket::Select(m_watch_set.get(), 0, &ready, state.waker.get());
        // The look may have used up the call that was to end the wait.
        if (status != k_ok || ready > 0 || !is_running()) return status;
        zThread::MicroSleep(0);
        state.is_brisk = is_early();
    }
    const zStatus status = zSocket::Select(m_watch_set.get(), bound, &ready, state.waker.get());
    state.is_brisk = ready > 0 && is_early();
    return status;
}

void cHttpServer::serve_round() {
    http_server_state& state = *m_state;
    std::int32_t ready = 0;
    const std::int32_t bound = wait_time();
    zStatus status = k_failed;
    guarded("waiting", [&] { status = wait_for_events(bound, ready); });
    if (status != k_ok) {
        // Whatever the reason is, it would come again at once.
        zThread::MicroSleep(static_cast<std::uint32_t>(micro(bound)));
        return;
    }
    state.now = zTime::MicroNow();
    const bool is_someone_waiting = state.listen_entry.occurred == zSocket::k_readable;
    serve_connections(ready - (is_someone_waiting ? 1 : 0));
    if (state.has_ended) return;
    if (is_someone_waiting) guarded("accepting", [&] { accept_all(); });
    close_overdue();
}

void cHttpServer::serve_connections(std::int32_t ready) {
    http_server_state& state = *m_state;
    for (std::int32_t i = 0; ready > 0 && i < m_connections->count();) {
        http_connection& connection = m_connections->at(i);
        bool close = false;
        if (connection.occurred != 0) {
            --ready;
            const bool is_well = guarded("a request", [&] { serve_connection(connection, close); });
            if (state.has_ended) return;
            if (!is_well) close = true;
        }
        if (close) {
            data_rm(i);
        } else {
            ++i;
        }
    }
}

void cHttpServer::serve_connection(http_connection& connection, bool& close) {
    switch (connection.stage) {
        case http_stage::request:
            handle_client_read(connection, close);
            return;
        case http_stage::pieces:
            send_pieces(connection, close);
            return;
        case http_stage::parting:
            discard(connection, close);
            return;
    }
}

void cHttpServer::accept_all() {
    zStatus status = k_ok;
    for (int i = 0; status == k_ok && i < k_accepts_at_once; ++i) status = accept_incoming();
    if (status != zSocket::k_no_resources) return;
    m_state->listen_entry.requested = 0;
    m_state->listen_entry.occurred = 0;
    m_state->accept_again = m_state->now + micro(k_accept_pause_ms);
}

zStatus cHttpServer::accept_incoming() {
    zSocket* accepted = nullptr;
    const zStatus status = m_listen_socket->Accept(&accepted, 0);
    std::unique_ptr<zSocket> socket(accepted);
    if (status != k_ok) return status;
    if (socket == nullptr) return k_failed;
    const std::int32_t most = m_state->settings.maxConnections;
    if (most > 0 && m_connections->count() >= most) {
        m_state->refused.add(1);
        return k_ok;
    }
    data_add(std::move(socket));
    return k_ok;
}

zStatus cHttpServer::handle_client_read(http_connection& connection, bool& close) {
    std::int32_t received = 0;
    const zStatus status =
        connection.socket->Receive(m_receive_buffer.get(), m_buffer_size, &received);
    const bool is_fatal =
        status != k_ok && status != zSocket::k_not_now && status != zSocket::k_timed_out;
    if (is_fatal || (status == k_ok && received == 0)) {
        close = true;
        return status;
    }
    m_state->bytes_received.add(received);
    return take_bytes(connection, close, received);
}

// A request that came whole, as nearly all do, is served from where it was received.
zStatus cHttpServer::take_bytes(http_connection& connection, bool& close, std::int32_t received) {
    char* const bytes = m_receive_buffer.get();
    const std::uint32_t length = text_length(bytes, received);
    const bool is_cut = static_cast<std::int32_t>(length) < received;
    bytes[length] = '\0';
    const bool is_first = is_empty(connection.data.get());
    const std::uint32_t before = is_first ? 0 : connection.data->Length();
    const std::int32_t wanted_most = m_state->settings.maxRequestBytes;
    const std::int32_t most = wanted_most > 0 ? wanted_most : pennywort::k_max_request_bytes;
    if (std::int64_t{before} + length > most) return refuse(connection, close, 413);
    if (connection.progress.is_hopeless()) return k_failed;

    if (!is_first) append(connection, bytes, length);
    const char* const request = is_first ? bytes : connection.data->CString();
    const std::string_view text(request, before + length);
    const std::uint64_t examined = connection.progress.bytes_examined();
    const bool is_complete = connection.progress.look(text);
    m_state->bytes_examined.add(
        static_cast<std::int64_t>(connection.progress.bytes_examined() - examined));
    const std::int32_t refusal = refusal_of(connection, text);
    if (refusal != 0) return refuse(connection, close, refusal);
    if (is_complete) return dispatch(connection, close, text);
    // Without the bytes that were dropped it would end elsewhere than for any other reader.
    if (is_cut && m_state->settings.answerBadRequests) return refuse(connection, close, 400);
    // What can never become a request need not be kept.
    if (is_first && !connection.progress.is_hopeless()) append(connection, bytes, length);
    return k_failed;
}

// 0 while there is nothing against the request.
std::int32_t cHttpServer::refusal_of(http_connection& connection, std::string_view text) const {
    if (!m_state->settings.answerBadRequests || connection.is_head_checked) return 0;
    const auto& progress = connection.progress;
    if (progress.is_hopeless()) return pennywort::refusal_of_method(text);
    if (progress.body_offset() == 0) return 0;
    connection.is_head_checked = true;
    return pennywort::refusal_of_head(text.substr(0, progress.body_offset()),
                                      progress.content_length());
}

// Closed at once, the connection would be reset under the answer by what the peer still sends.
zStatus cHttpServer::refuse(http_connection& connection, bool& close, std::int32_t status) {
    empty(connection);
    if (!m_state->settings.answerBadRequests) {
        close = true;
        return k_failed;
    }
    const std::string page = pennywort::refusal_page(status);
    std::int32_t sent = 0;
    connection.socket->SendSome(page.data(), static_cast<std::int32_t>(page.size()), &sent);
    close = connection.socket->EndSending() != k_ok;
    begin_timed(connection, http_stage::parting);
    return k_failed;
}

zStatus cHttpServer::dispatch(http_connection& connection, bool& close, std::string_view text) {
    http_server_state& state = *m_state;
    const auto line = pennywort::parse_request_line(text);
    set(state.path, line.path);
    set(state.extension, line.extension);
    set(state.query, line.query);
    state.requests.add(1);
    const http_call call{connection.socket, static_cast<std::int32_t>(connection.progress.method()),
                         text.data(), text.data() + connection.progress.body_offset()};
    zStatus status = k_failed;
    std::unique_ptr<cHttpBody> pieces;
    bool is_taken = false;
    state.collected.clear();
    connection.socket->BeginCollecting(&state.collected);
    for (std::size_t i = 0; !is_taken; ++i) {
        const pennywort::handler_reference handler(m_handlers->take(i));
        if (handler.get() == nullptr) break;
        is_taken = offer(*handler.get(), state, call, status, pieces);
        if (state.has_ended) return status;
    }
    // The handler may have taken long, which is not the peer's fault.
    connection.since = zTime::MicroNow();
    empty(connection);
    for (zString* part : {&state.path, &state.extension, &state.query}) settle(*part);
    if (pieces != nullptr) begin_pieces(connection, close, std::move(pieces));
    const zStatus gone = connection.socket->EndCollecting(pennywort::k_send_timeout_ms);
    // Without their head, pieces would be taken for anything.
    if (gone != k_ok && connection.stage == http_stage::pieces) close = true;
    // A handler may have closed it, and nothing would ever be told of it again.
    if (!connection.socket->IsOpen()) close = true;
    return status;
}

void cHttpServer::begin_pieces(http_connection& connection, bool& close,
                               std::unique_ptr<cHttpBody> pieces) {
    connection.pieces = std::move(pieces);
    connection.sent = 0;
    connection.requested = zSocket::k_writable;
    begin_timed(connection, http_stage::pieces);
    send_pieces(connection, close);
}

void cHttpServer::begin_timed(http_connection& connection, http_stage stage) {
    connection.stage = stage;
    connection.since = zTime::MicroNow();
    ++m_state->timed_stages;
    m_state->next_check = 0;
}

void cHttpServer::send_pieces(http_connection& connection, bool& close) {
    auto& piece = m_state->piece;
    piece.resize(pennywort::k_http_piece_bytes);
    std::int64_t size = 0;
    if (!guarded("a body", [&] { size = connection.pieces->Size(); })) {
        close = true;
        return;
    }
    for (int i = 0; i < k_pieces_at_once && connection.sent < size; ++i) {
        const std::int32_t read =
            read_piece(*connection.pieces, connection.sent, size - connection.sent, piece);
        std::int32_t sent = 0;
        const zStatus status =
            read <= 0 ? k_failed : connection.socket->SendSome(piece.data(), read, &sent);
        if (status == zSocket::k_not_now) return;
        if (status != k_ok) {
            close = true;
            return;
        }
        connection.sent += sent;
        connection.since = zTime::MicroNow();
    }
    if (connection.sent < size) return;
    connection.pieces.reset();
    connection.stage = http_stage::request;
    connection.requested = zSocket::k_readable;
    --m_state->timed_stages;
}

void cHttpServer::discard(http_connection& connection, bool& close) {
    std::int32_t received = 0;
    const zStatus status =
        connection.socket->Receive(m_receive_buffer.get(), m_buffer_size, &received);
    if (status == zSocket::k_not_now) return;
    connection.dropped += received;
    close = status != k_ok || received == 0 || connection.dropped > pennywort::k_max_dropped_bytes;
}

bool cHttpServer::is_overdue(const http_connection& connection) const {
    // The handler of another connection may have closed it; nothing is ever told of it again.
    if (!connection.socket->IsOpen()) return true;
    const cHttpServerSettings& settings = m_state->settings;
    const std::int32_t bound =
        connection.stage == http_stage::request ? settings.idleTimeoutMs : settings.stallTimeoutMs;
    return bound > 0 && m_state->now - connection.since >= micro(bound);
}

void cHttpServer::close_overdue() {
    http_server_state& state = *m_state;
    if (state.accept_again != 0 && state.now >= state.accept_again) {
        state.accept_again = 0;
        state.listen_entry.requested = zSocket::k_readable;
    }
    if (state.now < state.next_check) return;
    state.next_check = state.now + micro(wait_time());
    for (std::int32_t i = m_connections->count() - 1; i >= 0; --i) {
        if (is_overdue(m_connections->at(i))) data_rm(i);
    }
}
