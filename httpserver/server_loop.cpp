// httpserver/server_loop.cpp - see the header for the contract.
#include "httpserver/server_loop.h"

#include <algorithm>
#include <utility>

#include "core/statuses.h"
#include "httpserver/guarded.h"
#include "loam/thread.h"
#include "loam/time.h"
#include "loam/trace.h"

namespace pennywort::httpserver {
namespace {

constexpr std::int32_t k_round_ms = 1000;
// While the system has no descriptor left, a connection that waits would end every wait at once.
constexpr std::int32_t k_accept_pause_ms = 100;
// How soon a client that was answered is expected to ask again, if the one before was as quick.
constexpr std::int64_t k_brisk_us = 100;

std::int64_t micro(std::int32_t milliseconds) { return std::int64_t{milliseconds} * 1000; }

}  // namespace

server_loop::server_loop(const cHttpServer* owner, std::int32_t port, std::int32_t buffer_size,
                         const cHttpServerSettings& settings, const run::monotonic_clock& clock)
    : m_owner(owner),
      m_settings(settings),
      m_clock(clock),
      m_port(port),
      m_buffer_size(buffer_size),
      m_listen_socket(zSocket::Factory()),
      m_waker(zSocketWaker::Factory()),
      m_receive_buffer(new char[static_cast<std::size_t>(buffer_size) + 1]),
      m_exchanges(m_settings, m_clock, m_handlers, m_counts, m_receive_buffer.get(),
                  m_buffer_size) {}

void server_loop::run() {
    m_is_running.store(true, std::memory_order_relaxed);
    const bool is_listening = m_listen_status == k_ok;
    listening.set(m_listen_status, is_listening ? m_listen_socket->LocalPort() : 0);
    while (is_running()) serve_round();
}

bool server_loop::is_running() const {
    return m_is_running.load(std::memory_order_relaxed) &&
           !m_has_ended.load(std::memory_order_relaxed);
}

void server_loop::stop() {
    m_is_running.store(false, std::memory_order_relaxed);
    if (m_waker != nullptr) m_waker->Wake();
}

void server_loop::end() {
    m_has_ended.store(true, std::memory_order_relaxed);
    if (m_waker != nullptr) m_waker->Wake();
}

void server_loop::close() {
    m_handlers.release_all();
    m_connections.close_all();
    if (m_listen_socket != nullptr) m_listen_socket->Close();
}

// Without a port the thread goes on, over an empty watch set.
void server_loop::listen() {
    m_listen_status = zSocket::k_no_resources;
    guarded("listening", [&] { m_listen_status = create_listen_socket(); });
    if (m_listen_status == k_ok) return;
    zTraceManager::Default()->TraceNote("cHttpServer: cannot listen on port %d: status %d\n",
                                        m_port, m_listen_status);
    // A socket that is bound and does not listen would keep the port from others.
    if (m_listen_socket != nullptr) m_listen_socket->Close();
}

zStatus server_loop::create_listen_socket() {
    constexpr std::int32_t k_last_port = 65535;
    if (m_listen_socket == nullptr) return zSocket::k_no_resources;
    if (m_port < 0 || m_port > k_last_port) return k_failed;
    zStatus status = m_listen_socket->Open(0);
    if (status == k_ok) status = m_listen_socket->SetReuseAddress();
    if (status == k_ok) {
        status = m_listen_socket->BindTo(m_settings.bindAddress.CString(),
                                         static_cast<std::uint16_t>(m_port));
    }
    if (status == k_ok) status = m_listen_socket->Listen(m_settings.backlog);
    if (status != k_ok) return status;
    // A second Main listens again, with the same entry.
    const bool is_watched = m_listen_entry.socket != nullptr;
    m_listen_entry.socket = m_listen_socket.get();
    m_listen_entry.requested = zSocket::k_readable;
    if (!is_watched) add_socket_to_watch(&m_listen_entry);
    return k_ok;
}

void server_loop::add_socket_to_watch(_zSocket_select* entry) { m_watch_set.Add(entry); }

void server_loop::data_add(std::unique_ptr<zSocket> socket) {
    connection* const added = m_connections.add(std::move(socket), micro_now(m_clock));
    // Without its entry a connection would shift those of all that come after it.
    if (!guarded("a new connection", [&] { add_socket_to_watch(added); })) {
        m_connections.take(m_connections.count() - 1);
        return;
    }
    m_counts.accepted.add(1);
    m_counts.open.add(1);
}

// The listen socket stands before the connections in the watch set.
void server_loop::data_rm(std::int32_t index) {
    const auto gone = m_connections.take(index);
    m_exchanges.forget(*gone);
    m_watch_set.RemoveAt(index + 1);
    m_counts.open.add(-1);
}

std::int32_t server_loop::wait_time() const {
    std::int32_t bound = k_round_ms;
    if (m_accept_again != 0) bound = std::min(bound, k_accept_pause_ms);
    if (m_settings.idleTimeoutMs > 0) bound = std::min(bound, m_settings.idleTimeoutMs / 4);
    const bool may_stall = m_exchanges.timed() > 0 && m_settings.stallTimeoutMs > 0;
    if (may_stall) bound = std::min(bound, m_settings.stallTimeoutMs / 4);
    return std::max(bound, 1);
}

// To sleep and be woken costs more than a request does. So while clients ask again at once, the
// thread looks a few times before it sleeps, and lets others run in between; one look in vain, for
// a tenth of a millisecond, and it sleeps until they are as quick again.
zStatus server_loop::wait_for_events(std::int32_t bound, std::int32_t& ready) {
    const std::int64_t begin = zTime::MicroNow();
    const auto is_early = [&] { return zTime::MicroNow() - begin < k_brisk_us; };
    while (m_is_brisk) {
        const zStatus status = zSocket::Select(&m_watch_set, 0, &ready, m_waker.get());
        // The look may have used up the call that was to end the wait.
        if (status != k_ok || ready > 0 || !is_running()) return status;
        zThread::MicroSleep(0);
        m_is_brisk = is_early();
    }
    const zStatus status = zSocket::Select(&m_watch_set, bound, &ready, m_waker.get());
    m_is_brisk = ready > 0 && is_early();
    return status;
}

void server_loop::serve_round() {
    std::int32_t ready = 0;
    const std::int32_t bound = wait_time();
    zStatus status = k_failed;
    guarded("waiting", [&] { status = wait_for_events(bound, ready); });
    if (status != k_ok) {
        // Without this pause the same failure would come again at once.
        zThread::MicroSleep(static_cast<std::uint32_t>(micro(bound)));
        return;
    }
    m_now = micro_now(m_clock);
    const bool is_someone_waiting = m_listen_entry.occurred == zSocket::k_readable;
    serve_connections(ready - (is_someone_waiting ? 1 : 0));
    if (is_someone_waiting) accept();
    close_overdue();
}

void server_loop::serve_connections(std::int32_t ready) {
    for (std::int32_t i = 0; ready > 0 && i < m_connections.count();) {
        connection& one = m_connections.at(i);
        const bool is_ready = one.occurred != 0;
        if (is_ready) --ready;
        if (is_ready && serve(one) == fate::ends) {
            data_rm(i);
        } else {
            ++i;
        }
    }
}

fate server_loop::serve(connection& one) {
    fate next = fate::ends;
    guarded("a request", [&] { next = m_exchanges.serve(one); });
    return next;
}

// One in each round, so that a handler sees what came first before what came with the next.
void server_loop::accept() {
    zStatus status = k_failed;
    guarded("accepting", [&] { status = accept_incoming(); });
    const bool was_short = std::exchange(m_is_short, status == zSocket::k_no_resources);
    if (!m_is_short) return;
    if (!was_short) {
        zTraceManager::Default()->TraceNote(
            "cHttpServer: no descriptor or memory for a further connection; it waits\n");
    }
    pause_accepting();
}

void server_loop::pause_accepting() {
    m_listen_entry.requested = 0;
    m_listen_entry.occurred = 0;
    m_accept_again = m_now + micro(k_accept_pause_ms);
}

zStatus server_loop::accept_incoming() {
    zSocket* accepted = nullptr;
    const zStatus status = m_listen_socket->Accept(&accepted, 0);
    std::unique_ptr<zSocket> socket(accepted);
    if (status != k_ok) return status;
    if (socket == nullptr) return k_failed;
    if (!has_room()) {
        m_counts.refused.add(1);
        return k_ok;
    }
    data_add(std::move(socket));
    return k_ok;
}

bool server_loop::has_room() {
    const std::int32_t most = m_settings.maxConnections;
    if (most <= 0 || m_connections.count() < most) return true;
    return m_settings.dropUntrustedWhenFull && drop_untrusted();
}

// Without this, idle connections of anybody would keep everybody else out, and without the second
// look so would those that take their answer byte by byte.
bool server_loop::drop_untrusted() {
    return drop_untrusted([](const connection& one) { return one.at != stage::pieces; }) ||
           drop_untrusted([](const connection&) { return true; });
}

bool server_loop::drop_untrusted(bool (*may_go)(const connection&)) {
    for (std::int32_t i = 0; i < m_connections.count(); ++i) {
        const connection& one = m_connections.at(i);
        if (one.is_trusted || !may_go(one)) continue;
        data_rm(i);
        m_counts.refused.add(1);
        return true;
    }
    return false;
}

bool server_loop::is_overdue(const connection& one) const {
    // Another connection's handler may have closed it. No event follows, so it is removed here.
    if (!one.facade.IsOpen()) return true;
    const std::int32_t bound =
        one.at == stage::request ? m_settings.idleTimeoutMs : m_settings.stallTimeoutMs;
    return bound > 0 && m_now - one.since >= micro(bound);
}

void server_loop::close_overdue() {
    if (m_accept_again != 0 && m_now >= m_accept_again) {
        m_accept_again = 0;
        m_listen_entry.requested = zSocket::k_readable;
    }
    if (m_now < m_next_check) return;
    m_next_check = m_now + micro(wait_time());
    for (std::int32_t i = m_connections.count() - 1; i >= 0; --i) {
        if (is_overdue(m_connections.at(i))) data_rm(i);
    }
}

}  // namespace pennywort::httpserver
