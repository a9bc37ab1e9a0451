// httpserver/http_server.cpp - cHttpServer of include/httpserver.h: its life and its thread. What
// it does stands in server_loop.h.
#include <algorithm>
#include <atomic>

#include "core/limits.h"
#include "core/statuses.h"
#include "httpserver.h"
#include "httpserver/server_loop.h"

using pennywort::k_ok;
using pennywort::httpserver::server_loop;

namespace {

// The thread of a server that is copied may be about to change its flag.
std::int32_t read_flag(const std::int32_t& flag) {
    return std::atomic_ref<std::int32_t>(const_cast<std::int32_t&>(flag))
        .load(std::memory_order_relaxed);
}

void write_flag(std::int32_t& flag, std::int32_t value) {
    std::atomic_ref<std::int32_t>(flag).store(value, std::memory_order_relaxed);
}

// A part of the loop, which lives as long as the whole.
template <typename part>
std::shared_ptr<part> part_of(const std::shared_ptr<server_loop>& loop, part* one) {
    return std::shared_ptr<part>(loop, one);
}

}  // namespace

cHttpServer::cHttpServer(std::int32_t port, std::int32_t bufferSize)
    : cHttpServer(port, bufferSize, cHttpServerSettings()) {}

cHttpServer::cHttpServer(std::int32_t port, std::int32_t bufferSize,
                         const cHttpServerSettings& settings)
    : m_buffer_size(std::clamp(bufferSize, 1, pennywort::k_max_request_bytes)),
      m_port(port),
      m_loop(std::make_shared<server_loop>(this, port, m_buffer_size, settings)) {
    m_listen_socket = part_of(m_loop, m_loop->listen_socket());
    m_watch_set = part_of(m_loop, &m_loop->watch_set());
    m_connections = part_of(m_loop, &m_loop->connections());
    m_handlers = part_of(m_loop, &m_loop->handlers());
    m_receive_buffer = std::shared_ptr<char[]>(m_loop, m_loop->receive_buffer());
    m_thread.reset(zThread::Factory("http server thread", this, 0, 4));
    if (m_thread == nullptr) m_loop->fail();
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
      m_loop(other.m_loop) {}

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
    m_loop = other.m_loop;
    return *this;
}

cHttpServer::~cHttpServer() { end(); }

void cHttpServer::end() {
    if (m_loop->owner() != this) return;
    write_flag(m_running, 0);
    m_loop->end();
    // Returns at once on the thread itself, where a handler is about to return into the loop.
    if (m_thread != nullptr) m_thread->Join();
    m_loop->close();
}

void cHttpServer::InstallHandler(cHttpHandler& handler) { m_handlers->add(handler); }

zStatus cHttpServer::Stop() {
    write_flag(m_running, 0);
    if (m_loop->owner() == this) m_loop->stop();
    return k_ok;
}

zStatus cHttpServer::ListenStatus() { return m_loop->listening.wait_for_status(); }

std::int32_t cHttpServer::ListenPort() { return m_loop->listening.wait_for_port(); }

void cHttpServer::GetCounts(cHttpServerCounts& counts) const {
    const auto& now = m_loop->counts();
    counts.accepted = now.accepted.get();
    counts.refused = now.refused.get();
    counts.open = now.open.get();
    counts.requests = now.requests.get();
    counts.bytesReceived = now.bytes_received.get();
    counts.bytesExamined = now.bytes_examined.get();
}

// A handler may delete this server while the loop runs, so nothing of it is touched behind that.
zStatus cHttpServer::Main(std::int32_t, const char* const*) {
    const auto loop = m_loop;
    loop->listen();
    write_flag(m_running, 1);
    loop->run();
    return k_ok;
}
