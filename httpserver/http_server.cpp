// httpserver/http_server.cpp - cHttpServer of include/httpserver.h: its life, its thread and its
// connections. What passes over one of them stands in http_server_exchange.cpp.
//
// A handler may delete the server that calls it, and so may a body. Whatever runs after one of them
// therefore asks a state that it took hold of before, and leaves the server alone if that has
// ended; the connections, which it may still be in, go with the state.
#include <algorithm>
#include <atomic>

#include "core/limits.h"
#include "core/run/guarded.h"
#include "core/statuses.h"
#include "httpserver.h"
#include "httpserver/http_connection.h"
#include "httpserver/http_connections.h"
#include "httpserver/http_handlers.h"
#include "httpserver/http_server_state.h"
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

std::int64_t micro(std::int32_t milliseconds) { return std::int64_t{milliseconds} * 1000; }

// The thread of a server that is copied may be about to change its flag.
std::int32_t read_flag(const std::int32_t& flag) {
    return std::atomic_ref<std::int32_t>(const_cast<std::int32_t&>(flag))
        .load(std::memory_order_relaxed);
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
    m_connections->close_all();
    m_state->connections = std::move(m_connections);
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
    pennywort::run::guarded("cHttpServer", "listening",
                            [&] { status = create_listen_socket(m_port); });
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
    if (!pennywort::run::guarded("cHttpServer", "a new connection",
                                 [&] { add_socket_to_watch(added); })) {
        m_connections->take(m_connections->count() - 1);
        return;
    }
    m_state->accepted.add(1);
    m_state->open.add(1);
}

// The listen socket stands before the connections in the watch set.
void cHttpServer::data_rm(std::int32_t index) {
    const auto gone = m_connections->take(index);
    if (gone->stage != http_stage::request) --m_state->timed_stages;
    m_watch_set->RemoveAt(index + 1);
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
    pennywort::run::guarded("cHttpServer", "waiting",
                            [&] { status = wait_for_events(bound, ready); });
    if (status != k_ok) {
        // Whatever the reason is, it would come again at once.
        zThread::MicroSleep(static_cast<std::uint32_t>(micro(bound)));
        return;
    }
    state.now = zTime::MicroNow();
    const bool is_someone_waiting = state.listen_entry.occurred == zSocket::k_readable;
    serve_connections(ready - (is_someone_waiting ? 1 : 0));
    if (state.has_ended) return;
    if (is_someone_waiting)
        pennywort::run::guarded("cHttpServer", "accepting", [&] { accept_all(); });
    close_overdue();
}

void cHttpServer::serve_connections(std::int32_t ready) {
    http_server_state& state = *m_state;
    for (std::int32_t i = 0; ready > 0 && i < m_connections->count();) {
        http_connection& connection = m_connections->at(i);
        bool close = false;
        if (connection.occurred != 0) {
            --ready;
            const bool is_well = pennywort::run::guarded(
                "cHttpServer", "a request", [&] { serve_connection(connection, close); });
            if (state.has_ended) return;
            if (!is_well) close = true;
        }
        if (!close) {
            ++i;
            continue;
        }
        data_rm(i);
        if (state.has_ended) return;
    }
}

void cHttpServer::accept_all() {
    zStatus status = k_ok;
    for (int i = 0; status == k_ok && i < pennywort::k_max_accepts_at_once; ++i)
        status = accept_incoming();
    const bool was_short = m_state->is_short;
    m_state->is_short = status == zSocket::k_no_resources;
    if (!m_state->is_short) return;
    if (!was_short) {
        zTraceManager::Default()->TraceNote(
            "cHttpServer: no descriptor or memory for a further connection; it waits\n");
    }
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
        if (!is_overdue(m_connections->at(i))) continue;
        data_rm(i);
        if (state.has_ended) return;
    }
}
